#include "AbsoluteTime.h"


#include <chrono>

namespace corvane {

namespace {
// 2001-01-01 00:00:00 UTC in seconds since the Unix epoch.
constexpr double referenceDateUnixSeconds = 978307200.0;
}

AbsoluteTime AbsoluteTime::now()
{
    using namespace std::chrono;
    const auto sinceEpoch = duration_cast<microseconds>(system_clock::now().time_since_epoch());
    return {double(sinceEpoch.count()) / 1e6 - referenceDateUnixSeconds};
}

AbsoluteTime AbsoluteTime::fromDateTime(const QDateTime& dateTime)
{
    return {double(dateTime.toMSecsSinceEpoch()) / 1000.0 - referenceDateUnixSeconds};
}

QDateTime AbsoluteTime::toDateTime() const
{
    const double unixMs = (secondsSinceReferenceDate + referenceDateUnixSeconds) * 1000.0;
    return QDateTime::fromMSecsSinceEpoch(qint64(unixMs), Qt::UTC);
}

} // namespace corvane
