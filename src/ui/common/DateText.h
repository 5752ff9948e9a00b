#pragma once

#include "model/DateTimeConversion.h"

#include <QString>

namespace fiva {

// The short numeric date of the user's locale, as the date pickers show it.
QString shortDateFormat();

// A date as every screen shows it: the locale's numeric date, then its time without seconds
// ("07/05/2020 21:46" in French); empty for a date no calendar can show.
QString dateTimeText(Timestamp t);

} // namespace fiva
