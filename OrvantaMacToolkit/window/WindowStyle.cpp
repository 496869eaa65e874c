#include "window/WindowStyle.h"

#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QSvgRenderer>

namespace orvanta::window {

const QColor& brandBlue() {
    static const QColor color = QColor::fromRgbF(25 / 255.0f, 114 / 255.0f, 245 / 255.0f, 1.0f);
    return color;
}

QColor secondaryTextColor(const QPalette& palette) {
    QColor color = palette.color(QPalette::WindowText);
    color.setAlphaF(0.55f);
    return color;
}

QColor panelColor(const QPalette& palette, PanelBackground background) {
    if (background == PanelBackground::text)
        return palette.color(QPalette::Base);
    const QColor window = palette.color(QPalette::Window);
    return window.lightness() > 128 ? window.darker(104) : window.lighter(118);
}

QLabel* makeHeading(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    QFont font = label->font();
    font.setWeight(QFont::DemiBold);
    font.setPointSizeF(font.pointSizeF() * 1.08);
    label->setFont(font);
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, brandBlue());
    label->setPalette(palette);
    return label;
}

QFont titleFont(const QFont& base) {
    QFont font = base;
    font.setPointSizeF(base.pointSizeF() * 1.55);
    font.setWeight(QFont::DemiBold);
    return font;
}

QFont captionFont(const QFont& base) {
    QFont font = base;
    font.setPointSizeF(base.pointSizeF() * 0.85);
    return font;
}

QPixmap renderSvg(const QString& path, qreal height, qreal ratio, std::optional<QColor> tint) {
    QSvgRenderer svg(path);
    const QSizeF natural = svg.defaultSize().isEmpty() ? QSizeF(height, height) : QSizeF(svg.defaultSize());
    const QSizeF size(natural.width() * height / natural.height(), height);
    QPixmap pixmap((size * ratio).toSize());
    pixmap.setDevicePixelRatio(ratio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    svg.render(&painter, QRectF(QPointF(), size));
    if (tint) {
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        painter.fillRect(QRectF(QPointF(), size), *tint);
    }
    return pixmap;
}

InsetPanel::InsetPanel(PanelBackground background, QWidget* parent)
    : QFrame(parent), m_background(background) {
    setFrameShape(QFrame::NoFrame);
}

void InsetPanel::paintEvent(QPaintEvent* event) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath path;
    path.addRoundedRect(QRectF(rect()), 6, 6);
    painter.fillPath(path, panelColor(palette(), m_background));
    QFrame::paintEvent(event);
}

} // namespace orvanta::window
