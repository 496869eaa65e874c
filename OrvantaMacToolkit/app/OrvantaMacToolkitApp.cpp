#include "app/OrvantaMacToolkitApp.h"

#include "DebugLog.h"
#include "app/CommandLine.h"
#include "app/MenuBarContent.h"
#include "app/MenuBarLabel.h"
#include "diagnostics/ScriptRunner.h"
#include "permissions/PermissionsService.h"
#include "session/SessionFocus.h"
#include "session/SessionMonitor.h"
#include "window/MainWindow.h"

#include <QApplication>
#include <QMenu>

#include <cstdio>

namespace orvanta {

OrvantaMacToolkitApp::OrvantaMacToolkitApp(platform::Platform platform, Options options, QObject* parent)
    : QObject(parent), m_platform(platform), m_options(std::move(options)) {
    auto debugLog = std::make_shared<DebugLog>(2000, DebugLog::defaultPath());
    if (m_options.verbose)
        app::echoToStandardError(*debugLog);
    trace(QStringLiteral("debug log (2000 lines)"));
    m_sessionMonitor = std::make_unique<SessionMonitor>(m_platform, std::move(debugLog));
    trace(QStringLiteral("session monitor"));
    m_permissions = std::make_unique<PermissionsService>(m_platform);
    trace(QStringLiteral("permissions service"));
    m_reachRunner = std::make_unique<ScriptRunner>(m_options.scriptsFolder);
    m_monitorRunner = std::make_unique<ScriptRunner>(m_options.scriptsFolder);
    m_traceRouteRunner = std::make_unique<ScriptRunner>(m_options.scriptsFolder);
    trace(QStringLiteral("script runners in ") + m_options.scriptsFolder);
    m_sessionMonitor->start();
    trace(QStringLiteral("session monitor started"));
    m_permissions->start();
    trace(QStringLiteral("permissions service started"));
    m_permissions->requestAEAuthorization();
    trace(QStringLiteral("Apple Events permission requested"));
    // A pass's query starts System Events, which a request made while it was not running waits for.
    connect(m_sessionMonitor.get(), &SessionMonitor::lastUpdatedChanged, m_permissions.get(),
            &PermissionsService::systemEventsMayRun);

    m_menu = std::make_unique<QMenu>();
    m_menuContent =
        new MenuBarContent(m_menu.get(),
                           {[this](const SessionInfo& session) { SessionFocus::focus(m_platform, session); },
                            [this] { openToolkitWindow(); }, [] { QCoreApplication::quit(); }},
                           this);
    m_menuContent->rebuild(m_sessionMonitor->status());
    connect(m_sessionMonitor.get(), &SessionMonitor::statusChanged, this, [this] {
        m_menuContent->rebuild(m_sessionMonitor->status());
        updateLabel();
    });
    connect(m_permissions.get(), &PermissionsService::axTrustedChanged, this,
            &OrvantaMacToolkitApp::updateLabel);

    if (m_options.useMenuBar)
        m_menuBarItem = platform::createMenuBarItem();
    if (m_menuBarItem) {
        // A menu-bar utility: the window comes and goes, the application stays until "Quit".
        QApplication::setQuitOnLastWindowClosed(false);
        m_menuBarItem->setMenu(m_menu.get());
        updateLabel();
        m_menuBarItem->show();
        trace(QStringLiteral("menu-bar item shown"));
    } else {
        // Nothing could open the window again once it is closed, so it opens now and closing it quits.
        QApplication::setQuitOnLastWindowClosed(true);
        trace(QStringLiteral("no menu bar or tray: the toolkit window stands in"));
    }
}

OrvantaMacToolkitApp::~OrvantaMacToolkitApp() {
    delete m_window;
}

platform::StatusItemLabel OrvantaMacToolkitApp::label() const {
    return MenuBarLabel::content(m_permissions->axTrusted(), m_sessionMonitor->status());
}

void OrvantaMacToolkitApp::updateLabel() {
    if (m_menuBarItem)
        m_menuBarItem->setLabel(label());
}

void OrvantaMacToolkitApp::openToolkitWindow() {
    m_platform.workspace->activateSelf();
    if (!m_window) {
        m_window =
            new window::MainWindow(*m_reachRunner, *m_monitorRunner, *m_traceRouteRunner, *m_sessionMonitor,
                                   *m_permissions, m_platform, m_options.reportsFolder);
        m_window->setAttribute(Qt::WA_DeleteOnClose);
        trace(QStringLiteral("toolkit window opened"));
    }
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
}

void OrvantaMacToolkitApp::trace(const QString& step) const {
    if (m_options.verbose)
        app::printErrorLines({QStringLiteral("app: ") + step});
}

} // namespace orvanta
