#pragma once

#include <compare>

namespace fiva {

// A point in time as seconds since 2001-01-01 00:00:00 UTC, the form every file of Fiva stores.
// Kept as the exact double that was read so that writing it back yields the same number.
struct Timestamp
{
    double seconds = 0.0;

    // Seconds between 1970-01-01 and 2001-01-01, both UTC.
    static constexpr double unixEpochOffset = 978307200.0;

    static Timestamp now();
    static constexpr Timestamp fromUnix(double unixSeconds) { return {unixSeconds - unixEpochOffset}; }
    constexpr double toUnix() const { return seconds + unixEpochOffset; }

    friend constexpr auto operator<=>(const Timestamp &, const Timestamp &) = default;
};

} // namespace fiva
