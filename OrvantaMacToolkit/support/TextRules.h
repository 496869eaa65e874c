#pragma once

#include <QString>

// The text rules that session detection relies on: equality by Unicode canonical equivalence, trimming of
// Unicode white space and line breaks, full upper-case mapping, and counting and cutting by user-perceived
// characters (extended grapheme clusters).
namespace orvanta::text {

bool canonicallyEqual(const QString& a, const QString& b);
QString trimmed(const QString& text);
QString fullUpper(const QString& text);
// True when `text` contains `fragment` after both are upper-cased with the full mapping.
bool containsIgnoringCase(const QString& text, const QString& fragment);
qsizetype graphemeCount(const QString& text);
// The first `count` user-perceived characters of `text` (all of it when it has fewer).
QString graphemePrefix(const QString& text, qsizetype count);
// `text` with every control character and line or paragraph separator replaced by a visible symbol (the
// Control Pictures: a tab becomes U+2409), so that a menu or label shows it instead of acting on it.
QString withVisibleControls(QString text);

} // namespace orvanta::text
