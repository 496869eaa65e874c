#pragma once

#include <QObject>

namespace orvanta::platform::desktop {

// Reports the end of a system sleep as logind announces it on the system bus (PrepareForSleep(false)).
// Without a system bus or logind it simply never fires.
class LogindWake : public QObject {
    Q_OBJECT
public:
    explicit LogindWake(QObject* parent = nullptr);

    bool isListening() const { return m_listening; }

Q_SIGNALS:
    void woke();

private Q_SLOTS:
    void prepareForSleep(bool starting);

private:
    bool m_listening = false;
};

} // namespace orvanta::platform::desktop
