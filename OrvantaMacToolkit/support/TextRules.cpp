#include "TextRules.h"

#include <QTextBoundaryFinder>

namespace orvanta::text {

bool canonicallyEqual(const QString& a, const QString& b) {
    if (a == b)
        return true;
    return canonicalKey(a) == canonicalKey(b);
}

QString canonicalKey(const QString& text) {
    return text.normalized(QString::NormalizationForm_D);
}

QString trimmed(const QString& text) {
    // QString::trimmed drops every QChar::isSpace character: the Unicode separators (Zs, Zl, Zp), the
    // ASCII controls tab to carriage return, and U+0085.
    return text.trimmed();
}

QString fullUpper(const QString& text) {
    // Qt applies the unconditional special casings, so "ß" becomes "SS" and "ŉ" becomes "ʼN".
    return text.toUpper();
}

QString caseInsensitiveKey(const QString& text) {
    // Decomposed first, so that equal texts are mapped from the same code points; decomposed again, as
    // the mapping may leave combining marks out of canonical order.
    return canonicalKey(fullUpper(canonicalKey(text)));
}

namespace {

// A grapheme boundary that does not fall between the two halves of a surrogate pair (see nextBoundary).
bool isCharacterBoundary(QTextBoundaryFinder& finder, const QString& text, qsizetype position) {
    if (position > 0 && position < text.size() && text.at(position - 1).isHighSurrogate() &&
        text.at(position).isLowSurrogate())
        return false;
    finder.setPosition(position);
    return finder.isAtBoundary();
}

} // namespace

bool containsCharacters(const QString& text, const QString& fragment) {
    if (fragment.isEmpty())
        return true;
    qsizetype at = text.indexOf(fragment);
    if (at == -1)
        return false;
    // Boundaries are worked out only once a code-unit match has been found; most texts have none.
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    for (; at != -1; at = text.indexOf(fragment, at + 1))
        if (isCharacterBoundary(finder, text, at) && isCharacterBoundary(finder, text, at + fragment.size()))
            return true;
    return false;
}

bool containsIgnoringCase(const QString& text, const QString& fragment) {
    return containsCharacters(caseInsensitiveKey(text), caseInsensitiveKey(fragment));
}

namespace {

// The next grapheme boundary after the current one, or -1 at the end. Qt's finder can report a boundary
// between the two halves of a surrogate pair when the text also holds characters of a script it tailors
// (Gurmukhi digits, say); such a boundary is skipped, so a character is never cut in two.
qsizetype nextBoundary(QTextBoundaryFinder& finder, const QString& text) {
    qsizetype next = finder.toNextBoundary();
    while (next > 0 && next < text.size() && text.at(next - 1).isHighSurrogate() &&
           text.at(next).isLowSurrogate())
        next = finder.toNextBoundary();
    return next;
}

} // namespace

qsizetype graphemeCount(const QString& text) {
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype count = 0;
    while (nextBoundary(finder, text) != -1)
        ++count;
    return count;
}

QString graphemePrefix(const QString& text, qsizetype count) {
    if (count <= 0)
        return {};
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype seen = 0;
    qsizetype position = 0;
    while (seen < count) {
        const qsizetype next = nextBoundary(finder, text);
        if (next == -1)
            return text;
        position = next;
        ++seen;
    }
    return text.left(position);
}

QString withVisibleControls(QString text) {
    for (QChar& c : text) {
        const char16_t code = c.unicode();
        if (code < 0x20)
            c = QChar(char16_t(0x2400 + code)); // the picture of each C0 control
        else if (code == 0x7F)
            c = QChar(char16_t(0x2421)); // DELETE
        else if (code == 0x85 || code == 0x2028 || code == 0x2029)
            c = QChar(char16_t(0x2424)); // the line breaks without a picture of their own: NEWLINE
        else if (code >= 0x80 && code <= 0x9F)
            c = QChar(QChar::ReplacementCharacter);
    }
    return text;
}

} // namespace orvanta::text
