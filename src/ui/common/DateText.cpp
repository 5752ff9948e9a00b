#include "ui/common/DateText.h"

#include "platform/Collation.h"

#include <QLocale>

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

QString shortDateFormat()
{
    // A short date that spells the month out would not be numeric; the ISO form stands in for it.
    const QString format = userLocale().dateFormat(QLocale::ShortFormat);
    return format.contains(QStringLiteral("MMM")) ? QStringLiteral("yyyy-MM-dd") : format;
}

QString dateTimeText(Timestamp t)
{
    const std::optional<QDateTime> when = toDateTime(t);
    if (!when)
        return {};
    const QLocale locale = userLocale();
    QString timeFormat = locale.timeFormat(QLocale::ShortFormat);
    timeFormat.remove(QStringLiteral(":ss"));
    return locale.toString(when->date(), shortDateFormat()) + u' ' +
           locale.toString(when->time(), timeFormat);
}

} // namespace fiva
