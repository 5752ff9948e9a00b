#include "store/Failures.h"

#include "store/BackupFiles.h"

namespace fiva {

namespace {

QString readableReason(const QString &detail)
{
    return backup::frenchReason(detail).value_or(detail + u'.');
}

} // namespace

QString failureSentence(FailureKind kind, const QString &detail)
{
    switch (kind) {
    case FailureKind::save:
        return QStringLiteral("Vos modifications n'ont pas pu être enregistrées. ") + readableReason(detail) +
               QStringLiteral(
                   " Vérifiez la place libre sur le disque et les droits du dossier de Fiva : elles "
                   "seront enregistrées à la prochaine modification réussie.");
    case FailureKind::autoBackup:
        return QStringLiteral("La sauvegarde automatique a échoué. ") + readableReason(detail) +
               QStringLiteral(
                   " Fiva réessaiera à la prochaine échéance ; en attendant, exportez une sauvegarde.");
    case FailureKind::exportBackup:
        return QStringLiteral("L'export de la sauvegarde a échoué. ") + detail +
               QStringLiteral(" Aucune archive n'a été écrite ni remplacée : choisissez un autre emplacement "
                              "et réessayez.");
    case FailureKind::dataFileSetAside:
        return QStringLiteral("Le fichier de données était illisible : il a été mis de côté sous « ") +
               detail +
               QStringLiteral(
                   " » et Fiva a démarré sans fiches. Restaurez une sauvegarde pour les retrouver.");
    case FailureKind::dataFileKept:
        return QStringLiteral("Le fichier de données « ") + detail +
               QStringLiteral(" » est illisible et n'a pas pu être mis de côté : Fiva n'enregistrera rien "
                              "pour ne pas l'écraser. Déplacez-le, puis relancez Fiva.");
    }
    return detail;
}

QString noDataFolder()
{
    return QStringLiteral("aucun dossier pour les données de Fiva : ni XDG_DATA_HOME ni HOME ne désignent un "
                          "dossier utilisable.");
}

} // namespace fiva
