#pragma once

#include "SimulatedDesktop.h"

#include <QByteArray>
#include <QFileSystemWatcher>
#include <QObject>
#include <QString>
#include <QTimer>

#include <variant>

namespace orvanta::platform {

// A world for the simulated desktop, or the reason there is none: "<file>:<line>: <what is wrong>".
using WorldOrError = std::variant<SimWorld, QString>;

// World files are small; anything larger is a mistake, not a world.
inline constexpr qint64 maximumWorldFileSize = 32 * 1024 * 1024;

// Reads a world from JSON text. Numbers written with a fraction or an exponent become floating point, the
// others integers: 32-bit when they fit, else signed 64-bit, else unsigned 64-bit; larger ones are errors.
// Every key is optional; an unknown or repeated key is an error, so that a misspelt key is not silently
// ignored. Time and memory grow linearly with the text's size.
WorldOrError parseWorld(const QByteArray& json, const QString& fileName);

// The content of a world file, or "<file>: cannot read the world file: <why>" when it cannot be read, is not
// a regular file (a folder, a named pipe, a device) or is larger than maximumWorldFileSize. Never blocks.
std::variant<QByteArray, QString> readWorldFile(const QString& path);
WorldOrError loadWorldFile(const QString& path);

// Keeps a simulated desktop in step with a world file: re-reads it whenever it changes (also when an editor
// replaces it) and installs the new world. A file that cannot be read leaves the previous world in place and
// is reported through reloadFailed.
class WorldFileWatcher : public QObject {
    Q_OBJECT
public:
    WorldFileWatcher(QString path, SimulatedDesktop& desktop, QObject* parent = nullptr);

    // Remembers the file's current content as the one already installed.
    void setInstalledContent(const QByteArray& content) { m_installed = content; }

Q_SIGNALS:
    void reloaded();
    void reloadFailed(const QString& message);

private:
    void watch();
    void reload();

    QString m_path;
    SimulatedDesktop& m_desktop;
    QFileSystemWatcher m_watcher;
    QTimer m_settle; // editors write in several steps; read once they are done
    QByteArray m_installed;
};

} // namespace orvanta::platform
