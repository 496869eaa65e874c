#pragma once

#include <QWidget>

class QPlainTextEdit;
class QPushButton;

namespace orvanta::window {

// The Output section: its heading, "Cancel" while the shown run goes on, and the log of that run.
class OutputLogView : public QWidget {
    Q_OBJECT
public:
    static inline const QString placeholderText = QStringLiteral("No output yet.");

    explicit OutputLogView(QWidget* parent = nullptr);

    // Shows `text` whole, or the placeholder when it is empty.
    void showLog(const QString& text);
    // Adds to the end of what is shown; the cost depends on the chunk, not on what is already there.
    void appendLog(const QString& chunk);
    void setCancelVisible(bool visible);

    QPushButton* cancelButton() const { return m_cancel; }
    QPlainTextEdit* logArea() const { return m_log; }
    // What the log shows, the placeholder included.
    QString shownText() const;

Q_SIGNALS:
    void cancelRequested();

private:
    void setPlaceholderShown(bool shown);
    void scrollToEnd();

    QPushButton* m_cancel;
    QPlainTextEdit* m_log;
    bool m_placeholderShown = false;
};

} // namespace orvanta::window
