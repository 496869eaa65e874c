#pragma once

#include "platform/MenuBarItem.h"

#include <QColor>
#include <QIcon>
#include <QPixmap>

class QSystemTrayIcon;

namespace orvanta::platform {

// The menu-bar item on desktops with a system tray.
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
    // The label drawn `logicalHeight` points high at `devicePixelRatio`, in one colour.
    static QPixmap renderLabel(const StatusItemLabel& label, int logicalHeight, qreal devicePixelRatio,
                               const QColor& color);

private:
    QSystemTrayIcon* m_tray;
};

} // namespace orvanta::platform
