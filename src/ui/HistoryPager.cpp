#include "HistoryPager.h"

#include <algorithm>

namespace corvane::HistoryPager {

Range page(qsizetype count, qsizetype startIndex)
{
    if (count <= 0)
        return {};
    const qsizetype start = std::min(count - 1, startIndex);
    return {start, std::min(count, start + pageSize)};
}

bool isNeeded(qsizetype count)
{
    return count > pageSize;
}

QString rangeText(qsizetype count, qsizetype startIndex)
{
    return QString::number(startIndex + 1) + QChar(0x2013) + QString::number(std::min(startIndex + pageSize, count))
        + QStringLiteral(" / ") + QString::number(count);
}

qsizetype newer(qsizetype startIndex)
{
    return std::max<qsizetype>(startIndex - pageSize, 0);
}

qsizetype older(qsizetype count, qsizetype startIndex)
{
    return std::min(std::max<qsizetype>(count - pageSize, 0), startIndex + pageSize);
}

bool canGoNewer(qsizetype startIndex)
{
    return startIndex != 0;
}

bool canGoOlder(qsizetype count, qsizetype startIndex)
{
    return startIndex + pageSize < count;
}

} // namespace corvane::HistoryPager
