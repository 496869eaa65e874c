#include "DebugLog.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

using namespace orvanta;

namespace {
QStringList numbered(const QString& prefix, int count) {
    QStringList lines;
    for (int i = 0; i < count; ++i)
        lines << prefix + QString::number(i);
    return lines;
}
} // namespace

class DebugLogTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void collectorKeepsLinesInOrder();
    void constantsAndLabel();
    void boundDropsOldestLines();
    void batchLongerThanCapacityKeepsItsTail();
    void batchesStayContiguousAndOrdered();
    void emptyBatchSchedulesNothing();
    void neverTouchesDisk();
};

void DebugLogTest::collectorKeepsLinesInOrder() {
    DebugCollector collector;
    collector.log(QStringLiteral("one"));
    collector.log(QString());
    collector.log(QStringLiteral("  two"));
    QCOMPARE(collector.lines, (QStringList{QStringLiteral("one"), QString(), QStringLiteral("  two")}));
}

void DebugLogTest::constantsAndLabel() {
    QCOMPARE(DebugLog::queueLabel, QStringLiteral("com.orvanta.mactoolkit.debug-log"));
    QCOMPARE(DebugLog::defaultDirectory(),
             QDir::homePath() + QStringLiteral("/.cache/orvanta_session_tracker"));
    QCOMPARE(DebugLog::defaultPath(), DebugLog::defaultDirectory() + QStringLiteral("/debug.log"));
    DebugLog log(2000, DebugLog::defaultPath());
    QCOMPARE(log.maxLines(), 2000);
    QCOMPARE(log.diskPath(), DebugLog::defaultPath());
    QString echoThread;
    log.setEcho([&](const QStringList&) { echoThread = QThread::currentThread()->objectName(); });
    log.append({QStringLiteral("x")});
    log.snapshot();
    QCOMPARE(echoThread, DebugLog::queueLabel);
}

void DebugLogTest::boundDropsOldestLines() {
    DebugLog log(2000, QString());
    log.append(numbered(QStringLiteral("old"), 1995));
    log.append(numbered(QStringLiteral("new"), 8));
    const QStringList buffer = log.snapshot();
    QCOMPARE(buffer.size(), 2000);
    QCOMPARE(buffer.first(), QStringLiteral("old3"));
    QCOMPARE(buffer.mid(1992), numbered(QStringLiteral("new"), 8));
}

void DebugLogTest::batchLongerThanCapacityKeepsItsTail() {
    DebugLog log(5, QString());
    log.append(numbered(QStringLiteral("a"), 3));
    log.append(numbered(QStringLiteral("b"), 12));
    QCOMPARE(log.snapshot(), numbered(QStringLiteral("b"), 12).mid(7));
}

void DebugLogTest::batchesStayContiguousAndOrdered() {
    DebugLog log(100000, QString());
    QStringList expected;
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

void DebugLogTest::emptyBatchSchedulesNothing() {
    DebugLog log(3, QString());
    int echoes = 0;
    log.setEcho([&](const QStringList&) { ++echoes; });
    log.append({QStringLiteral("keep")});
    log.append({});
    QCOMPARE(log.snapshot(), QStringList{QStringLiteral("keep")});
    QCOMPARE(echoes, 1);
}

void DebugLogTest::neverTouchesDisk() {
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

QTEST_GUILESS_MAIN(DebugLogTest)
#include "tst_debuglog.moc"
