#include "window/ActiveRunner.h"
#include "window/InfoButton.h"
#include "window/OutputLogView.h"
#include "window/ReportsSection.h"

#include <QHeaderView>
#include <QTableView>

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
        const QModelIndex firstType = section.table()->model()->index(0, ReportsModel::typeColumn);
        QCOMPARE(firstType.data().toString(), QStringLiteral("Unknown"));

        QWidget* actions =
            section.table()->indexWidget(section.table()->model()->index(1, ReportsModel::actionsColumn));
        QVERIFY(actions);
        auto* trash = actions->findChild<QPushButton*>(QStringLiteral("trashReport"));
        QCOMPARE(trash->toolTip(), QStringLiteral("Move this report to the Trash."));
        QTest::mouseClick(trash, Qt::LeftButton);
        QTRY_COMPARE(trashed.size(), 1);
        QCOMPARE(trashed.first().url.fileName(), QStringLiteral("t10"));

        section.setReports({});
        QVERIFY(section.showsPlaceholder());
    }

    void reportTimestampsUseTheFixedPatternInLocalTime() {
        const QDateTime local(QDate(2024, 5, 1), QTime(14, 3, 7), Qt::LocalTime);
        QCOMPARE(formattedReportTimestamp(local.toUTC()), QStringLiteral("2024-05-01 14:03:07"));
    }
};

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    WindowPartsTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_windowparts.moc"
