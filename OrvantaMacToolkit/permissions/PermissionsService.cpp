#include "PermissionsService.h"

#include <QTimer>

namespace orvanta {

namespace {
// What the Apple Event Manager answers about an application that is not running.
constexpr int procNotFound = -600;
} // namespace

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
    askAgainIfSystemEventsRuns();
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

void PermissionsService::requestAEAuthorization() {
    if (m_platform.appleEvents->determinePermissionToAutomate(systemEventsBundleID, true) == procNotFound)
        m_askAgain = true;
}

void PermissionsService::systemEventsMayRun() {
    if (m_askAgain)
        m_queue.async([this] { askAgainIfSystemEventsRuns(); });
}

void PermissionsService::askAgainIfSystemEventsRuns() {
    if (!m_askAgain || m_platform.workspace->runningApplications(systemEventsBundleID).isEmpty())
        return;
    m_askAgain = false;
    // May wait for the user's answer: this queue's polls wait with it, the main thread does not.
    m_platform.appleEvents->determinePermissionToAutomate(systemEventsBundleID, true);
}

const QUrl& PermissionsService::accessibilitySettingsURL() {
    static const QUrl url(
        QStringLiteral("x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility"));
    return url;
}

} // namespace orvanta
