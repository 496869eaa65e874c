#include "TextRules.h"

#include <QTextBoundaryFinder>

namespace orvanta::text {

bool canonicallyEqual(const QString& a, const QString& b) {
    if (a == b)
        return true;
    return a.normalized(QString::NormalizationForm_D) == b.normalized(QString::NormalizationForm_D);
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

bool containsIgnoringCase(const QString& text, const QString& fragment) {
    return fullUpper(text).contains(fullUpper(fragment));
}

qsizetype graphemeCount(const QString& text) {
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype count = 0;
    while (finder.toNextBoundary() != -1)
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
        const qsizetype next = finder.toNextBoundary();
        if (next == -1)
            return text;
        position = next;
        ++seen;
    }
    return text.left(position);
}

} // namespace orvanta::text
