// The System Events query and the census on loosely typed answers: numbers of every kind Qt can hold where
// the detector expects an integer.

#include "TestWorlds.h"
#include "session/SessionDetector.h"

#include <QTest>

#include <limits>

using namespace orvanta;
using namespace orvanta::platform;
using namespace orvanta::testing;

class LooseResultsTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void errorNumberOfAnyIntegerKind_data();
    void errorNumberOfAnyIntegerKind();
    void layerOfAnyIntegerKind_data();
    void layerOfAnyIntegerKind();
};

void LooseResultsTest::errorNumberOfAnyIntegerKind_data() {
    QTest::addColumn<QVariant>("number");
    QTest::addColumn<qlonglong>("code");
    QTest::newRow("int") << QVariant(-1743) << -1743LL;
    QTest::newRow("long long") << QVariant::fromValue(qlonglong(-10004)) << -10004LL;
    QTest::newRow("short") << QVariant::fromValue(short(-1743)) << -1743LL;
    QTest::newRow("long") << QVariant::fromValue(long(-10004)) << -10004LL;
    QTest::newRow("unsigned char") << QVariant::fromValue(quint8(255)) << 255LL;
    QTest::newRow("signed char") << QVariant::fromValue(qint8(-128)) << -128LL;
    QTest::newRow("unsigned short") << QVariant::fromValue(ushort(65535)) << 65535LL;
    // Unsigned values are not wrapped around into the refusal codes; wide ones are logged as given.
    QTest::newRow("unsigned of -1743's bits") << QVariant::fromValue(uint(-1743)) << 4294965553LL;
    QTest::newRow("wider than 32 bits")
        << QVariant::fromValue(qlonglong(std::numeric_limits<int>::max()) + 1) << 2147483648LL;
    QTest::newRow("unsigned beyond the signed range") << QVariant::fromValue(qulonglong(-1743)) << 0LL;
    QTest::newRow("Boolean") << QVariant(true) << 0LL;
    QTest::newRow("floating point") << QVariant(-1743.0) << 0LL;
    QTest::newRow("text") << QVariant(QStringLiteral("-1743")) << 0LL;
}

void LooseResultsTest::errorNumberOfAnyIntegerKind() {
    QFETCH(QVariant, number);
    QFETCH(qlonglong, code);
    SimWorld world = clientWorld();
    world.appleScript = AppleScriptError{{{appleScriptErrorNumberKey, number}}};
    SimulatedDesktop desktop(world);
    DebugCollector collector;
    const auto result = SessionDetector::queryAppleScriptWindows(desktop.platform(), &collector);
    const bool denied = code == -1743 || code == -10004;
    QCOMPARE(result.permissionDenied, denied);
    QVERIFY(result.titles.isEmpty());
    QCOMPARE(collector.lines, QStringList{QStringLiteral("AS detect: error code=%1 permissionDenied=%2")
                                              .arg(code)
                                              .arg(denied ? "true" : "false")});
}

void LooseResultsTest::layerOfAnyIntegerKind_data() {
    QTest::addColumn<QVariant>("layer");
    QTest::addColumn<int>("count");
    QTest::newRow("int 0") << QVariant(0) << 1;
    QTest::newRow("int 3") << QVariant(3) << 0;
    QTest::newRow("signed char 45") << QVariant::fromValue(qint8(45)) << 0;
    QTest::newRow("unsigned char 0") << QVariant::fromValue(quint8(0)) << 1;
    QTest::newRow("unsigned long long 2^63") << QVariant::fromValue(qulonglong(1) << 63) << 0;
    QTest::newRow("unsigned long long max")
        << QVariant::fromValue(std::numeric_limits<qulonglong>::max()) << 0;
    QTest::newRow("long -1") << QVariant::fromValue(long(-1)) << 0;
    // Not integers, so they do not skip the window.
    QTest::newRow("Boolean") << QVariant(true) << 1;
    QTest::newRow("floating point 3") << QVariant(3.0) << 1;
    QTest::newRow("text") << QVariant(QStringLiteral("3")) << 1;
}

void LooseResultsTest::layerOfAnyIntegerKind() {
    QFETCH(QVariant, layer);
    QFETCH(int, count);
    SimWorld world = clientWorld();
    const QVariantMap bounds{{windowList::width, 1920.0}, {windowList::height, 1080.0}};
    world.windowServer = {SimWindowList::Kind::given,
                          QVariantList{QVariantMap{{windowList::ownerPID, QVariant(clientPid)},
                                                   {windowList::layer, layer},
                                                   {windowList::bounds, bounds}}}};
    SimulatedDesktop desktop(world);
    QCOMPARE(SessionDetector::countLargeHiddenWindows(desktop.platform()), count);
}

QTEST_GUILESS_MAIN(LooseResultsTest)
#include "tst_looseresults.moc"
