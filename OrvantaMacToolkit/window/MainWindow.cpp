#include "window/MainWindow.h"

#include "diagnostics/ReportCatalog.h"
#include "diagnostics/ScriptRunner.h"
#include "permissions/PermissionsService.h"
#include "session/SessionFocus.h"
#include "session/SessionMonitor.h"
#include "window/DiagnosticsSection.h"
#include "window/InfoButton.h"
#include "window/OutputLogView.h"
#include "window/ReportsSection.h"
#include "window/WindowStyle.h"

#include <QCoreApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

namespace orvanta::window {

namespace {

// The product's help article on session tracking; none is published yet, so the icon only describes.
const QString sessionTrackerArticle;

const QString focusHelp = QStringLiteral("Brings the active Orvanta RDP session window to focus.");
const QString focusDetails = QStringLiteral(
    "Brings the currently active Orvanta RDP session window to the front. Session detection uses "
    "Accessibility queries against Microsoft Windows App, falling back to Apple Events through System Events "
    "when the AX path returns empty.");

// The window's own minimum, which its content can only raise: the cards, the 104-point log and the table
// are never squeezed below what they need.
constexpr QSize minimumWindowSize(600, 400);

class ContentLayout : public QVBoxLayout {
public:
    using QVBoxLayout::QVBoxLayout;
    QSize minimumSize() const override { return QVBoxLayout::minimumSize().expandedTo(minimumWindowSize); }
};

} // namespace

MainWindow::MainWindow(ScriptRunner& reachRunner, ScriptRunner& monitorRunner, ScriptRunner& traceRouteRunner,
                       SessionMonitor& sessionMonitor, PermissionsService& permissions,
                       platform::Platform platform, QUrl reportsFolder, QWidget* parent)
    : QWidget(parent), m_runners{&reachRunner, &monitorRunner, &traceRouteRunner},
      m_sessionMonitor(sessionMonitor), m_permissions(permissions), m_platform(platform),
      m_reportsFolder(std::move(reportsFolder)), m_refreshTimer(new QTimer(this)) {
    setWindowTitle(windowTitleText);

    auto* layout = new ContentLayout(this);
    layout->setSizeConstraint(QLayout::SetMinimumSize);
    layout->setContentsMargins(20, 20, 20, 20);
    layout->setSpacing(16);
    layout->addWidget(makeHeader());
    layout->addWidget(makePermissionsPanel());

    auto open = [workspace = m_platform.workspace](const QUrl& url) { workspace->openUrl(url); };
    m_diagnostics = new DiagnosticsSection(m_runners, m_reportsFolder, open, this);
    layout->addWidget(m_diagnostics);
    m_output = new OutputLogView(this);
    // The header row keeps its height, and the log its place, whether "Cancel" is shown or not.
    QSizePolicy cancelPolicy = m_output->cancelButton()->sizePolicy();
    cancelPolicy.setRetainSizeWhenHidden(true);
    m_output->cancelButton()->setSizePolicy(cancelPolicy);
    layout->addWidget(m_output);
    m_reports = new ReportsSection({[workspace = m_platform.workspace](const ReportEntry& entry) {
                                        ReportCatalog::open(entry.url, *workspace);
                                    },
                                    [this](const ReportEntry& entry) {
                                        ReportCatalog::moveToTrash(entry.url, *m_platform.workspace);
                                        refreshReports();
                                    }},
                                   this);
    layout->addWidget(m_reports, 1);

    m_refreshTimer->setInterval(refreshIntervalMs);
    // Coarse timers may fire up to 5 % early as well as late.
    m_refreshTimer->setTimerType(Qt::PreciseTimer);
    connect(m_refreshTimer, &QTimer::timeout, this, &MainWindow::refreshReports);
    connect(m_output, &OutputLogView::cancelRequested, this, [this] { activeRunner().cancel(); });

    for (int i = 0; i < 3; ++i) {
        m_activity[i].running = m_runners[i]->isRunning();
        connect(m_runners[i], &ScriptRunner::stateChanged, this, &MainWindow::scheduleUpdate);
        // Output is shown as it arrives; the cost of a chunk does not depend on what is already shown.
        connect(m_runners[i], &ScriptRunner::logBufferChanged, this, &MainWindow::syncLog);
    }
    connect(&m_sessionMonitor, &SessionMonitor::statusChanged, this, &MainWindow::syncSessionControls);
    connect(&m_permissions, &PermissionsService::axTrustedChanged, this, &MainWindow::syncSessionControls);
    syncSessionControls();
    syncLog();
}

MainWindow::~MainWindow() = default;

QString MainWindow::appVersion() {
    const QString version = QCoreApplication::applicationVersion();
    return version.isEmpty() ? QStringLiteral("?") : version;
}

std::optional<SessionInfo> MainWindow::activeSession(const DetectorStatus& status) {
    if (status.kind() != DetectorStatus::Kind::sessions || status.sessions().isEmpty())
        return std::nullopt;
    return status.sessions().first();
}

ScriptRunner& MainWindow::runnerFor(ScriptCatalog script) const {
    return *m_runners[ScriptCatalog::Case(script)];
}

ScriptRunner& MainWindow::activeRunner() const {
    return *m_runners[activeRunnerIndex(m_activity)];
}

QWidget* MainWindow::makeHeader() {
    auto* header = new QWidget(this);
    auto* row = new QHBoxLayout(header);
    row->setContentsMargins(0, 0, 0, 0);

    auto* column = new QVBoxLayout;
    column->setSpacing(4);
    auto* title = new QLabel(windowTitleText, header);
    title->setFont(titleFont(title->font()));
    QPalette titlePalette = title->palette();
    titlePalette.setColor(QPalette::WindowText, brandBlue());
    title->setPalette(titlePalette);
    column->addWidget(title);

    auto* version = new QLabel(QStringLiteral("Version ") + appVersion(), header);
    version->setObjectName(QStringLiteral("version"));
    version->setFont(captionFont(version->font()));
    QPalette versionPalette = version->palette();
    versionPalette.setColor(QPalette::WindowText, secondaryTextColor(versionPalette));
    version->setPalette(versionPalette);
    column->addWidget(version);

    auto* focusRow = new QHBoxLayout;
    m_focusButton = new QPushButton(QStringLiteral("Focus Active Session"), header);
    m_focusButton->setToolTip(focusHelp);
    m_focusButton->setAccessibleDescription(focusHelp);
    connect(m_focusButton, &QPushButton::clicked, this, [this] {
        // The status may have changed since the row was drawn.
        if (const std::optional<SessionInfo> session = activeSession(m_sessionMonitor.status()))
            SessionFocus::focus(m_platform, *session);
    });
    focusRow->addWidget(m_focusButton);
    auto* info = new InfoButton(
        sessionTrackerArticle, focusDetails,
        [workspace = m_platform.workspace](const QUrl& url) { workspace->openUrl(url); }, header);
    info->setSubject(QStringLiteral("Focus Active Session"));
    focusRow->addWidget(info);
    focusRow->addStretch(1);
    column->addLayout(focusRow);
    row->addLayout(column);
    row->addStretch(1);

    auto* logo = new QLabel(header);
    logo->setObjectName(QStringLiteral("logo"));
    logo->setAccessibleName(QStringLiteral("Orvanta logo"));
    logo->setPixmap(renderSvg(QStringLiteral(":/Logo.svg"), 64, devicePixelRatioF()));
    row->addWidget(logo, 0, Qt::AlignVCenter);
    return header;
}

QWidget* MainWindow::makePermissionsPanel() {
    auto* panel = new InsetPanel(PanelBackground::control, this);
    auto* layout = new QVBoxLayout(panel);
    layout->setContentsMargins(12, 12, 12, 12);
    layout->setSpacing(8);
    layout->addWidget(makeHeading(QStringLiteral("Permissions"), panel));

    auto* row = new QHBoxLayout;
    auto* icon = new QLabel(panel);
    icon->setPixmap(renderSvg(QStringLiteral(":/icons/exclamationmark.triangle.fill.svg"), 16,
                              devicePixelRatioF(), QColor(255, 149, 0)));
    icon->setAccessibleName(QStringLiteral("Warning"));
    row->addWidget(icon);
    row->addWidget(new QLabel(QStringLiteral("Accessibility"), panel));
    row->addStretch(1);
    auto* grant = new QPushButton(QStringLiteral("Grant"), panel);
    grant->setToolTip(QStringLiteral("Open System Settings to grant the missing permission."));
    grant->setAccessibleName(QStringLiteral("Grant Accessibility"));
    grant->setAccessibleDescription(grant->toolTip());
    connect(grant, &QPushButton::clicked, this,
            [this] { m_platform.workspace->openUrl(PermissionsService::accessibilitySettingsURL()); });
    row->addWidget(grant);
    layout->addLayout(row);
    m_permissionsPanel = panel;
    return panel;
}

void MainWindow::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    refreshReports();
    m_refreshTimer->start();
}

void MainWindow::hideEvent(QHideEvent* event) {
    m_refreshTimer->stop();
    QWidget::hideEvent(event);
}

void MainWindow::refreshReports() {
    m_reports->setReports(ReportCatalog::recentReports(m_reportsFolder));
    m_diagnostics->refresh();
}

void MainWindow::scheduleUpdate() {
    // Like a redraw, one update takes in every change published before it: a start that publishes running
    // and then fails at once leaves no time stamp.
    if (m_updatePending)
        return;
    m_updatePending = true;
    QMetaObject::invokeMethod(this, &MainWindow::update, Qt::QueuedConnection);
}

void MainWindow::update() {
    m_updatePending = false;
    syncRunStamps();
    syncLog();
}

void MainWindow::syncRunStamps() {
    bool ended = false;
    for (int i = 0; i < 3; ++i) {
        const bool running = m_runners[i]->isRunning();
        if (running == m_activity[i].running)
            continue;
        m_activity[i].running = running;
        const QDateTime now = QDateTime::currentDateTime();
        if (running) {
            m_activity[i].lastStarted = now;
        } else {
            m_activity[i].lastCompleted = now;
            ended = true;
        }
    }
    if (ended)
        refreshReports();
}

void MainWindow::syncLog() {
    const int active = activeRunnerIndex(m_activity);
    m_output->showLog(m_runners[active]->logText());
    m_output->setCancelVisible(m_activity[active].running);
}

void MainWindow::syncSessionControls() {
    m_focusButton->setEnabled(activeSession(m_sessionMonitor.status()).has_value());
    m_permissionsPanel->setVisible(!m_permissions.axTrusted());
}

} // namespace orvanta::window
