#include "platform/desktop/TrayMenuBarItem.h"

#include <QCursor>
#include <QFontMetricsF>
#include <QGuiApplication>
#include <QMenu>
#include <QPainter>
#include <QPalette>
#include <QScreen>
#include <QSvgRenderer>
#include <QSystemTrayIcon>

namespace orvanta::platform {

namespace {

constexpr int trayHeight = 22;

QColor labelColor() {
    return QGuiApplication::palette().color(QPalette::WindowText);
}

qreal screenRatio() {
    const QScreen* screen = QGuiApplication::primaryScreen();
    return screen ? screen->devicePixelRatio() : 1.0;
}

} // namespace

TrayMenuBarItem::TrayMenuBarItem(QObject* parent) : MenuBarItem(parent), m_tray(new QSystemTrayIcon(this)) {
    // Like the menu bar on macOS, a plain click opens the menu; trays show it by themselves only on a
    // right click.
    connect(m_tray, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger && m_tray->contextMenu())
            m_tray->contextMenu()->popup(QCursor::pos());
    });
}

TrayMenuBarItem::~TrayMenuBarItem() = default;

QString TrayMenuBarItem::symbolPath(const QString& symbol) {
    return QStringLiteral(":/icons/") + symbol + QStringLiteral(".svg");
}

QPixmap TrayMenuBarItem::renderLabel(const StatusItemLabel& label, int logicalHeight, qreal devicePixelRatio,
                                     const QColor& color) {
    const qreal ratio = devicePixelRatio > 0 ? devicePixelRatio : 1.0;
    QFont font = QGuiApplication::font();
    font.setPixelSize(qRound(logicalHeight * 0.62));
    font.setWeight(QFont::DemiBold);

    qreal logicalWidth = logicalHeight;
    if (!label.text.isEmpty())
        logicalWidth = std::max<qreal>(logicalHeight, QFontMetricsF(font).horizontalAdvance(label.text) + 4);

    QPixmap pixmap(QSize(qCeil(logicalWidth * ratio), qCeil(logicalHeight * ratio)));
    pixmap.setDevicePixelRatio(ratio);
    pixmap.fill(Qt::transparent);

    QPainter painter(&pixmap);
    painter.setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing);
    const QRectF bounds(0, 0, logicalWidth, logicalHeight);
    if (label.text.isEmpty()) {
        QSvgRenderer svg(symbolPath(label.symbol));
        svg.render(&painter, bounds.adjusted(2, 2, -2, -2));
        // Recolour whatever the icon drew, so the tray shows it in the label's single colour.
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        painter.fillRect(bounds, color);
    } else {
        painter.setFont(font);
        painter.setPen(color);
        painter.drawText(bounds, Qt::AlignCenter, label.text);
    }
    return pixmap;
}

void TrayMenuBarItem::setLabel(const StatusItemLabel& label) {
    QIcon icon;
    for (qreal ratio : {1.0, 2.0, screenRatio()})
        icon.addPixmap(renderLabel(label, trayHeight, ratio, labelColor()));
    icon.setIsMask(true);
    m_tray->setIcon(icon);
    m_tray->setToolTip(label.toolTip);
}

void TrayMenuBarItem::setMenu(QMenu* menu) {
    m_tray->setContextMenu(menu);
}

void TrayMenuBarItem::show() {
    m_tray->show();
}

QIcon TrayMenuBarItem::icon() const {
    return m_tray->icon();
}

QString TrayMenuBarItem::toolTip() const {
    return m_tray->toolTip();
}

#ifndef Q_OS_MACOS
std::unique_ptr<MenuBarItem> createMenuBarItem() {
    if (!QSystemTrayIcon::isSystemTrayAvailable())
        return nullptr;
    return std::make_unique<TrayMenuBarItem>();
}
#endif

} // namespace orvanta::platform
