// Worlds read from JSON files, the file watch, and the --detect command run as a real child process.

#include "platform/WorldFile.h"
#include "session/SessionDetector.h"

#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace orvanta;
using namespace orvanta::platform;

namespace {

const QByteArray clientApp =
    R"({"bundleIdentifier": "com.microsoft.rdc.macos", "pid": 812, "name": "Windows App"})";

SimWorld parsed(const QByteArray& json) {
    WorldOrError result = parseWorld(json, QStringLiteral("w.json"));
    if (const QString* error = std::get_if<QString>(&result))
        qWarning("%s", qPrintable(*error));
    return std::get<SimWorld>(result);
}

QString parseError(const QByteArray& json) {
    WorldOrError result = parseWorld(json, QStringLiteral("w.json"));
    return std::holds_alternative<QString>(result) ? std::get<QString>(result) : QString();
}

} // namespace

class WorldFileTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void defaultsOfAnEmptyWorld();
    void everyKey();
    void windowAttributesAsWritten();
    void windowServerKeepsNumberKinds();
    void appleScriptForms();
    void faultsNameTheLine_data();
    void faultsNameTheLine();
    void watcherFollowsTheFile();
    void detectCommand_data();
    void detectCommand();
    void detectCommandRejectsABadWorld();

private:
    QString writeFile(const QString& name, const QByteArray& content);
    QTemporaryDir m_dir;
};

void WorldFileTest::initTestCase() {
    QVERIFY(m_dir.isValid());
}

QString WorldFileTest::writeFile(const QString& name, const QByteArray& content) {
    const QString path = m_dir.filePath(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return {};
    file.write(content);
    return path;
}

void WorldFileTest::defaultsOfAnEmptyWorld() {
    const SimWorld world = parsed("{}");
    QVERIFY(!world.now);
    QVERIFY(world.accessibilityTrusted);
    QCOMPARE(world.appleEventsStatus, 0);
    QVERIFY(!world.ownPid);
    QVERIFY(world.runningApplications.isEmpty());
    QVERIFY(!world.appleScript);
    QCOMPARE(world.windowServer.kind, SimWindowList::Kind::derived);
}

void WorldFileTest::everyKey() {
    const SimWorld world = parsed(R"({
        "now": "2025-03-04T09:15:27Z",
        "accessibilityTrusted": false,
        "appleEventsStatus": -1744,
        "ownPid": 4242,
        "runningApplications": [)" +
                                  clientApp + R"(, {"bundleIdentifier": "x.y", "pid": 9}],
        "windows": {"812": [{"title": "Desk 1"}], "9": []},
        "windowsError": {"9": -25204},
        "windowServer": null
    })");
    QCOMPARE(*world.now, QDateTime(QDate(2025, 3, 4), QTime(9, 15, 27), Qt::UTC));
    QVERIFY(!world.accessibilityTrusted);
    QCOMPARE(world.appleEventsStatus, -1744);
    QCOMPARE(*world.ownPid, 4242);
    QCOMPARE(world.runningApplications.size(), 2);
    QCOMPARE(world.runningApplications.at(0).name, QStringLiteral("Windows App"));
    QCOMPARE(world.runningApplications.at(1).pid, 9);
    QCOMPARE(world.runningApplications.at(1).name, QString());
    QCOMPARE(world.windows.value(812).size(), 1);
    QCOMPARE(world.windowsError.value(9), -25204);
    QCOMPARE(world.windowServer.kind, SimWindowList::Kind::none);

    // A time without a zone is UTC; one with an offset is converted.
    QCOMPARE(*parsed(R"({"now": "2025-03-04T09:15:27"})").now,
             QDateTime(QDate(2025, 3, 4), QTime(9, 15, 27), Qt::UTC));
    QCOMPARE(parsed(R"({"now": "2025-03-04T04:15:27-05:00"})").now->toUTC().time(), QTime(9, 15, 27));
}

void WorldFileTest::windowAttributesAsWritten() {
    // Missing keys fail the read; other types are read as given, and the scan rejects them.
    SimWorld world = parsed(R"({"ownPid": 4242, "runningApplications": [)" + clientApp + R"(],
        "windows": {"812": [
            {"title": "Desk 1", "subrole": "AXStandardWindow", "size": [1920.0, 1080], "minimized": false},
            {"subrole": "AXUnknown", "size": [1920, 1080], "minimized": false},
            {"title": 7, "subrole": null, "size": "1920x1080", "minimized": "no"},
            {"title": "Mine", "size": [1920, 1080], "pid": 4242},
            {"title": "Unknown owner", "size": [1920, 1080], "pid": null}
        ]}})");
    SimulatedDesktop desktop(world);
    DebugCollector collector;
    const auto scan = SessionDetector::scanAXWindows(desktop.platform(), 812, &collector);
    QCOMPARE(scan.namedTitles, (QStringList{QStringLiteral("Desk 1"), QStringLiteral("Unknown owner")}));
    QCOMPARE(scan.unnamedCount, 1);
    QCOMPARE(
        collector.lines.mid(1),
        (QStringList{
            QStringLiteral("  AX win title=\"Desk 1\" subrole=AXStandardWindow size=1920x1080 min=false"),
            QStringLiteral("  AX win title=\"\" subrole=AXUnknown size=1920x1080 min=false"),
            QStringLiteral("  AX win title=\"\" subrole= size=0x0 min=false"),
            QStringLiteral("OWN-PID exclusion fired (winPid=4242). Should be unreachable."),
            QStringLiteral("  AX win title=\"Unknown owner\" subrole= size=1920x1080 min=false"),
            QStringLiteral("AX detect: 2 named, 1 unnamed"),
        }));
}

void WorldFileTest::windowServerKeepsNumberKinds() {
    const SimWorld world = parsed(R"({"windowServer": [
        {"kCGWindowOwnerPID": 812, "kCGWindowLayer": 0,
         "kCGWindowBounds": {"Width": 1400.0, "Height": 8e2, "X": 99999999999}},
        "not a window", null, true
    ]})");
    QCOMPARE(world.windowServer.kind, SimWindowList::Kind::given);
    const QVariantList list = world.windowServer.value.toList();
    QCOMPARE(list.size(), 4);
    const QVariantMap first = list.at(0).toMap();
    QCOMPARE(first.value(QStringLiteral("kCGWindowOwnerPID")).typeId(), QMetaType::Int);
    const QVariantMap bounds = first.value(QStringLiteral("kCGWindowBounds")).toMap();
    QCOMPARE(bounds.value(QStringLiteral("Width")).typeId(), QMetaType::Double);
    QCOMPARE(bounds.value(QStringLiteral("Height")).typeId(), QMetaType::Double);
    QCOMPARE(bounds.value(QStringLiteral("X")).typeId(), QMetaType::LongLong);
    QCOMPARE(list.at(1).typeId(), QMetaType::QString);
    QCOMPARE(list.at(3).typeId(), QMetaType::Bool);

    // Derived lists are floating point, as on macOS, and hold only windows of running processes.
    SimulatedDesktop derived(parsed(R"({"runningApplications": [)" + clientApp + R"(],
        "windows": {"812": [{"size": [1400, 800]}], "77": [{"size": [1920, 1080]}]}})"));
    const QVariantList windows = derived.copyWindowInfo(windowList::excludeDesktopElements, 0)->toList();
    QCOMPARE(windows.size(), 1);
    const QVariantMap entry = windows.first().toMap();
    QCOMPARE(entry.value(windowList::ownerPID), QVariant(812));
    QCOMPARE(entry.value(windowList::layer), QVariant(0));
    QCOMPARE(entry.value(windowList::bounds).toMap().value(windowList::width).typeId(), QMetaType::Double);
    QCOMPARE(SessionDetector::countLargeHiddenWindows(derived.platform()), 1);
}

void WorldFileTest::appleScriptForms() {
    const auto outcome = [](const QByteArray& form) {
        return *parsed(R"({"appleScript": )" + form + "}").appleScript;
    };
    QCOMPARE(std::get<AppleScriptResult>(outcome(R"({"result": "A\nB\n"})")).text, QStringLiteral("A\nB\n"));
    QVERIFY(!std::get<AppleScriptResult>(outcome(R"({"result": null})")).text);
    QCOMPARE(std::get<AppleScriptError>(outcome(R"({"errorNumber": -1743})"))
                 .info.value(appleScriptErrorNumberKey),
             QVariant(-1743));
    const QVariantMap info =
        std::get<AppleScriptError>(outcome(R"({"error": {"NSAppleScriptErrorNumber": -1743.0}})")).info;
    QCOMPARE(info.value(appleScriptErrorNumberKey).typeId(), QMetaType::Double);
    QVERIFY(std::holds_alternative<std::monostate>(outcome(R"({"noScriptObject": true})")));
}

void WorldFileTest::faultsNameTheLine_data() {
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("error");
    QTest::newRow("syntax") << QByteArray("{\n  \"ownPid\": 1,\n  \"now\": ,\n}")
                            << QStringLiteral("w.json:3: not valid JSON: ");
    QTest::newRow("not an object") << QByteArray("[]") << QStringLiteral("w.json:1: the world must be");
    QTest::newRow("unknown key") << QByteArray("{\n\n \"appleScipt\": {}}")
                                 << QStringLiteral("w.json:3: \"appleScipt\": unknown key");
    QTest::newRow("Boolean expected")
        << QByteArray("{\"accessibilityTrusted\": 1}")
        << QStringLiteral("w.json:1: \"accessibilityTrusted\": expected true or "
                          "false, found a number");
    QTest::newRow("floating-point pid")
        << QByteArray("{\"runningApplications\": [\n {\"pid\": 1},\n {\"pid\": 812.0}]}")
        << QStringLiteral(
               "w.json:3: \"runningApplications[1].pid\": expected an integer, found a floating-point "
               "number");
    QTest::newRow("application without pid") << QByteArray("{\"runningApplications\": [{\"name\": \"x\"}]}")
                                             << QStringLiteral("w.json:1: \"runningApplications[0]\": an "
                                                               "application needs a \"pid\"");
    QTest::newRow("pid key") << QByteArray("{\"windows\": {\n\"desk\": []}}")
                             << QStringLiteral(
                                    "w.json:2: \"windows.desk\": the key \"desk\" is not a process "
                                    "identifier");
    QTest::newRow("window key") << QByteArray("{\"windows\": {\"1\": [\n{\n\"titel\": \"x\"}]}}")
                                << QStringLiteral("w.json:3: \"windows.1[0].titel\": unknown key");
    QTest::newRow("AppleScript form") << QByteArray("{\"appleScript\": {\"result\": 1}}")
                                      << QStringLiteral("w.json:1: \"appleScript.result\": expected a text");
    QTest::newRow("two AppleScript forms")
        << QByteArray("{\"appleScript\": {\"result\": null, \"errorNumber\": 1}}")
        << QStringLiteral("w.json:1: \"appleScript\": expected one of");
    QTest::newRow("bad time") << QByteArray("{\"now\": \"yesterday\"}")
                              << QStringLiteral("w.json:1: \"now\": not an ISO 8601 time");
    QTest::newRow("32 bits") << QByteArray("{\"ownPid\": 4294967296}")
                             << QStringLiteral("w.json:1: \"ownPid\": the integer does not fit in 32 bits");
    QTest::newRow("negative delay") << QByteArray("{\"appleScriptDelayMs\": -5}")
                                    << QStringLiteral(
                                           "w.json:1: \"appleScriptDelayMs\": a delay cannot be negative");
}

void WorldFileTest::faultsNameTheLine() {
    QFETCH(QByteArray, json);
    QFETCH(QString, error);
    const QString message = parseError(json);
    QVERIFY2(message.startsWith(error), qPrintable(message));
}

void WorldFileTest::watcherFollowsTheFile() {
    const QString path = writeFile(QStringLiteral("watched.json"), R"({"ownPid": 1})");
    SimulatedDesktop desktop(parsed(R"({"ownPid": 1})"));
    WorldFileWatcher watcher(path, desktop);
    QSignalSpy reloaded(&watcher, &WorldFileWatcher::reloaded);
    QSignalSpy failed(&watcher, &WorldFileWatcher::reloadFailed);

    writeFile(QStringLiteral("watched.json"), R"({"ownPid": 2})");
    QVERIFY(reloaded.wait(5000));
    QCOMPARE(desktop.processId(), 2);

    // A bad version is reported and the world stays as it was.
    writeFile(QStringLiteral("watched.json"), "{\"ownPid\": \"three\"}");
    QVERIFY(failed.wait(5000));
    QVERIFY(failed.first().first().toString().startsWith(path + QStringLiteral(":1: \"ownPid\"")));
    QCOMPARE(desktop.processId(), 2);

    // An editor that saves by replacing the file is followed too.
    const QString replacement = writeFile(QStringLiteral("replacement.tmp"), R"({"ownPid": 4})");
    QVERIFY(QFile::remove(path));
    QVERIFY(QFile::rename(replacement, path));
    QVERIFY(reloaded.wait(5000));
    QCOMPARE(desktop.processId(), 4);
    writeFile(QStringLiteral("watched.json"), R"({"ownPid": 5})");
    QTRY_COMPARE_WITH_TIMEOUT(desktop.processId(), 5, 5000);
}

void WorldFileTest::detectCommand_data() {
    QTest::addColumn<QByteArray>("world");
    QTest::addColumn<QStringList>("tail");
    const QByteArray common = R"("now": "2025-03-04T09:15:27Z", "runningApplications": [)" + clientApp + "],";
    QTest::newRow("named sessions")
        << QByteArray("{" + common + R"("windows": {"812": [{"title": "Desk 1", "size": [1920, 1080]}]},
                      "appleScript": {"result": "Desk 1\nBüro \"2\"\n"}})")
        << QStringList{QStringLiteral("AS detect: raw=2 filtered=2"),
                       QStringLiteral("Result: sessions count=2 named=2 unnamed=0"),
                       QStringLiteral("status: sessions"),
                       QStringLiteral("session: axNamed \"Desk 1\""),
                       QString::fromUtf8("session: appleScript \"B\u00fcro \"2\"\""),
                       QString::fromUtf8("label: 2\u25cf Desk 1"),
                       QStringLiteral("menu: Active Sessions (2)"),
                       QStringLiteral("menu: Desk 1"),
                       QString::fromUtf8("menu: B\u00fcro \"2\"")};
    QTest::newRow("hidden window, query refused")
        << QByteArray("{" + common + R"("appleScript": {"errorNumber": -10004},
                      "windowServer": [{"kCGWindowOwnerPID": 812, "kCGWindowBounds": {"Width": 1920.0, "Height": 1080.0}},
                                       {"kCGWindowOwnerPID": 812, "kCGWindowBounds": {"Width": 1920, "Height": 1080}}]})")
        << QStringList{QStringLiteral("CG tiebreaker: 1 large hidden window(s)"),
                       QStringLiteral("Result: sessions count=1 named=0 unnamed=1"),
                       QStringLiteral("status: sessions"),
                       QStringLiteral("session: cgHidden"),
                       QString::fromUtf8("label: 1\u25cf"),
                       QStringLiteral("menu: Active Sessions (1)"),
                       QStringLiteral("menu: Background session")};
    QTest::newRow("window list unreadable")
        << QByteArray("{" + common +
                      R"("windowsError": {"812": -25204}, "appleScript": {"errorNumber": -1743}})")
        << QStringList{QStringLiteral("AX windows query failed (result=-25204)"),
                       QStringLiteral("AS detect: error code=-1743 permissionDenied=true"),
                       QStringLiteral("CG tiebreaker: 0 large hidden window(s)"),
                       QStringLiteral("Result: needsAEPermission"),
                       QStringLiteral("status: needsAEPermission"),
                       QStringLiteral("label: icon macwindow"),
                       QStringLiteral("menu: Permissions required")};
    QTest::newRow("not trusted") << QByteArray(
                                        R"({"now": "2025-03-04T09:15:27Z", "accessibilityTrusted": false})")
                                 << QStringList{QStringLiteral("AX trust: NOT trusted"),
                                                QStringLiteral("status: needsAXPermission"),
                                                QStringLiteral("label: icon exclamationmark.triangle.fill"),
                                                QStringLiteral("menu: Permissions required")};
}

void WorldFileTest::detectCommand() {
    QFETCH(QByteArray, world);
    QFETCH(QStringList, tail);
    const QString path = writeFile(QStringLiteral("detect.json"), world);
    QProcess process;
    process.start(QStringLiteral(ORVANTA_APP_BINARY),
                  {QStringLiteral("--detect"), QStringLiteral("--simulate"), path});
    QVERIFY(process.waitForFinished(10000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 0);
    QCOMPARE(process.readAllStandardError(), QByteArray());
    QStringList lines = QString::fromUtf8(process.readAllStandardOutput()).split(QLatin1Char('\n'));
    QCOMPARE(lines.takeLast(), QString()); // every line ends with a line feed
    QCOMPARE(lines.first(), QStringLiteral("=== Detection @ 2025-03-04 09:15:27 +0000 ==="));
    QCOMPARE(lines.mid(lines.size() - tail.size()), tail);
}

void WorldFileTest::detectCommandRejectsABadWorld() {
    const QString path =
        writeFile(QStringLiteral("bad.json"), "{\n  \"windows\": {\"812\": [\n    {\"pid\": 1.5}]}}");
    QProcess process;
    process.start(QStringLiteral(ORVANTA_APP_BINARY),
                  {QStringLiteral("--detect"), QStringLiteral("--simulate"), path});
    QVERIFY(process.waitForFinished(10000));
    QCOMPARE(process.exitCode(), 2);
    QCOMPARE(process.readAllStandardOutput(), QByteArray());
    const QString error = QString::fromUtf8(process.readAllStandardError());
    QVERIFY2(error.startsWith(path + QStringLiteral(":3: \"windows.812[0].pid\": expected an integer")),
             qPrintable(error));

    process.start(QStringLiteral(ORVANTA_APP_BINARY),
                  {QStringLiteral("--detect"), QStringLiteral("--simulate"),
                   m_dir.filePath(QStringLiteral("none.json"))});
    QVERIFY(process.waitForFinished(10000));
    QCOMPARE(process.exitCode(), 2);
    QVERIFY(process.readAllStandardError().contains("none.json: cannot read the world file"));
}

QTEST_GUILESS_MAIN(WorldFileTest)
#include "tst_worldfile.moc"
