// The runner's decoding of a child's output, read by read: the same bytes split into arbitrary reads must
// give exactly the text of the whole when they are valid UTF-8, and must never break the decoder otherwise.

#include "FuzzSupport.h"

#include "diagnostics/ScriptRunner.h"

#include <vector>

using namespace orvanta;

namespace {

// The text of strict UTF-8 (RFC 3629: no overlong forms, no surrogates, nothing above U+10FFFF), decoded here
// by hand, or none when the bytes are not such UTF-8. An initial byte-order mark is text like any other.
std::optional<QString> strictUtf8(const std::string& bytes) {
    QString text;
    std::size_t i = 0;
    while (i < bytes.size()) {
        const auto byte = [&](std::size_t at) { return quint8(bytes[at]); };
        const quint8 lead = byte(i);
        if (lead < 0x80) {
            text.append(QChar(lead));
            ++i;
            continue;
        }
        std::size_t length;
        quint8 low = 0x80, high = 0xBF;
        char32_t codePoint;
        if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2;
            codePoint = lead & 0x1F;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            codePoint = lead & 0x0F;
            if (lead == 0xE0)
                low = 0xA0;
            if (lead == 0xED)
                high = 0x9F;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            codePoint = lead & 0x07;
            if (lead == 0xF0)
                low = 0x90;
            if (lead == 0xF4)
                high = 0x8F;
        } else {
            return std::nullopt;
        }
        if (i + length > bytes.size() || byte(i + 1) < low || byte(i + 1) > high)
            return std::nullopt;
        for (std::size_t k = 1; k < length; ++k) {
            if (byte(i + k) < 0x80 || byte(i + k) > 0xBF)
                return std::nullopt;
            codePoint = (codePoint << 6) | (byte(i + k) & 0x3F);
        }
        // Not QString::fromUcs4, which would drop a byte-order mark too.
        if (QChar::requiresSurrogates(codePoint)) {
            text.append(QChar(QChar::highSurrogate(codePoint)));
            text.append(QChar(QChar::lowSurrogate(codePoint)));
        } else {
            text.append(QChar(char16_t(codePoint)));
        }
        i += length;
    }
    return text;
}

qsizetype countOf(const std::string& haystack, const std::string& needle) {
    qsizetype count = 0;
    for (std::size_t at = haystack.find(needle); at != std::string::npos; at = haystack.find(needle, at + 1))
        ++count;
    return count;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    // Read lengths come from the end of the input, the bytes from its start.
    std::vector<std::size_t> lengths;
    const int reads = input.ConsumeIntegralInRange(1, 16);
    for (int i = 0; i < reads; ++i)
        lengths.push_back(input.ConsumeIntegralInRange<std::size_t>(0, 12));
    const bool reuse = input.ConsumeBool();
    const std::string bytes = input.ConsumeRemainingBytesAsString();

    OutputDecoder decoder;
    // A decoder used before and reset must behave like a new one.
    if (reuse) {
        (void)decoder.decode(QByteArrayView("\xE2\x82", 2));
        decoder.reset();
    }
    QString joined;
    bool dropped = false;
    std::size_t at = 0;
    for (std::size_t read = 0; at < bytes.size(); ++read) {
        // The last read takes what is left.
        const std::size_t length =
            read < lengths.size() ? std::min(lengths[read], bytes.size() - at) : bytes.size() - at;
        const QByteArrayView chunk(bytes.data() + at, qsizetype(length));
        const std::optional<QString> text = decoder.decode(chunk);
        FUZZ_TRACE("read", chunk.toByteArray().toHex(' '));
        FUZZ_TRACE("decoded", text ? QVariant(*text) : QVariant());
        at += length;
        if (text)
            joined += *text;
        else
            dropped = true;
    }

    // Compared with a decoding by hand: QString::fromUtf8 would drop an initial byte-order mark, which the
    // runner keeps.
    if (const std::optional<QString> whole = strictUtf8(bytes)) {
        FUZZ_TRACE("whole", *whole);
        FUZZ_TRACE("reuse", reuse);
        FUZZ_CHECK(!dropped);
        FUZZ_CHECK(joined == *whole);
    }
    // Bad reads are dropped whole, never patched with replacement characters, and UTF-8 never takes fewer
    // bytes than UTF-16 units.
    FUZZ_CHECK(joined.count(QChar(0xFFFD)) <= countOf(bytes, "\xEF\xBF\xBD"));
    FUZZ_CHECK(joined.size() <= qsizetype(bytes.size()));
    // A read of nothing is not a bad read.
    FUZZ_CHECK(decoder.decode(QByteArrayView()).has_value());
    return 0;
}
