#pragma once

#include <QList>
#include <QMetaType>
#include <QString>

#include <optional>

namespace orvanta {

// The watched remote-desktop client.
inline const QString windowsAppBundleID = QStringLiteral("com.microsoft.rdc.macos");
inline const QString windowsAppProcessName = QStringLiteral("Windows App");

// One open remote-desktop session: a window of the client that detection accepted.
struct SessionInfo {
    enum class Source { axNamed, appleScript, axUnnamed, cgHidden };

    std::optional<QString> title; // present only for sessions found by name; never empty then
    Source source = Source::axNamed;

    static QString rawValue(Source source);

    // Titles compare by canonical equivalence; an absent title equals only an absent one.
    friend bool operator==(const SessionInfo& a, const SessionInfo& b);
};

size_t qHash(SessionInfo::Source source, size_t seed = 0);

// The outcome of one detection pass.
class DetectorStatus {
public:
    enum class Kind { sessions, needsAXPermission, needsAEPermission, appNotRunning, noActiveSession };

    DetectorStatus() = default; // appNotRunning, the state before the first pass
    static DetectorStatus withSessions(QList<SessionInfo> sessions);
    static DetectorStatus needsAXPermission() { return DetectorStatus(Kind::needsAXPermission); }
    static DetectorStatus needsAEPermission() { return DetectorStatus(Kind::needsAEPermission); }
    static DetectorStatus appNotRunning() { return DetectorStatus(Kind::appNotRunning); }
    static DetectorStatus noActiveSession() { return DetectorStatus(Kind::noActiveSession); }

    Kind kind() const { return m_kind; }
    // The session list; empty unless kind() is sessions.
    const QList<SessionInfo>& sessions() const { return m_sessions; }

    static QString caseName(Kind kind);
    QString caseName() const { return caseName(m_kind); }

    // Same case, and for sessions the same entries in the same order.
    friend bool operator==(const DetectorStatus& a, const DetectorStatus& b);

private:
    explicit DetectorStatus(Kind kind) : m_kind(kind) {}

    Kind m_kind = Kind::appNotRunning;
    QList<SessionInfo> m_sessions;
};

// How many entries of a session list have a title, and how many have none.
qsizetype namedCount(const QList<SessionInfo>& sessions);
qsizetype unnamedCount(const QList<SessionInfo>& sessions);

} // namespace orvanta

Q_DECLARE_METATYPE(orvanta::DetectorStatus)
