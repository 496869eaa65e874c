#include "app/MenuBarContent.h"

#include "support/TextRules.h"

#include <QAction>
#include <QKeySequence>
#include <QMenu>

namespace orvanta {

namespace {

// A session title is shown as it was detected. In an action text "&" would mark a mnemonic, a tab would
// start the shortcut column and a line feed a second line, so controls are shown as symbols.
QString literalActionText(const QString& text) {
    return text::withVisibleControls(text).replace(QLatin1Char('&'), QStringLiteral("&&"));
}

} // namespace

QList<MenuRow> MenuBarContent::sessionSection(const DetectorStatus& status) {
    using Kind = DetectorStatus::Kind;
    switch (status.kind()) {
    case Kind::needsAXPermission:
    case Kind::needsAEPermission:
        return {{MenuRow::Kind::information, QStringLiteral("Permissions required")}};
    case Kind::appNotRunning:
        return {{MenuRow::Kind::information, QStringLiteral("Windows App not running")}};
    case Kind::noActiveSession:
        return {{MenuRow::Kind::information, QStringLiteral("No active sessions")}};
    case Kind::sessions:
        break;
    }
    const QList<SessionInfo>& sessions = status.sessions();
    QList<MenuRow> rows;
    rows.reserve(sessions.size() + 1);
    rows.append({MenuRow::Kind::information,
                 QStringLiteral("Active Sessions (") + QString::number(sessions.size()) + QLatin1Char(')')});
    for (qsizetype i = 0; i < sessions.size(); ++i)
        rows.append({MenuRow::Kind::session, sessions[i].title.value_or(backgroundSessionTitle), i});
    return rows;
}

MenuBarContent::MenuBarContent(QMenu* menu, Actions actions, QObject* parent)
    : QObject(parent), m_menu(menu), m_actions(std::move(actions)) {}

void MenuBarContent::rebuild(const DetectorStatus& status) {
    m_menu->clear();
    const QList<SessionInfo> sessions = status.sessions();
    for (const MenuRow& row : sessionSection(status)) {
        QAction* action = m_menu->addAction(literalActionText(row.text));
        if (row.kind == MenuRow::Kind::information) {
            action->setEnabled(false);
            continue;
        }
        const SessionInfo session = sessions[row.sessionIndex];
        connect(action, &QAction::triggered, this, [this, session] {
            if (m_actions.focus)
                m_actions.focus(session);
        });
    }
    m_menu->addSeparator();
    QAction* open = m_menu->addAction(openToolkitWindowText);
    connect(open, &QAction::triggered, this, [this] {
        if (m_actions.openToolkitWindow)
            m_actions.openToolkitWindow();
    });
    QAction* quit = m_menu->addAction(quitText);
    quit->setShortcut(QKeySequence::Quit);
    connect(quit, &QAction::triggered, this, [this] {
        if (m_actions.quit)
            m_actions.quit();
    });
    // Qt's Cocoa plugin moves actions with a role, or whose text looks like "Quit", "About" or "Preferences",
    // into the application menu, which an application that lives in the menu bar never shows.
    for (QAction* action : m_menu->actions())
        action->setMenuRole(QAction::NoRole);
}

} // namespace orvanta
