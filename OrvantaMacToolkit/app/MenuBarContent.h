#pragma once

#include "session/SessionInfo.h"

#include <QList>
#include <QObject>
#include <QString>

#include <functional>

class QMenu;

namespace orvanta {

// One entry of the menu's session section: an information row that cannot be chosen, or the item of the
// session at `sessionIndex` of the status's list.
struct MenuRow {
    enum class Kind { information, session };
    Kind kind = Kind::information;
    QString text;
    qsizetype sessionIndex = -1;

    bool operator==(const MenuRow&) const = default;
};

// The pull-down menu of the menu-bar item: the session section, a separator, "Open Toolkit Window" and
// "Quit". It keeps no state; `rebuild` replaces every entry from the status given.
class MenuBarContent : public QObject {
    Q_OBJECT
public:
    static inline const QString backgroundSessionTitle = QStringLiteral("Background session");
    static inline const QString openToolkitWindowText = QStringLiteral("Open Toolkit Window");
    static inline const QString quitText = QStringLiteral("Quit");

    struct Actions {
        std::function<void(const SessionInfo&)> focus;
        std::function<void()> openToolkitWindow;
        std::function<void()> quit;
    };

    static QList<MenuRow> sessionSection(const DetectorStatus& status);

    MenuBarContent(QMenu* menu, Actions actions, QObject* parent = nullptr);

    QMenu* menu() const { return m_menu; }
    void rebuild(const DetectorStatus& status);

private:
    QMenu* m_menu;
    Actions m_actions;
};

} // namespace orvanta
