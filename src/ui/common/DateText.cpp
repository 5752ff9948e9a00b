#include "ui/common/DateText.h"

#include "platform/Collation.h"

#include <QLocale>

namespace fiva {

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
