#pragma once

#include <QColor>
#include <QFrame>
#include <QPalette>
#include <QPixmap>

#include <optional>

class QLabel;

namespace orvanta::window {

// The blue of the product's headings and title.
const QColor& brandBlue();
// Text that matters less: time stamps, placeholders, the version.
QColor secondaryTextColor(const QPalette& palette);

enum class PanelBackground { control, text };
QColor panelColor(const QPalette& palette, PanelBackground background);

// A section heading: headline weight, brand blue.
QLabel* makeHeading(const QString& text, QWidget* parent = nullptr);
// The window's title style (larger than a heading) and its small caption style.
QFont titleFont(const QFont& base);
QFont captionFont(const QFont& base);

// A bundled SVG drawn `height` points high (its width from its aspect ratio) at `ratio`, in the single
// colour `tint` when one is given.
QPixmap renderSvg(const QString& path, qreal height, qreal ratio, std::optional<QColor> tint = {});

// A rounded, filled panel that its content is inset into.
class InsetPanel : public QFrame {
    Q_OBJECT
public:
    explicit InsetPanel(PanelBackground background, QWidget* parent = nullptr);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    PanelBackground m_background;
};

} // namespace orvanta::window
