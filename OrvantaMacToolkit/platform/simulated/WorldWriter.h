#pragma once

// The other direction of WorldFile.h: what the platform shows, as a world, and a world as world-file text.

#include "SimulatedDesktop.h"

#include <QByteArray>
#include <QString>

#include <optional>

namespace orvanta::platform {

// Asks the ports everything one detection pass asks, for every running instance of the client: trust, the
// Apple Events status for System Events, this process's identifier, the clock, the instances, each one's
// Accessibility windows (whoever owns them) with every attribute the scan reads, value or error, the System
// Events answer (only where a pass would ask for it) and the client's entries of the window server's list,
// each kept whole. Nothing else of another application is kept.
SimWorld recordWorld(const Platform& platform);

// World-file text that parseWorld reads back into a world that answers every port the same way; every text
// survives, one UTF-8 cannot carry as {"$utf16": [...]}.
QByteArray worldFileText(const SimWorld& world);

// Writes the world to `path` through a temporary file, so that a failed write leaves nothing behind.
// The error reads "<file>: cannot write the recording: <why>".
std::optional<QString> saveWorldFile(const QString& path, const SimWorld& world);

} // namespace orvanta::platform
