#pragma once

#include "support/SerialQueue.h"

#include <QString>
#include <QStringList>

#include <functional>

namespace orvanta {

// Gathers the lines of one detection pass. Belongs to one pass on one thread.
class DebugCollector {
public:
    void log(const QString& line) { lines.append(line); }

    QStringList lines;
};

// The last `maxLines` lines of all detection passes, kept in memory only. Appends return at once and are
// applied in call order on the log's own serial queue.
class DebugLog {
public:
    static inline const QString queueLabel = QStringLiteral("com.orvanta.mactoolkit.debug-log");

    DebugLog(int maxLines, QString diskPath);
    // Lets every append handed in so far run first.
    ~DebugLog();

    DebugLog(const DebugLog&) = delete;
    DebugLog& operator=(const DebugLog&) = delete;

    void append(QStringList batch);

    int maxLines() const { return m_maxLines; }
    // Where a log file would go. Nothing reads, writes or creates it: the log lives only in memory.
    const QString& diskPath() const { return m_diskPath; }

    static const QString& defaultDirectory();
    static const QString& defaultPath();

    // The retained lines, oldest first, once every earlier append has run. For inspection only.
    QStringList snapshot() const;
    // Called on the log's queue with each batch after it is stored; --verbose echoes batches with it.
    void setEcho(std::function<void(const QStringList&)> echo);

private:
    const int m_maxLines;
    const QString m_diskPath;
    QStringList m_buffer;                           // touched only on m_queue
    std::function<void(const QStringList&)> m_echo; // touched only on m_queue
    mutable SerialQueue m_queue;                    // last, so it stops before the state it guards goes
};

} // namespace orvanta
