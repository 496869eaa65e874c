#pragma once

#include <QObject>

class QSocketNotifier;

namespace orvanta::platform::desktop {

// Turns SIGUSR1 into `received` on the thread that created the watcher (its event loop must run). The
// handler only writes a byte into a pipe, which is all a signal handler may safely do; the byte is read
// back by the event loop. At most one watcher exists at a time; without POSIX signals it never fires.
class UserSignalWake : public QObject {
    Q_OBJECT
public:
    explicit UserSignalWake(QObject* parent = nullptr);
    ~UserSignalWake() override;

    bool isActive() const { return m_notifier != nullptr; }

Q_SIGNALS:
    void received();

private:
    void drain();

    QSocketNotifier* m_notifier = nullptr;
};

} // namespace orvanta::platform::desktop
