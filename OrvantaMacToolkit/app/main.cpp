#include "app/CommandLine.h"
#include "app/MenuBarContent.h"
#include "app/MenuBarLabel.h"
#include "app/OrvantaMacToolkitApp.h"
#include "app/ScriptsFolder.h"
#include "app/SingleInstance.h"
#include "diagnostics/ReportCatalog.h"
#include "diagnostics/ScriptRunner.h"
#include "window/MainWindow.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QCryptographicHash>
#include <QFileInfo>
#include <QTimer>

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
    }
    return false;
}

void setIdentity() {
    QCoreApplication::setApplicationName(QStringLiteral("Orvanta Mac Toolkit"));
    QCoreApplication::setApplicationVersion(QStringLiteral(ORVANTA_VERSION));
}

QStringList labelAndMenuLines(const platform::Platform& platform, const DetectorStatus& status) {
    const platform::StatusItemLabel label =
        MenuBarLabel::content(platform.accessibility->isProcessTrusted(), status);
    QStringList lines{QStringLiteral("label: ") +
                      (label.text.isEmpty() ? QStringLiteral("icon ") + label.symbol : label.text)};
    for (const MenuRow& row : MenuBarContent::sessionSection(status))
        lines.append(QStringLiteral("menu: ") + row.text);
    return lines;
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

    QString error;
    const auto mode = options.detect ? app::PlatformHost::Mode::onePass : app::PlatformHost::Mode::running;
    const std::unique_ptr<app::PlatformHost> host = app::PlatformHost::create(options, mode, &error);
    if (!host) {
        app::printErrorLines({error});
        return 2;
    }

    if (options.detect) {
        const app::DetectionReport report = app::runDetection(host->platform());
        app::printLines(report.transcript + app::statusLines(report.status) +
                        labelAndMenuLines(host->platform(), report.status));
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
    // The toolkit window is the application's first scene: it opens at launch, with or without a menu-bar item.
    shell.openToolkitWindow();
    shell.trace(QStringLiteral("ready"));
    return QApplication::exec();
}
