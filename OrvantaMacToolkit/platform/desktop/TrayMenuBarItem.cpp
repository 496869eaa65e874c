#include "platform/desktop/TrayMenuBarItem.h"

#include <QCursor>
#include <QFont>
#include <QFontMetricsF>
#include <QGuiApplication>
#include <QImage>
#include <QMenu>
#include <QPainter>
#include <QPainterPath>
#include <QScreen>
#include <QSvgRenderer>
#include <QSystemTrayIcon>

#include <cmath>

namespace orvanta::platform {

namespace {

// The sizes a tray may ask for, in pixels; each is drawn at its own size so that it stays sharp.
constexpr int iconSizes[] = {16, 18, 20, 22, 24, 32, 44, 48, 64};

// The tray's background is the panel's, light or dark, and unknown here: a light glyph with a dark rim
// stands out from both.
const QColor glyphColor(244, 244, 244);
const QColor rimColor(0, 0, 0, 210);
const QColor warningColor(255, 159, 10);
const QColor badgeColor(25, 114, 245);
const QString warningSymbol = QStringLiteral("exclamationmark.triangle.fill");

qreal screenRatio() {
    const QScreen* screen = QGuiApplication::primaryScreen();
    return screen ? screen->devicePixelRatio() : 1.0;
}

// `mask` (only its alpha counts) in `color`.
QImage tinted(const QImage& mask, const QColor& color) {
    QImage image = mask;
    QPainter painter(&image);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(image.rect(), color);
    return image;
}

// `mask` grown by `radius` pixels in every direction, in `color`: the rim drawn under a glyph. It also
// fills the glyph's narrow cut-outs, such as the warning's exclamation mark, so they read on any panel.
QImage rim(const QImage& mask, int radius, const QColor& color) {
    QImage grown(mask.size(), QImage::Format_ARGB32_Premultiplied);
    grown.fill(Qt::transparent);
    QPainter painter(&grown);
    for (int dy = -radius; dy <= radius; ++dy) {
        for (int dx = -radius; dx <= radius; ++dx) {
            if (dx * dx + dy * dy <= radius * radius + radius)
                painter.drawImage(QPoint(dx, dy), mask);
        }
    }
    painter.end();
    return tinted(grown, color);
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

QString TrayMenuBarItem::badgeText(int sessionCount) {
    if (sessionCount <= 0)
        return {};
    // Two digits would be too small to read in a badge this size; the tooltip has the exact count.
    return sessionCount > 9 ? QStringLiteral("9+") : QString::number(sessionCount);
}

QPixmap TrayMenuBarItem::renderLabel(const StatusItemLabel& label, int logicalSize, qreal devicePixelRatio) {
    const qreal ratio = devicePixelRatio > 0 ? devicePixelRatio : 1.0;
    const int size = qMax(1, qRound(logicalSize * ratio));
    const int rimWidth = qMax(1, qRound(ratio));

    const QString badge = badgeText(label.sessionCount);
    QImage mask(size, size, QImage::Format_ARGB32_Premultiplied);
    mask.fill(Qt::transparent);
    {
        QPainter painter(&mask);
        painter.setRenderHint(QPainter::Antialiasing);
        QSvgRenderer svg(symbolPath(label.symbol));
        // A badged glyph moves up and left, so that the badge leaves enough of it to be recognised.
        const qreal inset = rimWidth;
        const qreal side = (size - 2 * inset) * (badge.isEmpty() ? 1.0 : 0.84);
        svg.render(&painter, QRectF(inset, inset, side, side));
    }

    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing);
    painter.drawImage(0, 0, rim(mask, rimWidth, rimColor));
    painter.drawImage(0, 0, tinted(mask, label.symbol == warningSymbol ? warningColor : glyphColor));

    if (!badge.isEmpty()) {
        QFont font = QGuiApplication::font();
        font.setPixelSize(qMax(6, qRound(size * 0.45)));
        font.setBold(true);
        const QFontMetricsF metrics(font);
        const qreal height = std::round(size * 0.6);
        const qreal width = qMax(height, metrics.horizontalAdvance(badge) + height * 0.35);
        const QRectF pill(size - width, size - height, width, height);
        QPainterPath path;
        path.addRoundedRect(pill, height / 2, height / 2);
        // The rim separates the badge from the glyph it covers.
        painter.setPen(QPen(rimColor, rimWidth * 2));
        painter.setBrush(badgeColor);
        painter.drawPath(path);
        painter.setPen(Qt::NoPen);
        painter.drawPath(path);
        painter.setFont(font);
        painter.setPen(Qt::white);
        painter.drawText(pill, Qt::AlignCenter, badge);
    }
    painter.end();

    QPixmap pixmap = QPixmap::fromImage(image);
    pixmap.setDevicePixelRatio(ratio);
    return pixmap;
}

void TrayMenuBarItem::setLabel(const StatusItemLabel& label) {
    QIcon icon;
    for (int size : iconSizes)
        icon.addPixmap(renderLabel(label, size, 1.0));
    if (const qreal ratio = screenRatio(); ratio != 1.0)
        icon.addPixmap(renderLabel(label, 22, ratio));
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
