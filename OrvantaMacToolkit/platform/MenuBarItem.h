#pragma once

#include <QObject>
#include <QString>

#include <memory>

class QMenu;

namespace orvanta::platform {

// What the menu-bar item shows: either `text`, or, when `text` is empty, the icon named `symbol`
// (an SF Symbol name; the bundled SVG of the same name elsewhere). `toolTip` describes the label in words:
// the tray's tooltip, the macOS icon's accessibility description. An item that can show only a square icon
// shows `symbol` even beside a text, badged with `sessionCount`, the count the text begins with (0 without
// sessions).
struct StatusItemLabel {
    QString text;
    QString symbol;
    QString toolTip;
    int sessionCount = 0;

    bool operator==(const StatusItemLabel&) const = default;
};

// The item in the menu bar (macOS) or the tray (other desktops). The menu is owned by the caller and
// rebuilt in place; the item only shows it when clicked.
class MenuBarItem : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    ~MenuBarItem() override = default;

    virtual void setLabel(const StatusItemLabel& label) = 0;
    virtual void setMenu(QMenu* menu) = 0;
    virtual void show() = 0;
};

// The platform's item, or nullptr where the platform has no menu bar or tray to put one in (also under Qt's
// headless platform plugins, such as "offscreen"). The caller is its only owner.
std::unique_ptr<MenuBarItem> createMenuBarItem();

} // namespace orvanta::platform
