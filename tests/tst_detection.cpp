#include "TestWorlds.h"
#include "session/SessionDetector.h"

#include <QTest>
#include <QTimeZone>

#include <limits>

using namespace orvanta;
using namespace orvanta::platform;
using namespace orvanta::testing;

namespace {

using Source = SessionInfo::Source;

SessionInfo named(const QString& title, Source source = Source::axNamed) {
    return {title, source};
}

SessionInfo untitled(Source source) {
    return {std::nullopt, source};
}

QVariantMap cgWindow(const QVariant& owner, const QVariant& width, const QVariant& height,
                     const QVariant& layer = 0) {
    QVariantMap window{
        {windowList::ownerPID, owner},
        {windowList::bounds, QVariantMap{{windowList::width, width}, {windowList::height, height}}}};
    if (layer.isValid())
        window.insert(windowList::layer, layer);
    return window;
}

SimWorld withWindowList(SimWorld world, const QVariant& list) {
    world.windowServer = {SimWindowList::Kind::given, list};
    return world;
}

AppleScriptOutcome scriptText(const QString& text) {
    return AppleScriptResult{text};
}

AppleScriptOutcome scriptError(const QVariant& number) {
    QVariantMap info{{QStringLiteral("NSAppleScriptErrorMessage"), QStringLiteral("refused")}};
    if (number.isValid())
        info.insert(appleScriptErrorNumberKey, number);
    return AppleScriptError{info};
}

} // namespace

Q_DECLARE_METATYPE(orvanta::platform::SimWorld)

class DetectionTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void query_data();
    void query();
    void queryErrors_data();
    void queryErrors();
    void censusRules_data();
    void censusRules();
    void censusWithoutListOrClient_data();
    void censusWithoutListOrClient();
    void passes_data();
    void passes();
    void mergeOrderAndRepeats();
};

void DetectionTest::query_data() {
    QTest::addColumn<SimWorld>("world");
    QTest::addColumn<QStringList>("titles");
    QTest::addColumn<QStringList>("lines");
    SimWorld scripted = clientWorld();
    scripted.appleScript =
        scriptText(QStringLiteral("Desk 1\nConnection Center\n\n  Desk 2\r\nDesk 1\n \t\nMSCTFIME x\n"));
    QTest::newRow("filters, keeps repeats")
        << scripted
        << QStringList{QStringLiteral("Desk 1"), QStringLiteral("Desk 2"), QStringLiteral("Desk 1")}
        << QStringList{QStringLiteral("AS detect: raw=5 filtered=3")};
    // Without a scripted answer System Events reports the client's titled windows, tiny ones included.
    QTest::newRow("System Events' own answer")
        << clientWorld({window(QStringLiteral("Tiny"), 20, 20), window(QString()),
                        window(QStringLiteral("Connection Center"))})
        << QStringList{QStringLiteral("Tiny")} << QStringList{QStringLiteral("AS detect: raw=2 filtered=1")};
    scripted.appleScript = AppleScriptOutcome{std::monostate{}};
    QTest::newRow("no script object") << scripted << QStringList() << QStringList();
    scripted.appleScript = AppleScriptResult{std::nullopt};
    QTest::newRow("no text") << scripted << QStringList()
                             << QStringList{QStringLiteral("AS detect: raw=0 filtered=0")};
    // No process of the client's name in System Events' view: the script returns nothing.
    SimWorld renamed = clientWorld({window(QStringLiteral("Desk 1"))});
    renamed.runningApplications.first().name = QStringLiteral("Microsoft Remote Desktop");
    QTest::newRow("client renamed") << renamed << QStringList()
                                    << QStringList{QStringLiteral("AS detect: raw=0 filtered=0")};
}

void DetectionTest::query() {
    QFETCH(SimWorld, world);
    QFETCH(QStringList, titles);
    QFETCH(QStringList, lines);
    SimulatedDesktop desktop(world);
    DebugCollector collector;
    const auto result = SessionDetector::queryAppleScriptWindows(desktop.platform(), &collector);
    QCOMPARE(result.titles, titles);
    QVERIFY(!result.permissionDenied);
    QCOMPARE(collector.lines, lines);
}

void DetectionTest::queryErrors_data() {
    QTest::addColumn<QVariant>("number");
    QTest::addColumn<QString>("line");
    QTest::addColumn<bool>("denied");
    const QString denied = QStringLiteral("AS detect: error code=%1 permissionDenied=true");
    const QString failed = QStringLiteral("AS detect: error code=%1 permissionDenied=false");
    QTest::newRow("not permitted") << QVariant(-1743) << denied.arg(-1743) << true;
    QTest::newRow("privilege error") << QVariant(-10004) << denied.arg(-10004) << true;
    QTest::newRow("wide integer") << QVariant(qint64(-1743)) << denied.arg(-1743) << true;
    QTest::newRow("other code") << QVariant(-600) << failed.arg(-600) << false;
    QTest::newRow("no number") << QVariant() << failed.arg(0) << false;
    QTest::newRow("number as text") << QVariant(QStringLiteral("-1743")) << failed.arg(0) << false;
    QTest::newRow("floating point") << QVariant(-1743.0) << failed.arg(0) << false;
    QTest::newRow("beyond 32 bits") << QVariant(qint64(-5000000000)) << failed.arg(-5000000000) << false;
    // Integers of every width Qt can hold are read; unsigned ones are not wrapped into the refusal codes.
    QTest::newRow("short") << QVariant::fromValue(short(-1743)) << denied.arg(-1743) << true;
    QTest::newRow("long") << QVariant::fromValue(long(-10004)) << denied.arg(-10004) << true;
    QTest::newRow("signed char") << QVariant::fromValue(qint8(-128)) << failed.arg(-128) << false;
    QTest::newRow("unsigned char") << QVariant::fromValue(quint8(255)) << failed.arg(255) << false;
    QTest::newRow("unsigned of -1743's bits")
        << QVariant::fromValue(uint(-1743)) << failed.arg(4294965553LL) << false;
    QTest::newRow("unsigned beyond the signed range")
        << QVariant::fromValue(qulonglong(-1743)) << failed.arg(0) << false;
    QTest::newRow("Boolean") << QVariant(true) << failed.arg(0) << false;
}

void DetectionTest::queryErrors() {
    QFETCH(QVariant, number);
    QFETCH(QString, line);
    QFETCH(bool, denied);
    SimWorld world = clientWorld({window(QStringLiteral("Desk 1"))});
    world.appleScript = scriptError(number);
    SimulatedDesktop desktop(world);
    DebugCollector collector;
    const auto result = SessionDetector::queryAppleScriptWindows(desktop.platform(), &collector);
    QVERIFY(result.titles.isEmpty());
    QCOMPARE(result.permissionDenied, denied);
    QCOMPARE(collector.lines, QStringList{line});
}

void DetectionTest::censusRules_data() {
    QTest::addColumn<QVariantMap>("entry");
    QTest::addColumn<int>("count");
    const int pid = clientPid;
    QTest::newRow("threshold") << cgWindow(pid, 1400.0, 800.0) << 1;
    QTest::newRow("narrow by half a point") << cgWindow(pid, 1399.5, 900.0) << 0;
    QTest::newRow("a point too low") << cgWindow(pid, 1920.0, 799.0) << 0;
    QTest::newRow("layer 3") << cgWindow(pid, 1920.0, 1080.0, 3) << 0;
    QTest::newRow("wide layer 3") << cgWindow(pid, 1920.0, 1080.0, qint64(3)) << 0;
    QTest::newRow("no layer") << cgWindow(pid, 1920.0, 1080.0, QVariant()) << 1;
    QTest::newRow("layer as text") << cgWindow(pid, 1920.0, 1080.0, QStringLiteral("3")) << 1;
    QTest::newRow("layer floating point") << cgWindow(pid, 1920.0, 1080.0, 3.0) << 1;
    QTest::newRow("layer Boolean") << cgWindow(pid, 1920.0, 1080.0, true) << 1;
    QTest::newRow("layer signed char 45")
        << cgWindow(pid, 1920.0, 1080.0, QVariant::fromValue(qint8(45))) << 0;
    QTest::newRow("layer unsigned char 0")
        << cgWindow(pid, 1920.0, 1080.0, QVariant::fromValue(quint8(0))) << 1;
    QTest::newRow("layer long -1") << cgWindow(pid, 1920.0, 1080.0, QVariant::fromValue(long(-1))) << 0;
    QTest::newRow("layer 2^63") << cgWindow(pid, 1920.0, 1080.0, QVariant::fromValue(qulonglong(1) << 63))
                                << 0;
    QTest::newRow("layer unsigned max")
        << cgWindow(pid, 1920.0, 1080.0, QVariant::fromValue(std::numeric_limits<qulonglong>::max())) << 0;
    QTest::newRow("other process") << cgWindow(77, 1920.0, 1080.0) << 0;
    QTest::newRow("owner as text") << cgWindow(QString::number(pid), 1920.0, 1080.0) << 0;
    QTest::newRow("owner wider than 32 bits") << cgWindow(qint64(pid), 1920.0, 1080.0) << 0;
    QTest::newRow("integer width") << cgWindow(pid, 1920, 1080.0) << 0;
    QTest::newRow("integer height") << cgWindow(pid, 1920.0, 1080) << 0;
    QVariantMap noBounds = cgWindow(pid, 1920.0, 1080.0);
    noBounds.remove(windowList::bounds);
    QTest::newRow("no bounds") << noBounds << 0;
    QVariantMap boundsAsText = cgWindow(pid, 1920.0, 1080.0);
    boundsAsText.insert(windowList::bounds, QStringLiteral("{1920, 1080}"));
    QTest::newRow("bounds not a dictionary") << boundsAsText << 0;
    QVariantMap noOwner = cgWindow(pid, 1920.0, 1080.0);
    noOwner.remove(windowList::ownerPID);
    QTest::newRow("no owner") << noOwner << 0;
}

void DetectionTest::censusRules() {
    QFETCH(QVariantMap, entry);
    QFETCH(int, count);
    // The entry sits between a counted window and a window of another process, to show it is skipped alone.
    const QVariantList list{cgWindow(clientPid, 2560.0, 1440.0), entry, cgWindow(9, 2560.0, 1440.0)};
    SimulatedDesktop desktop(withWindowList(clientWorld(), list));
    DebugCollector collector;
    QCOMPARE(SessionDetector::countLargeHiddenWindows(desktop.platform(), &collector), count + 1);
    QCOMPARE(collector.lines,
             QStringList{QStringLiteral("CG tiebreaker: %1 large hidden window(s)").arg(count + 1)});
}

void DetectionTest::censusWithoutListOrClient_data() {
    QTest::addColumn<SimWorld>("world");
    const SimWorld world = clientWorld({window(QStringLiteral("Desk 1"))});
    const QVariantMap large = cgWindow(clientPid, 1920.0, 1080.0);
    SimWorld noList = world;
    noList.windowServer = {SimWindowList::Kind::none, {}};
    QTest::newRow("no list") << noList;
    QTest::newRow("not a list") << withWindowList(world, large);
    QTest::newRow("list with a text") << withWindowList(world, QVariantList{large, QStringLiteral("x")});
    SimWorld noClient = withWindowList(world, QVariantList{large});
    noClient.runningApplications.clear();
    QTest::newRow("client not running") << noClient;
}

void DetectionTest::censusWithoutListOrClient() {
    QFETCH(SimWorld, world);
    SimulatedDesktop desktop(world);
    DebugCollector collector;
    QCOMPARE(SessionDetector::countLargeHiddenWindows(desktop.platform(), &collector), 0);
    QVERIFY(collector.lines.isEmpty());
}

void DetectionTest::passes_data() {
    QTest::addColumn<SimWorld>("world");
    QTest::addColumn<DetectorStatus>("status");
    // The whole transcript when it starts with the header, else its end; whether System Events was asked.
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<bool>("queried");
    const QString header = QStringLiteral("=== Detection @ 2025-03-04 09:15:27 +0000 ===");
    const auto withSessions = [](QList<SessionInfo> sessions) {
        return DetectorStatus::withSessions(sessions);
    };

    // A minimized window is a session too.
    QTest::newRow("typical") << clientWorld({window(QStringLiteral("Connection Center"), 900, 640),
                                             window(QStringLiteral("Desk 1"), 1920, 1080,
                                                    QStringLiteral("AXStandardWindow"), true)})
                             << withSessions({named(QStringLiteral("Desk 1"))})
                             << QStringList{header,
                                            QStringLiteral("AX trust: ok"),
                                            QStringLiteral("Windows App pid=812"),
                                            QStringLiteral("AX windows: 2"),
                                            QStringLiteral("  AX win title=\"Connection Center\" "
                                                           "subrole=AXStandardWindow size=900x640 min=false"),
                                            QStringLiteral(
                                                "  AX win title=\"Desk 1\" subrole=AXStandardWindow "
                                                "size=1920x1080 min=true"),
                                            QStringLiteral("AX detect: 1 named, 0 unnamed"),
                                            QStringLiteral("AS detect: raw=2 filtered=1"),
                                            QStringLiteral("Result: sessions count=1 named=1 unnamed=0")}
                             << true;
    // The header is in UTC whatever zone the clock is given in.
    SimWorld untrusted = clientWorld({window(QStringLiteral("Desk 1"))});
    untrusted.accessibilityTrusted = false;
    untrusted.now = QDateTime(QDate(2025, 3, 4), QTime(23, 30, 5), QTimeZone(-5 * 3600));
    QTest::newRow("not trusted, clock in another zone")
        << untrusted << DetectorStatus::needsAXPermission()
        << QStringList{QStringLiteral("=== Detection @ 2025-03-05 04:30:05 +0000 ==="),
                       QStringLiteral("AX trust: NOT trusted")}
        << false;
    SimWorld other = clientWorld();
    other.runningApplications = {{77, QStringLiteral("com.example.other"), windowsAppProcessName}};
    QTest::newRow("client not running")
        << other << DetectorStatus::appNotRunning()
        << QStringList{header, QStringLiteral("AX trust: ok"),
                       QStringLiteral("Windows App not running (bundle=com.microsoft.rdc.macos)")}
        << false;

    // The derived window list holds both windows at desktop size: the census would have counted them.
    const QString unknown = QStringLiteral("AXUnknown");
    QTest::newRow("unnamed windows skip the census")
        << clientWorld({window(QString(), 1920, 1080, unknown), window(QString(), 2560, 1440, unknown)})
        << withSessions({untitled(Source::axUnnamed), untitled(Source::axUnnamed)})
        << QStringList{QStringLiteral("AX detect: 0 named, 2 unnamed"),
                       QStringLiteral("AS detect: raw=0 filtered=0"),
                       QStringLiteral("Result: sessions count=2 named=0 unnamed=2")}
        << true;

    SimWorld refused = clientWorld();
    refused.appleScript = scriptError(-1743);
    QTest::newRow("refused query, hidden window")
        << withWindowList(refused, QVariantList{cgWindow(clientPid, 1920.0, 1080.0)})
        << withSessions({untitled(Source::cgHidden)})
        << QStringList{QStringLiteral("AS detect: error code=-1743 permissionDenied=true"),
                       QStringLiteral("CG tiebreaker: 1 large hidden window(s)"),
                       QStringLiteral("Result: sessions count=1 named=0 unnamed=1")}
        << true;
    refused = withWindowList(refused, QVariantList{});
    QTest::newRow("refused query, nothing hidden")
        << refused << DetectorStatus::needsAEPermission()
        << QStringList{QStringLiteral("CG tiebreaker: 0 large hidden window(s)"),
                       QStringLiteral("Result: needsAEPermission")}
        << true;
    // A session found by the scan wins over the refusal.
    refused.windows[clientPid] = {window(QStringLiteral("Desk 1"))};
    QTest::newRow("refused query, session scanned")
        << refused << withSessions({named(QStringLiteral("Desk 1"))})
        << QStringList{QStringLiteral("Result: sessions count=1 named=1 unnamed=0")} << true;
    // Any other failure of the query means no session.
    refused.windows[clientPid].clear();
    refused.appleScript = scriptError(-600);
    QTest::newRow("failed query") << refused << DetectorStatus::noActiveSession()
                                  << QStringList{QStringLiteral("Result: noActiveSession")} << true;

    // The scan and the query see nothing of a second instance; the census counts its large window.
    SimWorld two = clientWorld({window(QString(), 20, 20, QStringLiteral("AXUnknown"))});
    two.runningApplications.append({913, windowsAppBundleID, QStringLiteral("Windows App 2")});
    two.windows[913] = {window(QStringLiteral("Second instance desk"))};
    QTest::newRow("second instance") << two << withSessions({untitled(Source::cgHidden)})
                                     << QStringList{QStringLiteral("AX detect: 0 named, 0 unnamed"),
                                                    QStringLiteral("AS detect: raw=0 filtered=0"),
                                                    QStringLiteral("CG tiebreaker: 1 large hidden window(s)"),
                                                    QStringLiteral(
                                                        "Result: sessions count=1 named=0 unnamed=1")}
                                     << true;
}

void DetectionTest::passes() {
    QFETCH(SimWorld, world);
    QFETCH(DetectorStatus, status);
    QFETCH(QStringList, lines);
    QFETCH(bool, queried);
    SimulatedDesktop desktop(world);
    DebugCollector collector;
    QVERIFY(SessionDetector::detect(desktop.platform(), &collector) == status);
    if (lines.first().startsWith(QStringLiteral("=== ")))
        QCOMPARE(collector.lines, lines);
    else
        QCOMPARE(collector.lines.mid(collector.lines.size() - lines.size()), lines);
    QCOMPARE(desktop.appleScriptRuns() > 0, queried);
}

void DetectionTest::mergeOrderAndRepeats() {
    // The scan sees A (precomposed), C and an untitled window; the query reports A (decomposed), B, C with
    // its two combining marks in the other order (canonically the same text), and B again.
    const QString a = QString::fromUtf8("Caf\u00e9 A");
    const QString aDecomposed = QString::fromUtf8("Cafe\u0301 A");
    const QString c = QString::fromUtf8("C\u0323\u0307");
    SimWorld world =
        clientWorld({window(QString(), 1920, 1080, QStringLiteral("AXUnknown")), window(a), window(c)});
    world.appleScript = scriptText(aDecomposed + QString::fromUtf8("\nB\nC\u0307\u0323\nB\n"));
    SimulatedDesktop desktop(world);
    DebugCollector collector;
    const DetectorStatus status = SessionDetector::detect(desktop.platform(), &collector);
    QCOMPARE(status.kind(), DetectorStatus::Kind::sessions);
    const QList<SessionInfo> expected{named(a), named(c), named(QStringLiteral("B"), Source::appleScript),
                                      named(QStringLiteral("B"), Source::appleScript),
                                      untitled(Source::axUnnamed)};
    QVERIFY(status == DetectorStatus::withSessions(expected));
    QCOMPARE(*status.sessions().first().title, a); // the scan's spelling, as read
    QCOMPARE(collector.lines.last(), QStringLiteral("Result: sessions count=5 named=4 unnamed=1"));
}

QTEST_GUILESS_MAIN(DetectionTest)
#include "tst_detection.moc"
