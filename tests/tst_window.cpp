// Drives the toolkit window as a user would: real runners on small zsh scripts in a temporary folder, a
// session monitor and permissions service over a simulated desktop with short timings, real report files in a
// temporary folder. HOME and the freedesktop trash point into a temporary folder too (set in main), so on
// Linux moving a report to the Trash never touches the real one; macOS always uses the user's own Trash.
#include "DebugLog.h"
#include "TestWorlds.h"
#include "diagnostics/ScriptRunner.h"
#include "permissions/PermissionsService.h"
#include "session/SessionMonitor.h"
#include "window/ActiveRunner.h"
#include "window/DiagnosticsSection.h"
#include "window/InfoButton.h"
#include "window/MainWindow.h"
#include "window/OutputLogView.h"
#include "window/ReportsSection.h"

#include <QAccessible>
#include <QApplication>
#include <QClipboard>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QHeaderView>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QScrollBar>
#include <QSet>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>

#include <memory>

using namespace orvanta;
using namespace orvanta::platform;
using namespace orvanta::testing;
using namespace orvanta::window;

namespace {

constexpr int longWait = 15000; // generous: the machine is shared

// Every script prints its arguments, then waits until the test releases it (a file named "<script>.go" in
// the work folder) or, for the monitor, until it is terminated; the reach script writes a report as it ends.
QString scriptText(ScriptCatalog script, const QString& work, const QString& reports) {
    const QString go = work + u'/' + script.fileName() + QStringLiteral(".go");
    // zselect waits inside the shell: no sleep process every few milliseconds on a shared machine.
    const QString waits = QStringLiteral("zmodload zsh/zselect\n");
    switch (script) {
    case ScriptCatalog::connectorReach:
        return waits + QStringLiteral(
                           "print -r -- \"reach start [$*]\"\n"
                           "while [[ ! -e '%1' ]]; do zselect -t 2; done\n"
                           "print -r -- '<html></html>' > '%2/OrvantaMacClientReach_20250101-120000.html'\n"
                           "print -r -- 'reach done'\n")
                           .arg(go, reports);
    case ScriptCatalog::networkMonitor:
        return waits + QStringLiteral("trap 'print -r -- \"monitor stopped\"; exit 0' TERM\n"
                                      "print -r -- \"monitor args [$*] count $#\"\n"
                                      "while true; do zselect -t 2; done\n");
    case ScriptCatalog::traceRoute:
        return waits + QStringLiteral("print -r -- \"trace start [$*]\"\n"
                                      "while [[ ! -e '%1' ]]; do zselect -t 2; done\n"
                                      "print -r -- 'trace done'\n")
                           .arg(go);
    }
    return {};
}

bool writeFile(const QString& path, const QByteArray& content, QFile::Permissions permissions = {}) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(content) != content.size())
        return false;
    file.close();
    return !permissions || file.setPermissions(permissions);
}

QDateTime today(int hour) {
    return QDateTime(QDate(2024, 5, 1), QTime(hour, 0), Qt::LocalTime);
}

// A report file in `folder` written at `when`, local time.
QString addReport(const QString& folder, ScriptCatalog script, const QDateTime& when) {
    const QString path = folder + u'/' + script.reportPrefix() +
                         when.toString(QStringLiteral("yyyyMMdd-HHmmss")) + QStringLiteral(".html");
    QFile file(path);
    // Flushed first: a write after the date is set would move it to now.
    if (!file.open(QIODevice::WriteOnly) || file.write("<html></html>") < 0 || !file.flush() ||
        !file.setFileTime(when, QFileDevice::FileModificationTime))
        return {};
    return path;
}

// What the table shows, top to bottom: "timestamp | type" per row.
QStringList shownRows(QTableView* table) {
    QStringList rows;
    const QAbstractItemModel* model = table->model();
    for (int row = 0; row < model->rowCount(); ++row)
        rows.append(model->index(row, ReportsModel::timestampColumn).data().toString() +
                    QStringLiteral(" | ") + model->index(row, ReportsModel::typeColumn).data().toString());
    return rows;
}

// The shared objects of the application, over one simulated desktop, and a window on them.
struct Fixture {
    QTemporaryDir work;
    QString scripts;
    QString reports;
    SimulatedDesktop desktop;
    std::unique_ptr<PermissionsService> permissions;
    std::unique_ptr<SessionMonitor> monitor;
    std::unique_ptr<ScriptRunner> reachRunner, monitorRunner, traceRunner;
    std::unique_ptr<MainWindow> window;

    // `traceShell`, when given, is what the Trace Route runner launches instead of zsh.
    explicit Fixture(SimWorld world, const QString& traceShell = {}) : desktop(std::move(world)) {
        scripts = work.filePath(QStringLiteral("scripts"));
        reports = work.filePath(QStringLiteral("Desktop"));
        QDir().mkpath(scripts);
        QDir().mkpath(reports);
        for (ScriptCatalog script : ScriptCatalog::allCases())
            writeFile(scripts + u'/' + script.fileName(), scriptText(script, work.path(), reports).toUtf8(),
                      QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        permissions = std::make_unique<PermissionsService>(desktop.platform(), nullptr, 100);
        monitor =
            std::make_unique<SessionMonitor>(desktop.platform(), std::make_shared<DebugLog>(2000, QString()),
                                             nullptr, SessionMonitorTiming{150, 3000});
        reachRunner = std::make_unique<ScriptRunner>(scripts);
        monitorRunner = std::make_unique<ScriptRunner>(scripts);
        traceRunner = std::make_unique<ScriptRunner>(
            scripts, nullptr, traceShell.isEmpty() ? ScriptRunner::zshPath : traceShell);
        permissions->start();
        monitor->start();
    }

    MainWindow& open() {
        window = std::make_unique<MainWindow>(*reachRunner, *monitorRunner, *traceRunner, *monitor,
                                              *permissions, desktop.platform(), QUrl::fromLocalFile(reports));
        window->resize(720, 640);
        window->show();
        if (!QTest::qWaitForWindowExposed(window.get()))
            qWarning("window not exposed");
        return *window;
    }

    void release(ScriptCatalog script) {
        writeFile(work.filePath(script.fileName() + QStringLiteral(".go")), "go");
    }

    QPushButton* runButton(ScriptCatalog script) const { return window->diagnostics()->card(script).run; }
    QPushButton* openLatestButton(ScriptCatalog script) const {
        return window->diagnostics()->card(script).openLatest;
    }
    QPushButton* rowButton(int row, const char* name) const {
        QTableView* table = window->reports()->table();
        QWidget* cell = table->indexWidget(table->model()->index(row, ReportsModel::actionsColumn));
        return cell ? cell->findChild<QPushButton*>(QLatin1String(name)) : nullptr;
    }
    QString log() const { return window->output()->shownText(); }
    bool cancelShown() const { return window->output()->cancelButton()->isVisible(); }
    QStringList opened() const {
        QStringList urls;
        for (const QString& action : desktop.actionDescriptions())
            if (action.startsWith(QStringLiteral("open ")))
                urls.append(action.mid(5));
        return urls;
    }
};

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

class WindowTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void freshWindowThenOneRunFromItsCard();
    void overlappingRunsShowTheLatestStartedThenTheOneStillGoing();
    void durationPickerPassesItsArgumentsAndLocksWhileTheMonitorRuns();
    void startThatFailsLeavesNoTimeStamp();
    void openLatestAndTheRowsActOnTheReportsOfEachScript();
    void sortingByClicksSurvivesTheTimedReload();
    void permissionsPanelAndFocusButtonFollowTrustAndTheClient();
    void everyControlIsNamedForAssistiveTechnology();

    // The window's parts on their own.
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
        QTest::newRow("\\r\\n ends a line") << QStringList{"one\r\ntwo\n"} << "Ctrl+Home, Shift+End"
                                            << "one";
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

void WindowTest::initTestCase() {
    if (!QFile::exists(ScriptRunner::zshPath))
        QSKIP("/bin/zsh is not installed");
}

void WindowTest::freshWindowThenOneRunFromItsCard() {
    Fixture f(clientWorld());
    MainWindow& window = f.open();
    // As small as the content allows, never below 600 by 400: the log keeps its 104 points, the cards and
    // sections stay apart.
    window.resize(300, 200);
    QTRY_COMPARE(window.size(), window.minimumSize());
    QVERIFY(window.width() >= 600 && window.height() >= 400);
    QWidget* logPanel = window.output()->logArea()->parentWidget();
    QCOMPARE(logPanel->height(), 104);
    QList<QRect> stacked;
    for (ScriptCatalog script : ScriptCatalog::allCases())
        stacked.append(QRect(f.runButton(script)->mapTo(&window, QPoint()), f.runButton(script)->size()));
    stacked.append(QRect(logPanel->mapTo(&window, QPoint()), logPanel->size()));
    stacked.append(window.reports()->geometry());
    for (qsizetype i = 1; i < stacked.size(); ++i)
        QVERIFY2(stacked[i].top() > stacked[i - 1].bottom(), qPrintable(QString::number(i)));
    QVERIFY(window.reports()->geometry().bottom() < window.height());
    window.resize(720, 640);
    QTRY_COMPARE(window.size(), QSize(720, 640));
    const int logTop = logPanel->y();

    QCOMPARE(f.log(), OutputLogView::placeholderText);
    QVERIFY(!f.cancelShown());
    QVERIFY(window.reports()->showsPlaceholder());

    QTest::mouseClick(f.runButton(ScriptCatalog::traceRoute), Qt::LeftButton);
    QTRY_COMPARE_WITH_TIMEOUT(f.log(), QStringLiteral("trace start []\n"), longWait);
    QTRY_VERIFY(f.cancelShown());
    QCOMPARE(logPanel->y(), logTop); // the header row did not grow for "Cancel"
    QVERIFY(!f.runButton(ScriptCatalog::traceRoute)->isEnabled());
    QVERIFY(window.activity(ScriptCatalog::traceRoute).lastStarted);

    f.release(ScriptCatalog::traceRoute);
    QTRY_VERIFY_WITH_TIMEOUT(!f.cancelShown(), longWait);
    // The log keeps the output of the run that has just ended.
    QCOMPARE(f.log(), QStringLiteral("trace start []\ntrace done\n"));
    QCOMPARE(logPanel->y(), logTop);
    QVERIFY(f.runButton(ScriptCatalog::traceRoute)->isEnabled());
    const RunnerActivity& trace = window.activity(ScriptCatalog::traceRoute);
    QVERIFY(trace.lastCompleted && *trace.lastStarted <= *trace.lastCompleted);
}

void WindowTest::overlappingRunsShowTheLatestStartedThenTheOneStillGoing() {
    Fixture f(clientWorld());
    MainWindow& window = f.open();
    QTest::mouseClick(f.runButton(ScriptCatalog::networkMonitor), Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(f.log().startsWith(QStringLiteral("monitor args")), longWait);
    QTRY_VERIFY(window.activity(ScriptCatalog::networkMonitor).lastStarted);

    // A start stamped in the same millisecond would tie, and the tie goes to the reach runner anyway.
    QTRY_VERIFY(QDateTime::currentDateTime() > *window.activity(ScriptCatalog::networkMonitor).lastStarted);
    QTest::mouseClick(f.runButton(ScriptCatalog::connectorReach), Qt::LeftButton);
    QTRY_COMPARE_WITH_TIMEOUT(f.log(), QStringLiteral("reach start []\n"), longWait);
    QVERIFY(f.cancelShown());
    QCOMPARE(&window.activeRunner(), f.reachRunner.get());

    f.release(ScriptCatalog::connectorReach);
    QTRY_VERIFY_WITH_TIMEOUT(!f.reachRunner->isRunning(), longWait);
    QTRY_VERIFY(f.log().startsWith(QStringLiteral("monitor args")));
    QCOMPARE(&window.activeRunner(), f.monitorRunner.get());
    QVERIFY(f.cancelShown());
    QVERIFY(window.activity(ScriptCatalog::connectorReach).lastCompleted);
    // The report the reach run wrote was listed in the same update that noticed the end of the run, not at
    // a tick of the timer.
    QCOMPARE(window.reports()->reports().size(), 1);
    QVERIFY(f.openLatestButton(ScriptCatalog::connectorReach)->isEnabled());

    // "Cancel" stops only the shown run; the output of its end still arrives.
    QTest::mouseClick(f.window->output()->cancelButton(), Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(!f.cancelShown(), longWait);
    QVERIFY(f.log().endsWith(QStringLiteral("monitor stopped\n")));
    QCOMPARE(&window.activeRunner(), f.monitorRunner.get());
    QCOMPARE(f.reachRunner->logBuffer(), QStringLiteral("reach start []\nreach done\n"));
}

void WindowTest::durationPickerPassesItsArgumentsAndLocksWhileTheMonitorRuns() {
    Fixture f(clientWorld());
    MainWindow& window = f.open();
    QComboBox* picker = window.diagnostics()->durationPicker();
    // The picker's choice reaches the script as separate arguments, and the picker is locked during the run.
    picker->setFocus();
    QTest::keyClick(picker, Qt::Key_Home);
    QTest::mouseClick(f.runButton(ScriptCatalog::networkMonitor), Qt::LeftButton);
    QTRY_COMPARE_WITH_TIMEOUT(f.log(), QStringLiteral("monitor args [--duration 15] count 2\n"), longWait);
    QVERIFY(!picker->isEnabled());
    QVERIFY(f.runButton(ScriptCatalog::traceRoute)->isEnabled());
    QTest::mouseClick(window.output()->cancelButton(), Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(!f.monitorRunner->isRunning(), longWait);
    QVERIFY(picker->isEnabled());

    // The chosen duration is the monitor's alone.
    QTest::mouseClick(f.runButton(ScriptCatalog::traceRoute), Qt::LeftButton);
    QTRY_COMPARE_WITH_TIMEOUT(f.log(), QStringLiteral("trace start []\n"), longWait);
    f.release(ScriptCatalog::traceRoute);
    QTRY_VERIFY_WITH_TIMEOUT(!f.traceRunner->isRunning(), longWait);

    // A window opened afresh while the monitor goes on: its output again, no time stamps, default duration.
    QTest::keyClick(picker, Qt::Key_End);
    QTest::mouseClick(f.runButton(ScriptCatalog::networkMonitor), Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(f.log().startsWith(QStringLiteral("monitor args [--indefinite]")), longWait);
    MainWindow& reopened = f.open();
    QCOMPARE(f.log(), f.monitorRunner->logBuffer());
    QVERIFY(f.cancelShown());
    QVERIFY(!reopened.diagnostics()->durationPicker()->isEnabled());
    QCOMPARE(reopened.diagnostics()->durationPicker()->currentText(), QStringLiteral("1 hour"));
    for (ScriptCatalog script : ScriptCatalog::allCases())
        QVERIFY(!reopened.activity(script).lastStarted && !reopened.activity(script).lastCompleted);
    QTest::mouseClick(reopened.output()->cancelButton(), Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(!f.cancelShown(), longWait);
    QVERIFY(f.log().endsWith(QStringLiteral("monitor stopped\n")));
    QVERIFY(reopened.activity(ScriptCatalog::networkMonitor).lastCompleted);
}

void WindowTest::startThatFailsLeavesNoTimeStamp() {
    // Trace Route runs through a "shell" that cannot be executed.
    QTemporaryDir bin;
    const QString shell = bin.filePath(QStringLiteral("zsh"));
    QVERIFY(writeFile(shell, "#!/bin/sh\n", QFile::ReadOwner | QFile::WriteOwner));
    Fixture f(clientWorld(), shell);
    MainWindow& window = f.open();
    // A launch the operating system refuses, then a script that is missing: each publishes running and
    // failed at once, and the window, taking in both in one update, leaves no time stamp and no "Cancel".
    QTest::mouseClick(f.runButton(ScriptCatalog::traceRoute), Qt::LeftButton);
    QVERIFY(QFile::remove(f.scripts + u'/' + ScriptCatalog(ScriptCatalog::traceRoute).fileName()));
    QTest::mouseClick(f.runButton(ScriptCatalog::traceRoute), Qt::LeftButton);
    QCoreApplication::processEvents();
    QVERIFY(f.traceRunner->state().error());
    QVERIFY(!window.activity(ScriptCatalog::traceRoute).lastStarted);
    QVERIFY(!window.activity(ScriptCatalog::traceRoute).lastCompleted);
    QVERIFY(f.runButton(ScriptCatalog::traceRoute)->isEnabled());
    QVERIFY(!f.cancelShown());
}

void WindowTest::openLatestAndTheRowsActOnTheReportsOfEachScript() {
    Fixture f(clientWorld());
    MainWindow& window = f.open();
    const QString older = addReport(f.reports, ScriptCatalog::networkMonitor, today(9));
    const QString newer = addReport(f.reports, ScriptCatalog::networkMonitor, today(11));
    QVERIFY(!older.isEmpty() && !newer.isEmpty());
    window.refreshReports();
    QVERIFY(f.openLatestButton(ScriptCatalog::networkMonitor)->isEnabled());
    QVERIFY(!f.openLatestButton(ScriptCatalog::connectorReach)->isEnabled());
    QVERIFY(!f.openLatestButton(ScriptCatalog::traceRoute)->isEnabled());
    QTest::mouseClick(f.openLatestButton(ScriptCatalog::networkMonitor), Qt::LeftButton);
    QCOMPARE(f.opened(), QStringList{QUrl::fromLocalFile(newer).toString()});

    // Gone since the card was drawn: the click does nothing.
    QVERIFY(QFile::remove(older) && QFile::remove(newer));
    QTest::mouseClick(f.openLatestButton(ScriptCatalog::networkMonitor), Qt::LeftButton);
    QCOMPARE(f.opened().size(), 1);

    // A row's "Open" hands over that row's report.
    const QString trace = addReport(f.reports, ScriptCatalog::traceRoute, today(8));
    window.refreshReports();
    QVERIFY(!f.openLatestButton(ScriptCatalog::networkMonitor)->isEnabled());
    QVERIFY(f.openLatestButton(ScriptCatalog::traceRoute)->isEnabled());
    QTest::mouseClick(f.rowButton(0, "openReport"), Qt::LeftButton);
    QCOMPARE(f.opened().last(), QUrl::fromLocalFile(trace).toString());

    // A row's trash button: the list and the card follow in the same step that moved the file, not at a
    // later tick of the timer.
    QTest::mouseClick(f.rowButton(0, "trashReport"), Qt::LeftButton);
    QTRY_VERIFY(!QFile::exists(trace));
    QVERIFY(window.reports()->placeholder()->isVisible());
    QVERIFY(!f.openLatestButton(ScriptCatalog::traceRoute)->isEnabled());
    QVERIFY(f.desktop.actionDescriptions().contains(QStringLiteral("trash ") + trace));
#ifdef Q_OS_LINUX
    // Into the (temporary) freedesktop trash, not into nothing. (macOS uses the user's own Trash.)
    QVERIFY(QFile::exists(qEnvironmentVariable("XDG_DATA_HOME") + QStringLiteral("/Trash/files/") +
                          QFileInfo(trace).fileName()));
#endif
}

void WindowTest::sortingByClicksSurvivesTheTimedReload() {
    Fixture f(clientWorld());
    QVERIFY(!addReport(f.reports, ScriptCatalog::connectorReach, today(11)).isEmpty());
    QVERIFY(!addReport(f.reports, ScriptCatalog::networkMonitor, today(12)).isEmpty());
    QVERIFY(!addReport(f.reports, ScriptCatalog::traceRoute, today(10)).isEmpty());
    MainWindow& window = f.open();
    // Listed at once when the window is shown, newest first.
    QTableView* table = window.reports()->table();
    QCOMPARE(shownRows(table), (QStringList{"2024-05-01 12:00:00 | Network Monitor",
                                            "2024-05-01 11:00:00 | Connector Reachability",
                                            "2024-05-01 10:00:00 | Trace Route"}));
    QHeaderView* header = table->horizontalHeader();
    QTest::mouseClick(header->viewport(), Qt::LeftButton, {},
                      QPoint(header->sectionViewportPosition(ReportsModel::typeColumn) + 10, 10));
    const QStringList byType{"2024-05-01 11:00:00 | Connector Reachability",
                             "2024-05-01 12:00:00 | Network Monitor", "2024-05-01 10:00:00 | Trace Route"};
    QCOMPARE(shownRows(table), byType);
    const int rowHeight = table->rowHeight(0);
    QVERIFY(rowHeight >= f.rowButton(0, "openReport")->parentWidget()->sizeHint().height());

    // A reload that finds nothing new leaves the table alone: the row the user selected, and the button
    // under the pointer, survive it.
    const QRect second = table->visualRect(table->model()->index(1, ReportsModel::typeColumn));
    QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, second.center());
    const QPointer<QWidget> cell = f.rowButton(1, "openReport");
    window.refreshReports();
    QCOMPARE(shownRows(table), byType);
    QCOMPARE(table->selectionModel()->selectedRows().size(), 1);
    QCOMPARE(table->selectionModel()->selectedRows().first().row(), 1);
    QVERIFY(cell);

    // The one wait for the window's own timer: a report written by other means appears at its next tick,
    // in the chosen order, the order before it (newest first) breaking the tie between the two Trace Route
    // reports.
    QVERIFY(!addReport(f.reports, ScriptCatalog::traceRoute, today(13)).isEmpty());
    QTRY_COMPARE_WITH_TIMEOUT(window.reports()->reports().size(), 4, longWait);
    QCOMPARE(shownRows(table),
             (byType.first(2) + QStringList{"2024-05-01 13:00:00 | Trace Route"} + byType.last(1)));
    // One row height across loads and re-sorts.
    for (int row = 0; row < table->model()->rowCount(); ++row)
        QCOMPARE(table->rowHeight(row), rowHeight);
}

void WindowTest::permissionsPanelAndFocusButtonFollowTrustAndTheClient() {
    SimWorld world =
        clientWorld({testing::window(QStringLiteral("Desk 1")), testing::window(QStringLiteral("Desk 2"))});
    world.accessibilityTrusted = false;
    Fixture f(world);
    MainWindow& window = f.open();
    QWidget* panel = window.permissionsPanel();
    QPushButton* focus = window.focusButton();
    QVERIFY(panel->isVisible());
    QVERIFY(!focus->isEnabled());
    const int panelTop = panel->y();
    QTest::mouseClick(panel->findChild<QPushButton*>(), Qt::LeftButton);
    QCOMPARE(f.opened(), QStringList{PermissionsService::accessibilitySettingsURL().toString()});

    f.desktop.updateWorld([](SimWorld& w) { w.accessibilityTrusted = true; });
    QTRY_VERIFY_WITH_TIMEOUT(!panel->isVisible(), longWait);
    // The diagnostics move up into its place.
    QTRY_COMPARE(window.diagnostics()->y(), panelTop);
    QTRY_VERIFY_WITH_TIMEOUT(focus->isEnabled(), longWait);
    QCOMPARE(f.monitor->status().sessions().size(), 2);

    // The first session is focused: the application first, then the client, then its window.
    f.desktop.clearActions();
    QTest::mouseClick(focus, Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(f.desktop.actionDescriptions().size() >= 3, longWait);
    const QStringList actions = f.desktop.actionDescriptions();
    QCOMPARE(actions[0], QStringLiteral("activate self"));
    QCOMPARE(actions[1], QStringLiteral("activate pid=%1 options=1").arg(clientPid));
    QVERIFY2(actions[2].startsWith(QStringLiteral("AXRaise")) &&
                 actions[2].contains(QStringLiteral("\"Desk 1\"")),
             qPrintable(actions[2]));

    // The client quits: no session, no focusing. Trust withdrawn: the panel is back.
    f.desktop.updateWorld([](SimWorld& w) { w.runningApplications.clear(); });
    QTRY_VERIFY_WITH_TIMEOUT(!focus->isEnabled(), longWait);
    f.desktop.updateWorld([](SimWorld& w) { w.accessibilityTrusted = false; });
    QTRY_VERIFY_WITH_TIMEOUT(panel->isVisible(), longWait);
    QTRY_VERIFY(window.diagnostics()->y() > panelTop + panel->height());
}

void WindowTest::everyControlIsNamedForAssistiveTechnology() {
    SimWorld world = clientWorld();
    world.accessibilityTrusted = false; // the permissions panel too
    Fixture f(world);
    const QString report = addReport(f.reports, ScriptCatalog::traceRoute, today(10));
    MainWindow& window = f.open();
    window.output()->setCancelVisible(true);
    QStringList names;
    int controls = 0;
    for (QWidget* widget : window.findChildren<QWidget*>()) {
        QAccessibleInterface* control = QAccessible::queryAccessibleInterface(widget);
        const QAccessible::Role role = control ? control->role() : QAccessible::NoRole;
        if (!widget->isVisible() || (role != QAccessible::Button && role != QAccessible::ComboBox &&
                                     role != QAccessible::Table && role != QAccessible::Graphic))
            continue;
        ++controls;
        const QString name = control->text(QAccessible::Name);
        QVERIFY2(!name.isEmpty(), widget->metaObject()->className());
        QVERIFY2(role == QAccessible::Table || role == QAccessible::Graphic ||
                     !control->text(QAccessible::Description).isEmpty(),
                 qPrintable(name));
        names.append(name);
    }
    // Three cards, each with an icon, "Run" and "Open Latest Report", the picker, the focus row, "Grant",
    // "Cancel", the logo, the table and its row's two buttons.
    QVERIFY2(controls >= 18, qPrintable(names.join(u'|')));
    const QString file = QFileInfo(report).fileName();
    QVERIFY(names.contains(QStringLiteral("Open ") + file));
    QVERIFY(names.contains(QStringLiteral("Move ") + file + QStringLiteral(" to the Trash")));
    // Names tell the cards' buttons apart.
    QCOMPARE(QSet<QString>(names.begin(), names.end()).size(), names.size());
}

int main(int argc, char** argv) {
    // Everything a window action may write lands in a temporary home: the Trash above all.
    QTemporaryDir home;
    if (!home.isValid())
        return 1;
    qputenv("HOME", home.path().toUtf8());
    qputenv("XDG_DATA_HOME", (home.path() + QStringLiteral("/.local/share")).toUtf8());
    QDir().mkpath(home.path() + QStringLiteral("/.local/share"));
    QApplication app(argc, argv);
    WindowTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_window.moc"
