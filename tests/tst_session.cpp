// Session detection: the Accessibility scan and its text rules, the System Events query, the window census,
// whole passes, the session values, and bringing a session forward.
#include "TestWorlds.h"
#include "session/SessionDetector.h"
#include "session/SessionFocus.h"

#include <QTest>
#include <QTimeZone>

#include <limits>

using namespace orvanta;
using namespace orvanta::platform;
using namespace orvanta::testing;

namespace {

using Source = SessionInfo::Source;

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

class SessionTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void excludedTitles_data();
    void excludedTitles();
    void sizes_data();
    void sizes();
    void duplicatesAreKeptOnce();
    void untitledWindows();
    void unreadableAttributes();
    void failedWindowList_data();
    void failedWindowList();
    void ownWindowIsSkippedWithItsLine();
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
    void sessionValuesCompareWhole();
    void orderAndTimingOfEffects();
    void untitledOrRenamedSessionsOnlyBringThisApplicationForward();
    void findAXWindow();
};

void SessionTest::excludedTitles_data() {
    QTest::addColumn<QString>("title");
    QTest::addColumn<bool>("excluded");
    QTest::newRow("exact") << QStringLiteral("Connection Center") << true;
    QTest::newRow("trimmed") << QStringLiteral("  Connection Center \n") << true;
    QTest::newRow("no-break spaces") << QString::fromUtf8("\u00a0Devices\u00a0") << true;
    QTest::newRow("exact is case-sensitive") << QStringLiteral("connection center") << false;
    QTest::newRow("own window") << QStringLiteral("Orvanta Mac Toolkit") << true;
    QTest::newRow("tracker") << QStringLiteral("Orvanta Session Tracker") << true;
    QTest::newRow("dash") << QStringLiteral(" - ") << true;
    QTest::newRow("white space only") << QStringLiteral(" \t ") << true;
    QTest::newRow("MSCTFIME UI") << QStringLiteral("MSCTFIME UI") << true;
    QTest::newRow("ctf in any case") << QStringLiteral("Quarterly cTf review") << true;
    QTest::newRow("ime prefix lower") << QStringLiteral("default ime") << true;
    QTest::newRow("tsf") << QStringLiteral("tsf_bar") << true;
    QTest::newRow("cicero") << QStringLiteral("xCICEROx") << true;
    QTest::newRow("session") << QStringLiteral("Desk 1") << false;
    QTest::newRow("ends with ime no underscore") << QStringLiteral("Runtime") << false;
    QTest::newRow("contains About") << QStringLiteral("About Desk") << false;
    QTest::newRow("decomposed accent") << QString::fromUtf8("Bu\u0308ro") << false;
    // Fragments match whole characters: an accent on a fragment's last letter makes another character, the
    // same whether it is written precomposed or as a combining mark.
    QTest::newRow("fragment's last letter accented, decomposed")
        << QString::fromUtf8("Cicero\u0301 Desk") << false;
    QTest::newRow("fragment's last letter accented, precomposed")
        << QString::fromUtf8("Cicer\u00f3 Desk") << false;
    QTest::newRow("fragment after an accented letter") << QString::fromUtf8("Re\u0301sume\u0301CTF") << true;
    QTest::newRow("fragment again, whole") << QString::fromUtf8("Cicero\u0301 or Cicero") << true;
}

void SessionTest::excludedTitles() {
    QFETCH(QString, title);
    QFETCH(bool, excluded);
    QCOMPARE(SessionDetector::isExcludedTitle(title), excluded);
}

void SessionTest::sizes_data() {
    QTest::addColumn<double>("width");
    QTest::addColumn<double>("height");
    QTest::addColumn<QString>("logged");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("narrow") << 199.0 << 1080.0 << QStringLiteral("199x1080") << false;
    QTest::newRow("low") << 1080.0 << 199.9 << QStringLiteral("1080x199") << false;
    QTest::newRow("square") << 200.0 << 200.0 << QStringLiteral("200x200") << true;
    QTest::newRow("fractions truncated") << 1920.9 << 1080.2 << QStringLiteral("1920x1080") << true;
    QTest::newRow("negative truncated toward zero") << -0.5 << -199.9 << QStringLiteral("0x-199") << false;
    // Beyond the 64-bit range a size is still written as its own integer.
    QTest::newRow("beyond 9e18") << 9.5e18 << 18446744073709551616.0
                                 << QStringLiteral("9500000000000000000x18446744073709551616") << true;
    QTest::newRow("infinite") << std::numeric_limits<double>::infinity()
                              << -std::numeric_limits<double>::infinity() << QStringLiteral("infx-inf")
                              << false;
}

void SessionTest::sizes() {
    QFETCH(double, width);
    QFETCH(double, height);
    QFETCH(QString, logged);
    QFETCH(bool, accepted);
    // A title with placeholders and percent signs is logged as it is.
    SimulatedDesktop desktop(clientWorld({window(QStringLiteral("Desk %1 50%"), width, height)}));
    DebugCollector collector;
    const auto result = SessionDetector::scanAXWindows(desktop.platform(), clientPid, &collector);
    QCOMPARE(collector.lines.at(1),
             QStringLiteral("  AX win title=\"Desk %1 50%\" subrole=AXStandardWindow size=") + logged +
                 QStringLiteral(" min=false"));
    QCOMPARE(result.namedTitles.size(), accepted ? 1 : 0);
    checkRecordingReplays(desktop.world());
}

void SessionTest::duplicatesAreKeptOnce() {
    // Equal titles, one precomposed and one decomposed, count once; the first spelling is kept as read.
    const QString precomposed = QString::fromUtf8("B\u00fcro ");
    SimulatedDesktop desktop(clientWorld({window(precomposed), window(QStringLiteral("Other")),
                                          window(QString::fromUtf8("Bu\u0308ro ")), window(precomposed)}));
    QCOMPARE(SessionDetector::scanAXWindows(desktop.platform(), clientPid).namedTitles,
             (QStringList{precomposed, QStringLiteral("Other")}));
}

void SessionTest::untitledWindows() {
    const QString unknown = QStringLiteral("AXUnknown");
    SimulatedDesktop desktop(
        clientWorld({window(QString(), 1920, 1080, unknown), window(QString(), 1920, 1080, unknown, true),
                     window(QString(), 1920, 1080, QStringLiteral("AXStandardWindow")),
                     window(QString(), 100, 1080, unknown), window(QString(), 2560, 1440, unknown)}));
    const auto result = SessionDetector::scanAXWindows(desktop.platform(), clientPid);
    QCOMPARE(result.namedTitles, QStringList());
    QCOMPARE(result.unnamedCount, 2);
    checkRecordingReplays(desktop.world());
}

void SessionTest::unreadableAttributes() {
    SimWindow nothing;    // every read fails
    SimWindow wrongTypes; // reads succeed with values of other types
    wrongTypes.title = AXValue(true);
    wrongTypes.subrole = AXValue(AXSize{1, 2});
    wrongTypes.size = AXValue(QStringLiteral("1920x1080"));
    wrongTypes.minimized = AXValue(QStringLiteral("true"));
    SimWindow absentValues; // reads succeed with no value
    absentValues.title = AXValue();
    absentValues.size = AXValue();
    SimWindow unknownUnreadableSize = window(QString(), 0, 0, QStringLiteral("AXUnknown"));
    unknownUnreadableSize.size.reset();
    SimulatedDesktop desktop(clientWorld({nothing, wrongTypes, absentValues, unknownUnreadableSize}));
    DebugCollector collector;
    const auto result = SessionDetector::scanAXWindows(desktop.platform(), clientPid, &collector);
    QCOMPARE(result.namedTitles, QStringList());
    QCOMPARE(result.unnamedCount, 0);
    QCOMPARE(collector.lines.mid(1, 4),
             (QStringList{QStringLiteral("  AX win title=\"\" subrole= size=0x0 min=false"),
                          QStringLiteral("  AX win title=\"\" subrole= size=0x0 min=false"),
                          QStringLiteral("  AX win title=\"\" subrole= size=0x0 min=false"),
                          QStringLiteral("  AX win title=\"\" subrole=AXUnknown size=0x0 min=false")}));
    checkRecordingReplays(desktop.world());
}

void SessionTest::failedWindowList_data() {
    QTest::addColumn<int>("error");
    QTest::newRow("cannot complete") << -25204;
    QTest::newRow("read without a list") << 0;
}

void SessionTest::failedWindowList() {
    QFETCH(int, error);
    SimWorld world = clientWorld({window(QStringLiteral("Desk 1"))});
    world.windowsError.insert(clientPid, error);
    SimulatedDesktop desktop(world);
    DebugCollector collector;
    const auto result = SessionDetector::scanAXWindows(desktop.platform(), clientPid, &collector);
    QCOMPARE(collector.lines, QStringList{QStringLiteral("AX windows query failed (result=%1)").arg(error)});
    QVERIFY(result.namedTitles.isEmpty());
    QCOMPARE(result.unnamedCount, 0);
    checkRecordingReplays(world);
}

void SessionTest::ownWindowIsSkippedWithItsLine() {
    SimWindow own = window(QStringLiteral("Stray"));
    own.pid = ownPid;
    SimWindow ownerUnknown = window(QStringLiteral("Desk 9"));
    ownerUnknown.ownerUnknown = true;
    // A window whose owner cannot be read counts as pid 0 and is scanned like any other.
    SimulatedDesktop desktop(clientWorld({own, ownerUnknown, window(QStringLiteral("Desk 1"))}));
    DebugCollector collector;
    const auto result = SessionDetector::scanAXWindows(desktop.platform(), clientPid, &collector);
    QCOMPARE(result.namedTitles, (QStringList{QStringLiteral("Desk 9"), QStringLiteral("Desk 1")}));
    QCOMPARE(collector.lines.at(1),
             QStringLiteral("OWN-PID exclusion fired (winPid=4242). Should be unreachable."));
    QCOMPARE(collector.lines.size(), 5);
    checkRecordingReplays(desktop.world());
}

void SessionTest::query_data() {
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

void SessionTest::query() {
    QFETCH(SimWorld, world);
    QFETCH(QStringList, titles);
    QFETCH(QStringList, lines);
    SimulatedDesktop desktop(world);
    DebugCollector collector;
    const auto result = SessionDetector::queryAppleScriptWindows(desktop.platform(), &collector);
    QCOMPARE(result.titles, titles);
    QVERIFY(!result.permissionDenied);
    QCOMPARE(collector.lines, lines);
    checkRecordingReplays(world);
}

void SessionTest::queryErrors_data() {
    QTest::addColumn<QVariant>("number");
    QTest::addColumn<QString>("line");
    QTest::addColumn<bool>("denied");
    const QString denied = QStringLiteral("AS detect: error code=%1 permissionDenied=true");
    const QString failed = QStringLiteral("AS detect: error code=%1 permissionDenied=false");
    QTest::newRow("not permitted") << QVariant(-1743) << denied.arg(-1743) << true;
    QTest::newRow("privilege error") << QVariant(-10004) << denied.arg(-10004) << true;
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

void SessionTest::queryErrors() {
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
    checkRecordingReplays(world);
}

void SessionTest::censusRules_data() {
    QTest::addColumn<QVariantMap>("entry");
    QTest::addColumn<int>("count");
    const int pid = clientPid;
    QTest::newRow("threshold") << cgWindow(pid, 1400.0, 800.0) << 1;
    QTest::newRow("narrow by half a point") << cgWindow(pid, 1399.5, 900.0) << 0;
    QTest::newRow("a point too low") << cgWindow(pid, 1920.0, 799.0) << 0;
    QTest::newRow("layer 3") << cgWindow(pid, 1920.0, 1080.0, 3) << 0;
    QTest::newRow("layer 2^32") << cgWindow(pid, 1920.0, 1080.0, qint64(1) << 32) << 0;
    QTest::newRow("no layer") << cgWindow(pid, 1920.0, 1080.0, QVariant()) << 1;
    QTest::newRow("layer as text") << cgWindow(pid, 1920.0, 1080.0, QStringLiteral("3")) << 1;
    QTest::newRow("layer Boolean") << cgWindow(pid, 1920.0, 1080.0, true) << 1;
    QTest::newRow("layer unsigned char 0")
        << cgWindow(pid, 1920.0, 1080.0, QVariant::fromValue(quint8(0))) << 1;
    QTest::newRow("layer 2^63") << cgWindow(pid, 1920.0, 1080.0, QVariant::fromValue(qulonglong(1) << 63))
                                << 0;
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
}

void SessionTest::censusRules() {
    QFETCH(QVariantMap, entry);
    QFETCH(int, count);
    // The entry sits between a counted window and a window of another process, to show it is skipped alone.
    const QVariantList list{cgWindow(clientPid, 2560.0, 1440.0), entry, cgWindow(9, 2560.0, 1440.0)};
    SimulatedDesktop desktop(withWindowList(clientWorld(), list));
    DebugCollector collector;
    QCOMPARE(SessionDetector::countLargeHiddenWindows(desktop.platform(), &collector), count + 1);
    QCOMPARE(collector.lines,
             QStringList{QStringLiteral("CG tiebreaker: %1 large hidden window(s)").arg(count + 1)});
    checkRecordingReplays(desktop.world());
}

void SessionTest::censusWithoutListOrClient_data() {
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

void SessionTest::censusWithoutListOrClient() {
    QFETCH(SimWorld, world);
    SimulatedDesktop desktop(world);
    DebugCollector collector;
    QCOMPARE(SessionDetector::countLargeHiddenWindows(desktop.platform(), &collector), 0);
    QVERIFY(collector.lines.isEmpty());
    checkRecordingReplays(world);
}

void SessionTest::passes_data() {
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

void SessionTest::passes() {
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
    checkRecordingReplays(world);
}

void SessionTest::mergeOrderAndRepeats() {
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

void SessionTest::sessionValuesCompareWhole() {
    // Titles compare canonically; the source, a missing title against an empty one, and the order count.
    const SessionInfo a = named(QStringLiteral("A"));
    const SessionInfo b = named(QStringLiteral("B"), Source::appleScript);
    QCOMPARE(named(QString::fromUtf8("Ren\u00e9e")), named(QString::fromUtf8("Rene\u0301e")));
    QVERIFY(!(untitled(Source::axUnnamed) == untitled(Source::cgHidden)));
    QVERIFY(!(untitled(Source::axUnnamed) == named(QString(), Source::axUnnamed)));
    QVERIFY(!(a == named(QStringLiteral("A"), Source::appleScript)));
    QCOMPARE(DetectorStatus(), DetectorStatus::appNotRunning());
    QVERIFY(!(DetectorStatus::withSessions({a, b}) == DetectorStatus::withSessions({b, a})));
    QVERIFY(!(DetectorStatus::withSessions({a}) == DetectorStatus::withSessions({a, a})));
    const QList<DetectorStatus> plain{DetectorStatus::needsAXPermission(),
                                      DetectorStatus::needsAEPermission(), DetectorStatus::appNotRunning(),
                                      DetectorStatus::noActiveSession()};
    for (qsizetype i = 0; i < plain.size(); ++i) {
        QCOMPARE(plain[i], plain[i]);
        QVERIFY(!(plain[i] == plain[(i + 1) % plain.size()]));
        QVERIFY(!(DetectorStatus::withSessions({a}) == plain[i]));
    }
}

void SessionTest::orderAndTimingOfEffects() {
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

void SessionTest::untitledOrRenamedSessionsOnlyBringThisApplicationForward() {
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

void SessionTest::findAXWindow() {
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

QTEST_GUILESS_MAIN(SessionTest)
#include "tst_session.moc"
