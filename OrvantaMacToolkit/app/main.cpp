#include "app/CommandLine.h"
#include "app/MenuBarContent.h"
#include "app/MenuBarLabel.h"
#include "app/OrvantaMacToolkitApp.h"
#include "app/ProcessEnd.h"
#include "app/ScriptsFolder.h"
#include "app/SingleInstance.h"
#include "diagnostics/ReportCatalog.h"
#include "diagnostics/ScriptRunner.h"
#include "platform/desktop/SignalNotifier.h"
#include "platform/simulated/WorldWriter.h"
#include "window/MainWindow.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QCryptographicHash>
#include <QFileInfo>
#include <QTimer>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>

using namespace orvanta;

namespace {

const QString screenshotOption = QStringLiteral("screenshot");
const QString runOption = QStringLiteral("run");

// Options that never show anything run without a display.
bool needsNoDisplay(int argc, char* argv[]) {
    for (int i = 1; i < argc; ++i) {
        for (const char* option : {"--detect", "--help", "-h", "--help-all", "--version", "-v"}) {
            if (std::strcmp(argv[i], option) == 0)
                return true;
        }
        if (std::strncmp(argv[i], "--record-world", 14) == 0)
            return true;
    }
    return false;
}

void setIdentity() {
    QCoreApplication::setApplicationName(QStringLiteral("Orvanta Mac Toolkit"));
    QCoreApplication::setApplicationVersion(QStringLiteral(ORVANTA_VERSION));
}

// --detect: the pass, then what the menu bar would show, as lines or as one JSON document.
void printDetection(const platform::Platform& platform, bool json) {
    const app::DetectionReport report = app::runDetection(platform);
    const platform::StatusItemLabel label =
        MenuBarLabel::content(platform.accessibility->isProcessTrusted(), report.status);
    const QList<MenuRow> menu = MenuBarContent::sessionSection(report.status);
    if (json) {
        const QByteArray document = app::detectionJson(report, label, menu);
        std::fwrite(document.constData(), 1, size_t(document.size()), stdout);
        std::fflush(stdout);
        return;
    }
    QStringList lines = report.transcript + app::statusLines(report.status);
    lines.append(QStringLiteral("label: ") +
                 (label.text.isEmpty() ? QStringLiteral("icon ") + label.symbol : label.text));
    for (const MenuRow& row : menu)
        lines.append(QStringLiteral("menu: ") + row.text);
    app::printLines(lines);
}

// One copy per user; a simulated world is a separate copy, so a test or a demonstration can run beside it.
QString instanceKey(const app::CommandLineOptions& options) {
    QString key = SingleInstance::defaultKey();
    if (!options.simulateFile.isEmpty()) {
        const QByteArray path = QFileInfo(options.simulateFile).absoluteFilePath().toUtf8();
        key += QStringLiteral("-simulated-") +
               QString::fromLatin1(QCryptographicHash::hash(path, QCryptographicHash::Sha1).toHex().left(12));
    }
    return key;
}

std::optional<ScriptCatalog> scriptNamed(const QString& name) {
    if (name == QStringLiteral("reach"))
        return ScriptCatalog::connectorReach;
    if (name == QStringLiteral("monitor"))
        return ScriptCatalog::networkMonitor;
    if (name == QStringLiteral("trace"))
        return ScriptCatalog::traceRoute;
    return std::nullopt;
}

// Renders the toolkit window once the first detection pass is in and the reports have been read, or, with a
// script to run first, once that run has ended (at most two minutes later).
int takeScreenshot(OrvantaMacToolkitApp& shell, const QString& file, std::optional<ScriptCatalog> runFirst) {
    shell.openToolkitWindow();
    window::MainWindow* window = shell.toolkitWindow();
    window->resize(720, 640);
    int status = 1;
    bool captured = false;
    auto capture = [&] {
        if (captured)
            return;
        captured = true;
        window->refreshReports();
        if (window->grab().save(file, "PNG")) {
            app::printLines({file});
            status = 0;
        } else {
            app::printErrorLines({QStringLiteral("Could not write the screenshot to ") + file});
        }
        QCoreApplication::exit(status);
    };
    if (runFirst) {
        ScriptRunner& runner = window->runnerFor(*runFirst);
        QObject::connect(&runner, &ScriptRunner::stateChanged, window, [&runner, window, capture] {
            if (!runner.isRunning())
                QTimer::singleShot(500, window, capture);
        });
        runner.run(*runFirst, {});
        QTimer::singleShot(120000, window, capture);
    } else {
        QTimer::singleShot(1500, window, capture);
    }
    QApplication::exec();
    return status;
}

} // namespace

int main(int argc, char* argv[]) {
    std::unique_ptr<QCoreApplication> application;
    if (needsNoDisplay(argc, argv))
        application = std::make_unique<QCoreApplication>(argc, argv);
    else
        application = std::make_unique<QApplication>(argc, argv);
    setIdentity();

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Watches Windows App for remote-desktop sessions and runs network diagnostics."));
    parser.addHelpOption();
    parser.addVersionOption();
    app::addOptions(parser);
    parser.addOption(
        {screenshotOption,
         QStringLiteral("Render the toolkit window offscreen, save it as PNG to <file>, and exit."),
         QStringLiteral("file")});
    parser.addOption(
        {runOption,
         QStringLiteral("With --screenshot: run <script> (reach, monitor or trace) first and take the "
                        "picture when it has ended."),
         QStringLiteral("script")});
    parser.process(*application);
    const app::CommandLineOptions options = app::readOptions(parser);
    const QString screenshotFile = parser.value(screenshotOption);
    const std::optional<ScriptCatalog> runFirst = scriptNamed(parser.value(runOption));
    if (parser.isSet(runOption) && (!runFirst || screenshotFile.isEmpty())) {
        app::printErrorLines(
            {QStringLiteral("--run takes reach, monitor or trace, and goes with --screenshot")});
        return 2;
    }

    if (options.json && !options.detect) {
        app::printErrorLines({QStringLiteral("--json goes with --detect")});
        return 2;
    }

    // Declared before everything it may have to cut short, so that it goes last.
    app::ExitDeadline exitDeadline;
    QString error;
    const bool onePass = options.detect || !options.recordFile.isEmpty();
    const auto mode = onePass ? app::PlatformHost::Mode::onePass : app::PlatformHost::Mode::running;
    const std::unique_ptr<app::PlatformHost> host = app::PlatformHost::create(options, mode, &error);
    if (!host) {
        app::printErrorLines({error});
        return 2;
    }

    if (!options.recordFile.isEmpty()) {
        const platform::SimWorld world = platform::recordWorld(host->platform());
        if (const std::optional<QString> failure = platform::saveWorldFile(options.recordFile, world)) {
            app::printErrorLines({*failure});
            return 2;
        }
        if (!options.detect) {
            app::printErrorLines({QStringLiteral("World recorded to ") + options.recordFile});
            return 0;
        }
    }
    if (options.detect) {
        printDetection(host->platform(), options.json);
        return 0;
    }

    SingleInstance instance(instanceKey(options));
    if (screenshotFile.isEmpty()) {
        switch (instance.claim()) {
        case SingleInstance::Role::secondary:
            app::printErrorLines(
                {QStringLiteral("Orvanta Mac Toolkit is already running: showing its window.")});
            return 0;
        case SingleInstance::Role::unavailable:
            app::printErrorLines(
                {QStringLiteral("Could not listen for later launches; continuing without.")});
            break;
        case SingleInstance::Role::primary:
            break;
        }
    }

    OrvantaMacToolkitApp::Options shellOptions;
    shellOptions.scriptsFolder = scriptsFolder(QCoreApplication::applicationDirPath());
    shellOptions.reportsFolder = ReportCatalog::reportsFolder();
    shellOptions.verbose = options.verbose;
    shellOptions.useMenuBar = screenshotFile.isEmpty();
    OrvantaMacToolkitApp shell(host->platform(), shellOptions);
    if (!screenshotFile.isEmpty())
        return takeScreenshot(shell, screenshotFile, runFirst);

    QObject::connect(&instance, &SingleInstance::showRequested, &shell,
                     &OrvantaMacToolkitApp::openToolkitWindow);
    // The toolkit window is the application's first scene: it opens at launch, with or without a menu-bar
    // item.
    shell.openToolkitWindow();
    // A logout, `kill` or Ctrl-C ends the event loop as "Quit" does, so that everything is torn down in order
    // and running scripts are told to stop, instead of the process vanishing mid-step.
    platform::desktop::SignalNotifier terminationSignals({SIGTERM, SIGINT});
    QObject::connect(&terminationSignals, &platform::desktop::SignalNotifier::received, application.get(),
                     &QCoreApplication::quit);
    shell.trace(QStringLiteral("ready"));
    const int status = QApplication::exec();
    shell.trace(QStringLiteral("quitting"));
    exitDeadline.arm(std::chrono::seconds(2), status);
    return status;
}
