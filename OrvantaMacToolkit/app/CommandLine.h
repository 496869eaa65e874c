#pragma once

// The command line of the application: its options, the platform it runs on, and the one-pass detection
// report of --detect. main() and the application shell call these; nothing here starts a window.

#include "DebugLog.h"
#include "app/MenuBarContent.h"
#include "platform/MenuBarItem.h"
#include "platform/NativePlatform.h"
#include "platform/Platform.h"
#include "platform/simulated/SimulatedDesktop.h"
#include "session/SessionInfo.h"

#include <QCommandLineParser>
#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>

namespace orvanta::platform {
class WorldFileWatcher;
}

namespace orvanta::app {

struct CommandLineOptions {
    QString simulateFile; // empty: no --simulate
    bool detect = false;
    bool json = false;
    bool verbose = false;
    QString recordFile; // empty: no --record-world
};

// Adds --simulate, --detect, --json, --record-world and --verbose (the caller adds --help and --version).
void addOptions(QCommandLineParser& parser);
CommandLineOptions readOptions(const QCommandLineParser& parser);

// The platform the application runs on: the native backend, or the simulated desktop when --simulate is
// given or there is no native backend (then an empty world: trusted, permitted, no client running).
class PlatformHost : public QObject {
    Q_OBJECT
public:
    enum class Mode {
        onePass, // --detect: load the world and answer once
        running, // the application: follow the world file, report simulated actions, listen for wakes
    };

    // Nullptr with `error` set when the world file cannot be read: "<file>:<line>: <what is wrong>".
    static std::unique_ptr<PlatformHost> create(const CommandLineOptions& options, Mode mode, QString* error);
    ~PlatformHost() override;

    platform::Platform platform() const { return m_platform; }
    // The simulated desktop, or nullptr on the native backend.
    platform::SimulatedDesktop* simulatedDesktop() const { return m_simulated.get(); }

private:
    PlatformHost() = default;

    std::unique_ptr<platform::NativePlatform> m_native;
    std::unique_ptr<platform::SimulatedDesktop> m_simulated;
    std::unique_ptr<platform::WorldFileWatcher> m_watcher;
    platform::Platform m_platform;
};

// One detection pass with its transcript.
struct DetectionReport {
    QStringList transcript; // the pass's debug-log lines, exactly as collected
    DetectorStatus status;
};
DetectionReport runDetection(const platform::Platform& platform);

// "status: <case>", then for sessions one "session: <source>[ \"<title>\"]" line per entry.
QStringList statusLines(const DetectorStatus& status);

// The pass as one JSON document: "status", "sessions" (source and title, null when untitled), "transcript",
// "label" (text and symbol, null when not shown) and "menu" (the session section's rows).
QByteArray detectionJson(const DetectionReport& report, const platform::StatusItemLabel& label,
                         const QList<MenuRow>& menu);

// Writes lines to standard output or standard error, one a line, UTF-8, and flushes.
void printLines(const QStringList& lines);
void printErrorLines(const QStringList& lines);

// --verbose: every batch the log receives is also written to standard error, a line each.
void echoToStandardError(DebugLog& log);

} // namespace orvanta::app
