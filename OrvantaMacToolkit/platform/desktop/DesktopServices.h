#pragma once

#include <QString>
#include <QUrl>

// The parts of the workspace that a Linux or other Qt desktop really has.
namespace orvanta::platform::desktop {

// Hands the URL to the desktop's default application for it.
bool openWithDefaultApplication(const QUrl& url);
// Moves the file or folder to the user's Trash (the freedesktop trash on Linux); false, with the file left
// where it was, when that cannot be done.
bool moveToTrash(const QString& path);

} // namespace orvanta::platform::desktop
