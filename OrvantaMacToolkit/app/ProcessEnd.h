#pragma once

// How the application process ends: on a termination signal as on "Quit", and promptly whatever a
// background thread is blocked in.

#include <QObject>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

class QSocketNotifier;

namespace orvanta::app {

// SIGTERM and SIGINT (a logout, `kill`, Ctrl-C in a terminal) end the event loop as "Quit" does, so that
// everything is torn down in order and running scripts are told to stop, instead of the process vanishing
// mid-step. The handler only writes a byte into a pipe; the event loop reads it. At most one at a time;
// without POSIX signals it does nothing.
class TerminationSignals : public QObject {
    Q_OBJECT
public:
    explicit TerminationSignals(QObject* parent = nullptr);
    ~TerminationSignals() override;

private:
    QSocketNotifier* m_notifier = nullptr;
};

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
