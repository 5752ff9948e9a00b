#include "store/Recovery.h"

#include "platform/Collation.h"

#include <QDateTime>
#include <QLocale>

#include <cmath>

namespace fiva {

QString recoveryOffer(const LinkStore::AutoBackupCandidate &candidate)
{
    const QDateTime when =
        QDateTime::fromMSecsSinceEpoch(std::llround(candidate.date.toUnix() * 1000.0)).toLocalTime();
    return QStringLiteral("Sauvegarde automatique du %1 : %2 fiche(s) (%3)")
        .arg(userLocale().toString(when, QLocale::ShortFormat))
        .arg(candidate.records)
        .arg(candidate.path);
}

} // namespace fiva
