#pragma once

#include <QColor>
#include <QFrame>
#include <QPalette>

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
