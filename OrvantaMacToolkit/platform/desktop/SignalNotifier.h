#pragma once

#include <QObject>

#include <initializer_list>

class QSocketNotifier;

namespace orvanta::platform::desktop {

// Turns POSIX signals into `received`, once per signal delivered, on the thread that created the notifier
// (its event loop must run). The handler only writes a byte into the notifier's pipe, which is all a signal
// handler may safely do; the event loop reads it back. A signal is watched by at most one notifier at a
// time, and the previous handler comes back when the notifier goes; without POSIX signals it never fires.
class SignalNotifier : public QObject {
    Q_OBJECT
public:
    explicit SignalNotifier(std::initializer_list<int> signalNumbers, QObject* parent = nullptr);
    ~SignalNotifier() override;

    bool isActive() const { return m_notifier != nullptr; }

Q_SIGNALS:
    void received();

private:
    void drain();

    QSocketNotifier* m_notifier = nullptr;
    int m_pipe[2] = {-1, -1};
    QList<int> m_signals;
};

} // namespace orvanta::platform::desktop
