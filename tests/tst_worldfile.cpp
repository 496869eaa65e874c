// Worlds read from JSON files and recorded into them, the file watch, and the --detect and --record-world
// commands run as a real child process.

#include "TestWorlds.h"
#include "app/CommandLine.h"
#include "platform/simulated/WorldFile.h"
#include "platform/simulated/WorldWriter.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <QProcess>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <limits>

#include <clocale>
#include <cstdio>
#include <ctime>

#include <sys/stat.h>
#include <unistd.h>

using namespace orvanta;
using namespace orvanta::platform;

namespace {

const QByteArray clientApp =
    R"({"bundleIdentifier": "com.microsoft.rdc.macos", "pid": 812, "name": "Windows App"})";

SimWorld parsed(const QByteArray& json) {
    WorldOrError result = parseWorld(json, QStringLiteral("w.json"));
    // A refused world fails the test and reads as an empty one, so the test goes on to its other checks.
    if (const QString* error = std::get_if<QString>(&result)) {
        QTest::qFail(qPrintable(*error), __FILE__, __LINE__);
        return {};
    }
    return std::get<SimWorld>(result);
}

// The worlds of the --detect rows, by row name.
QByteArray detectWorld(const QString& name) {
    const QByteArray common =
        R"({"now": "2025-03-04T09:15:27Z", "runningApplications": [)" + clientApp + "],";
    const QMap<QString, QByteArray> worlds{
        {QStringLiteral("named sessions"),
         common + R"("windows": {"812": [{"title": "Desk 1", "size": [1920, 1080]}]}, )"
                  R"("appleScript": {"result": "Desk 1\nBüro \u00222\u0022\n"}})"},
        {QStringLiteral("hidden window, query refused"),
         common + R"("appleScript": {"errorNumber": -10004}, "windowServer": [)"
                  R"({"kCGWindowOwnerPID": 812, "kCGWindowBounds": {"Width": 1920.0, "Height": 1080.0}},)"
                  R"({"kCGWindowOwnerPID": 812, "kCGWindowBounds": {"Width": 1920, "Height": 1080}}]})"},
        {QStringLiteral("window list unreadable"),
         common + R"("windowsError": {"812": -25204}, "appleScript": {"errorNumber": -1743}})"},
        {QStringLiteral("control characters in a title"),
         common + R"("windows": {"812": [{"title": "Desk\n1\t\u0007", "size": [1920, 1080]}]}, )"
                  R"("appleScript": {"result": null}})"},
        {QStringLiteral("not trusted"), R"({"now": "2025-03-04T09:15:27Z", "accessibilityTrusted": false})"},
    };
    return worlds.value(name);
}

// The application run with `arguments`: its exit code (-1 when it crashed or hung) and what it printed.
struct AppRun {
    int exitCode = -1;
    QByteArray out;
    QString err;
};
AppRun runApp(const QStringList& arguments) {
    QProcess process;
    process.start(QStringLiteral(ORVANTA_APP_BINARY), arguments);
    AppRun run;
    if (process.waitForFinished(10000) && process.exitStatus() == QProcess::NormalExit)
        run.exitCode = process.exitCode();
    run.out = process.readAllStandardOutput();
    run.err = QString::fromUtf8(process.readAllStandardError());
    return run;
}

} // namespace

Q_DECLARE_METATYPE(orvanta::platform::SimWorld)

class WorldFileTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void everyKeyAndEdgeValue();
    void timesAreUtcInEveryZone_data();
    void timesAreUtcInEveryZone();
    void faultsNameTheLine_data();
    void faultsNameTheLine();
    void watcherFollowsTheFile();
    void detectCommand_data();
    void detectCommand();
    void detectCommandRejectsABadWorld();
    void recordingReplaysThePass_data();
    void recordingReplaysThePass();
    void recordingHoldsOnlyTheClient();
    void recordCommand();

private:
    QString writeFile(const QString& name, const QByteArray& content);
    QTemporaryDir m_dir;
};

void WorldFileTest::initTestCase() {
    QVERIFY(m_dir.isValid());
    // Asked for by ctest: the whole program again in a locale whose numbers differ from JSON's, for this
    // process (the application sets the user's locale too) and the commands it starts.
    const QByteArray locale = qgetenv("ORVANTA_TEST_LOCALE");
    if (locale.isEmpty())
        return;
    if (!std::setlocale(LC_ALL, locale.constData())) {
        // Debian ships the sources of most locales, not the locales: built here for this run.
        const QString folder = m_dir.filePath(QStringLiteral("locales"));
        QDir().mkpath(folder);
        QProcess::execute(QStringLiteral("localedef"),
                          {QStringLiteral("-i"), QString::fromLatin1(locale.split('.').first()),
                           QStringLiteral("-f"), QString::fromLatin1(locale.split('.').last()),
                           folder + u'/' + QString::fromLatin1(locale)});
        qputenv("LOCPATH", QFile::encodeName(folder));
    }
    qputenv("LC_ALL", locale);
    QVERIFY2(std::setlocale(LC_ALL, locale.constData()), "the locale cannot be had here");
    QCOMPARE(QByteArray(std::localeconv()->decimal_point), QByteArray(","));
}

QString WorldFileTest::writeFile(const QString& name, const QByteArray& content) {
    const QString path = m_dir.filePath(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return {};
    file.write(content);
    return path;
}

void WorldFileTest::everyKeyAndEdgeValue() {
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
    // What the --detect rows below do not show already.
    QVERIFY(!world.accessibilityTrusted);
    QCOMPARE(world.appleEventsStatus, -1744);
    QCOMPARE(world.ownPid.value_or(0), 4242);
    QCOMPARE(world.runningApplications.at(1).pid, 9);
    QCOMPARE(world.runningApplications.at(1).name, QString());
    QCOMPARE(world.windowsError.value(9), -25204);
    QCOMPARE(world.windowServer.kind, SimWindowList::Kind::none);

    // Integers at the edges of 32 and 64 bits are read, not rejected, and keep their exact value and kind.
    const SimWorld edges = parsed(R"({"ownPid": 2147483647, "appleEventsStatus": -2147483648, "windowServer":
        [-9223372036854775808, 9223372036854775807, 18446744073709551615, -2147483648, 8e2]})");
    QCOMPARE(edges.ownPid.value_or(0), std::numeric_limits<int>::max());
    QCOMPARE(edges.appleEventsStatus, std::numeric_limits<int>::min());
    const QVariantList integers = edges.windowServer.value.toList();
    QCOMPARE(integers,
             (QVariantList{std::numeric_limits<qint64>::min(), std::numeric_limits<qint64>::max(),
                           std::numeric_limits<quint64>::max(), std::numeric_limits<int>::min(), 800.0}));
    const QList<int> kinds{QMetaType::LongLong, QMetaType::LongLong, QMetaType::ULongLong, QMetaType::Int,
                           QMetaType::Double};
    for (int i = 0; i < integers.size(); ++i)
        QCOMPARE(integers.at(i).typeId(), kinds.at(i));

    // Floating point in the C conventions whatever the locale (ctest runs this program under a decimal-comma
    // one too); too small to hold is zero, keeping its sign.
    const QVariantList floats =
        parsed(R"({"windowServer": [1400.5, -0.25e1, 1E-400, -1e-400, 5e-324, 1.7976931348623157e308]})")
            .windowServer.value.toList();
    QCOMPARE(floats, (QVariantList{1400.5, -2.5, 0.0, 0.0, 5e-324, std::numeric_limits<double>::max()}));
    QVERIFY(!std::signbit(floats.at(2).toDouble()) && std::signbit(floats.at(3).toDouble()));
}

void WorldFileTest::timesAreUtcInEveryZone_data() {
    QTest::addColumn<QByteArray>("zone");
    QTest::newRow("UTC") << QByteArray("UTC");
    QTest::newRow("Kiritimati") << QByteArray("Pacific/Kiritimati");
    QTest::newRow("Adak") << QByteArray("America/Adak");
}

void WorldFileTest::timesAreUtcInEveryZone() {
    QFETCH(QByteArray, zone);
    const QByteArray saved = qgetenv("TZ");
    qputenv("TZ", zone);
    ::tzset();
    const auto restore = qScopeGuard([&] {
        saved.isNull() ? qunsetenv("TZ") : qputenv("TZ", saved);
        ::tzset();
    });
    // A time without a zone is UTC, whatever zone the machine is in; one with an offset is converted.
    const QDateTime expected(QDate(2025, 3, 4), QTime(9, 15, 27), Qt::UTC);
    QCOMPARE(*parsed(R"({"now": "2025-03-04T09:15:27"})").now, expected);
    QCOMPARE(*parsed(R"({"now": "2025-03-04T04:15:27-05:00"})").now, expected);
    const QVariantList dates =
        parsed(R"({"windowServer": [{"$date": "2025-03-04T09:15:27"}, {"$date": "2025-03-04T09:15:27Z"}]})")
            .windowServer.value.toList();
    QCOMPARE(dates.at(0).toDateTime(), expected);
    QCOMPARE(dates.at(1).toDateTime(), expected);
}

void WorldFileTest::faultsNameTheLine_data() {
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("error"); // how the message starts
    const auto row = [](const char* name, const QByteArray& json, const char* error) {
        QTest::newRow(name) << json << QStringLiteral("w.json:") + QString::fromUtf8(error);
    };
    row("syntax", "{\n  \"ownPid\": 1,\n  \"now\": ,\n}", "3: not valid JSON: ");
    row("not an object", "[]", "1: the world must be");
    row("unknown key", "{\n\n \"appleScipt\": {}}", R"(3: "appleScipt": unknown key)");
    row("Boolean expected", R"({"accessibilityTrusted": 1})",
        R"(1: "accessibilityTrusted": expected true or false, found a number)");
    row("floating-point pid", "{\"runningApplications\": [\n {\"pid\": 1},\n {\"pid\": 812.0}]}",
        R"(3: "runningApplications[1].pid": expected an integer, found a floating-point number)");
    row("application without pid", R"({"runningApplications": [{"name": "x"}]})",
        R"(1: "runningApplications[0]": an application needs a "pid")");
    row("pid key", "{\"windows\": {\n\"desk\": []}}",
        R"(2: "windows.desk": the key "desk" is not a process)");
    row("window key", "{\"windows\": {\"1\": [\n{\n\"titel\": \"x\"}]}}",
        R"(3: "windows.1[0].titel": unknown key)");
    row("AppleScript form", R"({"appleScript": {"result": 1}})",
        R"(1: "appleScript.result": expected a text)");
    row("two AppleScript forms", R"({"appleScript": {"result": null, "errorNumber": 1}})",
        R"(1: "appleScript": expected one of)");
    row("bad time", R"({"now": "yesterday"})", R"(1: "now": not an ISO 8601 time)");
    row("32 bits", R"({"ownPid": 2147483648})", R"(1: "ownPid": the integer does not fit in 32 bits)");
    row("64 bits", "{\"windowServer\": [1,\n {\"X\": -9223372036854775809}]}",
        R"(2: "windowServer[1].X": the integer does not fit in 64 bits)");
    row("floating point too large", "{\"windowServer\": [0.5,\n 1e400]}",
        R"(2: "windowServer[1]": the number is beyond the floating-point range)");
    row("unsigned 64 bits", R"({"windowServer": [18446744073709551616]})",
        R"(1: "windowServer[0]": the integer does not fit in 64 bits)");
    row("repeated key", "{\"ownPid\": 1,\n\"ownPid\": 2}", R"(2: "ownPid": duplicate key)");
    row("attribute with value and error",
        "{\"windows\": {\"1\": [\n{\"title\": \"x\", \"errors\": {\"title\": -25204}}]}}",
        R"(2: "windows.1[0]": "title" has both a value and an error)");
    row("unknown tag", R"({"windowServer": [{"$int": 1}]})", R"(1: "windowServer[0]": unknown tag "$int")");
    row("nested too deep", "{\"windowServer\": " + QByteArray(100000, '['), R"(1: "windowServer)");
    row("invalid UTF-8", "{\"now\": \"\xff\"}", "1: not valid JSON: a text is not valid UTF-8");
    row("negative delay", R"({"appleScriptDelayMs": -5})",
        R"(1: "appleScriptDelayMs": a delay cannot be negative)");
}

void WorldFileTest::faultsNameTheLine() {
    QFETCH(QByteArray, json);
    QFETCH(QString, error);
    const WorldOrError result = parseWorld(json, QStringLiteral("w.json"));
    const QString* message = std::get_if<QString>(&result);
    QVERIFY2(message && message->startsWith(error), message ? qPrintable(*message) : "accepted");
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

    // Editors that save by deleting and writing anew, or by renaming a new file over the old one, are
    // followed too, and so is every write after that, even when the old version lives on as a backup link.
    QVERIFY(QFile::remove(path));
    writeFile(QStringLiteral("watched.json"), R"({"ownPid": 3})");
    QCOMPARE(::link(QFile::encodeName(path).constData(), QFile::encodeName(path + u'~').constData()), 0);
    QTRY_COMPARE_WITH_TIMEOUT(desktop.processId(), 3, 5000);
    const QString replacement = writeFile(QStringLiteral("replacement.tmp"), R"({"ownPid": 4})");
    QCOMPARE(::rename(QFile::encodeName(replacement).constData(), QFile::encodeName(path).constData()), 0);
    QTRY_COMPARE_WITH_TIMEOUT(desktop.processId(), 4, 5000);
    writeFile(QStringLiteral("watched.json"), R"({"ownPid": 5})");
    QTRY_COMPARE_WITH_TIMEOUT(desktop.processId(), 5, 5000);
}

void WorldFileTest::detectCommand_data() {
    QTest::addColumn<QByteArray>("world");
    QTest::addColumn<QStringList>("tail");
    QTest::addColumn<QStringList>("titles"); // as the JSON output gives them; untitled ones empty
    const auto row = [](const char* name) -> QTestData& {
        return QTest::newRow(name) << detectWorld(QString::fromLatin1(name));
    };
    row("named sessions") << QStringList{QStringLiteral("AS detect: raw=2 filtered=2"),
                                         QStringLiteral("Result: sessions count=2 named=2 unnamed=0"),
                                         QStringLiteral("status: sessions"),
                                         QStringLiteral("session: axNamed \"Desk 1\""),
                                         QString::fromUtf8("session: appleScript \"B\u00fcro \"2\"\""),
                                         QString::fromUtf8("label: 2\u25cf Desk 1"),
                                         QStringLiteral("menu: Active Sessions (2)"),
                                         QStringLiteral("menu: Desk 1"),
                                         QString::fromUtf8("menu: B\u00fcro \"2\"")}
                          << QStringList{QStringLiteral("Desk 1"), QString::fromUtf8("B\u00fcro \"2\"")};
    row("hidden window, query refused")
        << QStringList{QStringLiteral("CG tiebreaker: 1 large hidden window(s)"),
                       QStringLiteral("Result: sessions count=1 named=0 unnamed=1"),
                       QStringLiteral("status: sessions"),
                       QStringLiteral("session: cgHidden"),
                       QString::fromUtf8("label: 1\u25cf"),
                       QStringLiteral("menu: Active Sessions (1)"),
                       QStringLiteral("menu: Background session")}
        << QStringList{QString()};
    row("window list unreadable") << QStringList{QStringLiteral("AX windows query failed (result=-25204)"),
                                                 QStringLiteral(
                                                     "AS detect: error code=-1743 permissionDenied=true"),
                                                 QStringLiteral("CG tiebreaker: 0 large hidden window(s)"),
                                                 QStringLiteral("Result: needsAEPermission"),
                                                 QStringLiteral("status: needsAEPermission"),
                                                 QStringLiteral("label: icon macwindow"),
                                                 QStringLiteral("menu: Permissions required")}
                                  << QStringList();
    // The lines are ambiguous here; the JSON document is not.
    row("control characters in a title") << QStringList() << QStringList{QStringLiteral("Desk\n1\t\u0007")};
    row("not trusted") << QStringList{QStringLiteral("AX trust: NOT trusted"),
                                      QStringLiteral("status: needsAXPermission"),
                                      QStringLiteral("label: icon exclamationmark.triangle.fill"),
                                      QStringLiteral("menu: Permissions required")}
                       << QStringList();
}

void WorldFileTest::detectCommand() {
    QFETCH(QByteArray, world);
    QFETCH(QStringList, tail);
    QFETCH(QStringList, titles);
    const QString path = writeFile(QStringLiteral("detect.json"), world);
    const AppRun run = runApp({QStringLiteral("--detect"), QStringLiteral("--simulate"), path});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.err, QString());
    const QString text = QString::fromUtf8(run.out);
    QStringList lines = text.split(QLatin1Char('\n'));
    QCOMPARE(lines.takeLast(), QString()); // every line ends with a line feed
    QCOMPARE(lines.first(), QStringLiteral("=== Detection @ 2025-03-04 09:15:27 +0000 ==="));
    QCOMPARE(lines.mid(lines.size() - tail.size()), tail);

    // The JSON document says the same, line for line.
    const AppRun jsonRun =
        runApp({QStringLiteral("--detect"), QStringLiteral("--json"), QStringLiteral("--simulate"), path});
    QCOMPARE(jsonRun.exitCode, 0);
    QJsonParseError error;
    const QJsonObject json = QJsonDocument::fromJson(jsonRun.out, &error).object();
    QCOMPARE(error.error, QJsonParseError::NoError);
    QStringList jsonTitles;
    for (const QJsonValue& session : json.value(QStringLiteral("sessions")).toArray())
        jsonTitles << session[QStringLiteral("title")].toString();
    QCOMPARE(jsonTitles, titles);
    QStringList transcript;
    for (const QJsonValue& line : json.value(QStringLiteral("transcript")).toArray())
        transcript << line.toString();
    // Compared as text: a title may hold line feeds.
    QVERIFY(text.startsWith(transcript.join(u'\n') + QStringLiteral("\nstatus: ") +
                            json.value(QStringLiteral("status")).toString() + u'\n'));
    QStringList menu;
    for (const QJsonValue& row : json.value(QStringLiteral("menu")).toArray())
        menu << QStringLiteral("menu: ") + row[QStringLiteral("text")].toString();
    QVERIFY(text.endsWith(menu.join(u'\n') + u'\n'));
}

void WorldFileTest::detectCommandRejectsABadWorld() {
    const QString bad =
        writeFile(QStringLiteral("bad.json"), "{\n  \"windows\": {\"812\": [\n    {\"pid\": 1.5}]}}");
    // Only a regular file of a sensible size is read; nothing else blocks or exhausts memory.
    const QString pipe = m_dir.filePath(QStringLiteral("pipe.json"));
    QCOMPARE(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    QFile large(m_dir.filePath(QStringLiteral("large.json")));
    QVERIFY(large.open(QIODevice::WriteOnly) && large.resize(maximumWorldFileSize + 1));
    large.close();
    const QString unreadable = QStringLiteral(": cannot read the world file: ");
    for (const auto& [path, error] : QList<std::pair<QString, QString>>{
             {bad, QStringLiteral(":3: \"windows.812[0].pid\": expected an integer")},
             {m_dir.filePath(QStringLiteral("none.json")), unreadable},
             {pipe, unreadable},
             {QStringLiteral("/dev/zero"), unreadable},
             {m_dir.path(), unreadable},
             {large.fileName(), unreadable}}) {
        const AppRun run = runApp({QStringLiteral("--detect"), QStringLiteral("--simulate"), path});
        QCOMPARE(run.exitCode, 2);
        QCOMPARE(run.out, QByteArray());
        QVERIFY2(run.err.startsWith(path + error), qPrintable(run.err));
    }
    QCOMPARE(runApp({QStringLiteral("--json")}).exitCode, 2); // only with --detect
}

void WorldFileTest::recordingReplaysThePass_data() {
    QTest::addColumn<SimWorld>("world");
    using namespace orvanta::testing;

    // Every world file of the tests and the fuzzer's seeds.
    const QDir seeds(QStringLiteral(ORVANTA_SOURCE_DIR "/fuzz/corpus/worldfile"));
    for (const QString& seed : seeds.entryList({QStringLiteral("*.json")}, QDir::Files))
        QTest::newRow(qPrintable(seed)) << std::get<SimWorld>(loadWorldFile(seeds.filePath(seed)));
    for (const char* row : {"named sessions", "hidden window, query refused", "window list unreadable",
                            "control characters in a title", "not trusted"})
        QTest::newRow(row) << parsed(detectWorld(QString::fromLatin1(row)));

    // Built in code: kinds of value a port can answer with that the session tests' worlds do not hold.
    SimWorld errors = clientWorld({window(QStringLiteral("Desk 1")), window(QStringLiteral("Desk 2"))});
    errors.windows[clientPid][0].title.reset();
    errors.windows[clientPid][0].readErrors.insert(QStringLiteral("AXTitle"), axError::cannotComplete);
    errors.windows[clientPid][1].size.reset();
    errors.windows[clientPid][1].readErrors.insert(QStringLiteral("AXSize"), axError::attributeUnsupported);
    errors.runningApplications.append({813, windowsAppBundleID, windowsAppProcessName});
    errors.windowsError.insert(813, axError::cannotComplete);
    errors.appleScript =
        AppleScriptError{{{appleScriptErrorNumberKey, QVariant(qint64(-600))},
                          {QStringLiteral("NSAppleScriptErrorMessage"), QStringLiteral("busy")}}};
    QTest::newRow("errors") << errors;

    SimWorld wrongTypes = clientWorld({window(QStringLiteral("Desk 1")), window(QString())});
    wrongTypes.windows[clientPid][0].subrole.emplace(true);
    wrongTypes.windows[clientPid][0].minimized.emplace(AXSize{1, 2});
    wrongTypes.windows[clientPid][1].title.emplace(AXOtherValue{QStringLiteral("CFNumber")});
    wrongTypes.windows[clientPid][1].size.emplace(QStringLiteral("1920x1080"));
    wrongTypes.windows[clientPid][1].subrole.emplace(QList<AXElement>{});
    wrongTypes.runningApplications.append({813, windowsAppBundleID, QString()});
    wrongTypes.windowsError.insert(813, axError::success); // read without a list
    wrongTypes.appleScript = AppleScriptError{{{appleScriptErrorNumberKey, QStringLiteral("-1743")}}};
    QTest::newRow("wrong types") << wrongTypes;

    const auto cg = [](const QVariant& owner, const QVariant& width, const QVariant& layer) {
        return QVariantMap{
            {windowList::ownerPID, owner},
            {windowList::layer, layer},
            {windowList::bounds, QVariantMap{{windowList::width, width}, {windowList::height, 900.0}}},
            {QStringLiteral("kCGWindowMemoryUsage"), QVariant(quint64(1) << 63)},
            {QStringLiteral("kCGWindowAlpha"), QVariant(1.0f)},
            {QStringLiteral("seen"), QDateTime(QDate(2025, 3, 4), QTime(9, 0), Qt::UTC)},
            {QStringLiteral("data"), QByteArray("\0\xff", 2)}};
    };
    SimWorld numbers = clientWorld({window(QString(), 1920, 1080),
                                    window(QStringLiteral("Small"), std::numeric_limits<double>::quiet_NaN(),
                                           -std::numeric_limits<double>::infinity())});
    numbers.runningApplications.append({813, windowsAppBundleID, windowsAppProcessName});
    numbers.appleScript = AppleScriptError{{{appleScriptErrorNumberKey, QVariant(quint32(4294967295u))}}};
    numbers.windowServer = {SimWindowList::Kind::given,
                            QVariantList{cg(clientPid, 1400.0, qint64(0)), cg(813, 1920.0, QVariant()),
                                         cg(qint64(clientPid), 1920.0, 0), cg(clientPid, 1920, 0),
                                         cg(clientPid, std::numeric_limits<double>::infinity(), quint32(0)),
                                         cg(clientPid, 1399.5, 0), cg(clientPid, 1920.0, qint64(3)),
                                         cg(clientPid, std::numeric_limits<double>::quiet_NaN(), 0),
                                         cg(clientPid, 1e300, short(0))}};
    QTest::newRow("number kinds, census entries") << numbers;

    // Texts exactly as the platform gives them. A title opening with U+FEFF is a session, which would read as
    // the excluded "About" without it.
    const QString high(QChar(0xD800)), low(QChar(0xDC00));
    SimWorld texts =
        clientWorld({window(QStringLiteral("\uFEFFAbout")), window(QStringLiteral("Desk\u2028one\u2029")),
                     window(QStringLiteral("\u0085Desk\x01two\x1F")),
                     window(high + QStringLiteral("Desk") + low), window(QString())});
    texts.runningApplications[0].name = low;
    texts.appleScript =
        AppleScriptResult{QStringLiteral("\uFEFFAbout\n") + high + QStringLiteral("\n\u2028\n")};
    texts.windowServer = {
        SimWindowList::Kind::given,
        QVariantList{QVariantMap{{windowList::ownerPID, clientPid},
                                 {QStringLiteral("kCGWindowName"), low + QStringLiteral("\uFEFF")}}}};
    QTest::newRow("every kind of text") << texts;
    // The pass reads the title of a window another process owns in the client's list.
    SimWorld foreign = clientWorld({window(QStringLiteral("Desk 9"))});
    foreign.windows[clientPid][0].pid = 999;
    QTest::newRow("another process's window in the client's list") << foreign;
}

void WorldFileTest::recordingReplaysThePass() {
    QFETCH(SimWorld, world);
    orvanta::testing::checkRecordingReplays(world);
}

void WorldFileTest::recordingHoldsOnlyTheClient() {
    using namespace orvanta::testing;
    SimWorld world = clientWorld({window(QStringLiteral("Desk 1")), window(QStringLiteral("Mail draft"))});
    world.windows[clientPid][1].pid = 999; // another process's window in the client's list
    world.runningApplications.append(
        {999, QStringLiteral("com.example.secret"), QStringLiteral("Secret App")});
    world.windows[999] = {window(QStringLiteral("Secret plans"))};
    world.windowServer = {
        SimWindowList::Kind::given,
        QVariantList{QVariantMap{{windowList::ownerPID, 999},
                                 {QStringLiteral("kCGWindowOwnerName"), QStringLiteral("Secret App")},
                                 {QStringLiteral("kCGWindowName"), QStringLiteral("Secret plans")}},
                     QVariantMap{{windowList::ownerPID, clientPid},
                                 {QStringLiteral("kCGWindowName"), QStringLiteral("Desk 1")}}}};
    SimulatedDesktop desktop(world);
    const SimWorld recorded = recordWorld(desktop.platform());
    const QByteArray text = worldFileText(recorded);
    QVERIFY2(!text.contains("Secret"), text.constData());
    QCOMPARE(recorded.windows.value(clientPid).at(1).pid, std::optional<Pid>(999));
}

void WorldFileTest::recordCommand() {
    const QString world =
        writeFile(QStringLiteral("record.json"), detectWorld(QStringLiteral("named sessions")));
    const QString recording = m_dir.filePath(QStringLiteral("recording.json"));
    const AppRun run =
        runApp({QStringLiteral("--simulate"), world, QStringLiteral("--record-world"), recording});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.out, QByteArray());
    QCOMPARE(orvanta::testing::whatTheUserSees(std::get<SimWorld>(loadWorldFile(recording))),
             orvanta::testing::whatTheUserSees(std::get<SimWorld>(loadWorldFile(world))));

    // A path that cannot be written is a clear error, and nothing is left behind.
    const QStringList before = QDir(m_dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
    for (const QString& target : {m_dir.filePath(QStringLiteral("missing/recording.json")), m_dir.path()}) {
        const AppRun failed =
            runApp({QStringLiteral("--simulate"), world, QStringLiteral("--record-world"), target});
        QCOMPARE(failed.exitCode, 2);
        QVERIFY2(failed.err.startsWith(target + QStringLiteral(": cannot write the recording: ")),
                 qPrintable(failed.err));
    }
    QCOMPARE(QDir(m_dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), before);
}

QTEST_GUILESS_MAIN(WorldFileTest)
#include "tst_worldfile.moc"
