#include "TestWorlds.h"
#include "session/SessionDetector.h"
#include "session/SessionFocus.h"

#include <QTest>

using namespace orvanta;
using namespace orvanta::platform;
using namespace orvanta::testing;

class SessionFocusTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void orderAndTimingOfEffects();
    void untitledOrRenamedSessionsOnlyBringThisApplicationForward();
    void findAXWindow();
};

void SessionFocusTest::orderAndTimingOfEffects() {
    // Two windows share the title; the first in the client's order is raised.
    SimulatedDesktop desktop(clientWorld({window(QStringLiteral("Other")), window(QStringLiteral("Desk 1")),
                                          window(QStringLiteral("Desk 1"))}));
    SessionFocus::focus(desktop.platform(), {QStringLiteral("Desk 1"), SessionInfo::Source::appleScript});
    // The first step happens before focus returns.
    QCOMPARE(desktop.actionDescriptions(), QStringList{QStringLiteral("activate self")});
    QTRY_COMPARE_WITH_TIMEOUT(desktop.actions().size(), 3, 5000);
    const auto actions = desktop.actions();
    QCOMPARE(actions[1].description, QStringLiteral("activate pid=812 options=1"));
    QCOMPARE(actions[2].description, QStringLiteral("AXRaise pid=812 window=1 title=\"Desk 1\""));
    const qint64 toClient = actions[1].elapsedMs - actions[0].elapsedMs;
    const qint64 toRaise = actions[2].elapsedMs - actions[1].elapsedMs;
    QVERIFY2(toClient >= 95 && toClient < 1000, qPrintable(QString::number(toClient)));
    QVERIFY2(toRaise >= 45 && toRaise < 1000, qPrintable(QString::number(toRaise)));
}

void SessionFocusTest::untitledOrRenamedSessionsOnlyBringThisApplicationForward() {
    SimulatedDesktop desktop(clientWorld({window(QStringLiteral("Desk 1"))}));
    SessionFocus::focus(desktop.platform(), {std::nullopt, SessionInfo::Source::axUnnamed});
    SessionFocus::focus(desktop.platform(), {std::nullopt, SessionInfo::Source::cgHidden});
    SessionFocus::focus(desktop.platform(), {QStringLiteral("Desk 1"), SessionInfo::Source::axNamed});
    // The window is renamed between the last pass and the delayed lookup.
    desktop.updateWorld(
        [](SimWorld& world) { world.windows[clientPid][0].title = AXValue(QStringLiteral("Desk 2")); });
    QTest::qWait(400);
    QCOMPARE(desktop.actionDescriptions(), QStringList(3, QStringLiteral("activate self")));
}

void SessionFocusTest::findAXWindow() {
    SimWindow unreadable = window(QStringLiteral("x"));
    unreadable.title.reset();
    SimulatedDesktop desktop(
        clientWorld({unreadable, window(QStringLiteral(" Desk 1")), window(QStringLiteral("desk 1")),
                     window(QString::fromUtf8("Cafe\u0301"))}));
    const Platform platform = desktop.platform();
    QVERIFY(!SessionFocus::findAXWindow(platform, std::nullopt));
    QVERIFY(!SessionFocus::findAXWindow(platform, QString()));
    QVERIFY(!SessionFocus::findAXWindow(platform, QStringLiteral("Desk 1"))); // no trimming, case kept
    const qsizetype earlierTimeouts = desktop.messagingTimeouts().size();
    const AXElement cafe = SessionFocus::findAXWindow(platform, QString::fromUtf8("Caf\u00e9"));
    QVERIFY(cafe);
    QCOMPARE(desktop.performAction(cafe, QStringLiteral("AXRaise")), 0);
    QVERIFY(desktop.actionDescriptions().last().contains(QStringLiteral("window=3")));
    // Every element the lookup asked through answers within a second or fails, so a hung client cannot
    // hold the main thread; the detection pass, on its own thread, keeps the platform's default.
    QCOMPARE(desktop.messagingTimeouts().mid(earlierTimeouts),
             (QStringList{"pid=812 window=-1 1s", "pid=812 window=0 1s", "pid=812 window=1 1s",
                          "pid=812 window=2 1s", "pid=812 window=3 1s"}));
    QCOMPARE(SessionDetector::detect(platform).kind(), DetectorStatus::Kind::sessions);
    QCOMPARE(desktop.messagingTimeouts().size(), earlierTimeouts + 5);

    desktop.updateWorld([](SimWorld& world) { world.windowsError[clientPid] = axError::cannotComplete; });
    QVERIFY(!SessionFocus::findAXWindow(platform, QStringLiteral(" Desk 1")));
    desktop.updateWorld([](SimWorld& world) {
        world.windowsError.clear();
        world.runningApplications.clear();
    });
    QVERIFY(!SessionFocus::findAXWindow(platform, QStringLiteral(" Desk 1")));
}

QTEST_GUILESS_MAIN(SessionFocusTest)
#include "tst_sessionfocus.moc"
