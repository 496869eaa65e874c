#pragma once

#include "platform/Platform.h"
#include "support/Mailbox.h"
#include "support/SerialQueue.h"

#include <QObject>
#include <QUrl>

#include <atomic>
#include <memory>

class QTimer;

namespace orvanta {

// Tracks Accessibility trust and the right to automate System Events for display. Both are read at
// construction and then re-read on the service's own queue every poll interval, starting one interval after
// `start`; a change is published on the main thread, an unchanged value not at all.
class PermissionsService : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool axTrusted READ axTrusted NOTIFY axTrustedChanged)
    Q_PROPERTY(bool aeAuthorized READ aeAuthorized NOTIFY aeAuthorizedChanged)
public:
    static inline const QString queueLabel = QStringLiteral("com.orvanta.mactoolkit.permissions");
    static inline const QString systemEventsBundleID = QStringLiteral("com.apple.systemevents");
    static constexpr int defaultPollIntervalMs = 2000;

    // Created on the main thread; reads both permissions at once and starts no timer.
    explicit PermissionsService(platform::Platform platform, QObject* parent = nullptr,
                                int pollIntervalMs = defaultPollIntervalMs);
    ~PermissionsService() override;

    // Starts (or restarts) the poll. Returns at once; may be called from any thread.
    void start();

    bool axTrusted() const { return m_axTrusted; }
    bool aeAuthorized() const { return m_aeAuthorized; }

    // True only when the system reports the permission as granted. Never prompts.
    static bool checkAEAuthorization(platform::AppleEvents& appleEvents);
    // Asks, with the system's consent prompt where it has not been answered yet; the outcome shows at the
    // next poll. The system can ask only while System Events runs: when it does not, the request is made
    // again, once, from the service's queue, as soon as a poll or `systemEventsMayRun` finds it running.
    void requestAEAuthorization();
    // A detection pass has just queried System Events, which starts it. Any thread.
    void systemEventsMayRun();
    // The Accessibility pane of the system's privacy settings.
    static const QUrl& accessibilitySettingsURL();

Q_SIGNALS:
    void axTrustedChanged();
    void aeAuthorizedChanged();

private:
    void scheduleTimer();              // on the queue
    void poll();                       // on the queue
    void askAgainIfSystemEventsRuns(); // on the queue
    void publish(bool axTrusted, bool aeAuthorized);

    const platform::Platform m_platform;
    const int m_pollIntervalMs;
    bool m_axTrusted = false;
    bool m_aeAuthorized = false;
    std::atomic_bool m_askAgain{false}; // the request found System Events not running
    QTimer* m_timer = nullptr;          // lives on the queue; touched only there
    Mailbox m_toMainThread;             // closed first on destruction, so late passes publish nothing
    SerialQueue m_queue;                // last: it stops, with the timer, before anything it uses goes
};

} // namespace orvanta
