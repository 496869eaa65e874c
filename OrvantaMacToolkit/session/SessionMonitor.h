#pragma once

#include "DebugLog.h"
#include "platform/Platform.h"
#include "session/SessionInfo.h"
#include "support/Mailbox.h"
#include "support/SerialQueue.h"

#include <QDateTime>
#include <QObject>

#include <memory>

class QTimer;

namespace orvanta {

// How often the monitor looks, and how long after a wake it looks once more.
struct SessionMonitorTiming {
    int pollIntervalMs = 5000;
    int wakeDelayMs = 3000;
};

// Keeps the application's view of the client current: one detection pass at once, then one every poll
// interval and one more a while after each wake, all on the monitor's own serial queue. Each pass's lines go
// to the debug log; its result is published on the main thread, `status` only when it changed, `lastUpdated`
// every time. Destroying the monitor waits for a running pass, whose lines still reach the log, and
// publishes nothing more.
class SessionMonitor : public QObject {
    Q_OBJECT
    Q_PROPERTY(orvanta::DetectorStatus status READ status NOTIFY statusChanged)
    Q_PROPERTY(QDateTime lastUpdated READ lastUpdated NOTIFY lastUpdatedChanged)
public:
    static inline const QString queueLabel = QStringLiteral("com.orvanta.mactoolkit.session-monitor");

    // Created on the main thread. The monitor owns the debug log (others may share it).
    SessionMonitor(platform::Platform platform, std::shared_ptr<DebugLog> debugLog, QObject* parent = nullptr,
                   SessionMonitorTiming timing = {});
    ~SessionMonitor() override;

    // Begins polling and listening for wakes. Call once, on the main thread.
    void start();

    DetectorStatus status() const { return m_status; }
    // When the last published pass ended; invalid before the first one.
    QDateTime lastUpdated() const { return m_lastUpdated; }
    DebugLog& debugLog() const { return *m_debugLog; }
    int pollIntervalMs() const { return m_timing.pollIntervalMs; }

Q_SIGNALS:
    void statusChanged();
    void lastUpdatedChanged();

private:
    void scheduleTimer(); // on the queue
    void poll();          // on the queue
    void observeWake();
    void publish(const DetectorStatus& status, const QDateTime& when); // on the main thread

    const platform::Platform m_platform;
    const std::shared_ptr<DebugLog> m_debugLog;
    const SessionMonitorTiming m_timing;
    DetectorStatus m_status; // appNotRunning until the first pass is published
    QDateTime m_lastUpdated;
    QTimer* m_timer = nullptr; // lives on the queue; touched only there
    QMetaObject::Connection m_wakeConnection;
    Mailbox m_toMainThread; // closed first on destruction, so late passes publish nothing
    SerialQueue m_queue;    // last: it stops, letting a running pass finish, before anything it uses goes
};

} // namespace orvanta
