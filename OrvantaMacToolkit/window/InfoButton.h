#pragma once

#include <QUrl>
#include <QWidget>

#include <functional>

class QToolButton;
class QLabel;

namespace orvanta::window {

// The small information icon beside a control: its description on hover and, when a help address is
// known, a click that opens it.
class InfoButton : public QWidget {
    Q_OBJECT
public:
    InfoButton(const QString& helpArticle, const QString& description, std::function<void(const QUrl&)> open,
               QWidget* parent = nullptr);

    // The address a click opens; empty when the icon only describes.
    QUrl url() const { return m_url; }
    QToolButton* button() const { return m_button; }

private:
    QUrl m_url;
    QToolButton* m_button = nullptr;
};

} // namespace orvanta::window
