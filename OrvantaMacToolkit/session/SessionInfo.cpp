#include "SessionInfo.h"

#include "support/TextRules.h"

#include <QHash>

#include <algorithm>

namespace orvanta {

namespace {
constexpr std::pair<SessionInfo::Source, const char*> sourceNames[] = {
    {SessionInfo::Source::axNamed, "axNamed"},
    {SessionInfo::Source::appleScript, "appleScript"},
    {SessionInfo::Source::axUnnamed, "axUnnamed"},
    {SessionInfo::Source::cgHidden, "cgHidden"},
};
} // namespace

QString SessionInfo::rawValue(Source source) {
    for (const auto& [value, name] : sourceNames)
        if (value == source)
            return QString::fromLatin1(name);
    Q_UNREACHABLE();
}

bool operator==(const SessionInfo& a, const SessionInfo& b) {
    if (a.source != b.source || a.title.has_value() != b.title.has_value())
        return false;
    return !a.title || text::canonicallyEqual(*a.title, *b.title);
}

size_t qHash(SessionInfo::Source source, size_t seed) {
    return qHash(SessionInfo::rawValue(source), seed);
}

DetectorStatus DetectorStatus::withSessions(QList<SessionInfo> sessions) {
    DetectorStatus status(Kind::sessions);
    status.m_sessions = std::move(sessions);
    return status;
}

QString DetectorStatus::caseName(Kind kind) {
    switch (kind) {
    case Kind::sessions:
        return QStringLiteral("sessions");
    case Kind::needsAXPermission:
        return QStringLiteral("needsAXPermission");
    case Kind::needsAEPermission:
        return QStringLiteral("needsAEPermission");
    case Kind::appNotRunning:
        return QStringLiteral("appNotRunning");
    case Kind::noActiveSession:
        return QStringLiteral("noActiveSession");
    }
    Q_UNREACHABLE();
}

bool operator==(const DetectorStatus& a, const DetectorStatus& b) {
    // QList equality compares length first, then entry by entry in order.
    return a.m_kind == b.m_kind && a.m_sessions == b.m_sessions;
}

qsizetype namedCount(const QList<SessionInfo>& sessions) {
    return std::count_if(sessions.cbegin(), sessions.cend(),
                         [](const SessionInfo& s) { return s.title.has_value(); });
}

qsizetype unnamedCount(const QList<SessionInfo>& sessions) {
    return sessions.size() - namedCount(sessions);
}

} // namespace orvanta
