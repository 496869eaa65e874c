#include "window/ActiveRunner.h"

namespace orvanta::window {

namespace {

// An absent time is the distant past: earlier than every real one.
bool earlier(const std::optional<QDateTime>& a, const std::optional<QDateTime>& b) {
    if (!b)
        return false;
    return !a || *a < *b;
}

} // namespace

int activeRunnerIndex(const std::array<RunnerActivity, 3>& runners) {
    int choice = -1;
    for (int i = 0; i < 3; ++i) {
        if (!runners[i].running)
            continue;
        if (choice < 0 || earlier(runners[choice].lastStarted, runners[i].lastStarted))
            choice = i;
    }
    if (choice >= 0)
        return choice;

    choice = 0;
    for (int i = 1; i < 3; ++i) {
        if (earlier(runners[choice].lastCompleted, runners[i].lastCompleted))
            choice = i;
    }
    return runners[choice].lastCompleted ? choice : 0;
}

} // namespace orvanta::window
