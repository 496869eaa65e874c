#pragma once

#include "platform/MenuBarItem.h"

#include <QColor>
#include <QIcon>
#include <QPixmap>

class QSystemTrayIcon;

namespace orvanta::platform {

// The menu-bar item on desktops with a system tray. A tray shows only a square icon, so the label becomes
// its symbol, badged with the session count while sessions are open, with the label's full text as the
// tooltip. The icon is drawn to be seen on light and dark panels alike.
class TrayMenuBarItem : public MenuBarItem {
    Q_OBJECT
public:
    explicit TrayMenuBarItem(QObject* parent = nullptr);
    ~TrayMenuBarItem() override;

    void setLabel(const StatusItemLabel& label) override;
    void setMenu(QMenu* menu) override;
    void show() override;

    QIcon icon() const;
    QString toolTip() const;

    // The bundled icon of an SF Symbol name.
    static QString symbolPath(const QString& symbol);
    // The label as a square icon `logicalSize` points wide at `devicePixelRatio`.
    static QPixmap renderLabel(const StatusItemLabel& label, int logicalSize, qreal devicePixelRatio);
    // What the badge reads for `sessionCount` sessions; empty for none.
    static QString badgeText(int sessionCount);

private:
    QSystemTrayIcon* m_tray;
};

} // namespace orvanta::platform
