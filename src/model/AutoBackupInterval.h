#pragma once

#include <QString>

#include <array>
#include <optional>

namespace fiva {

// Listed in the order the user sees them.
enum class AutoBackupInterval { fiveMinutes, fifteenMinutes, oneHour, oneDay };

inline constexpr std::array<AutoBackupInterval, 4> allAutoBackupIntervals = {
    AutoBackupInterval::fiveMinutes, AutoBackupInterval::fifteenMinutes, AutoBackupInterval::oneHour,
    AutoBackupInterval::oneDay};

// The raw value: the interval's length in seconds.
double rawValue(AutoBackupInterval interval);
// No value for any number of seconds that is not exactly one of the four intervals.
std::optional<AutoBackupInterval> autoBackupIntervalFromRawValue(double seconds);
// "5 minutes", "15 minutes", "1 heure", "1 jour".
QString label(AutoBackupInterval interval);

} // namespace fiva
