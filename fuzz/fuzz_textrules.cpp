// The title filter and the text rules on arbitrary text, checked against their defining properties.

#include "FuzzSupport.h"

#include "session/SessionDetector.h"
#include "support/TextRules.h"

using namespace orvanta;
using namespace orvanta::fuzzing;

namespace {

bool hasLoneSurrogate(const QString& text) {
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text.at(i).isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate())
            ++i;
        else if (text.at(i).isSurrogate())
            return true;
    }
    return false;
}

void checkCanonicalEquality(const QString& t, const QString& u) {
    FUZZ_CHECK(text::canonicallyEqual(t, t));
    FUZZ_CHECK(text::canonicallyEqual(t, u) == text::canonicallyEqual(u, t));
    FUZZ_CHECK(text::canonicallyEqual(t, t.normalized(QString::NormalizationForm_C)));
    FUZZ_CHECK(text::canonicallyEqual(t.normalized(QString::NormalizationForm_D), t));
}

void checkTrimming(const QString& t) {
    const QString trimmed = text::trimmed(t);
    FUZZ_CHECK(text::trimmed(trimmed) == trimmed);
    FUZZ_CHECK(trimmed.isEmpty() || (!trimmed.front().isSpace() && !trimmed.back().isSpace()));
    // Only white space is removed, and only from the ends.
    qsizetype start = 0;
    while (start < t.size() && t.at(start).isSpace())
        ++start;
    FUZZ_CHECK(t.mid(start, trimmed.size()) == trimmed);
    for (qsizetype i = start + trimmed.size(); i < t.size(); ++i)
        FUZZ_CHECK(t.at(i).isSpace());
}

void checkUpperCase(const QString& t, const QString& u) {
    const QString upper = text::fullUpper(t);
    FUZZ_CHECK(text::containsIgnoringCase(t, t));
    FUZZ_CHECK(text::containsIgnoringCase(t, QString()));
    // The mapping works character by character, so it keeps a join. Not so with lone surrogates: Qt turns
    // them into U+FFFD, but only when some other character of the text changes case.
    if (!hasLoneSurrogate(t) && !hasLoneSurrogate(u)) {
        FUZZ_CHECK(text::fullUpper(t + u) == upper + text::fullUpper(u));
        // Containment is by whole characters, and a line break always ends one.
        FUZZ_CHECK(text::containsIgnoringCase(t + QLatin1Char('\n') + u, u));
    }
}

void checkGraphemes(const QString& t, qsizetype k) {
    const qsizetype count = text::graphemeCount(t);
    FUZZ_CHECK(count >= 0 && count <= t.size());
    FUZZ_CHECK((count == 0) == t.isEmpty());
    FUZZ_CHECK(text::graphemePrefix(t, count) == t);
    FUZZ_CHECK(text::graphemePrefix(t, count + 1) == t);
    FUZZ_CHECK(text::graphemePrefix(t, 0).isEmpty());
    FUZZ_CHECK(text::graphemePrefix(t, -1).isEmpty());
    FUZZ_CHECK(text::graphemePrefix(t, std::numeric_limits<qsizetype>::max()) == t);

    k = count == 0 ? 0 : k % (count + 1);
    const QString prefix = text::graphemePrefix(t, k);
    FUZZ_CHECK(t.startsWith(prefix));
    // Never half a character. (Counting the prefix again need not give k: Qt tailors clusters for some
    // scripts, and then combining marks split differently once the rest of the text is gone.)
    FUZZ_CHECK(prefix.isEmpty() || prefix.size() == t.size() || !prefix.back().isHighSurrogate() ||
               !t.at(prefix.size()).isLowSurrogate());
    if (k < count)
        FUZZ_CHECK(text::graphemePrefix(t, k + 1).size() > prefix.size());
}

void checkTitleFilter(const QString& t) {
    const bool excluded = SessionDetector::isExcludedTitle(t);
    FUZZ_CHECK(SessionDetector::isExcludedTitle(QStringLiteral(" \t") + t + QStringLiteral("\n\u2028")) ==
               excluded);
    if (text::trimmed(t).isEmpty())
        FUZZ_CHECK(excluded);
    for (const QString& title : SessionDetector::excludedTitles())
        if (text::canonicallyEqual(text::trimmed(t), title))
            FUZZ_CHECK(excluded);
    for (const QString& fragment : SessionDetector::excludedTitleFragments())
        if (text::containsIgnoringCase(t, fragment))
            FUZZ_CHECK(excluded);
    // A fragment anywhere, in any case, excludes the title when it stands as whole characters (a space
    // before or after it ends any character).
    FUZZ_CHECK(SessionDetector::isExcludedTitle(t + QStringLiteral(" ctf")));
    FUZZ_CHECK(SessionDetector::isExcludedTitle(QStringLiteral("ime_ ") + t));
    // Canonically equal titles get the same verdict.
    if (!hasLoneSurrogate(t)) {
        FUZZ_CHECK(SessionDetector::isExcludedTitle(t.normalized(QString::NormalizationForm_C)) == excluded);
        FUZZ_CHECK(SessionDetector::isExcludedTitle(t.normalized(QString::NormalizationForm_D)) == excluded);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    const qsizetype k = input.ConsumeIntegral<quint16>();
    const bool utf16 = input.ConsumeBool();
    const QString u = textFromBytes(input.ConsumeRandomLengthString(256), utf16);
    const QString t = textFromBytes(input.ConsumeRemainingBytesAsString(), utf16);

    FUZZ_TRACE("t", t);
    FUZZ_TRACE("u", u);
    checkCanonicalEquality(t, u);
    checkTrimming(t);
    checkUpperCase(t, u);
    checkGraphemes(t, k);
    checkTitleFilter(t);
    return 0;
}
