#include "support/SerialQueue.h"
#include "support/TextRules.h"

#include <QMutex>
#include <QSemaphore>
#include <QTest>

#include <atomic>

using namespace orvanta;

class SupportTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void textRules();
    void graphemes_data();
    void graphemes();
    void queueRunsBlocksInOrderOnItsOwnThread();
    void destroyingQueueFinishesRunningBlockAndSkipsTheRest();
};

void SupportTest::textRules() {
    // Compatibility equivalents are different texts: the ligature "ﬁ" is not "fi".
    QVERIFY(!text::canonicallyEqual(QString::fromUtf8("\ufb01"), QStringLiteral("fi")));
    // Unicode white space goes at the ends only; a zero-width space is not white space.
    QCOMPARE(text::trimmed(QString::fromUtf8("\u00a0 \t Desk 1\r\n\u2028\u3000")), QStringLiteral("Desk 1"));
    QCOMPARE(text::trimmed(QString::fromUtf8(" a\u00a0b ")), QString::fromUtf8("a\u00a0b"));
    QCOMPARE(text::trimmed(QString::fromUtf8("\u200bx")), QString::fromUtf8("\u200bx"));
    // Upper case in full, in matching too: "ß" is "SS".
    QCOMPARE(text::fullUpper(QString::fromUtf8("stra\u00dfe")), QStringLiteral("STRASSE"));
    QVERIFY(text::containsIgnoringCase(QString::fromUtf8("Gro\u00df"), QStringLiteral("ss")));
    // Whole characters of canonically equal text: "é" holds its decomposed spelling, never a bare "E".
    QVERIFY(text::containsIgnoringCase(QString::fromUtf8("caf\u00e9!"), QString::fromUtf8("CAFE\u0301")));
    QVERIFY(!text::containsIgnoringCase(QString::fromUtf8("cafe\u0301!"), QStringLiteral("CAFE")));
}

void SupportTest::graphemes_data() {
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("count");
    QTest::addColumn<QString>("firstTwo");
    QTest::newRow("ascii") << QStringLiteral("abc") << 3 << QStringLiteral("ab");
    QTest::newRow("empty") << QString() << 0 << QString();
    QTest::newRow("emoji with skin tone")
        << QString::fromUtf8("\U0001F44D\U0001F3FDok") << 3 << QString::fromUtf8("\U0001F44D\U0001F3FDo");
    QTest::newRow("family emoji") << QString::fromUtf8("\U0001F468\u200D\U0001F469\u200D\U0001F467!") << 2
                                  << QString::fromUtf8("\U0001F468\u200D\U0001F469\u200D\U0001F467!");
    QTest::newRow("crlf is one") << QStringLiteral("\r\nz") << 2 << QStringLiteral("\r\nz");
    // Qt's finder cuts this surrogate pair in two when a Gurmukhi character follows anywhere.
    QTest::newRow("pair beside gurmukhi")
        << QString::fromUtf8("\U000373F7?0\u0A6B") << 4 << QString::fromUtf8("\U000373F7?");
}

void SupportTest::graphemes() {
    QFETCH(QString, text);
    QFETCH(int, count);
    QFETCH(QString, firstTwo);
    QCOMPARE(text::graphemeCount(text), count);
    QCOMPARE(text::graphemePrefix(text, 2), firstTwo);
    QCOMPARE(text::graphemePrefix(text, 0), QString());
    QCOMPARE(text::graphemePrefix(text, 100), text);
}

void SupportTest::queueRunsBlocksInOrderOnItsOwnThread() {
    SerialQueue queue(QStringLiteral("com.orvanta.mactoolkit.test"));
    QCOMPARE(queue.label(), QStringLiteral("com.orvanta.mactoolkit.test"));
    QList<int> order;       // touched only on the queue
    QThread* ran = nullptr; // likewise
    for (int i = 0; i < 200; ++i)
        queue.async([&order, &ran, i] {
            order.append(i);
            ran = QThread::currentThread();
        });
    queue.drain();
    QCOMPARE(order.size(), 200);
    QVERIFY(std::is_sorted(order.cbegin(), order.cend()));
    QVERIFY(ran != QThread::currentThread());
    QCOMPARE(ran->objectName(), queue.label());

    bool direct = false;
    queue.sync([&] { queue.sync([&] { direct = queue.isCurrent(); }); });
    QVERIFY(direct);
}

void SupportTest::destroyingQueueFinishesRunningBlockAndSkipsTheRest() {
    std::atomic<int> finished{0};
    std::atomic<int> skipped{0};
    QSemaphore started;
    {
        SerialQueue queue(QStringLiteral("teardown"));
        queue.async([&] {
            started.release();
            QThread::msleep(100);
            ++finished;
        });
        queue.async([&] { ++skipped; });
        queue.after(10, [&] { ++skipped; });
        QVERIFY(started.tryAcquire(1, 5000));
    }
    QCOMPARE(finished.load(), 1);
    QCOMPARE(skipped.load(), 0);
}

QTEST_GUILESS_MAIN(SupportTest)
#include "tst_support.moc"
