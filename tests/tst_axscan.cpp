#include "TestWorlds.h"
#include "session/SessionDetector.h"

#include <QTest>

#include <limits>

using namespace orvanta;
using namespace orvanta::platform;
using namespace orvanta::testing;

class AXScanTest : public QObject {
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
};

void AXScanTest::excludedTitles_data() {
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
}

void AXScanTest::excludedTitles() {
    QFETCH(QString, title);
    QFETCH(bool, excluded);
    QCOMPARE(SessionDetector::isExcludedTitle(title), excluded);
}

void AXScanTest::sizes_data() {
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

void AXScanTest::sizes() {
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
}

void AXScanTest::duplicatesAreKeptOnce() {
    // Equal titles, one precomposed and one decomposed, count once; the first spelling is kept as read.
    const QString precomposed = QString::fromUtf8("B\u00fcro ");
    SimulatedDesktop desktop(clientWorld({window(precomposed), window(QStringLiteral("Other")),
                                          window(QString::fromUtf8("Bu\u0308ro ")), window(precomposed)}));
    QCOMPARE(SessionDetector::scanAXWindows(desktop.platform(), clientPid).namedTitles,
             (QStringList{precomposed, QStringLiteral("Other")}));
}

void AXScanTest::untitledWindows() {
    const QString unknown = QStringLiteral("AXUnknown");
    SimulatedDesktop desktop(
        clientWorld({window(QString(), 1920, 1080, unknown), window(QString(), 1920, 1080, unknown, true),
                     window(QString(), 1920, 1080, QStringLiteral("AXStandardWindow")),
                     window(QString(), 100, 1080, unknown), window(QString(), 2560, 1440, unknown)}));
    const auto result = SessionDetector::scanAXWindows(desktop.platform(), clientPid);
    QCOMPARE(result.namedTitles, QStringList());
    QCOMPARE(result.unnamedCount, 2);
}

void AXScanTest::unreadableAttributes() {
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
}

void AXScanTest::failedWindowList_data() {
    QTest::addColumn<int>("error");
    QTest::newRow("cannot complete") << -25204;
    QTest::newRow("read without a list") << 0;
}

void AXScanTest::failedWindowList() {
    QFETCH(int, error);
    SimWorld world = clientWorld({window(QStringLiteral("Desk 1"))});
    world.windowsError.insert(clientPid, error);
    SimulatedDesktop desktop(world);
    DebugCollector collector;
    const auto result = SessionDetector::scanAXWindows(desktop.platform(), clientPid, &collector);
    QCOMPARE(collector.lines, QStringList{QStringLiteral("AX windows query failed (result=%1)").arg(error)});
    QVERIFY(result.namedTitles.isEmpty());
    QCOMPARE(result.unnamedCount, 0);
}

void AXScanTest::ownWindowIsSkippedWithItsLine() {
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
}

QTEST_GUILESS_MAIN(AXScanTest)
#include "tst_axscan.moc"
