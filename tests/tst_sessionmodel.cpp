#include "platform/simulated/SimulatedDesktop.h"
#include "session/SessionDetector.h"
#include "session/SessionInfo.h"

#include <QTest>

using namespace orvanta;
using Source = SessionInfo::Source;

class SessionModelTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void sessionInfoEquality();
    void detectorStatusEquality();
};

void SessionModelTest::sessionInfoEquality() {
    const SessionInfo untitled{std::nullopt, Source::axUnnamed};
    QCOMPARE(untitled, (SessionInfo{std::nullopt, Source::axUnnamed}));
    QVERIFY(!(untitled == SessionInfo{std::nullopt, Source::cgHidden}));
    QVERIFY(!(untitled == SessionInfo{QString(), Source::axUnnamed}));
    QVERIFY(!(SessionInfo{QString(), Source::axNamed} == SessionInfo{std::nullopt, Source::axNamed}));
    QCOMPARE((SessionInfo{QString::fromUtf8("Ren\u00e9e"), Source::axNamed}),
             (SessionInfo{QString::fromUtf8("Rene\u0301e"), Source::axNamed}));
    QVERIFY(!(SessionInfo{QStringLiteral("A"), Source::axNamed} ==
              SessionInfo{QStringLiteral("A"), Source::appleScript}));
}

void SessionModelTest::detectorStatusEquality() {
    const SessionInfo a{QStringLiteral("A"), Source::axNamed};
    const SessionInfo b{QStringLiteral("B"), Source::appleScript};
    QCOMPARE(DetectorStatus(), DetectorStatus::appNotRunning());
    QCOMPARE(DetectorStatus::withSessions({a, b}), DetectorStatus::withSessions({a, b}));
    QVERIFY(!(DetectorStatus::withSessions({a, b}) == DetectorStatus::withSessions({b, a})));
    QVERIFY(!(DetectorStatus::withSessions({a}) == DetectorStatus::withSessions({a, a})));
    const QList<DetectorStatus> plain{DetectorStatus::needsAXPermission(),
                                      DetectorStatus::needsAEPermission(), DetectorStatus::appNotRunning(),
                                      DetectorStatus::noActiveSession()};
    for (const DetectorStatus& status : plain) {
        QVERIFY(!(DetectorStatus::withSessions({a}) == status));
        QCOMPARE(status, status);
    }
    QVERIFY(!(plain[0] == plain[1]));
    QCOMPARE(namedCount({a, SessionInfo{std::nullopt, Source::axUnnamed}, b}), 2);
    QCOMPARE(unnamedCount({a, SessionInfo{std::nullopt, Source::axUnnamed}, b}), 1);
}

QTEST_GUILESS_MAIN(SessionModelTest)
#include "tst_sessionmodel.moc"
