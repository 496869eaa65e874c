#include "DebugLog.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <algorithm>

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
    void boundKeepsTheNewestLines_data();
    void boundKeepsTheNewestLines();
    void batchesStayContiguousAndOrdered();
    void neverTouchesDisk();
};

void DebugLogTest::boundKeepsTheNewestLines_data() {
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

void DebugLogTest::boundKeepsTheNewestLines() {
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
