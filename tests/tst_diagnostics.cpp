// The diagnostics: the script catalog, the runner of the scripts, and the reports they leave on the Desktop.
#include "diagnostics/ReportCatalog.h"
#include "diagnostics/ScriptRunner.h"
#include "platform/simulated/SimulatedDesktop.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QRandomGenerator>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <functional>
#include <list>
#include <memory>

using namespace orvanta;
using Kind = ScriptRunner::RunState::Kind;

namespace {

constexpr int timeoutMs = 15000;

// Waits, without blocking on a process, until the file `name` appears in the folder given as $1.
const QByteArray waitForFile = R"(
zmodload zsh/zselect
waitfor() { while [[ ! -e $dir/$1 ]]; do zselect -t 1; done; return 0 }
dir=$1
)";

// A script body that prints `before` and then idles on a builtin, so no grandchild outlives it.
QByteArray idleAfter(const QByteArray& before) {
    return "zmodload zsh/zselect\nprint -rn -- '" + before + "'\nwhile :; do zselect -t 5; done\n";
}

class ScriptFolder {
public:
    ScriptFolder() { QVERIFY(m_dir.isValid()); }
    QString path() const { return m_dir.path(); }
    QString scriptPath(ScriptCatalog script) const { return m_dir.filePath(script.fileName()); }

    void write(ScriptCatalog script, const QByteArray& body, bool executable = true) const {
        QFile file(scriptPath(script));
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(body);
        file.close();
        QFile::Permissions permissions = QFile::ReadOwner | QFile::WriteOwner;
        if (executable)
            permissions |= QFile::ExeOwner;
        QVERIFY(file.setPermissions(permissions));
    }
    void touch(const QString& name) const {
        QFile file(m_dir.filePath(name));
        QVERIFY(file.open(QIODevice::WriteOnly));
    }

private:
    QTemporaryDir m_dir;
};

bool waitForEnd(const ScriptRunner& runner) {
    return QTest::qWaitFor([&] { return runner.state().kind() != Kind::running; }, timeoutMs);
}

QString description(const ScriptRunner::RunState& state) {
    return state.error() ? ScriptRunner::errorDescription(*state.error()) : QString();
}

// Restores an environment variable of this process when the guard goes.
auto restoredLater(const QByteArray& name) {
    return qScopeGuard([name, had = qEnvironmentVariableIsSet(name), value = qgetenv(name)] {
        had ? qputenv(name, value) : qunsetenv(name);
    });
}

const QDateTime base(QDate(2025, 3, 4), QTime(9, 0), Qt::UTC);

// A temporary folder standing in for the Desktop.
class Desktop {
public:
    Desktop() { QVERIFY(m_dir.isValid()); }
    QUrl url() const { return QUrl::fromLocalFile(m_dir.path()); }
    QString path(const QString& name) const { return m_dir.filePath(name); }
    QUrl fileUrl(const QString& name) const { return QUrl::fromLocalFile(path(name)); }

    void file(const QString& name, const QDateTime& modified) const {
        QFile file(path(name));
        QVERIFY2(file.open(QIODevice::WriteOnly), qPrintable(name));
        file.write("<html></html>");
        QVERIFY(file.flush()); // a later flush would move the date again
        QVERIFY(file.setFileTime(modified, QFileDevice::FileModificationTime));
    }
    // The order in which the file system lists the folder's entries, which breaks ties.
    QStringList listingOrder(const QStringList& among) const {
        QStringList order;
        QDirIterator entries(m_dir.path(), QDir::AllEntries | QDir::NoDotAndDotDot);
        while (entries.hasNext()) {
            entries.next();
            if (among.contains(entries.fileName()))
                order << entries.fileName();
        }
        return order;
    }

private:
    QTemporaryDir m_dir;
};

QStringList names(const QList<QUrl>& urls) {
    QStringList result;
    for (const QUrl& url : urls)
        result << url.fileName();
    return result;
}

} // namespace

class DiagnosticsTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void catalogMatchesTheShippedScripts();
    void argumentsForEveryScriptAndDuration();
    void decoderKeepsSplitCharactersAndDropsBadReads();
    void runsZshWithSeparateArgumentsInHome();
    void splitCharacterKeptAndInvalidChunksDropped();
    void endsCompletedWithItsStatus_data();
    void endsCompletedWithItsStatus();
    void refusedStartsKeepPreviousOutput();
    void startWhileChildLivesIsRefused();
    void launchErrorFollowsRunning();
    void childEnvironment_data();
    void childEnvironment();
    void destructionLeavesNoChild();
    void reportsAreRecognisedByName();
    void reportTiesGoToTheFirstListed();
    void newestTwentyReportsOfTwentyFive();
    void unreadableReportDatesComeLast();
    void missingReportFolderListsNothing();
    void reportsOpenAndGoToTheTrashThroughTheWorkspace();
};

void DiagnosticsTest::catalogMatchesTheShippedScripts() {
    // Each script is shipped, can be run, and names its reports as the list of reports expects.
    for (ScriptCatalog script : ScriptCatalog::allCases()) {
        QFile file(QStringLiteral(ORVANTA_SOURCE_DIR "/resources/scripts/") + script.fileName());
        QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(file.fileName()));
        QVERIFY(QFileInfo(file).isExecutable());
        const QString writes = "orv_write_report " + script.reportPrefix() + " \"" + script.title() + '"';
        QVERIFY2(QString::fromUtf8(file.readAll()).contains(writes), qPrintable(writes));
    }
}

void DiagnosticsTest::argumentsForEveryScriptAndDuration() {
    const QList<QStringList> expected{
        {"--duration", "15"},  {"--duration", "30"},  {},
        {"--duration", "120"}, {"--duration", "240"}, {"--duration", "480"},
        {"--duration", "720"}, {"--indefinite"},
    };
    const QList<MonitorDuration> durations = MonitorDuration::allCases();
    QCOMPARE(durations.size(), expected.size());
    for (qsizetype i = 0; i < durations.size(); ++i) {
        QCOMPARE(argumentsFor(ScriptCatalog::networkMonitor, durations[i]), expected[i]);
        QCOMPARE(argumentsFor(ScriptCatalog::connectorReach, durations[i]), QStringList());
        QCOMPARE(argumentsFor(ScriptCatalog::traceRoute, durations[i]), QStringList());
    }
}

void DiagnosticsTest::decoderKeepsSplitCharactersAndDropsBadReads() {
    OutputDecoder decoder;
    // U+1F600 split over three reads.
    QCOMPARE(decoder.decode("a\xF0\x9F"), QStringLiteral("a"));
    QCOMPARE(decoder.decode("\x98"), QString(""));
    QCOMPARE(decoder.decode("\x80z"), QString::fromUtf8("\xF0\x9F\x98\x80z"));
    // Bad reads give nothing and do not spoil the reads after them (whole bad reads: see the runner below).
    QCOMPARE(decoder.decode("\xC3"), QString(""));
    QCOMPARE(decoder.decode("A"), std::nullopt); // the held lead byte is not continued
    QCOMPARE(decoder.decode("\xC3\xA9"), QString::fromUtf8("\xC3\xA9"));
    QCOMPARE(decoder.decode("\xED\xA0\x80"), std::nullopt);                   // an encoded surrogate
    QCOMPARE(decoder.decode("\xEF\xBB\xBFx"), QString(QChar(0xFEFF)) + u'x'); // the mark is kept
}

void DiagnosticsTest::runsZshWithSeparateArgumentsInHome() {
    ScriptFolder folder;
    folder.write(ScriptCatalog::networkMonitor,
                 "for a in \"$@\"; do print -r -- \"<$a>\"; done\nprint -r -- \"$0\"\npwd\n");
    ScriptRunner runner(folder.path());
    runner.run(ScriptCatalog::networkMonitor,
               argumentsFor(ScriptCatalog::networkMonitor, MonitorDuration::fifteenMin));
    QVERIFY(waitForEnd(runner));
    const QString scriptPath = folder.scriptPath(ScriptCatalog::networkMonitor);
    QCOMPARE(runner.logBuffer(),
             "<--duration>\n<15>\n" + scriptPath + "\n" + ScriptRunner::homeFolder() + "\n");

    // Arguments reach the script verbatim, one argv entry each, never through a shell line.
    runner.run(ScriptCatalog::networkMonitor, {"two words", "$HOME;`id`", QString()});
    QVERIFY(waitForEnd(runner));
    QCOMPARE(runner.logBuffer(),
             "<two words>\n<$HOME;`id`>\n<>\n" + scriptPath + "\n" + ScriptRunner::homeFolder() + "\n");
}

void DiagnosticsTest::splitCharacterKeptAndInvalidChunksDropped() {
    // Each write waits until the runner has taken the previous one, so every write is one read. The last
    // character is never finished.
    const QList<QByteArray> chunks{"a\xE2\x82", "\xAC|", "x\xFFy", "\x82z", "ok\xC3", "\xA9!", "\xE2\x82"};
    QByteArray body = waitForFile;
    for (qsizetype i = 0; i < chunks.size(); ++i) {
        QByteArray escaped;
        for (char c : chunks[i])
            escaped += "\\x" + QByteArray::number(static_cast<uchar>(c), 16);
        body += "print -rn -- $'" + escaped + "'\nwaitfor go" + QByteArray::number(i) + "\n";
    }
    ScriptFolder folder;
    folder.write(ScriptCatalog::connectorReach, body);
    ScriptRunner runner(folder.path());
    runner.run(ScriptCatalog::connectorReach, {folder.path()});
    auto* process = runner.findChild<QProcess*>();
    QVERIFY(process);
    QSignalSpy reads(process, &QProcess::readyReadStandardOutput);
    for (qsizetype i = 0; i < chunks.size(); ++i) {
        QTRY_COMPARE_WITH_TIMEOUT(reads.count(), int(i + 1), timeoutMs);
        folder.touch("go" + QString::number(i));
    }
    QVERIFY(waitForEnd(runner));
    QCOMPARE(runner.state().exitCode(), 0);
    QCOMPARE(runner.logBuffer(), QString::fromUtf8("a\xE2\x82\xAC|ok\xC3\xA9!"));
    // The next run starts afresh: nothing held from the last one spoils its first read.
    folder.write(ScriptCatalog::connectorReach, "print -rn next\n");
    runner.run(ScriptCatalog::connectorReach, {});
    QVERIFY(waitForEnd(runner));
    QCOMPARE(runner.logBuffer(), QStringLiteral("next"));
}

void DiagnosticsTest::endsCompletedWithItsStatus_data() {
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("cancel");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("output");
    QTest::newRow("exits non-zero, errors merged")
        << QByteArray("print -rn before\nprint -rnu2 ' err'\nexit 2\n") << false << 2 << "before err";
    QTest::newRow("cancelled, dies of the signal") << idleAfter("before") << true << 15 << "before";
    QTest::newRow("cancelled, traps it")
        << "trap 'print -rn -- \" trapped\"; exit 3' TERM\n" + idleAfter("before") << true << 3
        << "before trapped";
}

void DiagnosticsTest::endsCompletedWithItsStatus() {
    QFETCH(QByteArray, body);
    QFETCH(bool, cancel);
    QFETCH(int, exitCode);
    QFETCH(QString, output);
    ScriptFolder folder;
    folder.write(ScriptCatalog::networkMonitor, body);
    ScriptRunner runner(folder.path());
    QList<Kind> kinds;
    connect(&runner, &ScriptRunner::stateChanged, this, [&] { kinds << runner.state().kind(); });
    runner.run(ScriptCatalog::networkMonitor, {});
    if (cancel) {
        QTRY_COMPARE_WITH_TIMEOUT(runner.logBuffer(), QStringLiteral("before"), timeoutMs);
        runner.cancel();
        QCOMPARE(runner.state().kind(), Kind::running);
    }
    QVERIFY(waitForEnd(runner));
    QCOMPARE(kinds, (QList<Kind>{Kind::running, Kind::completed}));
    QCOMPARE(runner.state().script(), ScriptCatalog::networkMonitor);
    QCOMPARE(runner.state().exitCode(), exitCode);
    QVERIFY(!runner.state().error());
    QCOMPARE(runner.logBuffer(), output);
    QVERIFY(!runner.hasChild());
    runner.cancel(); // no child any more
    QCOMPARE(runner.state().kind(), Kind::completed);
}

void DiagnosticsTest::refusedStartsKeepPreviousOutput() {
    ScriptFolder folder;
    folder.write(ScriptCatalog::traceRoute, "print -rn first\n");
    ScriptRunner runner(folder.path());
    runner.run(ScriptCatalog::traceRoute, {});
    QVERIFY(waitForEnd(runner));
    QCOMPARE(runner.logBuffer(), QStringLiteral("first"));

    const QString expected = "Script not found at " + folder.scriptPath(ScriptCatalog::traceRoute);
    QSignalSpy logSpy(&runner, &ScriptRunner::logBufferChanged);
    // Not executable, gone, a folder: each is not found, and none touches the output of the last run.
    const QString path = folder.scriptPath(ScriptCatalog::traceRoute);
    for (const auto& spoil : QList<std::function<bool()>>{
             [&] { return QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner); },
             [&] { return QFile::remove(path); }, [&] { return QDir().mkdir(path); }}) {
        QVERIFY(spoil());
        runner.run(ScriptCatalog::traceRoute, {});
        QCOMPARE(runner.state().kind(), Kind::failed);
        QCOMPARE(runner.state().script(), ScriptCatalog::traceRoute);
        QCOMPARE(description(runner.state()), expected);
    }
    QCOMPARE(runner.logBuffer(), QStringLiteral("first"));
    QCOMPARE(logSpy.count(), 0);
    QVERIFY(!runner.hasChild());
}

void DiagnosticsTest::startWhileChildLivesIsRefused() {
    ScriptFolder folder;
    folder.write(ScriptCatalog::networkMonitor, idleAfter("monitor"));
    folder.write(ScriptCatalog::traceRoute, "print -rn trace\n");
    ScriptRunner runner(folder.path());
    runner.run(ScriptCatalog::networkMonitor, {});
    QTRY_COMPARE_WITH_TIMEOUT(runner.logBuffer(), QStringLiteral("monitor"), timeoutMs);

    runner.run(ScriptCatalog::traceRoute, {});
    QCOMPARE(runner.state().kind(), Kind::failed);
    QCOMPARE(runner.state().script(), ScriptCatalog::traceRoute);
    QCOMPARE(description(runner.state()), QStringLiteral("A script is already running"));
    // The state no longer says running, but the first child lives: a further start is refused too.
    runner.run(ScriptCatalog::traceRoute, {});
    QCOMPARE(description(runner.state()), QStringLiteral("A script is already running"));
    QVERIFY(runner.hasChild());
    QCOMPARE(runner.logBuffer(), QStringLiteral("monitor"));

    runner.cancel();
    QTRY_COMPARE_WITH_TIMEOUT(runner.state().kind(), Kind::completed, timeoutMs);
    QCOMPARE(runner.state().script(), ScriptCatalog::networkMonitor);

    runner.run(ScriptCatalog::traceRoute, {});
    QVERIFY(waitForEnd(runner));
    QCOMPARE(runner.logBuffer(), QStringLiteral("trace"));
}

void DiagnosticsTest::launchErrorFollowsRunning() {
    ScriptFolder folder;
    folder.write(ScriptCatalog::connectorReach, "print -rn never\n");
    folder.touch(QStringLiteral("not-a-shell")); // present, but not executable
    // Two launches that really fail: a working folder that does not exist, and a shell that cannot be
    // executed. Either way the failure is published before run() returns, so an observer that looks at the
    // next pass of the event loop never sees the runner running.
    for (const bool badShell : {false, true}) {
        ScriptRunner runner(folder.path(), nullptr,
                            badShell ? folder.path() + QStringLiteral("/not-a-shell")
                                     : ScriptRunner::zshPath);
        const auto home = restoredLater("HOME");
        if (!badShell) {
            runner.run(ScriptCatalog::connectorReach, {}); // leaves output to be emptied
            QVERIFY(waitForEnd(runner));
            qputenv("HOME", QFile::encodeName(folder.path() + "/no-such-home"));
        }
        QList<Kind> kinds;
        connect(&runner, &ScriptRunner::stateChanged, this, [&] { kinds << runner.state().kind(); });
        runner.run(ScriptCatalog::connectorReach, {});
        QCOMPARE(kinds, (QList<Kind>{Kind::running, Kind::failed}));
        QVERIFY(std::holds_alternative<ScriptRunner::PlatformError>(*runner.state().error()));
        QVERIFY(!description(runner.state()).isEmpty());
        QVERIFY(runner.logBuffer().isEmpty());
        QVERIFY(!runner.hasChild());
    }
}

void DiagnosticsTest::childEnvironment_data() {
    QTest::addColumn<QByteArrayList>("given"); // NAME=value, or a bare NAME to leave it unset
    QTest::addColumn<QString>("seen");         // PATH|TERM|USER|HOME|LANG
    const QString filled = ScriptRunner::userName() + u'|' + ScriptRunner::homeFolder() + "|C.UTF-8";
    QTest::newRow("bare") << QByteArrayList{"PATH", "HOME", "USER", "TERM=xterm-256color"}
                          << ScriptRunner::defaultSearchPath + "|dumb|" + filled;
    QTest::newRow("given, even empty")
        << QByteArrayList{"PATH=/usr/bin:/bin", "HOME=/tmp", "USER="} << "/usr/bin:/bin|dumb||/tmp|C.UTF-8";
}

void DiagnosticsTest::childEnvironment() {
    QFETCH(QByteArrayList, given);
    QFETCH(QString, seen);
    QVERIFY(!ScriptRunner::userName().isEmpty());
    ScriptFolder folder;
    folder.write(ScriptCatalog::connectorReach, "print -rn -- \"$PATH|$TERM|$USER|$HOME|$LANG\"\n");
    ScriptRunner runner(folder.path());
    std::list<decltype(restoredLater({}))> guards;
    for (const QByteArray& entry : given + QByteArrayList{"LANG=C.UTF-8"}) {
        const QByteArrayList parts = entry.split('=');
        guards.push_back(restoredLater(parts[0]));
        parts.size() > 1 ? qputenv(parts[0], parts[1]) : qunsetenv(parts[0]);
    }
    runner.run(ScriptCatalog::connectorReach, {});
    QVERIFY(waitForEnd(runner));
    QCOMPARE(runner.logBuffer(), seen);
    // An empty search path is the user's choice too (zsh itself would fill it in, so asked directly).
    QProcessEnvironment emptyPath;
    emptyPath.insert(QStringLiteral("PATH"), QString());
    QCOMPARE(
        ScriptRunner::childEnvironment(emptyPath).value(QStringLiteral("PATH"), QStringLiteral("absent")),
        QString());
}

void DiagnosticsTest::destructionLeavesNoChild() {
    ScriptFolder folder;
    // The script takes its time to write its report after SIGTERM, as a real one may.
    folder.write(ScriptCatalog::networkMonitor,
                 waitForFile + "trap 'zselect -t 150; print -r report > $dir/report; "
                               "exit 0' TERM\nprint -rn -- $$\nwhile :; do zselect -t 5; "
                               "done\n");
    auto runner = std::make_unique<ScriptRunner>(folder.path());
    runner->run(ScriptCatalog::networkMonitor, {folder.path()});
    QTRY_VERIFY_WITH_TIMEOUT(!runner->logBuffer().isEmpty(), timeoutMs);
    bool ok = false;
    const pid_t pid = runner->logBuffer().toInt(&ok);
    QVERIFY(ok && pid > 0);
    runner.reset();
    // Not waited for: still at work on its report when the runner is gone...
    QCOMPARE(::kill(pid, 0), 0);
    QVERIFY(!QFile::exists(folder.path() + QStringLiteral("/report")));
    // ...which it finishes on its own; then it is reaped (a zombie would still accept signal 0).
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(folder.path() + QStringLiteral("/report")), timeoutMs);
    QTRY_VERIFY_WITH_TIMEOUT(::kill(pid, 0) == -1 && errno == ESRCH, timeoutMs);
}

void DiagnosticsTest::reportsAreRecognisedByName() {
    Desktop desktop;
    // Everything that is not a trace-route report is newer than the one that is.
    const QDateTime newer = base.addDays(1);
    for (const QString& name :
         QStringList{"OrvantaTraceRoute_1.HTML", "OrvantaTraceRoute_1.htm", "orvantaTraceRoute_1.html",
                     "OrvantaNetworkMonitor_1.html", "notes.html", ".OrvantaTraceRoute_hidden.html",
                     "OrvantaTraceRoute_1.html.txt", "OrvantaTraceRoute_html"})
        desktop.file(name, newer);
    QVERIFY(QDir(desktop.path({})).mkdir("sub"));
    desktop.file("sub/OrvantaTraceRoute_deep.html", newer);
    desktop.file("OrvantaTraceRoute_real.html", base);
    desktop.file("OrvantaNetMonitor_ok.html", base.addSecs(-60));
    // The kind of an entry is not tested: a folder named like a report is one.
    QVERIFY(QDir(desktop.path({})).mkdir("OrvantaMacClientReach_folder.html"));

    QCOMPARE(ReportCatalog::latestReport(ScriptCatalog::traceRoute, desktop.url()),
             desktop.fileUrl("OrvantaTraceRoute_real.html"));
    QCOMPARE(ReportCatalog::latestReport(ScriptCatalog::networkMonitor, desktop.url()),
             desktop.fileUrl("OrvantaNetMonitor_ok.html"));
    QCOMPARE(ReportCatalog::latestReport(ScriptCatalog::connectorReach, desktop.url()),
             desktop.fileUrl("OrvantaMacClientReach_folder.html"));

    QStringList listed = names(ReportCatalog::recentReportURLs(desktop.url(), 20));
    listed.sort();
    QCOMPARE(listed, (QStringList{"OrvantaMacClientReach_folder.html", "OrvantaNetMonitor_ok.html",
                                  "OrvantaTraceRoute_real.html"}));
}

void DiagnosticsTest::reportTiesGoToTheFirstListed() {
    Desktop desktop;
    // More ties than a sort would keep in order by chance (it sorts short ranges by insertion).
    QStringList tied;
    for (int i = 0; i < 20; ++i)
        tied << QStringLiteral("OrvantaTraceRoute_%1.html").arg(i);
    for (const QString& name : tied + QStringList{"OrvantaNetMonitor_tie.html"})
        desktop.file(name, base);
    desktop.file("OrvantaTraceRoute_old.html", base.addSecs(-1));
    QCOMPARE(ReportCatalog::latestReport(ScriptCatalog::traceRoute, desktop.url()),
             desktop.fileUrl(desktop.listingOrder(tied).first()));
    QCOMPARE(names(ReportCatalog::recentReportURLs(desktop.url(), 100)),
             desktop.listingOrder(tied + QStringList{"OrvantaNetMonitor_tie.html"}) +
                 QStringList{"OrvantaTraceRoute_old.html"});
}

void DiagnosticsTest::newestTwentyReportsOfTwentyFive() {
    Desktop desktop;
    // Created in a scrambled order so neither creation nor name order gives the answer away.
    QList<int> ages(25);
    std::iota(ages.begin(), ages.end(), 0);
    std::shuffle(ages.begin(), ages.end(), *QRandomGenerator::global());
    const QStringList prefixes{"OrvantaMacClientReach_", "OrvantaNetMonitor_", "OrvantaTraceRoute_"};
    QStringList expected(25);
    for (int age : ages) {
        const QString name = prefixes[age % 3] + QString::number(ages.indexOf(age)) + ".html";
        desktop.file(name, base.addSecs(-3600 * age));
        expected[age] = name;
    }
    QCOMPARE(names(ReportCatalog::recentReportURLs(desktop.url(), 20)), expected.first(20));
    QCOMPARE(names(ReportCatalog::recentReportURLs(desktop.url(), 100)), expected);
    QVERIFY(ReportCatalog::recentReportURLs(desktop.url(), 0).isEmpty());
    const QList<ReportEntry> entries = ReportCatalog::recentReports(desktop.url());
    QCOMPARE(entries.size(), 20);
    QCOMPARE(entries.first().url.fileName(), expected.first());
    QCOMPARE(entries.last().modificationDate, base.addSecs(-3600 * 19));
}

void DiagnosticsTest::unreadableReportDatesComeLast() {
    Desktop desktop;
    // A link whose target is gone has no modification date to read.
    QVERIFY(QFile::link(desktop.path("missing-target"), desktop.path("OrvantaTraceRoute_broken.html")));
    desktop.file("OrvantaTraceRoute_old.html", QDateTime::fromSecsSinceEpoch(86400, Qt::UTC));
    desktop.file("OrvantaNetMonitor_new.html", base);
    QCOMPARE(ReportCatalog::reportModificationDate(desktop.fileUrl("OrvantaTraceRoute_broken.html")),
             ReportCatalog::distantPast());
    QCOMPARE(names(ReportCatalog::recentReportURLs(desktop.url(), 20)),
             (QStringList{"OrvantaNetMonitor_new.html", "OrvantaTraceRoute_old.html",
                          "OrvantaTraceRoute_broken.html"}));
    QCOMPARE(ReportCatalog::latestReport(ScriptCatalog::traceRoute, desktop.url()),
             desktop.fileUrl("OrvantaTraceRoute_old.html"));
}

void DiagnosticsTest::missingReportFolderListsNothing() {
    QCOMPARE(ReportCatalog::reportsFolder(), QUrl::fromLocalFile(QDir::homePath() + "/Desktop"));
    Desktop desktop;
    const QUrl missing = desktop.fileUrl("no-such-folder");
    QCOMPARE(ReportCatalog::latestReport(ScriptCatalog::traceRoute, missing), std::nullopt);
    QVERIFY(ReportCatalog::recentReportURLs(missing, 20).isEmpty());
    QVERIFY(ReportCatalog::recentReports(missing).isEmpty());
}

void DiagnosticsTest::reportsOpenAndGoToTheTrashThroughTheWorkspace() {
    Desktop desktop;
    QTemporaryDir dataHome;
    QVERIFY(dataHome.isValid());
    desktop.file("OrvantaTraceRoute_1.html", base);
    desktop.file("OrvantaTraceRoute_2.html", base.addSecs(-60));
    const QUrl report = desktop.fileUrl("OrvantaTraceRoute_1.html");
    platform::SimulatedDesktop workspace;

    ReportCatalog::open(report, workspace);
    QCOMPARE(workspace.actionDescriptions(), QStringList{"open " + report.toString()});
    QVERIFY(QFile::exists(report.toLocalFile()));

#ifdef Q_OS_LINUX
    // The freedesktop trash follows HOME and XDG_DATA_HOME, here all temporary. A home without
    // ~/.local/share gets one; where none can be made, the report stays where it was, and nothing lands
    // in the current directory either.
    QTemporaryDir home;
    QVERIFY(home.isValid());
    QFile blocker(home.filePath(QStringLiteral("not-a-folder")));
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    const QByteArray previousHome = qgetenv("HOME");
    const QByteArray previousData = qgetenv("XDG_DATA_HOME");
    const QString previousDirectory = QDir::currentPath();
    QVERIFY(QDir::setCurrent(home.path()));
    struct Case {
        QString home, dataHome, trash; // trash empty: the move must fail
    };
    const QList<Case> cases{
        {home.path(), dataHome.path(), dataHome.path() + QStringLiteral("/Trash")},
        {home.filePath(QStringLiteral("new-home")), QString(),
         home.filePath(QStringLiteral("new-home/.local/share/Trash"))},
        {home.path(), home.filePath(QStringLiteral("not-a-folder/share")), QString()},
    };
    for (const Case& c : cases) {
        QVERIFY(QDir().mkpath(c.home));
        qputenv("HOME", QFile::encodeName(c.home));
        if (c.dataHome.isEmpty())
            qunsetenv("XDG_DATA_HOME");
        else
            qputenv("XDG_DATA_HOME", QFile::encodeName(c.dataHome));
        desktop.file("OrvantaTraceRoute_1.html", base);
        ReportCatalog::moveToTrash(report, workspace);
        ReportCatalog::moveToTrash(report, workspace); // gone, or still refused: silently nothing
        QCOMPARE(QFile::exists(report.toLocalFile()), c.trash.isEmpty());
        QVERIFY(!QFileInfo::exists(home.filePath(QStringLiteral("files"))) &&
                !QFileInfo::exists(home.filePath(QStringLiteral("info"))));
        if (c.trash.isEmpty())
            continue;
        QVERIFY2(QFile::exists(c.trash + QStringLiteral("/files/OrvantaTraceRoute_1.html")),
                 qPrintable(c.trash));
        QFile info(c.trash + QStringLiteral("/info/OrvantaTraceRoute_1.html.trashinfo"));
        QVERIFY(info.open(QIODevice::ReadOnly));
        QVERIFY(info.readAll().contains("Path=" + QUrl::toPercentEncoding(report.toLocalFile(), "/")));
    }
    QVERIFY(QDir::setCurrent(previousDirectory));
    qputenv("HOME", previousHome);
    if (previousData.isEmpty())
        qunsetenv("XDG_DATA_HOME");
    else
        qputenv("XDG_DATA_HOME", previousData);
    QCOMPARE(workspace.actionDescriptions().size(), 1 + 2 * int(cases.size()));
    QCOMPARE(names(ReportCatalog::recentReportURLs(desktop.url(), 20)),
             (QStringList{"OrvantaTraceRoute_1.html", "OrvantaTraceRoute_2.html"}));
#endif
}

QTEST_GUILESS_MAIN(DiagnosticsTest)
#include "tst_diagnostics.moc"
