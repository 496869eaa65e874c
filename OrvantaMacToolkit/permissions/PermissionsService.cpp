#include "PermissionsService.h"

#include <QTimer>

namespace orvanta {

PermissionsService::PermissionsService(platform::Platform platform, QObject* parent, int pollIntervalMs)
    : QObject(parent), m_platform(platform), m_pollIntervalMs(pollIntervalMs),
      m_queue(queueLabel, SerialQueue::Priority::utility) {
    m_axTrusted = m_platform.accessibility->isProcessTrusted();
    m_aeAuthorized = checkAEAuthorization(*m_platform.appleEvents);
}

PermissionsService::~PermissionsService() {
    m_toMainThread.close();
}

void PermissionsService::start() {
    m_queue.async([this] { scheduleTimer(); });
}

void PermissionsService::scheduleTimer() {
    delete m_timer;
    m_timer = new QTimer(m_queue.context());
    // Precise: the leeway lets a poll come late but never early, and a coarse timer's rounding can make it
    // early.
    m_timer->setTimerType(Qt::PreciseTimer);
    m_timer->setInterval(m_pollIntervalMs);
    QObject::connect(m_timer, &QTimer::timeout, m_queue.context(), [this] { poll(); });
    m_timer->start();
}

void PermissionsService::poll() {
    const bool trusted = m_platform.accessibility->isProcessTrusted();
    const bool authorized = checkAEAuthorization(*m_platform.appleEvents);
    m_toMainThread.post([this, trusted, authorized] { publish(trusted, authorized); });
}

void PermissionsService::publish(bool axTrusted, bool aeAuthorized) {
    if (m_axTrusted != axTrusted) {
        m_axTrusted = axTrusted;
        Q_EMIT axTrustedChanged();
    }
    if (m_aeAuthorized != aeAuthorized) {
        m_aeAuthorized = aeAuthorized;
        Q_EMIT aeAuthorizedChanged();
    }
}

bool PermissionsService::checkAEAuthorization(platform::AppleEvents& appleEvents) {
    return appleEvents.determinePermissionToAutomate(systemEventsBundleID, false) == 0;
}

void PermissionsService::requestAEAuthorization(platform::AppleEvents& appleEvents) {
    appleEvents.determinePermissionToAutomate(systemEventsBundleID, true);
}

const QUrl& PermissionsService::accessibilitySettingsURL() {
    static const QUrl url(
        QStringLiteral("x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility"));
    return url;
}

} // namespace orvanta
