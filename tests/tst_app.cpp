// The application: whole launches as a child process, the menu-bar item and its menu, the single copy.
#include "DebugLog.h"
#include "app/MenuBarContent.h"
#include "app/MenuBarLabel.h"
#include "app/OrvantaMacToolkitApp.h"
#include "app/ScriptsFolder.h"
#include "app/SingleInstance.h"
#include "diagnostics/ScriptRunner.h"
#include "permissions/PermissionsService.h"
#include "platform/desktop/TrayMenuBarItem.h"
#include "session/SessionMonitor.h"
#include "window/DiagnosticsSection.h"
#include "window/MainWindow.h"

#include "TestWorlds.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QMenu>
#include <QPainter>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace orvanta;
using Kind = MenuRow::Kind;
using testing::named;
using testing::untitled;

namespace {

const QByteArray oneSessionWorld = R"({
  "runningApplications": [{"bundleIdentifier": "com.microsoft.rdc.macos", "pid": 812, "name": "Windows App"}],
  "windows": {"812": [{"title": "Work desktop", "subrole": "AXStandardWindow", "size": [1920, 1080], "minimized": false}]}
})";

// A child process for as long as the test needs it (the application, an X server, a tray), on `display`
// when one is given; standard error is read line by line.
class Child {
public:
    Child(const QString& program, const QStringList& arguments, const QString& display = {},
          const QString& home = {}) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"),
                           display.isEmpty() ? QStringLiteral("offscreen") : QStringLiteral("xcb"));
        if (!display.isEmpty())
            environment.insert(QStringLiteral("DISPLAY"), display);
        if (!home.isEmpty())
            environment.insert(QStringLiteral("HOME"), home);
        process.setProcessEnvironment(environment);
        process.setReadChannel(QProcess::StandardError);
        process.start(program, arguments);
    }
    // The real application on a simulated world, with its own home folder.
    static std::unique_ptr<Child> app(const QString& home, const QString& world,
                                      const QString& display = {}) {
        return std::make_unique<Child>(
            QStringLiteral(ORVANTA_APP_BINARY),
            QStringList{QStringLiteral("--simulate"), world, QStringLiteral("--verbose")}, display, home);
    }
    ~Child() {
        if (process.state() != QProcess::NotRunning) {
            process.terminate();
            if (!process.waitForFinished(5000)) {
                process.kill();
                process.waitForFinished(5000);
            }
        }
    }

    // Reads standard error until a line equal to `line` has come `count` times.
    bool waitForLine(const QString& line, int count = 1, int timeoutMs = 10000) {
        QDeadlineTimer deadline(timeoutMs);
        while (lines.count(line) < count) {
            if (deadline.hasExpired() || !process.waitForReadyRead(int(deadline.remainingTime())))
                return false;
            readLines();
        }
        return true;
    }

    void readLines() {
        pending += process.readAllStandardError();
        qsizetype end;
        while ((end = pending.indexOf('\n')) >= 0) {
            lines.append(QString::fromUtf8(pending.left(end)));
            pending.remove(0, end + 1);
        }
    }

    QProcess process;
    QStringList lines;
    QByteArray pending;
};

QStringList actionTexts(const QMenu& menu) {
    QStringList texts;
    for (QAction* action : menu.actions())
        texts.append(action->isSeparator() ? QStringLiteral("---") : action->text());
    return texts;
}

} // namespace

class AppTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() {
        QVERIFY(m_home.isValid());
        m_world = m_home.filePath(QStringLiteral("world-%1.json").arg(m_worldNumber++));
        QFile file(m_world);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(oneSessionWorld);
    }

    void aSecondLaunchShowsTheFirstAndLeaves() {
        const auto first = Child::app(m_home.path(), m_world);
        QVERIFY2(first->waitForLine(QStringLiteral("app: ready")), qPrintable(first->lines.join('\n')));
        // The build tree's scripts are found when the application is not installed.
        QVERIFY(first->lines.contains(QStringLiteral("app: script runners in ") +
                                      scriptsFolder(QFileInfo(ORVANTA_APP_BINARY).absolutePath())));
        QVERIFY(QFileInfo::exists(scriptsFolder(QFileInfo(ORVANTA_APP_BINARY).absolutePath()) +
                                  QStringLiteral("/orvanta-mac-network-monitor.zsh")));
        // The first detection pass ran and its lines reached the log.
        QVERIFY(first->waitForLine(QStringLiteral("Result: sessions count=1 named=1 unnamed=0")));
        QVERIFY(first->waitForLine(
            QStringLiteral("simulated desktop: ask permission to automate com.apple.systemevents")));
        // Where there is no menu bar the window opened at start, bringing the application forward once.
        const int activations = int(first->lines.count(QStringLiteral("simulated desktop: activate self")));

        const auto second = Child::app(m_home.path(), m_world);
        QVERIFY(second->process.waitForFinished(10000));
        QCOMPARE(second->process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(second->process.exitCode(), 0);
        second->readLines();
        QVERIFY(second->lines.contains(
            QStringLiteral("Orvanta Mac Toolkit is already running: showing its window.")));
        QVERIFY(!second->lines.contains(QStringLiteral("app: session monitor")));

        // The first copy brings itself forward for the window again, and keeps running.
        QVERIFY(first->waitForLine(QStringLiteral("simulated desktop: activate self"), activations + 1));
        QVERIFY(first->lines.contains(QStringLiteral("app: toolkit window opened")));
        QCOMPARE(first->process.state(), QProcess::Running);
    }

    void quitsPromptlyWhileSystemEventsHangs() {
        // The first pass waits for System Events far longer than the test does; a termination signal quits
        // as "Quit" does, and the process ends although the monitor's thread is still blocked.
        QFile world(m_world);
        QVERIFY(world.open(QIODevice::WriteOnly | QIODevice::Truncate));
        world.write(QByteArray(oneSessionWorld).replace("{\n", "{\"appleScriptDelayMs\": 600000,\n"));
        world.close();
        const auto app = Child::app(m_home.path(), m_world);
        QVERIFY(app->waitForLine(QStringLiteral("app: ready")));
        QVERIFY(app->waitForLine(QStringLiteral("simulated desktop: System Events answers in 600000 ms")));
        app->process.terminate();
        QVERIFY(app->process.waitForFinished(60000));
        QCOMPARE(app->process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(app->process.exitCode(), 0);
        app->readLines();
        QVERIFY(app->lines.contains(QStringLiteral("app: quitting")));
    }

    void theWindowStartsAfreshEachTimeItOpens() {
        platform::SimulatedDesktop desktop(
            testing::clientWorld({testing::window(QStringLiteral("Work desktop"))}));
        QTemporaryDir reports;
        OrvantaMacToolkitApp::Options options;
        options.scriptsFolder = m_home.filePath(QStringLiteral("no-scripts"));
        options.reportsFolder = QUrl::fromLocalFile(reports.path());
        options.useMenuBar = false;
        OrvantaMacToolkitApp shell(desktop.platform(), options);
        QVERIFY(!shell.hasMenuBarItem());
        QVERIFY(QApplication::quitOnLastWindowClosed());

        // "Open Toolkit Window" brings the application forward first, then shows the window.
        // The menu is rebuilt with every status change, so its actions are looked up afresh each time.
        auto openAction = [&shell]() -> QAction* {
            for (QAction* action : shell.menu()->actions()) {
                if (action->text() == QStringLiteral("Open Toolkit Window"))
                    return action;
            }
            return nullptr;
        };
        QVERIFY(openAction());
        desktop.clearActions();
        openAction()->trigger();
        QCOMPARE(desktop.actionDescriptions(), QStringList{QStringLiteral("activate self")});
        QPointer<window::MainWindow> first = shell.toolkitWindow();
        QVERIFY(first && first->isVisible());

        first->diagnostics()->durationPicker()->setCurrentIndex(MonitorDuration::untilStopped);
        first->close();
        QTRY_VERIFY(first.isNull());

        openAction()->trigger();
        window::MainWindow* second = shell.toolkitWindow();
        QVERIFY(second);
        QCOMPARE(second->diagnostics()->monitorDuration(), defaultMonitorDuration);
        // The menu follows the monitor.
        QTRY_COMPARE(shell.menu()->actions().first()->text(), QStringLiteral("Active Sessions (1)"));
        QCOMPARE(shell.label().text, QStringLiteral("1\u25CF Work desktop"));

        // The debug log the application keeps holds the last 2000 lines, whatever its start-up says.
        DebugLog& log = shell.sessionMonitor().debugLog();
        QStringList lines;
        for (int i = 0; i < 2100; ++i)
            lines << QString::number(i);
        log.append(lines);
        const QStringList kept = log.snapshot(); // detection passes may have added lines since
        QCOMPARE(kept.size(), 2000);
        QVERIFY(kept.contains(QStringLiteral("2099")) && !kept.contains(QStringLiteral("99")));
    }

    // On an X display with a real XEmbed tray (Xvfb and trayer), the item goes into the tray and the toolkit
    // window opens at launch all the same.
    void opensItsWindowBesideARealTray() {
        const QString xvfb = QStandardPaths::findExecutable(QStringLiteral("Xvfb"));
        const QString trayer = QStandardPaths::findExecutable(QStringLiteral("trayer"));
        const QString xwininfo = QStandardPaths::findExecutable(QStringLiteral("xwininfo"));
        if (xvfb.isEmpty() || trayer.isEmpty() || xwininfo.isEmpty())
            QSKIP("needs Xvfb, trayer and xwininfo (Debian: xvfb, trayer, x11-utils) for a real tray");
        // Xvfb picks a free display and, once it accepts connections, writes its number on standard output.
        Child server(xvfb,
                     {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-screen"),
                      QStringLiteral("0"), QStringLiteral("800x600x24"), QStringLiteral("-nolisten"),
                      QStringLiteral("tcp")},
                     {});
        server.process.setReadChannel(QProcess::StandardOutput);
        if (!QTest::qWaitFor([&] { return server.process.canReadLine(); }, 10000))
            QSKIP("Xvfb could not be started");
        const QString display = u':' + QString::fromLatin1(server.process.readLine().trimmed());
        // The windows inside the tray's panel, once there is one.
        auto tree = [&] {
            QProcess info;
            QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
            environment.insert(QStringLiteral("DISPLAY"), display);
            info.setProcessEnvironment(environment);
            info.start(xwininfo, {QStringLiteral("-tree"), QStringLiteral("-name"), QStringLiteral("panel")});
            info.waitForFinished(10000);
            return QString::fromLocal8Bit(info.readAllStandardOutput());
        };
        Child tray(trayer,
                   {QStringLiteral("--edge"), QStringLiteral("top"), QStringLiteral("--height"),
                    QStringLiteral("22"), QStringLiteral("--widthtype"), QStringLiteral("request")},
                   display);
        // The tray itself sometimes fails to come up on a loaded machine; that is no fault of the
        // application.
        if (!QTest::qWaitFor([&] { return tree().contains(QStringLiteral("Window id:")); }, 15000))
            QSKIP("trayer did not show its panel: no tray to test against");

        const auto app = Child::app(m_home.path(), m_world, display);
        QVERIFY2(app->waitForLine(QStringLiteral("app: ready")), qPrintable(app->lines.join('\n')));
        QVERIFY(app->lines.contains(QStringLiteral("app: menu-bar item shown")));
        QVERIFY(app->lines.contains(QStringLiteral("app: toolkit window opened")));
        // The tray embeds the item: a small window of the application inside the tray's panel.
        const QRegularExpression embedded(
            QStringLiteral("\"orvanta-mac-toolkit\"[^)]*\\)\\s+(\\d+)x(\\d+)\\+"));
        QRegularExpressionMatch size;
        QTRY_VERIFY_WITH_TIMEOUT((size = embedded.match(tree())).hasMatch(), 10000);
        QVERIFY2(size.captured(1).toInt() <= 32 && size.captured(2).toInt() <= 32,
                 qPrintable(size.captured()));
        QCOMPARE(app->process.state(), QProcess::Running);
    }

    // The menu-bar item, its menu, and the claim on a single running copy.
    void labelFollowsTrustThenSessions() {
        const auto mixed = DetectorStatus::withSessions(
            {untitled(SessionInfo::Source::axUnnamed), named(QStringLiteral("Accounting")),
             named(QStringLiteral("Later"), SessionInfo::Source::appleScript)});
        // Missing trust wins over a listed session; trust with a stale permission status is just idle.
        QCOMPARE(MenuBarLabel::content(false, mixed).symbol, MenuBarLabel::warningSymbol);
        QVERIFY(MenuBarLabel::content(false, mixed).text.isEmpty());
        QCOMPARE(MenuBarLabel::content(true, DetectorStatus::needsAXPermission()).symbol,
                 MenuBarLabel::idleSymbol);
        for (const auto& status : {DetectorStatus::needsAEPermission(), DetectorStatus::appNotRunning(),
                                   DetectorStatus::noActiveSession()}) {
            const auto label = MenuBarLabel::content(true, status);
            QCOMPARE(label.symbol, MenuBarLabel::idleSymbol);
            QVERIFY(label.text.isEmpty());
        }
        // Every session counts; the title is the first named one's.
        QCOMPARE(MenuBarLabel::content(true, mixed).text, QStringLiteral("3\u25CF Accounting"));
    }

    void titleIsCutByUserPerceivedCharacters_data() {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("expected");
        QTest::newRow("16 kept") << QStringLiteral("ABCDEFGHIJKLMNOP") << QStringLiteral("ABCDEFGHIJKLMNOP");
        QTest::newRow("17 cut") << QStringLiteral("ABCDEFGHIJKLMNOPQ")
                                << QStringLiteral("ABCDEFGHIJKLMNO\u2026");
        // Decomposed "é" (two code points) and a flag (two surrogate pairs) are one character each.
        const QString e = QStringLiteral("e\u0301");
        const QString flag = QStringLiteral("\U0001F1E9\U0001F1EA");
        QTest::newRow("combining 16") << e.repeated(16) << e.repeated(16);
        QTest::newRow("combining 17") << e.repeated(17) << e.repeated(15) + QChar(0x2026);
        QTest::newRow("flags 20") << flag.repeated(20) << flag.repeated(15) + QChar(0x2026);
        QTest::newRow("cjk 17") << QStringLiteral("会").repeated(17)
                                << QStringLiteral("会").repeated(15) + QChar(0x2026);
        // Controls are shown, not acted on: both ends of the C0 and C1 ranges, tab, line breaks, DELETE.
        QTest::newRow("controls") << QStringLiteral("\u001FA\tB\nC\u2028D\u0080\u009F\u007F~\u0085")
                                  << QStringLiteral("\u241FA\u2409B\u240AC\u2424D\uFFFD\uFFFD\u2421~\u2424");
        QTest::newRow("controls 17") << QStringLiteral("\t").repeated(17)
                                     << QStringLiteral("\u2409").repeated(15) + QChar(0x2026);
    }

    void titleIsCutByUserPerceivedCharacters() {
        QFETCH(QString, title);
        QFETCH(QString, expected);
        QCOMPARE(MenuBarLabel::shortenedTitle(title), expected);
        const auto label =
            MenuBarLabel::content(true, DetectorStatus::withSessions({named(title), untitled()}));
        QCOMPARE(label.text, QStringLiteral("2\u25CF ") + expected);
    }

    // The permission rows and the session rows are checked where --detect prints the menu.
    void sessionSectionWithoutSessions() {
        QCOMPARE(MenuBarContent::sessionSection(DetectorStatus::appNotRunning()),
                 (QList<MenuRow>{{Kind::information, QStringLiteral("Windows App not running")}}));
    }

    void menuWidgetsRebuildAndAct() {
        QMenu menu;
        QList<SessionInfo> focused;
        QStringList calls;
        MenuBarContent content(&menu, {[&](const SessionInfo& s) { focused.append(s); },
                                       [&] { calls.append(QStringLiteral("open")); },
                                       [&] { calls.append(QStringLiteral("quit")); }});

        const SessionInfo ampersand = named(QStringLiteral("R&D desk"), SessionInfo::Source::appleScript);
        const SessionInfo controls = named(QStringLiteral("Desk\t1\nsecond line"));
        content.rebuild(
            DetectorStatus::withSessions({untitled(SessionInfo::Source::axUnnamed), ampersand, controls}));
        QCOMPARE(actionTexts(menu),
                 (QStringList{QStringLiteral("Active Sessions (3)"), QStringLiteral("Background session"),
                              QStringLiteral("R&&D desk"), QStringLiteral("Desk\u24091\u240Asecond line"),
                              QStringLiteral("---"), QStringLiteral("Open Toolkit Window"),
                              QStringLiteral("Quit")}));
        // Drawn as one row each, the title whole: no second line, no shortcut column.
        QVERIFY(menu.actions()[3]->shortcut().isEmpty());
        menu.popup(QPoint(0, 0));
        QVERIFY(QTest::qWaitForWindowExposed(&menu));
        QCOMPARE(menu.actionGeometry(menu.actions()[3]).height(),
                 menu.actionGeometry(menu.actions()[2]).height());
        QVERIFY(menu.actionGeometry(menu.actions()[3]).width() >
                menu.fontMetrics().horizontalAdvance(QStringLiteral("Desk 1 second line")));
        menu.hide();
        content.rebuild(DetectorStatus::withSessions({untitled(SessionInfo::Source::axUnnamed), ampersand}));
        const QList<QAction*> actions = menu.actions();
        QVERIFY(!actions[0]->isEnabled());
        QVERIFY(actions[1]->isEnabled() && actions[2]->isEnabled());
        QCOMPARE(actions[5]->shortcut(), QKeySequence(QKeySequence::Quit));
        QVERIFY(actions[4]->shortcut().isEmpty());
        // On macOS an action with a role or a telling text would leave this menu for the hidden app menu.
        for (const QAction* action : actions)
            QCOMPARE(action->menuRole(), QAction::NoRole);

        actions[2]->trigger();
        actions[1]->trigger();
        QCOMPARE(focused, (QList<SessionInfo>{ampersand, untitled(SessionInfo::Source::axUnnamed)}));
        QCOMPARE(focused[0].source, SessionInfo::Source::appleScript);
        actions[4]->trigger();
        actions[5]->trigger();
        QCOMPARE(calls, (QStringList{QStringLiteral("open"), QStringLiteral("quit")}));

        content.rebuild(DetectorStatus::noActiveSession());
        QCOMPARE(actionTexts(menu),
                 (QStringList{QStringLiteral("No active sessions"), QStringLiteral("---"),
                              QStringLiteral("Open Toolkit Window"), QStringLiteral("Quit")}));
        QVERIFY(!menu.actions().first()->isEnabled());
        QCOMPARE(focused.size(), 2);
    }

    void trayIconReadsOnLightAndDarkPanels() {
        using platform::TrayMenuBarItem;
        auto sessions = [](int count) {
            return MenuBarLabel::content(
                true, DetectorStatus::withSessions(QList<SessionInfo>(count, named(QStringLiteral("Desk")))));
        };
        const QList<platform::StatusItemLabel> states{
            MenuBarLabel::content(false, DetectorStatus::noActiveSession()), sessions(2),
            MenuBarLabel::content(true, DetectorStatus::noActiveSession())};
        // The image of a state on a panel of `background`, as the tray shows it: 22 points square.
        auto onPanel = [](const platform::StatusItemLabel& label, const QColor& background) {
            const QPixmap icon = TrayMenuBarItem::renderLabel(label, 22, 1.0);
            QImage panel(icon.size(), QImage::Format_RGB32);
            panel.fill(background);
            QPainter(&panel).drawPixmap(0, 0, icon);
            return panel;
        };
        for (const QColor& background :
             {QColor(Qt::white), QColor(0xEE, 0xEE, 0xEE), QColor(0x2B, 0x2B, 0x2B), QColor(Qt::black)}) {
            QList<QImage> images;
            for (const platform::StatusItemLabel& label : states) {
                const QImage image = onPanel(label, background);
                QCOMPARE(image.size(), QSize(22, 22));
                // Enough of the icon stands apart from the panel to be seen.
                int distinct = 0;
                for (int y = 0; y < image.height(); ++y) {
                    for (int x = 0; x < image.width(); ++x)
                        distinct += qAbs(qGray(image.pixel(x, y)) - qGray(background.rgb())) > 64;
                }
                QVERIFY2(distinct > 60, qPrintable(background.name() + u' ' + label.toolTip));
                images.append(image);
            }
            // Three states, three pictures; the badge tells counts apart up to 9.
            QVERIFY(images[0] != images[1] && images[1] != images[2] && images[0] != images[2]);
            QVERIFY(onPanel(sessions(1), background) != onPanel(sessions(2), background));
            QCOMPARE(onPanel(sessions(10), background), onPanel(sessions(12), background));
        }
        QCOMPARE(TrayMenuBarItem::badgeText(12), QStringLiteral("9+"));
        const QPixmap sharp = TrayMenuBarItem::renderLabel(states[1], 22, 2.0);
        QCOMPARE(sharp.size(), QSize(44, 44));
        QCOMPARE(sharp.devicePixelRatio(), 2.0);
        for (const QString& symbol : {MenuBarLabel::warningSymbol, MenuBarLabel::idleSymbol,
                                      QStringLiteral("info.circle"), QStringLiteral("xmark")})
            QVERIFY2(QFile::exists(TrayMenuBarItem::symbolPath(symbol)), qPrintable(symbol));
    }

    void trayItemCarriesTheLabelAsIconAndToolTip() {
        platform::TrayMenuBarItem item;
        const auto label = MenuBarLabel::content(
            true, DetectorStatus::withSessions({named(QStringLiteral("Accounting Department")), untitled()}));
        item.setLabel(label);
        // The icon cannot hold the text: the tooltip has all of it.
        QCOMPARE(item.toolTip(), QStringLiteral("2\u25CF Accounting Depa\u2026"));
        QVERIFY(!item.icon().isNull());
        QVERIFY(item.icon().availableSizes().contains(QSize(22, 22)));
        QVERIFY(!item.icon().isMask());
        item.setLabel(MenuBarLabel::content(false, DetectorStatus::appNotRunning()));
        QCOMPARE(item.toolTip(), QStringLiteral("Orvanta Mac Toolkit"));
        QVERIFY(!item.icon().isNull());
    }

    void secondLaunchAsksTheFirstToShow() {
        const QString key =
            QStringLiteral("orvanta-test-") + QString::number(QCoreApplication::applicationPid());
        // A copy that crashed left its socket behind, bound but with nobody listening.
        const QByteArray path = QFile::encodeName(QDir::tempPath() + u'/' + key);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        qstrncpy(address.sun_path, path.constData(), sizeof address.sun_path);
        const int stale = ::socket(AF_UNIX, SOCK_STREAM, 0);
        QCOMPARE(::bind(stale, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ::close(stale);
        QVERIFY(QFileInfo::exists(QFile::decodeName(path)));

        SingleInstance first(key);
        QCOMPARE(first.claim(), SingleInstance::Role::primary);
        QSignalSpy shown(&first, &SingleInstance::showRequested);

        SingleInstance second(key);
        QCOMPARE(second.claim(), SingleInstance::Role::secondary);
        QVERIFY(shown.wait(3000));
        QCOMPARE(shown.count(), 1);
    }

private:
    QTemporaryDir m_home;
    QString m_world;
    int m_worldNumber = 0;
};

QTEST_MAIN(AppTest)

#include "tst_app.moc"
