// The log view keeps no text of its own. A text widget (QPlainTextEdit) would copy the whole output into a
// QTextDocument, lay out every line and keep block trees whose cost per append grows with the document; a
// week of "Until stopped" output then costs several times its own size and slows down as it grows.
//
// Terminal emulators and log viewers (xterm, VTE, less, klogg) solve this the same way: the text is kept
// once, an index of line starts finds any line without scanning, and only the lines on screen are laid
// out. Here the runner's OutputText is that text and index, kept as UTF-8 in fixed blocks as VTE keeps its
// scrollback (one growing buffer would copy the whole text whenever it is reallocated). The view lays out
// with QTextLayout only the pieces it draws, keeps a small cache of them, and scrolls by piece: the scroll
// bar's value is the first piece shown, with one more value for the very end, so its range follows the index
// without measuring the text. Within a piece that wraps to several rows, the wheel and the keys scroll by
// pixels. An append therefore costs the indexing of its own bytes and the layout of the last few lines.
//
// Selection and the cursor are byte offsets into the text; copying decodes just the selected bytes, so a
// selection of any size can be copied. Screen readers get the text through QAccessibleTextInterface, in
// UTF-16 offsets as everywhere in Qt.

#include "window/OutputLogView.h"

#include "window/WindowStyle.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QElapsedTimer>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QPainter>
#include <QPushButton>
#include <QScrollBar>
#include <QTextBoundaryFinder>
#include <QTextLayout>
#include <QVBoxLayout>
#include <QWheelEvent>

#include <algorithm>
#include <climits>

namespace orvanta::window {

namespace {

constexpr qreal padding = 8;
// Laid-out pieces kept; far more than a screenful, and few enough to be trimmed in a moment.
constexpr size_t layoutCacheLimit = 256;

const OutputText& noText() {
    static const OutputText empty;
    return empty;
}

// Qt's own text-boundary logic (words, sentences, lines) run over a small window of the log instead of all
// of it, which is what the default implementations of QAccessibleTextInterface would fetch.
class StringText : public QAccessibleTextInterface {
public:
    explicit StringText(QString text) : m_text(std::move(text)) {}
    void selection(int, int* start, int* end) const override { *start = *end = 0; }
    int selectionCount() const override { return 0; }
    void addSelection(int, int) override {}
    void removeSelection(int) override {}
    void setSelection(int, int, int) override {}
    int cursorPosition() const override { return 0; }
    void setCursorPosition(int) override {}
    QString text(int start, int end) const override { return m_text.mid(start, end - start); }
    int characterCount() const override { return int(m_text.size()); }
    QRect characterRect(int) const override { return {}; }
    int offsetAtPoint(const QPoint&) const override { return -1; }
    void scrollToSubstring(int, int) override {}
    QString attributes(int offset, int* start, int* end) const override {
        *start = *end = offset;
        return {};
    }

private:
    QString m_text;
};

class LogTextAccessible : public QAccessibleWidget, public QAccessibleTextInterface {
public:
    explicit LogTextAccessible(LogTextArea* area) : QAccessibleWidget(area, QAccessible::EditableText) {}

    // The widget's own texts (name, description) stay reachable beside the text interface's ranges.
    using QAccessibleWidget::text;

    void* interface_cast(QAccessible::InterfaceType type) override {
        if (type == QAccessible::TextInterface)
            return static_cast<QAccessibleTextInterface*>(this);
        return QAccessibleWidget::interface_cast(type);
    }
    QAccessible::State state() const override {
        QAccessible::State state = QAccessibleWidget::state();
        state.readOnly = true;
        state.multiLine = true;
        state.selectableText = true;
        return state;
    }

    void selection(int index, int* start, int* end) const override {
        *start = *end = 0;
        if (index == 0 && selectionCount() == 1) {
            *start = units(std::min(area()->anchorPosition(), area()->cursorPosition()));
            *end = units(std::max(area()->anchorPosition(), area()->cursorPosition()));
        }
    }
    int selectionCount() const override {
        return area()->anchorPosition() != area()->cursorPosition() ? 1 : 0;
    }
    void addSelection(int start, int end) override { setSelection(0, start, end); }
    void removeSelection(int) override {
        area()->setSelection(area()->cursorPosition(), area()->cursorPosition());
    }
    void setSelection(int, int start, int end) override { area()->setSelection(bytes(start), bytes(end)); }
    int cursorPosition() const override { return units(area()->cursorPosition()); }
    void setCursorPosition(int position) override { area()->setSelection(bytes(position), bytes(position)); }
    QString text(int start, int end) const override { return content().text(bytes(start), bytes(end)); }
    int characterCount() const override { return int(std::min<qsizetype>(content().size(), INT_MAX)); }
    QRect characterRect(int offset) const override {
        const QRect rect = area()->characterRect(bytes(offset));
        return rect.isEmpty() ? QRect() : QRect(area()->viewport()->mapToGlobal(rect.topLeft()), rect.size());
    }
    int offsetAtPoint(const QPoint& point) const override {
        const QPoint local = area()->viewport()->mapFromGlobal(point);
        return area()->viewport()->rect().contains(local) ? units(area()->offsetAt(local)) : -1;
    }
    void scrollToSubstring(int start, int) override {
        area()->setSelection(bytes(start), bytes(start));
        area()->ensureCursorVisible();
    }
    QString attributes(int offset, int* start, int* end) const override {
        *start = *end = offset;
        return {};
    }
    QString textBeforeOffset(int offset, QAccessible::TextBoundaryType type, int* start,
                             int* end) const override {
        return around(offset, start, end, [&](StringText& window, int at, int* from, int* to) {
            return window.textBeforeOffset(at, type, from, to);
        });
    }
    QString textAfterOffset(int offset, QAccessible::TextBoundaryType type, int* start,
                            int* end) const override {
        return around(offset, start, end, [&](StringText& window, int at, int* from, int* to) {
            return window.textAfterOffset(at, type, from, to);
        });
    }
    QString textAtOffset(int offset, QAccessible::TextBoundaryType type, int* start,
                         int* end) const override {
        return around(offset, start, end, [&](StringText& window, int at, int* from, int* to) {
            return window.textAtOffset(at, type, from, to);
        });
    }

private:
    LogTextArea* area() const { return static_cast<LogTextArea*>(widget()); }
    const OutputText& content() const { return *area()->text(); }
    int units(qsizetype bytes) const { return int(content().utf16Offset(bytes)); }
    qsizetype bytes(int units) const { return content().byteOffset(units); }

    // Answers a boundary query from the line holding `offset` and the lines either side of it.
    template <typename Query> QString around(int offset, int* start, int* end, Query query) const {
        const OutputText& text = content();
        const qsizetype piece = text.pieceAt(bytes(offset));
        const qsizetype from = text.pieceStart(std::max<qsizetype>(0, piece - 1));
        const qsizetype to = text.pieceLimit(std::min(text.pieceCount() - 1, piece + 1));
        const int base = units(from);
        StringText window(text.text(from, to));
        const QString result = query(window, offset - base, start, end);
        if (*start >= 0)
            *start += base;
        if (*end >= 0)
            *end += base;
        return result;
    }
};

QAccessibleInterface* logTextAccessibleFactory(const QString& className, QObject* object) {
    if (className == QLatin1String(LogTextArea::staticMetaObject.className()) && object &&
        object->isWidgetType())
        return new LogTextAccessible(static_cast<LogTextArea*>(object));
    return nullptr;
}

} // namespace

// ---- LogTextArea -----------------------------------------------------------------------------------

LogTextArea::LogTextArea(QWidget* parent) : QAbstractScrollArea(parent), m_text(&noText()) {
    static const bool factoryInstalled = (QAccessible::installFactory(logTextAccessibleFactory), true);
    Q_UNUSED(factoryInstalled);
    setFrameShape(QFrame::NoFrame);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setFocusPolicy(Qt::StrongFocus);
    setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    viewport()->setAutoFillBackground(false);
    viewport()->setCursor(Qt::IBeamCursor);
    connect(verticalScrollBar(), &QScrollBar::valueChanged, this, &LogTextArea::onScrollBarMoved);
    m_autoScroll.setInterval(50);
    connect(&m_autoScroll, &QTimer::timeout, this, &LogTextArea::autoScroll);
}

LogTextArea::~LogTextArea() = default;

void LogTextArea::setText(const OutputText* text) {
    m_text = text ? text : &noText();
    m_shownPieces = m_text->pieceCount();
    m_shownBytes = m_text->byteSize();
    forgetLayouts();
    m_anchor = m_cursor = m_text->byteSize();
    m_goalX = -1;
    m_selecting = false;
    m_autoScroll.stop();
    scrollToEnd();
    if (QAccessible::isActive()) {
        QAccessibleTextUpdateEvent event(this, 0, QString(), QString());
        QAccessible::updateAccessibility(&event);
    }
}

void LogTextArea::textGrew() {
    trimLayouts();
    // Only the last piece can have changed; the ones after it are new.
    m_layouts.erase(m_shownPieces - 1);
    m_shownPieces = m_text->pieceCount();
    const qsizetype before = m_shownBytes;
    m_shownBytes = m_text->byteSize();
    // New output always brings its last lines into view, even when the user had scrolled back.
    scrollToEnd();
    if (QAccessible::isActive()) {
        QAccessibleTextInsertEvent event(this, int(m_text->utf16Offset(before)),
                                         m_text->text(before, m_shownBytes));
        QAccessible::updateAccessibility(&event);
    }
}

void LogTextArea::setDimmed(bool dimmed) {
    m_dimmed = dimmed;
    viewport()->update();
}

QRectF LogTextArea::textArea() const {
    return QRectF(viewport()->rect()).adjusted(padding, 0, -padding, 0);
}

// The padding above and below the text is part of what scrolls, as it would be in a text view: the first
// piece carries the top padding, the last one the bottom padding.
qreal LogTextArea::layoutTop(qsizetype piece) const {
    return piece == 0 ? padding : 0;
}

QTextLayout& LogTextArea::layout(qsizetype piece) {
    const qreal width = std::max<qreal>(1, textArea().width());
    if (width != m_layoutWidth) {
        m_layouts.clear();
        m_layoutWidth = width;
    }
    std::unique_ptr<QTextLayout>& slot = m_layouts[piece];
    if (!slot) {
        slot = std::make_unique<QTextLayout>(m_text->text(m_text->pieceStart(piece), m_text->pieceEnd(piece)),
                                             font());
        QTextOption option;
        option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
        slot->setTextOption(option);
        slot->setCacheEnabled(true);
        slot->beginLayout();
        qreal y = 0;
        for (QTextLine line = slot->createLine(); line.isValid(); line = slot->createLine()) {
            line.setLineWidth(width);
            line.setPosition(QPointF(0, y));
            y += line.height();
        }
        slot->endLayout();
    }
    return *slot;
}

qreal LogTextArea::pieceHeight(qsizetype piece) {
    const QTextLayout& laidOut = layout(piece);
    if (laidOut.lineCount() == 0)
        return fontMetrics().height();
    const QTextLine last = laidOut.lineAt(laidOut.lineCount() - 1);
    return layoutTop(piece) + last.y() + last.height() + (piece + 1 == m_text->pieceCount() ? padding : 0);
}

void LogTextArea::forgetLayouts() {
    m_layouts.clear();
    m_layoutWidth = -1;
}

void LogTextArea::trimLayouts() {
    if (m_layouts.size() <= layoutCacheLimit)
        return;
    // Keep what is on screen and the end, where the output arrives.
    const qsizetype rows = qsizetype(textArea().height() / fontMetrics().height()) + 2;
    const qsizetype lastKept = m_text->pieceCount() - rows;
    std::erase_if(m_layouts, [&](const auto& entry) {
        return (entry.first < m_top.piece || entry.first > m_top.piece + rows) && entry.first < lastKept;
    });
}

LogTextArea::Position LogTextArea::positionAbove(qsizetype piece, qreal y, qreal distance) {
    Position position{piece, y - distance};
    while (position.offset < 0 && position.piece > 0)
        position.offset += pieceHeight(--position.piece);
    if (position.offset < 0)
        return {};
    while (position.piece + 1 < m_text->pieceCount() && position.offset >= pieceHeight(position.piece))
        position.offset -= pieceHeight(position.piece++);
    return position;
}

LogTextArea::Position LogTextArea::endPosition() {
    const qsizetype last = m_text->pieceCount() - 1;
    return positionAbove(last, pieceHeight(last), textArea().height());
}

void LogTextArea::scrollTo(Position position) {
    const Position end = endPosition();
    position.offset = std::max<qreal>(0, position.offset);
    m_top = std::min(position, end);
    m_followEnd = m_top == end;
    syncScrollBar();
    viewport()->update();
}

void LogTextArea::scrollBy(qreal pixels) {
    Position position = m_top;
    position.offset += pixels;
    while (position.offset < 0 && position.piece > 0)
        position.offset += pieceHeight(--position.piece);
    while (position.piece + 1 < m_text->pieceCount() && position.offset >= pieceHeight(position.piece))
        position.offset -= pieceHeight(position.piece++);
    scrollTo(position);
}

void LogTextArea::scrollToEnd() {
    m_top = endPosition();
    m_followEnd = true;
    syncScrollBar(m_top);
    viewport()->update();
}

void LogTextArea::syncScrollBar() {
    syncScrollBar(endPosition());
}

void LogTextArea::syncScrollBar(Position end) {
    const int maximum = int(std::min<qsizetype>(end.piece + (end.offset > 0 ? 1 : 0), INT_MAX));
    QScrollBar* bar = verticalScrollBar();
    m_settingScrollBar = true;
    bar->setRange(0, maximum);
    bar->setSingleStep(1);
    bar->setPageStep(std::max(1, int(textArea().height() / fontMetrics().height())));
    bar->setValue(m_top >= end ? maximum : int(std::min<qsizetype>(m_top.piece, INT_MAX)));
    m_settingScrollBar = false;
}

void LogTextArea::onScrollBarMoved(int value) {
    if (m_settingScrollBar)
        return;
    if (value >= verticalScrollBar()->maximum())
        scrollToEnd();
    else
        scrollTo({value, 0});
}

void LogTextArea::scrollContentsBy(int, int) {
    // The scroll bar's value is a piece, not pixels: onScrollBarMoved places the text and repaints.
}

int LogTextArea::localPosition(qsizetype piece, qsizetype offset) const {
    const qsizetype start = m_text->pieceStart(piece);
    const qsizetype stop = std::clamp(offset, start, m_text->pieceEnd(piece));
    return int(m_text->utf16Length(start, stop));
}

qsizetype LogTextArea::offsetOf(qsizetype piece, int position) const {
    qsizetype at = m_text->pieceStart(piece);
    const qsizetype end = m_text->pieceEnd(piece);
    for (int units = 0; units < position && at < end;) {
        units += uchar(m_text->byteAt(at)) >= 0xF0 ? 2 : 1;
        at = m_text->nextCharacter(at);
    }
    return at;
}

qsizetype LogTextArea::offsetAt(QPoint point) {
    const QRectF area = textArea();
    const qreal targetY = std::clamp<qreal>(point.y(), area.top(), std::max(area.top(), area.bottom() - 1));
    qreal y = area.top() - m_top.offset;
    for (qsizetype piece = m_top.piece;; ++piece) {
        const qreal height = pieceHeight(piece);
        if (targetY < y + height || piece + 1 == m_text->pieceCount()) {
            QTextLayout& laidOut = layout(piece);
            int index = laidOut.lineCount() - 1;
            for (int i = 0; i < laidOut.lineCount(); ++i) {
                if (targetY - y - layoutTop(piece) < laidOut.lineAt(i).y() + laidOut.lineAt(i).height()) {
                    index = i;
                    break;
                }
            }
            return offsetOf(piece, laidOut.lineAt(index).xToCursor(point.x() - area.left()));
        }
        y += height;
    }
}

QRect LogTextArea::characterRect(qsizetype offset) {
    const QRectF area = textArea();
    const qsizetype piece = m_text->pieceAt(offset);
    if (piece < m_top.piece)
        return {};
    qreal y = area.top() - m_top.offset;
    for (qsizetype p = m_top.piece; p < piece; ++p) {
        y += pieceHeight(p);
        if (y > area.bottom())
            return {};
    }
    QTextLayout& laidOut = layout(piece);
    const int position = localPosition(piece, offset);
    QTextLine line = laidOut.lineForTextPosition(position);
    if (!line.isValid())
        line = laidOut.lineAt(laidOut.lineCount() - 1);
    const QRectF rect(area.left() + line.cursorToX(position), y + layoutTop(piece) + line.y(), 1,
                      line.height());
    return rect.intersects(area) ? rect.toAlignedRect() : QRect();
}

void LogTextArea::ensureCursorVisible() {
    const qsizetype piece = m_text->pieceAt(m_cursor);
    QTextLayout& laidOut = layout(piece);
    const int position = localPosition(piece, m_cursor);
    QTextLine line = laidOut.lineForTextPosition(position);
    if (!line.isValid())
        line = laidOut.lineAt(laidOut.lineCount() - 1);
    // The first and the last row are shown with their padding.
    const qreal rowTop = piece == 0 && line.lineNumber() == 0 ? 0 : layoutTop(piece) + line.y();
    const qreal rowBottom = piece + 1 == m_text->pieceCount() && line.lineNumber() + 1 == laidOut.lineCount()
                                ? pieceHeight(piece)
                                : layoutTop(piece) + line.y() + line.height();
    const Position top{piece, rowTop};
    const Position bottom = positionAbove(piece, rowBottom, textArea().height());
    if (top < m_top)
        scrollTo(top);
    else if (m_top < bottom)
        scrollTo(bottom);
}

void LogTextArea::setSelection(qsizetype anchor, qsizetype cursor) {
    m_anchor = std::clamp<qsizetype>(anchor, 0, m_text->byteSize());
    m_cursor = std::clamp<qsizetype>(cursor, 0, m_text->byteSize());
    viewport()->update();
    announceCursor();
}

QString LogTextArea::selectedText() const {
    return m_text->text(std::min(m_anchor, m_cursor), std::max(m_anchor, m_cursor));
}

void LogTextArea::selectAll() {
    setSelection(0, m_text->byteSize());
}

void LogTextArea::copy() const {
    if (m_anchor != m_cursor)
        QGuiApplication::clipboard()->setText(selectedText());
}

void LogTextArea::moveCursor(qsizetype to, bool keepAnchor) {
    m_cursor = to;
    if (!keepAnchor)
        m_anchor = to;
    ensureCursorVisible();
    viewport()->update();
    announceCursor();
}

void LogTextArea::announceCursor() {
    if (!QAccessible::isActive())
        return;
    QAccessibleTextCursorEvent cursor(this, int(m_text->utf16Offset(m_cursor)));
    QAccessible::updateAccessibility(&cursor);
    QAccessibleTextSelectionEvent selection(this, int(m_text->utf16Offset(std::min(m_anchor, m_cursor))),
                                            int(m_text->utf16Offset(std::max(m_anchor, m_cursor))));
    QAccessible::updateAccessibility(&selection);
}

qsizetype LogTextArea::verticalMove(qsizetype from, int rows) {
    qsizetype piece = m_text->pieceAt(from);
    QTextLayout* laidOut = &layout(piece);
    const int position = localPosition(piece, from);
    QTextLine line = laidOut->lineForTextPosition(position);
    int index = line.isValid() ? line.lineNumber() : laidOut->lineCount() - 1;
    if (m_goalX < 0)
        m_goalX = laidOut->lineAt(index).cursorToX(position);
    for (int step = 0; step < std::abs(rows); ++step) {
        if (rows > 0 && index + 1 < laidOut->lineCount()) {
            ++index;
        } else if (rows > 0 && piece + 1 < m_text->pieceCount()) {
            laidOut = &layout(++piece);
            index = 0;
        } else if (rows < 0 && index > 0) {
            --index;
        } else if (rows < 0 && piece > 0) {
            laidOut = &layout(--piece);
            index = laidOut->lineCount() - 1;
        } else {
            break;
        }
    }
    return offsetOf(piece, laidOut->lineAt(index).xToCursor(m_goalX));
}

void LogTextArea::keyPressEvent(QKeyEvent* event) {
    if (event == QKeySequence::Copy) {
        copy();
        return;
    }
    if (event == QKeySequence::SelectAll) {
        selectAll();
        return;
    }
    using Key = QKeySequence::StandardKey;
    enum class Move { character, word, row, rowEdge, document, page };
    struct Binding {
        Key plain, select;
        Move move;
        int direction;
    };
    static constexpr Binding bindings[] = {
        {Key::MoveToNextChar, Key::SelectNextChar, Move::character, 1},
        {Key::MoveToPreviousChar, Key::SelectPreviousChar, Move::character, -1},
        {Key::MoveToNextWord, Key::SelectNextWord, Move::word, 1},
        {Key::MoveToPreviousWord, Key::SelectPreviousWord, Move::word, -1},
        {Key::MoveToNextLine, Key::SelectNextLine, Move::row, 1},
        {Key::MoveToPreviousLine, Key::SelectPreviousLine, Move::row, -1},
        {Key::MoveToEndOfLine, Key::SelectEndOfLine, Move::rowEdge, 1},
        {Key::MoveToStartOfLine, Key::SelectStartOfLine, Move::rowEdge, -1},
        {Key::MoveToEndOfDocument, Key::SelectEndOfDocument, Move::document, 1},
        {Key::MoveToStartOfDocument, Key::SelectStartOfDocument, Move::document, -1},
        {Key::MoveToNextPage, Key::SelectNextPage, Move::page, 1},
        {Key::MoveToPreviousPage, Key::SelectPreviousPage, Move::page, -1},
    };
    for (const Binding& binding : bindings) {
        const bool select = event->matches(binding.select);
        if (!select && !event->matches(binding.plain))
            continue;
        const bool forward = binding.direction > 0;
        if (binding.move != Move::row && binding.move != Move::page)
            m_goalX = -1;
        const qsizetype piece = m_text->pieceAt(m_cursor);
        QTextLayout& laidOut = layout(piece);
        const int position = localPosition(piece, m_cursor);
        const int length = int(laidOut.text().size());
        qsizetype target = m_cursor;
        switch (binding.move) {
        case Move::character:
        case Move::word: {
            const auto mode =
                binding.move == Move::word ? QTextLayout::SkipWords : QTextLayout::SkipCharacters;
            if (forward)
                target = position < length ? offsetOf(piece, laidOut.nextCursorPosition(position, mode))
                                           : m_text->pieceLimit(piece);
            else
                target = position > 0 ? offsetOf(piece, laidOut.previousCursorPosition(position, mode))
                         : piece > 0  ? m_text->pieceEnd(piece - 1)
                                      : 0;
            break;
        }
        case Move::row:
            target = verticalMove(m_cursor, binding.direction);
            break;
        case Move::page: {
            const int rows = std::max(1, int(textArea().height() / fontMetrics().height()) - 1);
            target = verticalMove(m_cursor, rows * binding.direction);
            break;
        }
        case Move::rowEdge: {
            QTextLine line = laidOut.lineForTextPosition(position);
            if (!line.isValid())
                line = laidOut.lineAt(laidOut.lineCount() - 1);
            target = offsetOf(piece, forward ? line.textStart() + line.textLength() : line.textStart());
            break;
        }
        case Move::document:
            target = forward ? m_text->byteSize() : 0;
            break;
        }
        moveCursor(target, select);
        return;
    }
    QAbstractScrollArea::keyPressEvent(event);
}

void LogTextArea::wheelEvent(QWheelEvent* event) {
    const QPoint pixels = event->pixelDelta();
    const qreal delta = !pixels.isNull() ? pixels.y()
                                         : event->angleDelta().y() / 120.0 *
                                               QApplication::wheelScrollLines() * fontMetrics().height();
    if (delta == 0) {
        event->ignore();
        return;
    }
    scrollBy(-delta);
    event->accept();
}

void LogTextArea::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton)
        return;
    m_goalX = -1;
    const QPoint point = event->position().toPoint();
    // A third click soon after a double click selects the whole line, with its line break.
    if (m_doubleClicked.isValid() && !m_doubleClicked.hasExpired(QApplication::doubleClickInterval()) &&
        (point - m_lastMouse).manhattanLength() < QApplication::startDragDistance()) {
        m_doubleClicked.invalidate();
        const qsizetype piece = m_text->pieceAt(offsetAt(point));
        setSelection(m_text->pieceStart(piece), m_text->pieceLimit(piece));
        return;
    }
    m_selecting = true;
    m_lastMouse = point;
    moveCursor(offsetAt(m_lastMouse), event->modifiers() & Qt::ShiftModifier);
}

void LogTextArea::mouseMoveEvent(QMouseEvent* event) {
    if (!m_selecting || !(event->buttons() & Qt::LeftButton))
        return;
    m_lastMouse = event->position().toPoint();
    const QRectF area = textArea();
    // Dragging above or below the text scrolls it, so a selection can reach beyond the screen.
    if (m_lastMouse.y() < area.top() || m_lastMouse.y() > area.bottom()) {
        if (!m_autoScroll.isActive())
            m_autoScroll.start();
    } else {
        m_autoScroll.stop();
    }
    m_cursor = offsetAt(m_lastMouse);
    viewport()->update();
}

void LogTextArea::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton)
        return;
    m_selecting = false;
    m_autoScroll.stop();
    announceCursor();
}

void LogTextArea::autoScroll() {
    const QRectF area = textArea();
    const qreal beyond =
        m_lastMouse.y() < area.top() ? m_lastMouse.y() - area.top() : m_lastMouse.y() - area.bottom();
    scrollBy(std::clamp<qreal>(beyond, -3 * fontMetrics().height(), 3 * fontMetrics().height()));
    m_cursor = offsetAt(m_lastMouse);
    viewport()->update();
}

void LogTextArea::mouseDoubleClickEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton)
        return;
    m_lastMouse = event->position().toPoint();
    m_doubleClicked.start();
    const qsizetype at = offsetAt(m_lastMouse);
    const qsizetype piece = m_text->pieceAt(at);
    const QString text = layout(piece).text();
    const int position = localPosition(piece, at);
    QTextBoundaryFinder words(QTextBoundaryFinder::Word, text);
    words.setPosition(position);
    const qsizetype start = words.isAtBoundary() ? position : words.toPreviousBoundary();
    words.setPosition(position);
    const qsizetype end = words.toNextBoundary();
    setSelection(offsetOf(piece, int(std::max<qsizetype>(0, start))),
                 offsetOf(piece, int(end < 0 ? text.size() : end)));
    m_selecting = false;
}

void LogTextArea::contextMenuEvent(QContextMenuEvent* event) {
    QMenu menu(this);
    QAction* copyAction = menu.addAction(tr("Copy"), this, &LogTextArea::copy);
    copyAction->setShortcut(QKeySequence::Copy);
    copyAction->setEnabled(m_anchor != m_cursor);
    menu.addSeparator();
    QAction* selectAllAction = menu.addAction(tr("Select All"), this, &LogTextArea::selectAll);
    selectAllAction->setShortcut(QKeySequence::SelectAll);
    selectAllAction->setEnabled(!m_text->isEmpty());
    menu.exec(event->globalPos());
}

void LogTextArea::focusInEvent(QFocusEvent* event) {
    QAbstractScrollArea::focusInEvent(event);
    viewport()->update();
}

void LogTextArea::focusOutEvent(QFocusEvent* event) {
    QAbstractScrollArea::focusOutEvent(event);
    viewport()->update();
}

void LogTextArea::resizeEvent(QResizeEvent* event) {
    QAbstractScrollArea::resizeEvent(event);
    forgetLayouts();
    if (m_followEnd)
        scrollToEnd();
    else
        scrollTo({m_top.piece, std::min(m_top.offset, pieceHeight(m_top.piece) - 1)});
}

void LogTextArea::changeEvent(QEvent* event) {
    QAbstractScrollArea::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange) {
        forgetLayouts();
        if (m_followEnd)
            scrollToEnd();
        else
            scrollTo({m_top.piece, 0});
    }
}

void LogTextArea::paintEvent(QPaintEvent*) {
    trimLayouts();
    QPainter painter(viewport());
    const QRectF area = textArea();
    painter.setClipRect(QRectF(viewport()->rect()));
    painter.setPen(m_dimmed ? secondaryTextColor(palette()) : palette().color(QPalette::Text));

    const QPalette::ColorGroup group = hasFocus() ? QPalette::Active : QPalette::Inactive;
    QTextCharFormat selected;
    selected.setBackground(palette().brush(group, QPalette::Highlight));
    selected.setForeground(palette().brush(group, QPalette::HighlightedText));
    const qsizetype from = std::min(m_anchor, m_cursor), to = std::max(m_anchor, m_cursor);
    const qsizetype count = m_text->pieceCount();

    qreal y = area.top() - m_top.offset;
    for (qsizetype piece = m_top.piece; piece < count && y < area.bottom(); ++piece) {
        QTextLayout& laidOut = layout(piece);
        const qsizetype start = m_text->pieceStart(piece), end = m_text->pieceEnd(piece);
        const qsizetype limit = m_text->pieceLimit(piece);
        QList<QTextLayout::FormatRange> selections;
        if (from < to && from <= end && to > start) {
            const int first = localPosition(piece, from), last = localPosition(piece, to);
            if (last > first)
                selections.append({first, last - first, selected});
        }
        const QPointF origin(area.left(), y + layoutTop(piece));
        laidOut.draw(&painter, origin, selections);
        // A selected line break shows as a selected blank after the line, as in text editors.
        if (from < to && from <= end && to > end && end < limit) {
            const QTextLine last = laidOut.lineAt(laidOut.lineCount() - 1);
            painter.fillRect(QRectF(origin.x() + last.naturalTextWidth(), origin.y() + last.y(),
                                    fontMetrics().horizontalAdvance(QLatin1Char(' ')), last.height()),
                             selected.background());
        }
        if (hasFocus() && m_cursor >= start && (m_cursor < limit || piece + 1 == count))
            laidOut.drawCursor(&painter, origin, localPosition(piece, m_cursor));
        y += pieceHeight(piece);
    }
}

// ---- OutputLogView ---------------------------------------------------------------------------------

OutputLogView::OutputLogView(QWidget* parent)
    : QWidget(parent), m_cancel(new QPushButton(QStringLiteral("Cancel"), this)), m_log(new LogTextArea) {
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
    m_log->setAccessibleName(QStringLiteral("Output"));
    panelLayout->addWidget(m_log);
    layout->addWidget(panel);

    m_log->setDimmed(true);
    m_log->setText(&m_placeholder);
}

void OutputLogView::showLog(const OutputText& text) {
    const bool grown =
        &text == m_source && text.generation() == m_sourceGeneration && text.byteSize() >= m_sourceBytes;
    m_source = &text;
    m_sourceGeneration = text.generation();
    const bool changed = text.byteSize() != m_sourceBytes;
    m_sourceBytes = text.byteSize();
    if (text.isEmpty()) {
        if (m_log->text() != &m_placeholder) {
            m_log->setDimmed(true);
            m_log->setText(&m_placeholder);
        }
    } else if (grown && m_log->text() == &text) {
        if (changed)
            m_log->textGrew();
    } else {
        m_log->setDimmed(false);
        m_log->setText(&text);
    }
}

void OutputLogView::setCancelVisible(bool visible) {
    m_cancel->setVisible(visible);
}

QString OutputLogView::shownText() const {
    return m_log->text()->toString();
}

} // namespace orvanta::window
