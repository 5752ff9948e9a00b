#include "model/AutoBackupInterval.h"

namespace fiva {

double rawValue(AutoBackupInterval interval)
{
    switch (interval) {
    case AutoBackupInterval::fiveMinutes:
        return 300.0;
    case AutoBackupInterval::fifteenMinutes:
        return 900.0;
    case AutoBackupInterval::oneHour:
        return 3600.0;
    case AutoBackupInterval::oneDay:
        return 86400.0;
    }
    return 0.0;
}

std::optional<AutoBackupInterval> autoBackupIntervalFromRawValue(double seconds)
{
    for (AutoBackupInterval interval : allAutoBackupIntervals) {
        if (rawValue(interval) == seconds)
            return interval;
    }
    return std::nullopt;
}

QString label(AutoBackupInterval interval)
{
    switch (interval) {
    case AutoBackupInterval::fiveMinutes:
        return QStringLiteral("5 minutes");
    case AutoBackupInterval::fifteenMinutes:
        return QStringLiteral("15 minutes");
    case AutoBackupInterval::oneHour:
        return QStringLiteral("1 heure");
    case AutoBackupInterval::oneDay:
        return QStringLiteral("1 jour");
    }
    return {};
}

} // namespace fiva
