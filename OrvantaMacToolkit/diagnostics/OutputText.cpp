#include "diagnostics/OutputText.h"

#include <QStringDecoder>

#include <algorithm>
#include <cstring>

namespace orvanta {

namespace {

constexpr qsizetype markSpacing = 64 * 1024;

bool isContinuation(char byte) {
    return (uchar(byte) & 0xC0) == 0x80;
}

} // namespace

void OutputText::append(QStringView text) {
    if (text.isEmpty())
        return;
    const QByteArray bytes = text.toUtf8();
    const qsizetype from = m_byteSize;
    for (qsizetype copied = 0; copied < bytes.size();) {
        const qsizetype inBlock = m_byteSize % blockBytes;
        if (qsizetype(m_blocks.size()) * blockBytes == m_byteSize)
            m_blocks.push_back(std::make_unique_for_overwrite<char[]>(blockBytes));
        const qsizetype length = std::min(blockBytes - inBlock, bytes.size() - copied);
        std::memcpy(m_blocks.back().get() + inBlock, bytes.constData() + copied, size_t(length));
        copied += length;
        m_byteSize += length;
    }
    m_utf16Size += text.size();
    index(from);
    if (m_byteSize - m_marks.last().bytes >= markSpacing)
        m_marks.append(Mark{m_byteSize, m_utf16Size});
}

void OutputText::clear() {
    m_blocks.clear();
    m_byteSize = 0;
    m_utf16Size = 0;
    m_starts = {0};
    m_marks = {Mark{0, 0}};
    ++m_generation;
}

qsizetype OutputText::find(qsizetype from, char byte) const {
    for (qsizetype at = from; at < m_byteSize;) {
        const qsizetype inBlock = at % blockBytes;
        const qsizetype length = std::min(blockBytes - inBlock, m_byteSize - at);
        const char* block = m_blocks[at / blockBytes].get();
        if (const void* hit = std::memchr(block + inBlock, byte, size_t(length)))
            return at - inBlock + (static_cast<const char*>(hit) - block);
        at += length;
    }
    return m_byteSize;
}

void OutputText::index(qsizetype from) {
    qsizetype at = from;
    // A "\r\n" split between two appends is one line break: the line after the "\r" starts after the "\n".
    if (at > 0 && byteAt(at - 1) == '\r' && byteAt(at) == '\n' && m_starts.back() == at)
        m_starts.back() = ++at;
    qsizetype nextCr = find(at, '\r'), nextLf = find(at, '\n');
    for (;;) {
        const qsizetype lineBreak = std::min(nextCr, nextLf);
        while (lineBreak - m_starts.back() > maxPieceBytes)
            m_starts.push_back(cutPoint(m_starts.back()));
        if (lineBreak == m_byteSize)
            return;
        at = lineBreak + 1;
        if (byteAt(lineBreak) == '\r' && at < m_byteSize && byteAt(at) == '\n')
            ++at;
        m_starts.push_back(at);
        if (nextCr < at)
            nextCr = find(at, '\r');
        if (nextLf < at)
            nextLf = find(at, '\n');
    }
}

// Called only when more than maxPieceBytes of the line follow `start`, so the choice depends on those
// bytes alone and not on how the output was split into appends.
qsizetype OutputText::cutPoint(qsizetype start) const {
    const qsizetype limit = start + maxPieceBytes;
    for (qsizetype cut = limit; cut > start + maxPieceBytes / 2; --cut)
        if (byteAt(cut - 1) == ' ' || byteAt(cut - 1) == '\t')
            return cut;
    qsizetype cut = limit;
    while (cut > start + 1 && isContinuation(byteAt(cut)))
        --cut;
    return cut;
}

QString OutputText::text(qsizetype from, qsizetype to) const {
    from = std::clamp<qsizetype>(from, 0, m_byteSize);
    to = std::clamp<qsizetype>(to, from, m_byteSize);
    if (from == to)
        return {};
    if (from / blockBytes == (to - 1) / blockBytes)
        return QString::fromUtf8(m_blocks[from / blockBytes].get() + from % blockBytes, to - from);
    // Across blocks a character may be split between two of them: the decoder holds the partial one.
    QString text;
    text.reserve(utf16Length(from, to));
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::ConvertInitialBom);
    for (qsizetype at = from; at < to;) {
        const qsizetype inBlock = at % blockBytes;
        const qsizetype length = std::min(blockBytes - inBlock, to - at);
        text.append(decoder.decode(QByteArrayView(m_blocks[at / blockBytes].get() + inBlock, length)));
        at += length;
    }
    return text;
}

qsizetype OutputText::utf16Length(qsizetype from, qsizetype to) const {
    qsizetype units = 0;
    for (qsizetype at = from; at < to; ++at) {
        const uchar byte = uchar(byteAt(at));
        if ((byte & 0xC0) != 0x80)
            units += byte >= 0xF0 ? 2 : 1;
    }
    return units;
}

qsizetype OutputText::pieceLimit(qsizetype piece) const {
    return piece + 1 < pieceCount() ? m_starts[piece + 1] : m_byteSize;
}

qsizetype OutputText::pieceEnd(qsizetype piece) const {
    const qsizetype limit = pieceLimit(piece);
    if (piece + 1 == pieceCount() || limit == m_starts[piece])
        return limit;
    const char last = byteAt(limit - 1);
    if (last == '\n')
        return limit - 1 > m_starts[piece] && byteAt(limit - 2) == '\r' ? limit - 2 : limit - 1;
    return last == '\r' ? limit - 1 : limit;
}

qsizetype OutputText::pieceAt(qsizetype offset) const {
    const auto after = std::upper_bound(m_starts.cbegin(), m_starts.cend(), offset);
    return std::max<qsizetype>(0, qsizetype(after - m_starts.cbegin()) - 1);
}

qsizetype OutputText::utf16Offset(qsizetype byteOffset) const {
    byteOffset = std::clamp<qsizetype>(byteOffset, 0, m_byteSize);
    if (m_utf16Size == m_byteSize) // all ASCII
        return byteOffset;
    const auto after =
        std::upper_bound(m_marks.cbegin(), m_marks.cend(), byteOffset,
                         [](qsizetype offset, const Mark& mark) { return offset < mark.bytes; });
    const Mark& mark = *(after - 1);
    return mark.utf16 + utf16Length(mark.bytes, byteOffset);
}

qsizetype OutputText::byteOffset(qsizetype utf16Offset) const {
    utf16Offset = std::clamp<qsizetype>(utf16Offset, 0, m_utf16Size);
    if (m_utf16Size == m_byteSize)
        return utf16Offset;
    const auto after =
        std::upper_bound(m_marks.cbegin(), m_marks.cend(), utf16Offset,
                         [](qsizetype offset, const Mark& mark) { return offset < mark.utf16; });
    const Mark& mark = *(after - 1);
    qsizetype at = mark.bytes, units = mark.utf16;
    while (units < utf16Offset && at < m_byteSize) {
        const uchar byte = uchar(byteAt(at));
        const qsizetype length = byte < 0x80 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
        units += length == 4 ? 2 : 1;
        at += length;
    }
    return std::min(at, m_byteSize);
}

qsizetype OutputText::nextCharacter(qsizetype offset) const {
    if (offset >= m_byteSize)
        return m_byteSize;
    ++offset;
    while (offset < m_byteSize && isContinuation(byteAt(offset)))
        ++offset;
    return offset;
}

qsizetype OutputText::previousCharacter(qsizetype offset) const {
    if (offset <= 0)
        return 0;
    --offset;
    while (offset > 0 && isContinuation(byteAt(offset)))
        --offset;
    return offset;
}

} // namespace orvanta
