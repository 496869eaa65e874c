#include "ObservedPorts.h"
#include "TestWorlds.h"
#include "permissions/PermissionsService.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>

using namespace orvanta;
using namespace orvanta::platform;
using namespace orvanta::testing;

namespace {
constexpr int interval = 100; // scaled down from 2 s

// Waits without running the main thread's event loop, so publications stay queued.
bool waitForChecks(const ObservedPorts& ports, int count) {
    QElapsedTimer clock;
    clock.start();
    while (ports.permissionChecks < count && clock.elapsed() < 10000)
        QThread::msleep(5);
    return ports.permissionChecks >= count;
}
} // namespace

class PermissionsTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void grantedAtStartAndUnchangedPollsPublishNothing_data();
    void grantedAtStartAndUnchangedPollsPublishNothing();
    void trustRevokedAndGrantedAgain();
    void appleEventsCheckNeverPrompts();
    void requestWaitsForSystemEvents_data();
    void requestWaitsForSystemEvents();
    void releasedWithPublicationQueued();
};

void PermissionsTest::grantedAtStartAndUnchangedPollsPublishNothing_data() {
    QTest::addColumn<int>("starts");
    QTest::newRow("started once") << 1;
    // A second start replaces the timer: two would poll twice an interval.
    QTest::newRow("started twice") << 2;
}

void PermissionsTest::grantedAtStartAndUnchangedPollsPublishNothing() {
    QFETCH(int, starts);
    SimulatedDesktop desktop(clientWorld());
    ObservedPorts ports(desktop);
    PermissionsService service(ports.platform(), nullptr, interval);
    QVERIFY(service.axTrusted());
    QVERIFY(service.aeAuthorized());
    QCOMPARE(ports.permissionChecks.load(), 1); // read once at construction
    QSignalSpy axSpy(&service, &PermissionsService::axTrustedChanged);
    QSignalSpy aeSpy(&service, &PermissionsService::aeAuthorizedChanged);
    const qint64 started = ports.elapsed();
    for (int i = 0; i < starts; ++i)
        service.start();
    QTRY_VERIFY_WITH_TIMEOUT(ports.permissionChecks >= 5, 5000);
    // The k-th poll is due k intervals after the start; it may come late, never early.
    const QList<qint64> checks = ports.permissionCheckTimes();
    for (qsizetype k = 1; k < checks.size(); ++k)
        QVERIFY2(checks[k] - started >= k * interval,
                 qPrintable(QStringLiteral("poll %1 at %2 ms").arg(k).arg(checks[k] - started)));
    QTest::qWait(interval);
    QCOMPARE(axSpy.size(), 0);
    QCOMPARE(aeSpy.size(), 0);
    QCOMPARE(ports.trustThreads().last(), PermissionsService::queueLabel);
}

void PermissionsTest::trustRevokedAndGrantedAgain() {
    // Where the user is sent to grant trust: nothing else would notice a wrong pane.
    QCOMPARE(PermissionsService::accessibilitySettingsURL().toString(),
             QStringLiteral("x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility"));
    SimulatedDesktop desktop(clientWorld());
    PermissionsService service(desktop.platform(), nullptr, interval);
    QSignalSpy axSpy(&service, &PermissionsService::axTrustedChanged);
    QSignalSpy aeSpy(&service, &PermissionsService::aeAuthorizedChanged);
    service.start();
    desktop.updateWorld([](SimWorld& world) { world.accessibilityTrusted = false; });
    QTRY_VERIFY_WITH_TIMEOUT(!service.axTrusted(), 5000);
    QTest::qWait(3 * interval);
    QCOMPARE(axSpy.size(), 1);
    desktop.updateWorld([](SimWorld& world) {
        world.accessibilityTrusted = true;
        world.appleEventsStatus = -1743;
    });
    QTRY_VERIFY_WITH_TIMEOUT(service.axTrusted() && !service.aeAuthorized(), 5000);
    QTest::qWait(3 * interval);
    QCOMPARE(axSpy.size(), 2);
    QCOMPARE(aeSpy.size(), 1);
}

void PermissionsTest::appleEventsCheckNeverPrompts() {
    SimWorld world = clientWorld();
    world.appleEventsStatus = -1744; // not decided yet
    SimulatedDesktop desktop(world);
    PermissionsService service(desktop.platform(), nullptr, interval);
    QVERIFY(!service.aeAuthorized());
    QVERIFY(!PermissionsService::checkAEAuthorization(desktop));
    QVERIFY(desktop.actionDescriptions().isEmpty());
    service.requestAEAuthorization();
    QCOMPARE(desktop.actionDescriptions(),
             QStringList{QStringLiteral("ask permission to automate com.apple.systemevents")});
    desktop.updateWorld([](SimWorld& world) { world.appleEventsStatus = 0; });
    QVERIFY(PermissionsService::checkAEAuthorization(desktop));
}

void PermissionsTest::requestWaitsForSystemEvents_data() {
    QTest::addColumn<int>("pollInterval");
    QTest::addColumn<bool>("afterPass");
    QTest::newRow("found by a poll") << interval << false;
    QTest::newRow("found after a detection pass") << 60000 << true;
}

void PermissionsTest::requestWaitsForSystemEvents() {
    QFETCH(int, pollInterval);
    QFETCH(bool, afterPass);
    SimWorld world = clientWorld();
    world.appleEventsStatus = -600; // System Events is not running: the system can show no prompt
    SimulatedDesktop desktop(world);
    ObservedPorts ports(desktop);
    PermissionsService service(ports.platform(), nullptr, pollInterval);
    service.start();
    service.requestAEAuthorization();
    service.systemEventsMayRun();
    QTest::qWait(3 * interval);
    QCOMPARE(ports.requestThreads().size(), 1);
    desktop.updateWorld([](SimWorld& world) {
        world.runningApplications.append(
            {77, PermissionsService::systemEventsBundleID, QStringLiteral("System Events")});
        world.appleEventsStatus = -1744; // the prompt can be shown now
    });
    if (afterPass)
        service.systemEventsMayRun();
    // Asked again once, on the service's queue: the prompt may wait for the user, the main thread must not.
    QTRY_COMPARE_WITH_TIMEOUT(ports.requestThreads().size(), 2, 5000);
    QCOMPARE(ports.requestThreads().last(), PermissionsService::queueLabel);
    service.systemEventsMayRun();
    QTest::qWait(3 * interval);
    QCOMPARE(ports.requestThreads().size(), 2);
}

void PermissionsTest::releasedWithPublicationQueued() {
    SimulatedDesktop desktop(clientWorld());
    ObservedPorts ports(desktop);
    auto* service = new PermissionsService(ports.platform(), nullptr, interval);
    int publications = 0;
    connect(service, &PermissionsService::axTrustedChanged, this, [&] { ++publications; });
    desktop.updateWorld([](SimWorld& world) { world.accessibilityTrusted = false; });
    service->start();
    // The second check of a poll comes after the first poll's publication was posted.
    QVERIFY(waitForChecks(ports, 3));
    delete service;
    QTest::qWait(2 * interval);
    QCOMPARE(publications, 0);
}

QTEST_GUILESS_MAIN(PermissionsTest)
#include "tst_permissions.moc"
