#pragma once

#include <QList>
#include <QString>
#include <QStringView>

#include <deque>
#include <memory>
#include <vector>

namespace orvanta {

// A run's whole output, kept compactly and indexed for display.
//
// The text is held as UTF-8: script output is nearly all ASCII, so this is about half of what a QString
// would hold, and the output arrived as UTF-8 in the first place. It is stored in fixed blocks that are
// never moved, so an append never copies what came before (a single growing buffer is copied now and then
// as it is reallocated, which stalls for a long moment once it holds a hundred megabytes). Beside it lies an
// index of where each line starts, grown with every append, so a view can reach any line without scanning
// the text. Line breaks
// are "\n", "\r\n" and a lone "\r". A line longer than `maxPieceBytes` is indexed in pieces (cut after a
// blank where there is one), so that no entry is too long to lay out in one go; the text itself is not
// changed. Offsets are byte offsets into the UTF-8 text unless a name says otherwise.
class OutputText {
public:
    static constexpr qsizetype maxPieceBytes = 4096;

    OutputText() = default;
    explicit OutputText(QStringView text) { append(text); }

    void append(QStringView text);
    void clear();

    bool isEmpty() const { return m_byteSize == 0; }
    qsizetype byteSize() const { return m_byteSize; }
    // The length as a QString would count it (UTF-16 units).
    qsizetype size() const { return m_utf16Size; }
    // Changes whenever the text is emptied, so a reader can tell a new text from one that only grew.
    quint64 generation() const { return m_generation; }

    QString toString() const { return text(0, m_byteSize); }
    // The text between two offsets that lie on character boundaries.
    QString text(qsizetype from, qsizetype to) const;
    char byteAt(qsizetype offset) const { return m_blocks[offset / blockBytes][offset % blockBytes]; }
    // How many UTF-16 units the text between two offsets has.
    qsizetype utf16Length(qsizetype from, qsizetype to) const;

    // Pieces: lines, and the parts of over-long lines. There is always at least one (an empty text has one
    // empty line); a text ending in a line break ends with an empty piece.
    qsizetype pieceCount() const { return qsizetype(m_starts.size()); }
    qsizetype pieceStart(qsizetype piece) const { return m_starts[piece]; }
    // Where the piece's text ends, before its line break if it has one.
    qsizetype pieceEnd(qsizetype piece) const;
    // Where the next piece starts (the end of the text for the last one).
    qsizetype pieceLimit(qsizetype piece) const;
    // The piece that holds `offset`; the offset of a line break belongs to the piece it ends.
    qsizetype pieceAt(qsizetype offset) const;

    // Conversions between byte offsets and UTF-16 offsets, both on character boundaries.
    qsizetype utf16Offset(qsizetype byteOffset) const;
    qsizetype byteOffset(qsizetype utf16Offset) const;

    // The next and the previous character boundary from `offset`, within [0, byteSize()].
    qsizetype nextCharacter(qsizetype offset) const;
    qsizetype previousCharacter(qsizetype offset) const;

private:
    static constexpr qsizetype blockBytes = 64 * 1024;

    void index(qsizetype from);
    qsizetype find(qsizetype from, char byte) const;
    qsizetype cutPoint(qsizetype start) const;

    std::vector<std::unique_ptr<char[]>> m_blocks;
    qsizetype m_byteSize = 0;
    qsizetype m_utf16Size = 0;
    quint64 m_generation = 0;
    // A deque, so the index too grows without moving what it holds.
    std::deque<qsizetype> m_starts{0};
    // Pairs of (byte offset, UTF-16 offset) about every 64 KiB, so a conversion scans only a little text.
    struct Mark {
        qsizetype bytes;
        qsizetype utf16;
    };
    QList<Mark> m_marks{Mark{0, 0}};
};

} // namespace orvanta
