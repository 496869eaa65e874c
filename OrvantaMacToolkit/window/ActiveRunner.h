#pragma once

#include <QDateTime>

#include <array>
#include <optional>

namespace orvanta::window {

// What the window knows of one runner when it picks whose output to show.
struct RunnerActivity {
    bool running = false;
    std::optional<QDateTime> lastStarted;
    std::optional<QDateTime> lastCompleted;
};

// The runner whose output the log shows, as an index into reach, monitor, trace route: the latest started of
// those running, else the latest ended; on ties or with nothing known, the earlier one in that order.
int activeRunnerIndex(const std::array<RunnerActivity, 3>& runners);

} // namespace orvanta::window
