#include "diagnostics/ReportCatalog.h"
#include "platform/simulated/SimulatedDesktop.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

using namespace orvanta;

namespace {

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

class ReportCatalogTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void entries();
    void recognition();
    void tiesGoToTheFirstListed();
    void newestTwentyOfTwentyFive();
    void unreadableDatesComeLast();
    void missingFolderListsNothing();
    void openAndTrashThroughTheWorkspace();
};

void ReportCatalogTest::entries() {
    QCOMPARE(ReportCatalog::reportsFolder(), QUrl::fromLocalFile(QDir::homePath() + "/Desktop"));
    Desktop desktop;
    desktop.file("notes.html", base);
    desktop.file("OrvantaNetMonitor_7.html", base.addSecs(60));
    const ReportEntry notes = ReportCatalog::makeReportEntry(desktop.fileUrl("notes.html"));
    QCOMPARE(notes.script, std::nullopt);
    QCOMPARE(notes.scriptTitle(), QStringLiteral("Unknown"));
    QCOMPARE(notes.modificationDate, base);
    const ReportEntry monitor = ReportCatalog::makeReportEntry(desktop.fileUrl("OrvantaNetMonitor_7.html"));
    QCOMPARE(monitor.script, ScriptCatalog::networkMonitor);
    QCOMPARE(monitor.modificationDate, base.addSecs(60));
    QCOMPARE(ReportCatalog::recentReportURLs(desktop.url(), 20), QList<QUrl>{monitor.url});
}

void ReportCatalogTest::recognition() {
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

void ReportCatalogTest::tiesGoToTheFirstListed() {
    Desktop desktop;
    const QStringList tied{"OrvantaTraceRoute_a.html", "OrvantaTraceRoute_b.html",
                           "OrvantaTraceRoute_c.html"};
    for (const QString& name : tied)
        desktop.file(name, base);
    desktop.file("OrvantaTraceRoute_old.html", base.addSecs(-1));
    desktop.file("OrvantaNetMonitor_tie.html", base);
    const QStringList order = desktop.listingOrder(tied);
    QCOMPARE(ReportCatalog::latestReport(ScriptCatalog::traceRoute, desktop.url()),
             desktop.fileUrl(order.first()));

    const QStringList allTied = desktop.listingOrder(tied + QStringList{"OrvantaNetMonitor_tie.html"});
    QCOMPARE(names(ReportCatalog::recentReportURLs(desktop.url(), 20)),
             allTied + QStringList{"OrvantaTraceRoute_old.html"});
}

void ReportCatalogTest::newestTwentyOfTwentyFive() {
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

void ReportCatalogTest::unreadableDatesComeLast() {
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

void ReportCatalogTest::missingFolderListsNothing() {
    Desktop desktop;
    const QUrl missing = desktop.fileUrl("no-such-folder");
    QCOMPARE(ReportCatalog::latestReport(ScriptCatalog::traceRoute, missing), std::nullopt);
    QVERIFY(ReportCatalog::recentReportURLs(missing, 20).isEmpty());
    QVERIFY(ReportCatalog::recentReports(missing).isEmpty());
}

void ReportCatalogTest::openAndTrashThroughTheWorkspace() {
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

QTEST_GUILESS_MAIN(ReportCatalogTest)
#include "tst_reportcatalog.moc"
