#pragma once

#include <QString>

namespace corvane {

// What the window shows of a text that can be arbitrarily long: a diagnostic
// message or its raw output can hold megabytes of one unbroken word, and
// Qt's word wrapping looks for a break across the whole word for every line,
// so laying out such a text takes time that grows with the square of its
// length. The views show a bounded head of the text instead; the copy
// commands still take the whole text from the diagnostic.
namespace displayText {

// Enough for anything a line or two can show: rows, one-line labels, tooltips.
inline constexpr qsizetype lineLimit = 500;
// Enough for every real message or compiler output to appear in full.
inline constexpr qsizetype cardLimit = 10000;

// `text` when it has at most `limit` characters; otherwise its first `limit`
// characters followed by "…" and how many characters were left out.
QString bounded(const QString& text, qsizetype limit);

// `text` with a zero-width space every few characters inside any run too
// long to fit on a line, so wrapping finds a break close by.
QString withBreakHints(const QString& text);

// A text taken from a display (a selection), without the hints added above.
QString withoutBreakHints(QString text);

} // namespace displayText
} // namespace corvane
