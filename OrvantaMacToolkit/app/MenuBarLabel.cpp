#include "app/MenuBarLabel.h"

#include "support/TextRules.h"

namespace orvanta {

QString MenuBarLabel::shortenedTitle(const QString& title) {
    if (text::graphemeCount(title) <= maxTitleCharacters)
        return text::withVisibleControls(title);
    return text::withVisibleControls(text::graphemePrefix(title, maxTitleCharacters - 1)) + QChar(0x2026);
}

platform::StatusItemLabel MenuBarLabel::content(bool axTrusted, const DetectorStatus& status) {
    const QString appName = QStringLiteral("Orvanta Mac Toolkit");
    if (!axTrusted)
        return {QString(), warningSymbol, appName};
    if (status.kind() != DetectorStatus::Kind::sessions)
        return {QString(), idleSymbol, appName};

    const QList<SessionInfo>& sessions = status.sessions();
    QString text = QString::number(sessions.size()) + QChar(0x25CF);
    for (const SessionInfo& session : sessions) {
        if (session.title) {
            text += QLatin1Char(' ') + shortenedTitle(*session.title);
            break;
        }
    }
    return {text, idleSymbol, text, int(sessions.size())};
}

} // namespace orvanta
