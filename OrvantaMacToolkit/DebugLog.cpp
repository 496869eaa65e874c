#include "DebugLog.h"

#include <QDir>

namespace orvanta {

DebugLog::DebugLog(int maxLines, QString diskPath)
    : m_maxLines(maxLines), m_diskPath(std::move(diskPath)), m_queue(queueLabel) {}

DebugLog::~DebugLog() {
    m_queue.drain();
}

void DebugLog::append(QStringList batch) {
    if (batch.isEmpty())
        return;
    m_queue.async([this, batch = std::move(batch)] {
        m_buffer.append(batch);
        const qsizetype excess = m_buffer.size() - qMax(m_maxLines, 0);
        if (excess > 0)
            m_buffer.remove(0, excess);
        if (m_echo)
            m_echo(batch);
    });
}

const QString& DebugLog::defaultDirectory() {
    static const QString directory =
        QDir(QDir::homePath()).filePath(QStringLiteral(".cache/orvanta_session_tracker"));
    return directory;
}

const QString& DebugLog::defaultPath() {
    static const QString path = QDir(defaultDirectory()).filePath(QStringLiteral("debug.log"));
    return path;
}

QStringList DebugLog::snapshot() const {
    QStringList copy;
    m_queue.sync([&] { copy = m_buffer; });
    return copy;
}

void DebugLog::setEcho(std::function<void(const QStringList&)> echo) {
    m_queue.async([this, echo = std::move(echo)] { m_echo = echo; });
}

} // namespace orvanta
