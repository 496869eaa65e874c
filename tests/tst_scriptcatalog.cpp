#include "diagnostics/ScriptCatalog.h"

#include <QSet>
#include <QTest>

using namespace orvanta;

class ScriptCatalogTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void casesAndConstants();
    void fileNamesAndPrefixesAreDistinct();
    void durations();
    void argumentsForEveryScriptAndDuration();
};

void ScriptCatalogTest::casesAndConstants() {
    const QList<ScriptCatalog> cases = ScriptCatalog::allCases();
    QCOMPARE(cases, (QList<ScriptCatalog>{ScriptCatalog::connectorReach, ScriptCatalog::networkMonitor,
                                          ScriptCatalog::traceRoute}));
    QStringList titles, prefixes, files;
    for (ScriptCatalog script : cases) {
        titles << script.title();
        prefixes << script.reportPrefix();
        files << script.fileName();
    }
    QCOMPARE(titles, (QStringList{"Connector Reachability", "Network Monitor", "Trace Route"}));
    QCOMPARE(prefixes, (QStringList{"OrvantaMacClientReach_", "OrvantaNetMonitor_", "OrvantaTraceRoute_"}));
    QCOMPARE(files, (QStringList{"orvanta-mac-client-reach.zsh", "orvanta-mac-network-monitor.zsh",
                                 "orvanta-mac-traceroute.zsh"}));
    QCOMPARE(ScriptCatalog(ScriptCatalog::networkMonitor).openLatestHelp(),
             QStringLiteral("Open the most recent Network Monitor HTML report."));
    QVERIFY(ScriptCatalog(ScriptCatalog::traceRoute).details().endsWith("where in the path it lives."));
    QVERIFY(ScriptCatalog(ScriptCatalog::connectorReach).summary().startsWith("Run a one-shot reachability"));
    // The trace route never has an article; the others only once an address is configured.
    QVERIFY(!ScriptCatalog(ScriptCatalog::traceRoute).helpArticle());
    for (ScriptCatalog script : cases) {
        if (const auto article = script.helpArticle())
            QVERIFY(article->isValid());
    }
    QCOMPARE(QSet<ScriptCatalog>(cases.begin(), cases.end()).size(), 3);
}

void ScriptCatalogTest::fileNamesAndPrefixesAreDistinct() {
    const QList<ScriptCatalog> cases = ScriptCatalog::allCases();
    for (ScriptCatalog a : cases) {
        QVERIFY(a.fileName().endsWith(QLatin1String(".zsh")));
        QVERIFY(a.reportPrefix().endsWith(QLatin1Char('_')));
        for (ScriptCatalog b : cases) {
            if (a == b)
                continue;
            QVERIFY(a.fileName() != b.fileName());
            QVERIFY2(!b.reportPrefix().startsWith(a.reportPrefix()), qPrintable(a.reportPrefix()));
        }
    }
}

void ScriptCatalogTest::durations() {
    QStringList labels;
    for (MonitorDuration duration : MonitorDuration::allCases())
        labels << duration.label();
    QCOMPARE(labels, (QStringList{"15 min", "30 min", "1 hour", "2 hours", "4 hours", "8 hours", "12 hours",
                                  "Until stopped"}));
    QCOMPARE(defaultMonitorDuration, MonitorDuration::oneHour);
}

void ScriptCatalogTest::argumentsForEveryScriptAndDuration() {
    const QList<QStringList> expected{
        {"--duration", "15"},  {"--duration", "30"},  {},
        {"--duration", "120"}, {"--duration", "240"}, {"--duration", "480"},
        {"--duration", "720"}, {"--indefinite"},
    };
    const QList<MonitorDuration> durations = MonitorDuration::allCases();
    QCOMPARE(durations.size(), expected.size());
    for (qsizetype i = 0; i < durations.size(); ++i) {
        QCOMPARE(durations[i].scriptArguments(), expected[i]);
        QCOMPARE(argumentsFor(ScriptCatalog::networkMonitor, durations[i]), expected[i]);
        QCOMPARE(argumentsFor(ScriptCatalog::connectorReach, durations[i]), QStringList());
        QCOMPARE(argumentsFor(ScriptCatalog::traceRoute, durations[i]), QStringList());
    }
}

QTEST_GUILESS_MAIN(ScriptCatalogTest)
#include "tst_scriptcatalog.moc"
