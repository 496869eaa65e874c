#pragma once

// A scripts folder whose Trace Route script copies a prepared text file (50 MB unless told) to its output
// as fast as the pipe takes it: the heaviest output a runner and the window can be given.

#include "diagnostics/ScriptCatalog.h"

#include <QFile>
#include <QTemporaryDir>

#include <algorithm>

struct FloodScript {
    const qint64 bytes;
    QTemporaryDir dir;

    explicit FloodScript(qint64 megabytes = 50) : bytes(megabytes * 1024 * 1024) {
        const QString textPath = dir.filePath(QStringLiteral("flood.txt"));
        QFile text(textPath);
        text.open(QIODevice::WriteOnly);
        QByteArray block; // numbered lines of 100 bytes, about 1 MB
        for (int i = 0; block.size() < 1024 * 1024; ++i)
            block += QByteArray::number(i).rightJustified(8, '0') + ' ' + QByteArray(90, 'x') + '\n';
        for (qint64 written = 0; written < bytes; written += block.size())
            text.write(block.left(std::min<qint64>(block.size(), bytes - written)));
        text.close();
        QFile script(dir.filePath(orvanta::ScriptCatalog(orvanta::ScriptCatalog::traceRoute).fileName()));
        script.open(QIODevice::WriteOnly);
        script.write("exec cat '" + textPath.toUtf8() + "'\n");
        script.close();
        script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
};
