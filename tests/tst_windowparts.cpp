#include "window/ActiveRunner.h"
#include "window/InfoButton.h"
#include "window/OutputLogView.h"

#include <QApplication>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QTest>
#include <QToolButton>

using namespace orvanta::window;

namespace {

QDateTime at(int minute) {
    return QDateTime(QDate(2025, 5, 1), QTime(14, minute), Qt::UTC);
}

} // namespace

class WindowPartsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void activeRunnerPrefersTheLatestRunningThenTheLatestEnded() {
        // Nothing known since the window opened: the reach runner, even if another has output.
        QCOMPARE(activeRunnerIndex({}), 0);
        // One running wins over any that ended later.
        QCOMPARE(activeRunnerIndex({{{false, at(1), at(9)}, {true, at(2), {}}, {false, {}, {}}}}), 1);
        // Two running: the later start; a start not seen counts as the distant past.
        QCOMPARE(activeRunnerIndex({{{true, at(3), {}}, {true, at(5), {}}, {false, {}, {}}}}), 1);
        QCOMPARE(activeRunnerIndex({{{false, {}, {}}, {true, {}, {}}, {true, at(1), {}}}}), 2);
        // Equal starts: the earlier runner in the fixed order.
        QCOMPARE(activeRunnerIndex({{{false, {}, {}}, {true, at(4), {}}, {true, at(4), {}}}}), 1);
        // Nothing running: the one that ended last.
        QCOMPARE(activeRunnerIndex({{{false, at(1), at(2)}, {false, at(1), at(7)}, {false, at(3), at(5)}}}),
                 1);
        QCOMPARE(activeRunnerIndex({{{false, {}, {}}, {false, {}, {}}, {false, at(3), at(5)}}}), 2);
        // Equal ends: the earlier in order.
        QCOMPARE(activeRunnerIndex({{{false, {}, {}}, {false, {}, at(5)}, {false, {}, at(5)}}}), 1);
    }

    void logShowsPlaceholderThenAppendsAndFollowsTheEnd() {
        OutputLogView view;
        view.resize(500, 200);
        view.show();
        QCOMPARE(view.shownText(), OutputLogView::placeholderText);
        QVERIFY(!view.cancelButton()->isVisible());
        QVERIFY(view.logArea()->textInteractionFlags() & Qt::TextSelectableByMouse);

        view.appendLog(QStringLiteral("first\n"));
        QCOMPARE(view.shownText(), QStringLiteral("first\n"));
        QString expected = QStringLiteral("first\n");
        for (int i = 0; i < 200; ++i) {
            const QString line = QStringLiteral("line %1 <b>&amp;</b>\n").arg(i);
            view.appendLog(line);
            expected += line;
        }
        QCOMPARE(view.shownText(), expected);
        QScrollBar* bar = view.logArea()->verticalScrollBar();
        QVERIFY(bar->maximum() > 0);
        QCOMPARE(bar->value(), bar->maximum());

        view.showLog(QString());
        QCOMPARE(view.shownText(), OutputLogView::placeholderText);
        view.showLog(QStringLiteral("other run"));
        QCOMPARE(view.shownText(), QStringLiteral("other run"));

        view.setCancelVisible(true);
        QVERIFY(view.cancelButton()->isVisible());
        QCOMPARE(view.cancelButton()->toolTip(), QStringLiteral("Stop the currently running diagnostic."));
        int cancels = 0;
        connect(&view, &OutputLogView::cancelRequested, [&] { ++cancels; });
        QTest::mouseClick(view.cancelButton(), Qt::LeftButton);
        QCOMPARE(cancels, 1);
    }

    void infoButtonOpensOnlyAValidAddress() {
        QList<QUrl> opened;
        auto open = [&](const QUrl& url) { opened.append(url); };
        InfoButton linked(QStringLiteral("https://support.example.com/article"), QStringLiteral("About it"),
                          open);
        QVERIFY(linked.button());
        QCOMPARE(linked.button()->toolTip(), QStringLiteral("About it"));
        QTest::mouseClick(linked.button(), Qt::LeftButton);
        QCOMPARE(opened, (QList<QUrl>{QUrl(QStringLiteral("https://support.example.com/article"))}));

        for (const QString& address : {QString(), QStringLiteral("not a url with spaces")}) {
            InfoButton plain(address, QStringLiteral("Only a description"), open);
            QVERIFY(!plain.button());
            QVERIFY(plain.url().isEmpty());
            QCOMPARE(plain.findChild<QLabel*>()->toolTip(), QStringLiteral("Only a description"));
        }
        QCOMPARE(opened.size(), 1);
    }
};

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    WindowPartsTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_windowparts.moc"
