#include "DebugLog.h"
#include "app/OrvantaMacToolkitApp.h"
#include "app/ScriptsFolder.h"
#include "diagnostics/ScriptRunner.h"
#include "permissions/PermissionsService.h"
#include "session/SessionMonitor.h"
#include "window/DiagnosticsSection.h"
#include "window/MainWindow.h"

#include "TestWorlds.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QMenu>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

using namespace orvanta;

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

private:
    QTemporaryDir m_home;
    QString m_world;
    int m_worldNumber = 0;
};

QTEST_MAIN(AppTest)

#include "tst_app.moc"
