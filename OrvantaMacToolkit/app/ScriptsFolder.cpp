#include "app/ScriptsFolder.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

namespace orvanta {

QStringList scriptsFolderCandidates(const QString& applicationDir) {
    const QDir appDir(applicationDir);
#ifdef Q_OS_MACOS
    return {QDir::cleanPath(appDir.filePath(QStringLiteral("../Resources/scripts")))};
#else
    const QString relative = QStringLiteral("orvanta-mac-toolkit/scripts");
    QStringList candidates{QDir::cleanPath(appDir.filePath(QStringLiteral("../share/") + relative))};
    for (const QString& dataDir : QStandardPaths::standardLocations(QStandardPaths::GenericDataLocation))
        candidates.append(QDir(dataDir).filePath(relative));
#ifdef ORVANTA_SOURCE_SCRIPTS_DIR
    candidates.append(QStringLiteral(ORVANTA_SOURCE_SCRIPTS_DIR));
#endif
    candidates.removeDuplicates();
    return candidates;
#endif
}

QString scriptsFolder(const QString& applicationDir) {
    const QStringList candidates = scriptsFolderCandidates(applicationDir);
    for (const QString& candidate : candidates) {
        if (QFileInfo(candidate).isDir())
            return candidate;
    }
    return candidates.first();
}

} // namespace orvanta
