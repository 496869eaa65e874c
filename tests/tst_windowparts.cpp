#include "window/ActiveRunner.h"
#include "window/InfoButton.h"
#include "window/OutputLogView.h"
#include "window/ReportsSection.h"

#include <QHeaderView>
#include <QTableView>

#include <QAccessible>
#include <QApplication>
#include <QClipboard>
#include <QLabel>
#include <QPushButton>
#include <QScrollBar>
#include <QTest>
#include <QToolButton>

using namespace orvanta::window;
using orvanta::OutputText;

namespace {

QDateTime at(int minute) {
    return QDateTime(QDate(2025, 5, 1), QTime(14, minute), Qt::UTC);
}

orvanta::ReportEntry report(const QString& name, std::optional<orvanta::ScriptCatalog> script,
                            QDateTime date) {
    return {QUrl::fromLocalFile(QStringLiteral("/home/u/Desktop/") + name), script, std::move(date)};
}

QStringList names(const QList<orvanta::ReportEntry>& entries) {
    QStringList result;
    for (const auto& entry : entries)
        result.append(entry.url.fileName());
    return result;
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

    void logFollowsTheEndAndStartsAfreshOnAnotherText() {
        OutputLogView view;
        view.resize(500, 200);
        view.show();
        LogTextArea* area = view.logArea();
        QScrollBar* bar = area->verticalScrollBar();
        const QPoint topLeft(10, 10), bottomLeft(10, area->viewport()->height() - 10);
        OutputText text;
        view.showLog(text);
        QCOMPARE(view.shownText(), OutputLogView::placeholderText);
        // The placeholder can be selected and copied too.
        area->selectAll();
        QCOMPARE(area->selectedText(), OutputLogView::placeholderText);

        QString expected;
        auto append = [&](const QString& chunk) {
            text.append(chunk);
            expected += chunk;
            view.showLog(text);
        };
        append(QStringLiteral("first\n"));
        QCOMPARE(view.shownText(), QStringLiteral("first\n"));
        append(QStringLiteral("second line\n"));
        // Selected with the mouse: dragged from the first character to the end of the next line, and a word
        // by a double click.
        QWidget* viewport = area->viewport();
        const int rowHeight = area->fontMetrics().height();
        const QPoint secondRowEnd(viewport->width() - 20, 10 + rowHeight + rowHeight / 2);
        QTest::mousePress(viewport, Qt::LeftButton, {}, topLeft);
        QTest::mouseMove(viewport, secondRowEnd);
        QTest::mouseRelease(viewport, Qt::LeftButton, {}, secondRowEnd);
        QCOMPARE(area->selectedText(), QStringLiteral("first\nsecond line"));
        QTest::mouseDClick(viewport, Qt::LeftButton, {}, QPoint(12, 10 + rowHeight + rowHeight / 2));
        QCOMPARE(area->selectedText(), QStringLiteral("second"));
        QTest::mousePress(viewport, Qt::LeftButton, {}, QPoint(12, 10 + rowHeight + rowHeight / 2));
        QTest::mouseRelease(viewport, Qt::LeftButton, {}, QPoint(12, 10 + rowHeight + rowHeight / 2));
        QCOMPARE(area->selectedText(), QStringLiteral("second line\n"));

        for (int i = 0; i < 200; ++i)
            append(QStringLiteral("line %1 <b>&amp;</b>\n").arg(i));
        QCOMPARE(view.shownText(), expected);
        QVERIFY(bar->maximum() > 0);
        QCOMPARE(bar->value(), bar->maximum());
        QVERIFY(area->offsetAt(bottomLeft) >= text.pieceStart(text.pieceCount() - 2));

        // Scrolled back with the wheel, the view stays there until more output arrives, which brings the end
        // back into view.
        QWheelEvent wheel(QPointF(bottomLeft), area->viewport()->mapToGlobal(QPointF(bottomLeft)), {},
                          QPoint(0, 3 * 120), Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(area->viewport(), &wheel);
        QVERIFY(bar->value() < bar->maximum());
        append(QStringLiteral("last\n"));
        QCOMPARE(bar->value(), bar->maximum());
        QVERIFY(area->offsetAt(bottomLeft) >= text.pieceStart(text.pieceCount() - 2));

        // A line far wider than the view wraps to its width, row after equal row.
        const qsizetype longStart = text.byteSize();
        append(QString(9000, u'x') + u'\n');
        area->setFocus();
        area->setSelection(longStart, longStart);
        QTest::keyClick(area, Qt::Key_Down);
        const qsizetype row = area->cursorPosition() - longStart;
        QVERIFY(row > 10 && row < 200);
        QTest::keyClick(area, Qt::Key_Down);
        QCOMPARE(area->cursorPosition() - longStart, 2 * row);
        QVERIFY(!area->characterRect(area->cursorPosition()).isEmpty());

        // Another text (another runner's) is shown whole from its end; the same text emptied shows the
        // placeholder again.
        const OutputText other(QStringLiteral("other run"));
        view.showLog(other);
        QCOMPARE(view.shownText(), QStringLiteral("other run"));
        view.showLog(text);
        QCOMPARE(view.shownText(), expected);
        QCOMPARE(bar->value(), bar->maximum());
        text.clear();
        view.showLog(text);
        QCOMPARE(view.shownText(), OutputLogView::placeholderText);
    }

    void logSelectsAndCopiesAcrossChunks_data() {
        QTest::addColumn<QStringList>("chunks");
        QTest::addColumn<QString>("keys");
        QTest::addColumn<QString>("copied");
        QTest::newRow("lines across chunks")
            << QStringList{"alpha\nbra", "vo\ncharlie\n"} << "Ctrl+Home, Shift+Down, Shift+Down"
            << "alpha\nbravo\n";
        QStringList many;
        for (int i = 0; i < 300; ++i)
            many << QStringLiteral("%1 of 300\n").arg(i);
        QTest::newRow("all, far beyond the screen") << many << "Ctrl+A" << many.join(QString());
        QTest::newRow("\\r\\n split between chunks is one break")
            << QStringList{"one\r", "\ntwo\rthree"} << "Ctrl+Home, Down, Shift+Down"
            << "two\r";
        QTest::newRow("characters of two and four bytes")
            << QStringList{QString::fromUtf8("a\xE2\x82\xAC"), QString::fromUtf8("\xF0\x9F\x98\x80"
                                                                                 "b\n")}
            << "Ctrl+End, Shift+Left, Shift+Left, Shift+Left"
            << QString::fromUtf8("\xF0\x9F\x98\x80"
                                 "b\n");
        // 64 KiB and more in one line, with a character whose bytes straddle that mark.
        QTest::newRow("a line of many pieces")
            << QStringList{QString(30000, u'y'), QString(35535, u'z'), QString::fromUtf8("\xE2\x82\xAC\n")}
            << "Ctrl+End, Shift+Left, Shift+Left" << QString::fromUtf8("\xE2\x82\xAC\n");
    }

    void logSelectsAndCopiesAcrossChunks() {
        QFETCH(QStringList, chunks);
        QFETCH(QString, keys);
        QFETCH(QString, copied);
        OutputLogView view;
        view.resize(500, 200);
        view.show();
        OutputText text;
        for (const QString& chunk : chunks) {
            text.append(chunk);
            view.showLog(text);
        }
        // How the output was split into chunks does not change how it is indexed.
        const OutputText whole(chunks.join(QString()));
        QCOMPARE(text.pieceCount(), whole.pieceCount());
        for (qsizetype piece = 0; piece < whole.pieceCount(); ++piece)
            QCOMPARE(text.pieceStart(piece), whole.pieceStart(piece));

        LogTextArea* area = view.logArea();
        area->setFocus();
        QTest::keySequence(area, QKeySequence(keys));
        QTest::keySequence(area, QKeySequence::Copy);
        QCOMPARE(QGuiApplication::clipboard()->text(), copied);

        // A screen reader reads the same text and the same selection.
        QAccessibleTextInterface* reader = QAccessible::queryAccessibleInterface(area)->textInterface();
        QVERIFY(reader);
        QCOMPARE(reader->characterCount(), whole.size());
        QCOMPARE(reader->text(0, reader->characterCount()), whole.toString());
        int start = -1, end = -1;
        reader->selection(0, &start, &end);
        QCOMPARE(reader->text(start, end), copied);
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

    void reportsSortByClickedColumnStablyAndKeepTheOrderAcrossReloads() {
        using orvanta::ScriptCatalog;
        const QList<orvanta::ReportEntry> listed{
            report(QStringLiteral("t10"), ScriptCatalog::traceRoute, at(10)),
            report(QStringLiteral("r12"), ScriptCatalog::connectorReach, at(12)),
            report(QStringLiteral("unknown"), std::nullopt, orvanta::ReportCatalog::distantPast()),
            report(QStringLiteral("m11"), ScriptCatalog::networkMonitor, at(11)),
            report(QStringLiteral("r11"), ScriptCatalog::connectorReach, at(11)),
        };
        QList<orvanta::ReportEntry> trashed;
        ReportsSection section({{}, [&](const orvanta::ReportEntry& entry) { trashed.append(entry); }});
        section.resize(600, 300);
        section.show();
        QVERIFY(section.showsPlaceholder());

        section.setReports(listed);
        QVERIFY(!section.showsPlaceholder());
        // Newest first; equal dates keep the listing order; an unreadable date sorts last.
        QCOMPARE(names(section.reports()), (QStringList{"r12", "m11", "r11", "t10", "unknown"}));

        QHeaderView* header = section.table()->horizontalHeader();
        header->sectionClicked(ReportsModel::timestampColumn);
        QCOMPARE(names(section.reports()), (QStringList{"unknown", "t10", "m11", "r11", "r12"}));
        header->sectionClicked(ReportsModel::typeColumn);
        // Titles A to Z; within a title the previous (oldest first) order breaks the tie.
        QCOMPARE(names(section.reports()), (QStringList{"r11", "r12", "m11", "t10", "unknown"}));
        header->sectionClicked(ReportsModel::actionsColumn);
        QCOMPARE(names(section.reports()), (QStringList{"r11", "r12", "m11", "t10", "unknown"}));
        header->sectionClicked(ReportsModel::typeColumn);
        QCOMPARE(names(section.reports()), (QStringList{"unknown", "t10", "m11", "r11", "r12"}));

        // A reload sorts by the order the user chose.
        section.setReports(listed);
        QCOMPARE(names(section.reports()), (QStringList{"unknown", "t10", "m11", "r11", "r12"}));

        QWidget* actions =
            section.table()->indexWidget(section.table()->model()->index(1, ReportsModel::actionsColumn));
        QVERIFY(actions);
        auto* trash = actions->findChild<QPushButton*>(QStringLiteral("trashReport"));
        QTest::mouseClick(trash, Qt::LeftButton);
        QTRY_COMPARE(trashed.size(), 1);
        QCOMPARE(trashed.first().url.fileName(), QStringLiteral("t10"));

        section.setReports({});
        QVERIFY(section.showsPlaceholder());
    }
};

QTEST_MAIN(WindowPartsTest)

#include "tst_windowparts.moc"
