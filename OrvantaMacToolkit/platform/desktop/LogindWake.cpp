#include "LogindWake.h"

#include <QDBusConnection>

namespace orvanta::platform::desktop {

LogindWake::LogindWake(QObject* parent) : QObject(parent) {
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected())
        return;
    m_listening =
        bus.connect(QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
                    QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("PrepareForSleep"), this,
                    SLOT(prepareForSleep(bool)));
}

void LogindWake::prepareForSleep(bool starting) {
    if (!starting)
        Q_EMIT woke();
}

} // namespace orvanta::platform::desktop
