#pragma once

#include <QString>

// The text rules that session detection relies on: equality by Unicode canonical equivalence, trimming of
// Unicode white space and line breaks, full upper-case mapping, and counting and cutting by user-perceived
// characters (extended grapheme clusters).
namespace orvanta::text {

bool canonicallyEqual(const QString& a, const QString& b);
// The canonical decomposition: two texts are canonically equal exactly when their keys are equal, so the
// keys can go into sets and maps.
QString canonicalKey(const QString& text);
QString trimmed(const QString& text);
QString fullUpper(const QString& text);
// Upper-cased with the full mapping and canonically decomposed: canonically equal texts give equal keys.
QString caseInsensitiveKey(const QString& text);
// True when `fragment` occurs in `text` as whole user-perceived characters: the match starts and ends on
// character boundaries, so "e" is not found in "e" followed by a combining accent.
bool containsCharacters(const QString& text, const QString& fragment);
// True when `text` contains `fragment` as whole characters, both compared by their case-insensitive keys.
// Canonically equal texts always get the same answer.
bool containsIgnoringCase(const QString& text, const QString& fragment);
qsizetype graphemeCount(const QString& text);
// The first `count` user-perceived characters of `text` (all of it when it has fewer).
QString graphemePrefix(const QString& text, qsizetype count);
// `text` with every control character and line or paragraph separator replaced by a visible symbol (the
// Control Pictures: a tab becomes U+2409), so that a menu or label shows it instead of acting on it.
QString withVisibleControls(QString text);

} // namespace orvanta::text
