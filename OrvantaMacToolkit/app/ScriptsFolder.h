#pragma once

#include <QString>
#include <QStringList>

namespace orvanta {

// The folders searched for the diagnostic scripts, best first: inside the application bundle on macOS;
// elsewhere the installed data folder beside the binary, the user's and the system's data folders, and
// finally the source tree the binary was built from.
QStringList scriptsFolderCandidates(const QString& applicationDir);
// The first candidate that holds a scripts folder, or the first candidate when none does (the runners then
// report the missing script when one is started).
QString scriptsFolder(const QString& applicationDir);

} // namespace orvanta
