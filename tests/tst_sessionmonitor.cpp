#include "ObservedPorts.h"
#include "TestWorlds.h"
#include "session/SessionMonitor.h"

#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <thread>

#include <csignal>

using namespace orvanta;
using namespace orvanta::platform;
using namespace orvanta::testing;

namespace {

// The passes as the debug log receives them: when each batch arrived and its lines.
class PassRecorder {
public:
    explicit PassRecorder(DebugLog& log) {
        m_clock.start();
        log.setEcho([this](const QStringList& batch) {
            QMutexLocker lock(&m_mutex);
            m_times << m_clock.elapsed();
            m_batches << batch;
        });
    }
    qint64 now() const { return m_clock.elapsed(); }
    // Deep copies: a shared copy would be released outside the lock while the log's thread appends.
    QList<qint64> times() const {
        QMutexLocker lock(&m_mutex);
        return QList<qint64>(m_times.cbegin(), m_times.cend());
    }
    QList<QStringList> batches() const {
        QMutexLocker lock(&m_mutex);
        QList<QStringList> copy;
        for (const QStringList& batch : m_batches)
            copy << QStringList(batch.cbegin(), batch.cend());
        return copy;
    }

private:
    QElapsedTimer m_clock;
    mutable QMutex m_mutex;
    QList<qint64> m_times;
    QList<QStringList> m_batches;
};

QStringList numbered(const QString& prefix, int count) {
    QStringList lines;
    for (int i = 0; i < count; ++i)
        lines << prefix + QString::number(i);
    return lines;
}

std::shared_ptr<DebugLog> newLog() {
    return std::make_shared<DebugLog>(2000, QString());
}

} // namespace

class SessionMonitorTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void equalPassesAssignStatusOnce();
    void wakeAddsOnePassWithoutMovingTheRhythm_data();
    void wakeAddsOnePassWithoutMovingTheRhythm();
    void releaseDuringPass();
    void logBoundKeepsTheNewestLines_data();
    void logBoundKeepsTheNewestLines();
    void logBatchesStayContiguousAndOrdered();
    void logNeverTouchesDisk();
    void userSignalWakesTheSimulatedApplication(); // last: it collects what initTestCase set going

private:
    QTemporaryDir m_dir;
    QProcess m_app;
    QByteArray m_appOutput;
    QElapsedTimer m_clock;
    QList<qint64> m_passTimes;
    qint64 m_signalled = 0;
};

void SessionMonitorTest::equalPassesAssignStatusOnce() {
    SimulatedDesktop desktop(clientWorld({window(QStringLiteral("A")), window(QStringLiteral("B"))}));
    ObservedPorts ports(desktop);
    const auto log = newLog();
    PassRecorder passes(*log);
    constexpr int interval = 150;
    SessionMonitor monitor(ports.platform(), log, nullptr, {interval, 3000});
    QCOMPARE(SessionMonitor(desktop.platform(), log).pollIntervalMs(), 5000);
    QSignalSpy statusSpy(&monitor, &SessionMonitor::statusChanged);
    QSignalSpy updatedSpy(&monitor, &SessionMonitor::lastUpdatedChanged);
    const qint64 started = passes.now();
    monitor.start();
    // Nothing is published before the main thread takes the first pass.
    QCOMPARE(monitor.status(), DetectorStatus::appNotRunning());
    QVERIFY(!monitor.lastUpdated().isValid());
    // Starting again restarts the rhythm; it never adds a second one.
    monitor.start();
    QTRY_VERIFY_WITH_TIMEOUT(updatedSpy.size() >= 6, 10000);
    const qsizetype count = passes.times().size();
    QVERIFY2(count <= (passes.now() - started) / interval + 3, qPrintable(QString::number(count)));
    QCOMPARE(statusSpy.size(), 1);
    QCOMPARE(monitor.status(),
             DetectorStatus::withSessions({named(QStringLiteral("A")), named(QStringLiteral("B"))}));
    QCOMPARE(monitor.lastUpdated(), desktop.now());
    // Every pass ran on the monitor's queue and gave the log one batch that opens with the header.
    for (const QString& thread : ports.trustThreads())
        QCOMPARE(thread, SessionMonitor::queueLabel);
    const QList<QStringList> batches = passes.batches();
    QVERIFY(batches.size() >= 2);
    QCOMPARE(batches.first().first(), QStringLiteral("=== Detection @ 2025-03-04 09:15:27 +0000 ==="));
    QCOMPARE(batches.first().last(), QStringLiteral("Result: sessions count=2 named=2 unnamed=0"));
    // The same sessions in another order are a change.
    desktop.updateWorld(
        [](SimWorld& world) { std::swap(world.windows[clientPid][0], world.windows[clientPid][1]); });
    QTRY_COMPARE_WITH_TIMEOUT(statusSpy.size(), 2, 10000);
    QCOMPARE(*monitor.status().sessions().first().title, QStringLiteral("B"));
}

void SessionMonitorTest::wakeAddsOnePassWithoutMovingTheRhythm_data() {
    // Scaled down from 5 s and 3 s; the margins are generous.
    QTest::addColumn<int>("interval");
    QTest::addColumn<int>("wakeDelay");
    QTest::addColumn<int>("slowPassAfterWake"); // how long the pass running at the wake still takes
    QTest::addColumn<int>("starts");
    // A second start gives one pass at once, and leaves one rhythm and one pass per wake.
    QTest::newRow("idle queue, started twice") << 1000 << 400 << 0 << 2;
    // The wake pass is due a delay after the wake, not after the pass that was running then.
    QTest::newRow("wake during a slow pass") << 1600 << 700 << 600 << 1;
}

void SessionMonitorTest::wakeAddsOnePassWithoutMovingTheRhythm() {
    QFETCH(int, interval);
    QFETCH(int, wakeDelay);
    QFETCH(int, slowPassAfterWake);
    QFETCH(int, starts);
    SimulatedDesktop desktop(clientWorld());
    ObservedPorts ports(desktop);
    ports.holdScript = slowPassAfterWake > 0;
    const auto log = newLog();
    PassRecorder passes(*log);
    SessionMonitor monitor(ports.platform(), log, nullptr, {interval, wakeDelay});
    const qint64 started = passes.now();
    for (int i = 0; i < starts; ++i)
        monitor.start();
    if (slowPassAfterWake > 0) {
        QVERIFY(ports.scriptEntered.tryAcquire(1, 5000));
    } else {
        QTRY_COMPARE_WITH_TIMEOUT(passes.times().size(), starts, 5000);
        QTest::qWait(100);
    }
    const qint64 woke = passes.now();
    desktop.simulateWake();
    if (slowPassAfterWake > 0) {
        QTest::qWait(slowPassAfterWake);
        ports.holdScript = false;
        ports.scriptReleased.release();
    }
    QTRY_VERIFY_WITH_TIMEOUT(passes.times().size() >= starts + 3, 10000);
    const QList<qint64> times = passes.times().mid(starts - 1); // from the last start's pass on
    // Start, the wake pass, then the timer's passes on their grid, as if there had been no wake. A pass is
    // never early (the recorder's milliseconds are whole, hence the 2 ms).
    QVERIFY2(times[1] - woke >= wakeDelay - 2 && times[1] - woke < wakeDelay + 500,
             qPrintable(QString::number(times[1] - woke)));
    QVERIFY2(times[2] - started >= interval - 2 && times[2] - started < 2 * interval - 200,
             qPrintable(QString::number(times[2] - started)));
    QVERIFY2(times[3] - started >= 2 * interval - 2 && times[3] - times[2] < interval + interval / 3,
             qPrintable(QString::number(times[3] - started)));
    // Exactly one extra pass: nothing else runs before the next tick is due.
    QTest::qWait(int(times[2] + 2 * interval - passes.now() - interval / 3));
    QCOMPARE(passes.times().size(), starts + 3);
}

void SessionMonitorTest::releaseDuringPass() {
    SimulatedDesktop desktop(clientWorld({window(QStringLiteral("Desk 1"))}));
    ObservedPorts ports(desktop);
    ports.holdScript = true;
    const auto log = newLog();
    auto* monitor = new SessionMonitor(ports.platform(), log);
    int publications = 0;
    connect(monitor, &SessionMonitor::statusChanged, this, [&] { ++publications; });
    connect(monitor, &SessionMonitor::lastUpdatedChanged, this, [&] { ++publications; });
    monitor->start();
    QVERIFY(ports.scriptEntered.tryAcquire(1, 10000));
    // The pass is held inside the System Events query; let it go only once the monitor is being destroyed.
    std::thread releaser([&] {
        QThread::msleep(200);
        ports.scriptReleased.release();
    });
    delete monitor;
    releaser.join();
    QTest::qWait(100);
    QCOMPARE(publications, 0);
    const QStringList logged = log->snapshot();
    QVERIFY(!logged.isEmpty());
    QCOMPARE(logged.last(), QStringLiteral("Result: sessions count=1 named=1 unnamed=0"));
}

void SessionMonitorTest::logBoundKeepsTheNewestLines_data() {
    QTest::addColumn<int>("capacity");
    QTest::addColumn<QList<QStringList>>("batches");
    QTest::addColumn<QStringList>("kept");
    const QStringList old = numbered(QStringLiteral("old"), 1995);
    const QStringList fresh = numbered(QStringLiteral("new"), 6);
    QTest::newRow("one line over") << 2000 << QList<QStringList>{old, fresh} << old.mid(1) + fresh;
    QTest::newRow("batch longer than the log")
        << 5 << QList<QStringList>{numbered(QStringLiteral("a"), 3), numbered(QStringLiteral("b"), 12)}
        << numbered(QStringLiteral("b"), 12).mid(7);
    QTest::newRow("empty batch") << 3 << QList<QStringList>{{QStringLiteral("keep")}, {}}
                                 << QStringList{QStringLiteral("keep")};
}

void SessionMonitorTest::logBoundKeepsTheNewestLines() {
    QFETCH(int, capacity);
    QFETCH(QList<QStringList>, batches);
    QFETCH(QStringList, kept);
    DebugLog log(capacity, QString());
    int echoes = 0;
    log.setEcho([&](const QStringList&) { ++echoes; });
    for (const QStringList& batch : batches)
        log.append(batch);
    QCOMPARE(log.snapshot(), kept);
    QCOMPARE(echoes,
             int(std::count_if(batches.cbegin(), batches.cend(), [](auto& b) { return !b.isEmpty(); })));
}

void SessionMonitorTest::logBatchesStayContiguousAndOrdered() {
    DebugLog log(100000, QString());
    // Two writers; each batch must land whole, and each writer's batches in its own order.
    auto writer = [&log](const QString& name) {
        for (int i = 0; i < 200; ++i)
            log.append({name + QString::number(i) + QStringLiteral("/1"),
                        name + QString::number(i) + QStringLiteral("/2")});
    };
    QThread* other = QThread::create(writer, QStringLiteral("t"));
    other->start();
    writer(QStringLiteral("m"));
    other->wait();
    delete other;
    const QStringList buffer = log.snapshot();
    QCOMPARE(buffer.size(), 800);
    int nextM = 0, nextT = 0;
    for (qsizetype i = 0; i < buffer.size(); i += 2) {
        const QString first = buffer[i];
        QVERIFY(first.endsWith(QStringLiteral("/1")));
        QCOMPARE(buffer[i + 1], first.chopped(1) + QLatin1Char('2'));
        int& next = first.startsWith(QLatin1Char('m')) ? nextM : nextT;
        QCOMPARE(first.mid(1).chopped(2).toInt(), next++);
    }
}

void SessionMonitorTest::logNeverTouchesDisk() {
    QTemporaryDir home;
    const QString folder = home.filePath(QStringLiteral(".cache/orvanta_session_tracker"));
    {
        DebugLog log(10, folder + QStringLiteral("/debug.log"));
        log.append(numbered(QStringLiteral("line"), 30));
        QCOMPARE(log.snapshot().size(), 10);
    }
    QVERIFY(!QFileInfo::exists(folder));
    QCOMPARE(QDir(home.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             QStringList());
}

// The application gets its wake signal here, and the tests below run while its wake delay passes.
void SessionMonitorTest::initTestCase() {
    QVERIFY(m_dir.isValid());
    const QString world = m_dir.filePath(QStringLiteral("world.json"));
    QFile file(world);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(R"({"now": "2025-03-04T09:15:27Z", "accessibilityTrusted": false})");
    file.close();
    // Under the thread sanitizer the child is not what is being checked: its D-Bus thread is Qt's own, and
    // Qt is not built with the sanitizer, so reports there would only be noise.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("TSAN_OPTIONS"), QStringLiteral("report_bugs=0"));
    m_app.setProcessEnvironment(environment);
    m_clock.start();
    // Each pass's header is stamped as it arrives.
    connect(&m_app, &QProcess::readyReadStandardError, this, [this] {
        m_appOutput += m_app.readAllStandardError();
        while (m_passTimes.size() <
               m_appOutput.count("=== Detection @ 2025-03-04 09:15:27 +0000 ===\nAX trust: NOT trusted\n"))
            m_passTimes << m_clock.elapsed();
    });
    m_app.start(QStringLiteral(ORVANTA_APP_BINARY),
                {QStringLiteral("--simulate"), world, QStringLiteral("--verbose")});
    QVERIFY(m_app.waitForStarted(5000));
    QTRY_COMPARE_WITH_TIMEOUT(m_passTimes.size(), 1, 10000);
    m_signalled = m_clock.elapsed();
    ::kill(static_cast<pid_t>(m_app.processId()), SIGUSR1);
}

void SessionMonitorTest::userSignalWakesTheSimulatedApplication() {
    // The wake pass comes about 3 s after the signal, well before the 5 s tick.
    QTRY_VERIFY_WITH_TIMEOUT(m_passTimes.size() >= 2, 10000);
    const qint64 delay = m_passTimes.at(1) - m_signalled;
    m_app.terminate();
    QVERIFY(m_app.waitForFinished(5000));
    QVERIFY2(delay >= 2900 && delay < 4900, qPrintable(QString::number(delay)));
}

QTEST_GUILESS_MAIN(SessionMonitorTest)
#include "tst_sessionmonitor.moc"
