#pragma once

#include <QDateTime>
#include <QHashFunctions>

#include <compare>

namespace corvane {

// A point in time as property lists store it: seconds since
// 2001-01-01 00:00:00 UTC as a 64-bit float. Keeping that number itself, not a
// QDateTime with millisecond precision, makes a saved and reloaded time compare
// equal to the one that was saved, whoever wrote the file.
struct AbsoluteTime {
    double secondsSinceReferenceDate = 0.0;

    static AbsoluteTime now();
    static AbsoluteTime fromDateTime(const QDateTime& dateTime);
    QDateTime toDateTime() const;

    bool operator==(const AbsoluteTime&) const = default;
    auto operator<=>(const AbsoluteTime&) const = default;
};

inline size_t qHash(AbsoluteTime time, size_t seed = 0) noexcept
{
    return ::qHash(time.secondsSinceReferenceDate, seed);
}

} // namespace corvane
