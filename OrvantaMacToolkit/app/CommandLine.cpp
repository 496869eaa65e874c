#include "CommandLine.h"

#include "platform/desktop/SignalNotifier.h"
#include "platform/simulated/WorldFile.h"
#if !defined(Q_OS_MACOS) && !defined(Q_OS_WIN)
#include "platform/desktop/LogindWake.h"
#endif
#include "session/SessionDetector.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <csignal>
#include <cstdio>

namespace orvanta::app {

using namespace platform;

namespace {
const QString simulateOption = QStringLiteral("simulate");
const QString detectOption = QStringLiteral("detect");
const QString verboseOption = QStringLiteral("verbose");
const QString jsonOption = QStringLiteral("json");
const QString recordOption = QStringLiteral("record-world");

void writeLines(std::FILE* stream, const QStringList& lines) {
    QByteArray text;
    for (const QString& line : lines)
        text += line.toUtf8() + '\n';
    std::fwrite(text.constData(), 1, static_cast<size_t>(text.size()), stream);
    std::fflush(stream);
}
} // namespace

void addOptions(QCommandLineParser& parser) {
    parser.addOption(
        {simulateOption,
         QStringLiteral("Run on the simulated desktop with the world in <file> (JSON), following "
                        "its changes."),
         QStringLiteral("file")});
    parser.addOption({detectOption, QStringLiteral("Run one detection pass, print its transcript and "
                                                   "outcome, and exit.")});
    parser.addOption({jsonOption, QStringLiteral("With --detect: print the pass as one JSON document.")});
    parser.addOption({recordOption,
                      QStringLiteral("Write everything a detection pass reads to <file> as a world file, for "
                                     "replaying it with --simulate, and exit."),
                      QStringLiteral("file")});
    parser.addOption({verboseOption, QStringLiteral("Echo every batch the debug log receives to standard "
                                                    "error.")});
}

CommandLineOptions readOptions(const QCommandLineParser& parser) {
    CommandLineOptions options;
    options.simulateFile = parser.value(simulateOption);
    options.detect = parser.isSet(detectOption);
    options.verbose = parser.isSet(verboseOption);
    options.json = parser.isSet(jsonOption);
    options.recordFile = parser.value(recordOption);
    return options;
}

std::unique_ptr<PlatformHost> PlatformHost::create(const CommandLineOptions& options, Mode mode,
                                                   QString* error) {
    std::unique_ptr<PlatformHost> host(new PlatformHost);
    if (options.simulateFile.isEmpty()) {
        host->m_native = createNativePlatform();
        if (host->m_native) {
            host->m_platform = host->m_native->platform();
            return host;
        }
    }

    SimWorld world;
    QByteArray content;
    if (!options.simulateFile.isEmpty()) {
        std::variant<QByteArray, QString> read = readWorldFile(options.simulateFile);
        if (const QString* message = std::get_if<QString>(&read)) {
            if (error)
                *error = *message;
            return nullptr;
        }
        content = std::get<QByteArray>(std::move(read));
        WorldOrError loaded = parseWorld(content, options.simulateFile);
        if (const QString* message = std::get_if<QString>(&loaded)) {
            if (error)
                *error = *message;
            return nullptr;
        }
        world = std::get<SimWorld>(std::move(loaded));
    }
    host->m_simulated = std::make_unique<SimulatedDesktop>(std::move(world));
    host->m_platform = host->m_simulated->platform();

    if (mode == Mode::running) {
        host->m_simulated->setReportActions(true);
        host->m_simulated->setOpenUrlsForReal(true);
        if (!options.simulateFile.isEmpty()) {
            host->m_watcher = std::make_unique<WorldFileWatcher>(options.simulateFile, *host->m_simulated);
            host->m_watcher->setInstalledContent(content);
            connect(host->m_watcher.get(), &WorldFileWatcher::reloadFailed, host.get(),
                    [](const QString& message) {
                        printErrorLines({message, QStringLiteral("(keeping the previous world)")});
                    });
            connect(host->m_watcher.get(), &WorldFileWatcher::reloaded, host.get(),
                    [file = options.simulateFile] {
                        printErrorLines(
                            {QStringLiteral("simulated desktop: world reloaded from %1").arg(file)});
                    });
            // Lets a test or a support engineer stand in for a wake from sleep: kill -USR1 <pid>.
#ifdef Q_OS_UNIX
            auto* signalWake = new desktop::SignalNotifier({SIGUSR1}, host.get());
            connect(signalWake, &desktop::SignalNotifier::received, host->m_simulated.get(),
                    &SimulatedDesktop::simulateWake);
#endif
        }
#if !defined(Q_OS_MACOS) && !defined(Q_OS_WIN)
        // On a Linux desktop the wake from sleep is real.
        auto* logind = new desktop::LogindWake(host.get());
        connect(logind, &desktop::LogindWake::woke, host->m_simulated.get(), &SimulatedDesktop::simulateWake);
#endif
    }
    return host;
}

PlatformHost::~PlatformHost() = default;

DetectionReport runDetection(const Platform& platform) {
    DebugCollector collector;
    DetectionReport report;
    report.status = SessionDetector::detect(platform, &collector);
    report.transcript = std::move(collector.lines);
    return report;
}

QStringList statusLines(const DetectorStatus& status) {
    QStringList lines{QStringLiteral("status: ") + status.caseName()};
    for (const SessionInfo& session : status.sessions()) {
        QString line = QStringLiteral("session: ") + SessionInfo::rawValue(session.source);
        if (session.title)
            line += QStringLiteral(" \"") + *session.title + QLatin1Char('"');
        lines << line;
    }
    return lines;
}

QByteArray detectionJson(const DetectionReport& report, const platform::StatusItemLabel& label,
                         const QList<MenuRow>& menu) {
    const auto textOrNull = [](const QString& text) {
        return text.isEmpty() ? QJsonValue() : QJsonValue(text);
    };
    QJsonArray sessions;
    for (const SessionInfo& session : report.status.sessions())
        sessions.append(QJsonObject{
            {QStringLiteral("source"), SessionInfo::rawValue(session.source)},
            {QStringLiteral("title"), session.title ? QJsonValue(*session.title) : QJsonValue()}});
    QJsonArray rows;
    for (const MenuRow& row : menu) {
        QJsonObject entry{{QStringLiteral("kind"), row.kind == MenuRow::Kind::session
                                                       ? QStringLiteral("session")
                                                       : QStringLiteral("information")},
                          {QStringLiteral("text"), row.text}};
        if (row.kind == MenuRow::Kind::session)
            entry.insert(QStringLiteral("session"), qint64(row.sessionIndex));
        rows.append(entry);
    }
    const QJsonObject document{
        {QStringLiteral("status"), report.status.caseName()},
        {QStringLiteral("sessions"), sessions},
        {QStringLiteral("transcript"), QJsonArray::fromStringList(report.transcript)},
        {QStringLiteral("label"), QJsonObject{{QStringLiteral("text"), textOrNull(label.text)},
                                              {QStringLiteral("symbol"), textOrNull(label.symbol)}}},
        {QStringLiteral("menu"), rows},
    };
    return QJsonDocument(document).toJson(QJsonDocument::Indented);
}

void printLines(const QStringList& lines) {
    writeLines(stdout, lines);
}

void printErrorLines(const QStringList& lines) {
    writeLines(stderr, lines);
}

void echoToStandardError(DebugLog& log) {
    log.setEcho([](const QStringList& batch) { writeLines(stderr, batch); });
}

} // namespace orvanta::app
