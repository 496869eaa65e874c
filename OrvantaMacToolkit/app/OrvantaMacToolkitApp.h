#pragma once

#include "platform/MenuBarItem.h"
#include "platform/Platform.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <functional>
#include <memory>

class QMenu;

namespace orvanta {

class DebugLog;
class MenuBarContent;
class PermissionsService;
class ScriptRunner;
class SessionMonitor;

namespace window {
class MainWindow;
}

// The top of the application: creates the shared objects once, in start-up order, starts the pollers, asks
// for the Apple Events permission, and puts the label and menu in the menu bar. The toolkit window is made
// afresh each time it is opened; closing it leaves everything else running.
class OrvantaMacToolkitApp : public QObject {
    Q_OBJECT
public:
    struct Options {
        QString scriptsFolder;
        QUrl reportsFolder;
        bool verbose = false;   // echo the debug log and the start-up steps on standard error
        bool useMenuBar = true; // false: no menu-bar item even where the platform has one
    };

    OrvantaMacToolkitApp(platform::Platform platform, Options options, QObject* parent = nullptr);
    ~OrvantaMacToolkitApp() override;

    // Brings this application to the front, then opens (or raises) the toolkit window.
    void openToolkitWindow();
    // The open toolkit window, or nullptr.
    window::MainWindow* toolkitWindow() const { return m_window; }
    // Whether a menu-bar item shows the label and menu; without one, closing the window quits.
    bool hasMenuBarItem() const { return m_menuBarItem != nullptr; }

    SessionMonitor& sessionMonitor() const { return *m_sessionMonitor; }
    PermissionsService& permissions() const { return *m_permissions; }
    ScriptRunner& reachRunner() const { return *m_reachRunner; }
    ScriptRunner& monitorRunner() const { return *m_monitorRunner; }
    ScriptRunner& traceRouteRunner() const { return *m_traceRouteRunner; }
    QMenu* menu() const { return m_menu.get(); }
    platform::StatusItemLabel label() const;
    // With `verbose`, one "app: " line on standard error per step of the application's life.
    void trace(const QString& step) const;

private:
    void updateLabel();

    const platform::Platform m_platform;
    const Options m_options;
    std::unique_ptr<SessionMonitor> m_sessionMonitor;
    std::unique_ptr<PermissionsService> m_permissions;
    std::unique_ptr<ScriptRunner> m_reachRunner;
    std::unique_ptr<ScriptRunner> m_monitorRunner;
    std::unique_ptr<ScriptRunner> m_traceRouteRunner;
    std::unique_ptr<QMenu> m_menu;
    MenuBarContent* m_menuContent = nullptr;
    std::unique_ptr<platform::MenuBarItem> m_menuBarItem;
    QPointer<window::MainWindow> m_window;
};

} // namespace orvanta
