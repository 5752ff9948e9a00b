#include "store/Recovery.h"

#include "model/DateTimeConversion.h"
#include "platform/Collation.h"

#include <QDateTime>
#include <QLocale>

namespace fiva {

QString recoveryOffer(const LinkStore::AutoBackupCandidate &candidate)
{
    const QDateTime when = toDateTime(candidate.date).value_or(QDateTime());
    return QStringLiteral("Sauvegarde automatique du %1 : %2 fiche(s) (%3)")
        .arg(userLocale().toString(when, QLocale::ShortFormat))
        .arg(candidate.records)
        .arg(candidate.path);
}

} // namespace fiva
