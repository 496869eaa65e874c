#include "diagnostics/OutputText.h"

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
    const qsizetype from = m_bytes.size();
    m_bytes.append(text.toUtf8());
    m_utf16Size += text.size();
    index(from);
    if (m_bytes.size() - m_marks.last().bytes >= markSpacing)
        m_marks.append(Mark{m_bytes.size(), m_utf16Size});
}

void OutputText::clear() {
    m_bytes = QByteArray();
    m_utf16Size = 0;
    m_starts = {0};
    m_marks = {Mark{0, 0}};
    ++m_generation;
}

void OutputText::index(qsizetype from) {
    const char* data = m_bytes.constData();
    const qsizetype size = m_bytes.size();
    auto find = [&](qsizetype at, char byte) {
        const void* hit = std::memchr(data + at, byte, size_t(size - at));
        return hit ? qsizetype(static_cast<const char*>(hit) - data) : size;
    };
    qsizetype at = from;
    // A "\r\n" split between two appends is one line break: the line after the "\r" starts after the "\n".
    if (at > 0 && data[at - 1] == '\r' && data[at] == '\n' && m_starts.last() == at)
        m_starts.last() = ++at;
    qsizetype nextCr = find(at, '\r'), nextLf = find(at, '\n');
    for (;;) {
        const qsizetype lineBreak = std::min(nextCr, nextLf);
        while (lineBreak - m_starts.last() > maxPieceBytes)
            m_starts.append(cutPoint(m_starts.last()));
        if (lineBreak == size)
            return;
        at = lineBreak + 1;
        if (data[lineBreak] == '\r' && at < size && data[at] == '\n')
            ++at;
        m_starts.append(at);
        if (nextCr < at)
            nextCr = find(at, '\r');
        if (nextLf < at)
            nextLf = find(at, '\n');
    }
}

// Called only when more than maxPieceBytes of the line follow `start`, so the choice depends on those
// bytes alone and not on how the output was split into appends.
qsizetype OutputText::cutPoint(qsizetype start) const {
    const char* data = m_bytes.constData();
    const qsizetype limit = start + maxPieceBytes;
    for (qsizetype cut = limit; cut > start + maxPieceBytes / 2; --cut)
        if (data[cut - 1] == ' ' || data[cut - 1] == '\t')
            return cut;
    qsizetype cut = limit;
    while (cut > start + 1 && isContinuation(data[cut]))
        --cut;
    return cut;
}

QString OutputText::text(qsizetype from, qsizetype to) const {
    return QString::fromUtf8(m_bytes.constData() + from, std::max<qsizetype>(0, to - from));
}

qsizetype OutputText::pieceLimit(qsizetype piece) const {
    return piece + 1 < m_starts.size() ? m_starts[piece + 1] : m_bytes.size();
}

qsizetype OutputText::pieceEnd(qsizetype piece) const {
    const qsizetype limit = pieceLimit(piece);
    if (piece + 1 == m_starts.size() || limit == m_starts[piece])
        return limit;
    const char last = m_bytes[limit - 1];
    if (last == '\n')
        return limit - 1 > m_starts[piece] && m_bytes[limit - 2] == '\r' ? limit - 2 : limit - 1;
    return last == '\r' ? limit - 1 : limit;
}

qsizetype OutputText::pieceAt(qsizetype offset) const {
    const auto after = std::upper_bound(m_starts.cbegin(), m_starts.cend(), offset);
    return std::max<qsizetype>(0, (after - m_starts.cbegin()) - 1);
}

qsizetype OutputText::utf16Offset(qsizetype byteOffset) const {
    byteOffset = std::clamp<qsizetype>(byteOffset, 0, m_bytes.size());
    if (m_utf16Size == m_bytes.size()) // all ASCII
        return byteOffset;
    const auto after =
        std::upper_bound(m_marks.cbegin(), m_marks.cend(), byteOffset,
                         [](qsizetype offset, const Mark& mark) { return offset < mark.bytes; });
    const Mark& mark = *(after - 1);
    qsizetype units = mark.utf16;
    for (qsizetype at = mark.bytes; at < byteOffset; ++at) {
        const uchar byte = uchar(m_bytes[at]);
        if ((byte & 0xC0) != 0x80)
            units += byte >= 0xF0 ? 2 : 1;
    }
    return units;
}

qsizetype OutputText::byteOffset(qsizetype utf16Offset) const {
    utf16Offset = std::clamp<qsizetype>(utf16Offset, 0, m_utf16Size);
    if (m_utf16Size == m_bytes.size())
        return utf16Offset;
    const auto after =
        std::upper_bound(m_marks.cbegin(), m_marks.cend(), utf16Offset,
                         [](qsizetype offset, const Mark& mark) { return offset < mark.utf16; });
    const Mark& mark = *(after - 1);
    qsizetype at = mark.bytes, units = mark.utf16;
    while (units < utf16Offset && at < m_bytes.size()) {
        const uchar byte = uchar(m_bytes[at]);
        const qsizetype length = byte < 0x80 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
        units += length == 4 ? 2 : 1;
        at += length;
    }
    return std::min(at, m_bytes.size());
}

qsizetype OutputText::nextCharacter(qsizetype offset) const {
    if (offset >= m_bytes.size())
        return m_bytes.size();
    ++offset;
    while (offset < m_bytes.size() && isContinuation(m_bytes[offset]))
        ++offset;
    return offset;
}

qsizetype OutputText::previousCharacter(qsizetype offset) const {
    if (offset <= 0)
        return 0;
    --offset;
    while (offset > 0 && isContinuation(m_bytes[offset]))
        --offset;
    return offset;
}

} // namespace orvanta
