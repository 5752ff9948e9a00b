#pragma once

#include "model/Timestamp.h"

#include <QDateTime>
#include <QString>

#include <optional>

namespace fiva {

// The local date and time of a stored date; nothing for one no calendar can show (infinite, NaN or
// millions of years away, as a hand-edited file may hold).
std::optional<QDateTime> toDateTime(Timestamp t);
Timestamp toTimestamp(const QDateTime &dateTime);

// The short numeric date of the user's locale, as the date pickers show it.
QString shortDateFormat();

// A date as every screen shows it: the locale's numeric date, then its time without seconds
// ("07/05/2020 21:46" in French); empty for a date no calendar can show.
QString dateTimeText(Timestamp t);

} // namespace fiva
