#pragma once

#include "platform/MenuBarItem.h"
#include "session/SessionInfo.h"

#include <QString>

namespace orvanta {

// What the menu bar shows: a warning while Accessibility trust is missing, the session count and the first
// named title while sessions are open, a plain window icon otherwise.
struct MenuBarLabel {
    static inline const QString warningSymbol = QStringLiteral("exclamationmark.triangle.fill");
    static inline const QString idleSymbol = QStringLiteral("macwindow");
    static constexpr qsizetype maxTitleCharacters = 16;

    static platform::StatusItemLabel content(bool axTrusted, const DetectorStatus& status);
    // The title whole when it has at most 16 user-perceived characters, else its first 15 and "…"; its
    // control characters shown as symbols.
    static QString shortenedTitle(const QString& title);
};

} // namespace orvanta
