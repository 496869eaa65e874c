#pragma once

#include "diagnostics/OutputText.h"

#include <QAbstractScrollArea>
#include <QElapsedTimer>
#include <QTimer>
#include <QWidget>

#include <memory>
#include <unordered_map>

class QPushButton;
class QTextLayout;

namespace orvanta::window {

// A read-only, selectable view of an OutputText of any size. It holds no copy of the text: it lays out only
// the pieces it draws and finds them through the text's line index. See the .cpp for why it is built so.
class LogTextArea : public QAbstractScrollArea {
    Q_OBJECT
public:
    explicit LogTextArea(QWidget* parent = nullptr);
    ~LogTextArea() override;

    // Shows `text` (it must outlive the view or be replaced first), from its end, with nothing selected.
    void setText(const OutputText* text);
    // The shown text has grown: the view follows its end if it was at the end, and stays put otherwise.
    void textGrew();
    const OutputText* text() const { return m_text; }

    // Draws the text in the secondary colour, as for a placeholder.
    void setDimmed(bool dimmed);
    // True while the view shows the end of the text and keeps showing it as the text grows.
    bool followsEnd() const { return m_followEnd; }

    // Selection and cursor, as byte offsets into the text.
    qsizetype cursorPosition() const { return m_cursor; }
    qsizetype anchorPosition() const { return m_anchor; }
    void setSelection(qsizetype anchor, qsizetype cursor);
    QString selectedText() const;
    void selectAll();
    void copy() const;

    // The byte offset under a point of the viewport.
    qsizetype offsetAt(QPoint point);
    // The rectangle of the character boundary at `offset` in viewport coordinates, empty when off screen.
    QRect characterRect(qsizetype offset);
    void ensureCursorVisible();

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void changeEvent(QEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;
    void scrollContentsBy(int dx, int dy) override;

private:
    // A place in the laid-out text: a piece, and how far down into that piece (pixels). Kept canonical:
    // 0 <= offset < the piece's height, except at the very end.
    struct Position {
        qsizetype piece = 0;
        qreal offset = 0;
        auto operator<=>(const Position&) const = default;
    };

    // The viewport less the padding at the sides.
    QRectF textArea() const;
    qreal layoutTop(qsizetype piece) const;
    QTextLayout& layout(qsizetype piece);
    qreal pieceHeight(qsizetype piece);
    void forgetLayouts();
    void trimLayouts();
    // The position `distance` pixels above the point `y` pixels down into `piece`, stopping at the start.
    Position positionAbove(qsizetype piece, qreal y, qreal distance);
    Position endPosition();
    void scrollTo(Position position);
    void scrollBy(qreal pixels);
    void scrollToEnd();
    void syncScrollBar();
    void syncScrollBar(Position end);
    void onScrollBarMoved(int value);
    // Offsets within a piece: UTF-16 positions in its laid-out text against byte offsets in the text.
    int localPosition(qsizetype piece, qsizetype offset) const;
    qsizetype offsetOf(qsizetype piece, int position) const;
    qsizetype verticalMove(qsizetype from, int rows);
    void moveCursor(qsizetype to, bool keepAnchor);
    void autoScroll();
    void announceCursor();

    const OutputText* m_text = nullptr;
    qsizetype m_shownPieces = 0;
    std::unordered_map<qsizetype, std::unique_ptr<QTextLayout>> m_layouts;
    qreal m_layoutWidth = -1;
    qsizetype m_shownBytes = 0;
    bool m_dimmed = false;

    Position m_top;
    bool m_followEnd = true;
    bool m_settingScrollBar = false;

    qsizetype m_anchor = 0;
    qsizetype m_cursor = 0;
    qreal m_goalX = -1;
    bool m_selecting = false;
    QPoint m_lastMouse;
    QTimer m_autoScroll;
    QElapsedTimer m_doubleClicked;
};

// The Output section: its heading, "Cancel" while the shown run goes on, and the log of that run.
class OutputLogView : public QWidget {
    Q_OBJECT
public:
    static inline const QString placeholderText = QStringLiteral("No output yet.");

    explicit OutputLogView(QWidget* parent = nullptr);

    // Shows `text`, or the placeholder while it is empty. Called again after the text changed: a text that
    // only grew is followed from where the view is; another text, or the same one emptied, starts afresh.
    void showLog(const OutputText& text);
    void setCancelVisible(bool visible);

    QPushButton* cancelButton() const { return m_cancel; }
    LogTextArea* logArea() const { return m_log; }
    // What the log shows, the placeholder included.
    QString shownText() const;

Q_SIGNALS:
    void cancelRequested();

private:
    QPushButton* m_cancel;
    LogTextArea* m_log;
    const OutputText* m_source = nullptr;
    quint64 m_sourceGeneration = 0;
    qsizetype m_sourceBytes = 0;
    OutputText m_placeholder{placeholderText};
};

} // namespace orvanta::window
