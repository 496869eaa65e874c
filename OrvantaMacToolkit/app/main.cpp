#include "app/CommandLine.h"
#include "permissions/PermissionsService.h"
#include "session/SessionMonitor.h"

#include <QCommandLineParser>
#include <QCoreApplication>

using namespace orvanta;

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Orvanta Mac Toolkit"));
    QCoreApplication::setApplicationVersion(QStringLiteral(ORVANTA_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Watches Windows App for remote-desktop sessions and runs network diagnostics."));
    parser.addHelpOption();
    parser.addVersionOption();
    app::addOptions(parser);
    parser.process(app);
    const app::CommandLineOptions options = app::readOptions(parser);

    QString error;
    const auto mode = options.detect ? app::PlatformHost::Mode::onePass : app::PlatformHost::Mode::running;
    const std::unique_ptr<app::PlatformHost> host = app::PlatformHost::create(options, mode, &error);
    if (!host) {
        app::printErrorLines({error});
        return 2;
    }

    if (options.detect) {
        const app::DetectionReport report = app::runDetection(host->platform());
        app::printLines(report.transcript + app::statusLines(report.status));
        return 0;
    }

    // Until the menu-bar shell exists: the shared objects in start-up order, running without a window.
    auto debugLog = std::make_shared<DebugLog>(2000, DebugLog::defaultPath());
    if (options.verbose)
        app::echoToStandardError(*debugLog);
    SessionMonitor monitor(host->platform(), debugLog);
    PermissionsService permissions(host->platform());
    monitor.start();
    permissions.start();
    PermissionsService::requestAEAuthorization(*host->platform().appleEvents);
    return app.exec();
}
