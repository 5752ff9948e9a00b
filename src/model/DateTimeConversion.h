#pragma once

#include "model/Timestamp.h"

#include <QDateTime>

#include <optional>

namespace fiva {

// The one conversion between stored dates and Qt's, to the millisecond; kept apart from Timestamp
// so that the value type stays free of Qt. The local date and time of a stored date; nothing for
// one no calendar can show (infinite, NaN or millions of years away, as a hand-edited file may hold).
std::optional<QDateTime> toDateTime(Timestamp t);
Timestamp toTimestamp(const QDateTime &dateTime);

} // namespace fiva
