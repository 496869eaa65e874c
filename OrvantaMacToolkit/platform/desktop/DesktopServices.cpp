#include "DesktopServices.h"

#include <QDesktopServices>
#include <QFile>

namespace orvanta::platform::desktop {

bool openWithDefaultApplication(const QUrl& url) {
    return QDesktopServices::openUrl(url);
}

bool moveToTrash(const QString& path) {
    return QFile::moveToTrash(path);
}

} // namespace orvanta::platform::desktop
