#include "diagnostics/ScriptCatalog.h"

#include <QTest>

using namespace orvanta;

class ScriptCatalogTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void fileNamesAndPrefixesAreDistinct();
    void argumentsForEveryScriptAndDuration();
};

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
