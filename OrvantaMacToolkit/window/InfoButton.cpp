#include "window/InfoButton.h"

#include "window/WindowStyle.h"

#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QToolButton>

namespace orvanta::window {

namespace {

constexpr int iconSize = 14;

} // namespace

InfoButton::InfoButton(const QString& helpArticle, const QString& description,
                       std::function<void(const QUrl&)> open, QWidget* parent)
    : QWidget(parent) {
    const QUrl url(helpArticle, QUrl::StrictMode);
    if (!helpArticle.isEmpty() && url.isValid() && !url.scheme().isEmpty())
        m_url = url;

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    const QPixmap pixmap = renderSvg(QStringLiteral(":/icons/info.circle.svg"), iconSize, devicePixelRatioF(),
                                     secondaryTextColor(palette()));
    setToolTip(description);
    if (m_url.isEmpty()) {
        auto* label = new QLabel(this);
        label->setPixmap(pixmap);
        label->setToolTip(description);
        layout->addWidget(label);
        m_control = label;
    } else {
        m_button = new QToolButton(this);
        m_control = m_button;
        m_button->setAutoRaise(true);
        m_button->setIcon(QIcon(pixmap));
        m_button->setIconSize(QSize(iconSize, iconSize));
        m_button->setToolTip(description);
        m_button->setCursor(Qt::PointingHandCursor);
        layout->addWidget(m_button);
        connect(m_button, &QToolButton::clicked, this, [this, open = std::move(open)] {
            if (open)
                open(m_url);
        });
    }
    m_control->setAccessibleName(QStringLiteral("Information"));
    m_control->setAccessibleDescription(description);
}

void InfoButton::setSubject(const QString& subject) {
    m_control->setAccessibleName(QStringLiteral("About ") + subject);
}

} // namespace orvanta::window
