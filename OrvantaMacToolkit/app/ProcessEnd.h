#pragma once

// How the application process ends: promptly, whatever a background thread is blocked in.

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace orvanta::app {

// Once armed, ends the process with the given status when the grace period has passed, unless the
// deadline is destroyed first. Teardown after the event loop waits for the session monitor's and the
// permission poll's threads, which may be blocked in an Apple Event until its time-out (about a minute) or
// behind a consent prompt; nothing they hold needs saving, so quitting does not wait for them.
class ExitDeadline {
public:
    ExitDeadline() = default;
    ~ExitDeadline();
    ExitDeadline(const ExitDeadline&) = delete;
    ExitDeadline& operator=(const ExitDeadline&) = delete;

    void arm(std::chrono::milliseconds grace, int status);

private:
    std::mutex m_mutex;
    std::condition_variable m_done;
    bool m_finished = false;
    std::thread m_watch;
};

} // namespace orvanta::app
