#include "model/DateTimeConversion.h"

#include <cmath>

namespace fiva {

std::optional<QDateTime> toDateTime(Timestamp t)
{
    const double milliseconds = t.toUnix() * 1000.0;
    if (!std::isfinite(milliseconds) || std::fabs(milliseconds) > 8.0e15)
        return std::nullopt;
    return QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(std::llround(milliseconds)));
}

Timestamp toTimestamp(const QDateTime &dateTime)
{
    return Timestamp::fromUnix(static_cast<double>(dateTime.toMSecsSinceEpoch()) / 1000.0);
}

} // namespace fiva
