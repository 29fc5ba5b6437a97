#pragma once

#include <QString>
#include <QtGlobal>

namespace corvane {

// Paging through the history strip's sessions, four cards at a time. The
// start index is the view's own state; the session count comes from the store
// on every use.
namespace HistoryPager {

inline constexpr qsizetype pageSize = 4;

struct Range {
    qsizetype start = 0;
    qsizetype end = 0; // one past the last shown
};

// The sessions shown for a start index, clamped so that a start left beyond
// the end (between a change and its reset) still shows the last session.
Range page(qsizetype count, qsizetype startIndex);
// The pager appears only when there is more than one page.
bool isNeeded(qsizetype count);
// "1–4 / 7": first shown, en dash, last shown, " / ", count.
QString rangeText(qsizetype count, qsizetype startIndex);
qsizetype newer(qsizetype startIndex);
// Moves a page on, but never so far that the last page is not full.
qsizetype older(qsizetype count, qsizetype startIndex);
bool canGoNewer(qsizetype startIndex);
bool canGoOlder(qsizetype count, qsizetype startIndex);

} // namespace HistoryPager

} // namespace corvane
