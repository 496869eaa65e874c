#include "SessionMonitor.h"

#include "session/SessionDetector.h"

#include <QTimer>

namespace orvanta {

SessionMonitor::SessionMonitor(platform::Platform platform, std::shared_ptr<DebugLog> debugLog,
                               QObject* parent, SessionMonitorTiming timing)
    : QObject(parent), m_platform(platform), m_debugLog(std::move(debugLog)), m_timing(timing),
      m_queue(queueLabel, SerialQueue::Priority::utility) {}

SessionMonitor::~SessionMonitor() {
    // A pass that is still running can no longer publish; the queue's end (the last member to go) cancels
    // the timer and waits for that pass, whose lines still reach the log.
    m_toMainThread.close();
    disconnect(m_wakeConnection);
}

void SessionMonitor::start() {
    m_queue.async([this] { scheduleTimer(); });
    observeWake();
}

void SessionMonitor::scheduleTimer() {
    delete m_timer;
    m_timer = new QTimer(m_queue.context());
    // Precise: a leeway may make a pass late, never early, and a coarse timer moves ticks by up to 5 %
    // either way. Each tick is due a whole number of intervals after the start, so errors do not add up.
    m_timer->setTimerType(Qt::PreciseTimer);
    m_timer->setInterval(m_timing.pollIntervalMs);
    QObject::connect(m_timer, &QTimer::timeout, m_queue.context(), [this] { poll(); });
    m_timer->start();
    poll(); // the first pass is due at once
}

void SessionMonitor::observeWake() {
    // Every wake source emits on the main thread, where the monitor lives and is destroyed.
    disconnect(m_wakeConnection);
    m_wakeConnection = connect(
        m_platform.workspace, &platform::Workspace::didWake, this,
        [this] { m_queue.after(m_timing.wakeDelayMs, [this] { poll(); }); }, Qt::DirectConnection);
}

void SessionMonitor::poll() {
    DebugCollector collector;
    const DetectorStatus status = SessionDetector::detect(m_platform, &collector);
    QStringList lines = std::move(collector.lines);
    collector.lines.clear();
    m_debugLog->append(std::move(lines));
    const QDateTime when = m_platform.workspace->now();
    m_toMainThread.post([this, status, when] { publish(status, when); });
}

void SessionMonitor::publish(const DetectorStatus& status, const QDateTime& when) {
    if (!(m_status == status)) {
        m_status = status;
        Q_EMIT statusChanged();
    }
    m_lastUpdated = when;
    Q_EMIT lastUpdatedChanged();
}

} // namespace orvanta
