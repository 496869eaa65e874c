#include <QCommandLineParser>
#include <QCoreApplication>

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Orvanta Mac Toolkit"));
    QCoreApplication::setApplicationVersion(QStringLiteral(ORVANTA_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Watches Windows App for remote-desktop sessions and runs network diagnostics."));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.process(app);
    return 0;
}
