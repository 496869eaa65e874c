#pragma once

#include "platform/Platform.h"

#include <QElapsedTimer>
#include <QMap>
#include <QMutex>

#include <functional>

namespace orvanta::platform {

// One Accessibility window of a simulated process. A missing attribute makes its read fail, with the code
// in `readErrors` under the attribute's name ("AXTitle") or else axError::noValue; a present one is read as
// the value given, whatever its type.
struct SimWindow {
    std::optional<AXValue> title;
    std::optional<AXValue> subrole;
    std::optional<AXValue> size;
    std::optional<AXValue> minimized;
    QMap<QString, int> readErrors;
    std::optional<Pid> pid;    // owner; none means the process whose list holds the window
    bool ownerUnknown = false; // the owner lookup fails (the scan then reads the owner as 0)

    static SimWindow make(const QString& title, double width, double height,
                          const QString& subrole = QStringLiteral("AXStandardWindow"),
                          bool minimized = false);
};

// The window server's list: derived from the Accessibility windows, none at all, or exactly as given.
struct SimWindowList {
    enum class Kind { derived, none, given };
    Kind kind = Kind::derived;
    QVariant value;
};

// Everything the simulated desktop answers from. Built in code by tests, or loaded from JSON.
struct SimWorld {
    std::optional<QDateTime> now; // the real clock when absent
    bool accessibilityTrusted = true;
    int appleEventsStatus = 0;
    std::optional<Pid> ownPid; // the real process identifier when absent
    QList<RunningApplication> runningApplications;
    QMap<Pid, QList<SimWindow>> windows;
    QMap<Pid, int> windowsError;
    // When absent, System Events answers from `windows` as macOS would.
    std::optional<AppleScriptOutcome> appleScript;
    // How long System Events takes to answer, as when it hangs until the Apple Event's time-out.
    int appleScriptDelayMs = 0;
    SimWindowList windowServer;
};

// Stands in for macOS: implements every port from a SimWorld. May be called from any thread.
// Actions it receives (activations, raises, URLs opened, items trashed) are recorded in order.
class SimulatedDesktop final : public Workspace,
                               public Accessibility,
                               public AppleScriptHost,
                               public WindowServer,
                               public AppleEvents {
    Q_OBJECT
public:
    struct Action {
        QString description;
        qint64 elapsedMs; // since the desktop was created
    };

    explicit SimulatedDesktop(SimWorld world = {}, QObject* parent = nullptr);

    Platform platform();

    SimWorld world() const;
    void setWorld(SimWorld world);
    void updateWorld(const std::function<void(SimWorld&)>& change);

    QList<Action> actions() const;
    QStringList actionDescriptions() const;
    void clearActions();
    // One "pid=<pid> window=<index, -1 for the application> <seconds>s" per messaging time-out set, in order.
    QStringList messagingTimeouts() const;
    QString lastAppleScriptSource() const;
    int appleScriptRuns() const;

    // Writes each action to standard error as it happens.
    void setReportActions(bool report) { m_reportActions = report; }
    // Hands URLs to the desktop's default application instead of only recording them.
    void setOpenUrlsForReal(bool real) { m_openForReal = real; }

    // Tells observers that the computer woke from sleep.
    void simulateWake();

    // Accessibility
    bool isProcessTrusted() override;
    AXElement applicationElement(Pid pid) override;
    AXAttributeResult copyAttributeValue(const AXElement& element, const QString& attribute) override;
    std::optional<Pid> elementPid(const AXElement& element) override;
    int performAction(const AXElement& element, const QString& action) override;
    int setMessagingTimeout(const AXElement& element, float seconds) override;

    // AppleScriptHost
    AppleScriptOutcome run(const QString& source) override;

    // WindowServer
    std::optional<QVariant> copyWindowInfo(quint32 options, quint32 relativeToWindow) override;

    // AppleEvents
    int determinePermissionToAutomate(const QString& bundleId, bool askUser) override;

    // Workspace
    QList<RunningApplication> runningApplications(const QString& bundleId) override;
    bool activateApplication(Pid pid, unsigned options) override;
    void activateSelf() override;
    bool openUrl(const QUrl& url) override;
    bool moveToTrash(const QString& path) override;
    Pid processId() override;
    QDateTime now() override;

Q_SIGNALS:
    void actionRecorded(const QString& description);

private:
    void record(const QString& description);
    const SimWindow* windowLocked(const AXElement& element) const;

    mutable QMutex m_mutex;
    SimWorld m_world;
    QList<Action> m_actions;
    QStringList m_messagingTimeouts;
    QString m_lastSource;
    int m_appleScriptRuns = 0;
    QElapsedTimer m_clock;
    bool m_reportActions = false;
    bool m_openForReal = false;
};

} // namespace orvanta::platform
