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

    // Names the icon for assistive technology after what it tells about ("About Trace Route").
    void setSubject(const QString& subject);

    // The address a click opens; empty when the icon only describes.
    QUrl url() const { return m_url; }
    QToolButton* button() const { return m_button; }
    // The icon itself: the button, or the plain icon when there is no address.
    QWidget* control() const { return m_control; }

private:
    QWidget* m_control = nullptr;
    QUrl m_url;
    QToolButton* m_button = nullptr;
};

} // namespace orvanta::window
