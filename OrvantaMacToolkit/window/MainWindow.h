#pragma once

#include "diagnostics/ScriptCatalog.h"
#include "platform/Platform.h"
#include "session/SessionInfo.h"
#include "window/ActiveRunner.h"

#include <QUrl>
#include <QWidget>

#include <array>
#include <optional>

class QLabel;
class QPushButton;
class QTimer;

namespace orvanta {
class PermissionsService;
class ScriptRunner;
class SessionMonitor;
} // namespace orvanta

namespace orvanta::window {

class DiagnosticsSection;
class OutputLogView;
class ReportsSection;

// The toolkit window: header with the focus row and logo, the permissions panel while Accessibility trust is
// missing, the diagnostic cards, the output of the most relevant run and the recent reports. It owns none
// of the shared objects and keeps its own state (time stamps, duration, sort order) only while it is open.
class MainWindow : public QWidget {
    Q_OBJECT
public:
    static inline const QString windowTitleText = QStringLiteral("Orvanta Mac Toolkit");
    static constexpr int refreshIntervalMs = 5000;

    MainWindow(ScriptRunner& reachRunner, ScriptRunner& monitorRunner, ScriptRunner& traceRouteRunner,
               SessionMonitor& sessionMonitor, PermissionsService& permissions, platform::Platform platform,
               QUrl reportsFolder, QWidget* parent = nullptr);
    ~MainWindow() override;

    static QString appVersion();
    // The first session of the monitor's list, whatever its title; none in every other state.
    static std::optional<SessionInfo> activeSession(const DetectorStatus& status);

    ScriptRunner& runnerFor(ScriptCatalog script) const;
    void refreshReports();
    // The runner whose output the log shows now.
    ScriptRunner& activeRunner() const;

    // The six time stamps, by script.
    const RunnerActivity& activity(ScriptCatalog script) const {
        return m_activity[ScriptCatalog::Case(script)];
    }

    QPushButton* focusButton() const { return m_focusButton; }
    QWidget* permissionsPanel() const { return m_permissionsPanel; }
    DiagnosticsSection* diagnostics() const { return m_diagnostics; }
    OutputLogView* output() const { return m_output; }
    ReportsSection* reports() const { return m_reports; }

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    QWidget* makeHeader();
    QWidget* makePermissionsPanel();
    void scheduleUpdate();
    void update();
    void syncRunStamps();
    void syncLog();
    void syncSessionControls();

    std::array<ScriptRunner*, 3> m_runners;
    SessionMonitor& m_sessionMonitor;
    PermissionsService& m_permissions;
    const platform::Platform m_platform;
    const QUrl m_reportsFolder;

    // Whether each runner ran at the last update, and when it last started and ended while the window was
    // open.
    std::array<RunnerActivity, 3> m_activity;
    bool m_updatePending = false;

    QPushButton* m_focusButton = nullptr;
    QWidget* m_permissionsPanel = nullptr;
    DiagnosticsSection* m_diagnostics = nullptr;
    OutputLogView* m_output = nullptr;
    ReportsSection* m_reports = nullptr;
    QTimer* m_refreshTimer = nullptr;
};

} // namespace orvanta::window
