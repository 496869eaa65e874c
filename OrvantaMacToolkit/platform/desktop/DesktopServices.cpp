#include "DesktopServices.h"

#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

namespace orvanta::platform::desktop {

namespace {

#if defined(Q_OS_UNIX) && !defined(Q_OS_DARWIN) && !defined(Q_OS_ANDROID)
// Makes sure the home trash ($XDG_DATA_HOME/Trash with files/ and info/) exists, creating it as the
// freedesktop Trash layout has it, the data folder included. Qt 6.4 does not create a missing data
// folder, and then takes the current directory for the trash and moves the file into "files/" there.
bool homeTrashReady() {
    const QString dataHome = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (dataHome.isEmpty() || !QDir::isAbsolutePath(dataHome) || !QDir().mkpath(dataHome))
        return false;
    const QString trash = dataHome + QStringLiteral("/Trash");
    if (!QFileInfo(trash).isDir() &&
        !QDir().mkdir(trash, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner) &&
        !QFileInfo(trash).isDir())
        return false;
    const QDir trashDir(trash);
    for (const QString& sub : {QStringLiteral("files"), QStringLiteral("info")}) {
        if (!trashDir.exists(sub) && !trashDir.mkdir(sub) && !trashDir.exists(sub))
            return false;
    }
    return true;
}
#endif

} // namespace

bool openWithDefaultApplication(const QUrl& url) {
    return QDesktopServices::openUrl(url);
}

bool moveToTrash(const QString& path) {
#if defined(Q_OS_UNIX) && !defined(Q_OS_DARWIN) && !defined(Q_OS_ANDROID)
    // A file is either moved into a trash or left where it is; never into a folder of Qt's fallback.
    if (!QFileInfo::exists(path) || !homeTrashReady())
        return false;
#endif
    return QFile::moveToTrash(path);
}

} // namespace orvanta::platform::desktop
