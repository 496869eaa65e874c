#include "window/OutputLogView.h"

#include "window/WindowStyle.h"

#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QTextCursor>
#include <QVBoxLayout>

namespace orvanta::window {

OutputLogView::OutputLogView(QWidget* parent)
    : QWidget(parent), m_cancel(new QPushButton(QStringLiteral("Cancel"), this)), m_log(new QPlainTextEdit) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);

    auto* header = new QHBoxLayout;
    header->addWidget(makeHeading(QStringLiteral("Output"), this));
    header->addStretch(1);
    m_cancel->setToolTip(QStringLiteral("Stop the currently running diagnostic."));
    // Stopping a run is destructive: say so to assistive technology the way a destructive button would.
    m_cancel->setAccessibleDescription(QStringLiteral("Destructive action"));
    m_cancel->setVisible(false);
    header->addWidget(m_cancel);
    layout->addLayout(header);
    connect(m_cancel, &QPushButton::clicked, this, &OutputLogView::cancelRequested);

    auto* panel = new InsetPanel(PanelBackground::text, this);
    panel->setFixedHeight(104);
    auto* panelLayout = new QVBoxLayout(panel);
    panelLayout->setContentsMargins(0, 0, 0, 0);
    m_log->setParent(panel);
    m_log->setReadOnly(true);
    m_log->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    m_log->setFrameShape(QFrame::NoFrame);
    m_log->setLineWrapMode(QPlainTextEdit::WidgetWidth);
    m_log->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    m_log->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_log->document()->setDocumentMargin(8);
    m_log->viewport()->setAutoFillBackground(false);
    m_log->setUndoRedoEnabled(false);
    panelLayout->addWidget(m_log);
    layout->addWidget(panel);

    showLog(QString());
}

void OutputLogView::setPlaceholderShown(bool shown) {
    if (shown == m_placeholderShown)
        return;
    m_placeholderShown = shown;
    QPalette palette = m_log->palette();
    palette.setColor(QPalette::Text,
                     shown ? secondaryTextColor(this->palette()) : this->palette().color(QPalette::Text));
    m_log->setPalette(palette);
}

void OutputLogView::showLog(const QString& text) {
    setPlaceholderShown(text.isEmpty());
    m_log->setPlainText(text.isEmpty() ? placeholderText : text);
    scrollToEnd();
}

void OutputLogView::appendLog(const QString& chunk) {
    if (chunk.isEmpty())
        return;
    if (m_placeholderShown) {
        showLog(chunk);
        return;
    }
    QTextCursor cursor(m_log->document());
    cursor.movePosition(QTextCursor::End);
    cursor.insertText(chunk);
    scrollToEnd();
}

void OutputLogView::scrollToEnd() {
    QScrollBar* bar = m_log->verticalScrollBar();
    bar->setValue(bar->maximum());
}

void OutputLogView::setCancelVisible(bool visible) {
    m_cancel->setVisible(visible);
}

QString OutputLogView::shownText() const {
    return m_log->toPlainText();
}

} // namespace orvanta::window
