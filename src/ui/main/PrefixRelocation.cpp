#include "ui/main/PrefixRelocation.h"

#include "platform/Dialogs.h"
#include "store/LinkStore.h"
#include "ui/main/HealthMonitor.h"

#include <QWidget>

#include "health/HealthCache.h"
#include "health/Relocation.h"

namespace fiva {

PrefixRelocation::PrefixRelocation(LinkStore &store, Dialogs &dialogs, QWidget *parent)
    : QObject(parent), m_store(store), m_dialogs(dialogs)
{
}

PrefixRelocation::~PrefixRelocation()
{
    if (m_worker.joinable()) {
        m_worker.request_stop();
        m_worker.join();
    }
}

PrefixRelocation *PrefixRelocation::start(LinkStore &store, Dialogs &dialogs, const HealthMonitor &health,
                                          QWidget *parent)
{
    auto *relocation = new PrefixRelocation(store, dialogs, parent);
    QList<RecordHealth> broken;
    for (const QUuid &id : health.cache().brokenIds())
        broken.append(*health.cache().health(id));
    relocation->m_worker = std::jthread([relocation, items = store.items(),
                                         broken = std::move(broken)](std::stop_token stop) {
        const auto proposals = proposePrefixReplacements(items, broken, stop);
        if (stop.stop_requested())
            return;
        QMetaObject::invokeMethod(
            relocation,
            [relocation, proposals = proposals.value_or(QList<PrefixReplacement>())] {
                qsizetype offered = 0;
                for (const PrefixReplacement &p : proposals) {
                    if (p.newPrefix.isEmpty() || p.repaired == 0)
                        continue;
                    ++offered;
                    const AlertAnswer answer = relocation->m_dialogs.runAlert(
                        {QStringLiteral("Remplacer « %1 » par « %2 » ?").arg(p.oldPrefix, p.newPrefix),
                         QStringLiteral("%1 fiche(s) seraient réparées, %2 resteraient cassées.")
                             .arg(QString::number(p.repaired), QString::number(p.stillBroken())),
                         AlertStyle::informational,
                         {QStringLiteral("Remplacer"), QStringLiteral("Annuler")},
                         std::nullopt});
                    if (answer.button != 0)
                        continue;
                    const QString oldPrefix = p.oldPrefix, newPrefix = p.newPrefix;
                    const auto changed = relocation->m_store.repairPaths([&](const QList<LinkItem> &fresh) {
                        return prefixRepairs(fresh, oldPrefix, newPrefix);
                    });
                    if (!changed)
                        relocation->m_dialogs.showAlert(
                            QStringLiteral("Rien n’a été réparé"),
                            QStringLiteral("Le fichier de données n’a pas pu être enregistré."));
                }
                if (offered == 0)
                    relocation->m_dialogs.runAlert(
                        {QStringLiteral("Aucun dossier déplacé à réparer"),
                         QStringLiteral("Fiva n’a trouvé aucun dossier disparu dont le contenu se retrouve "
                                        "ailleurs à côté."),
                         AlertStyle::informational,
                         {QStringLiteral("OK")},
                         std::nullopt});
                Q_EMIT relocation->finished();
                relocation->deleteLater();
            },
            Qt::QueuedConnection);
    });
    return relocation;
}

} // namespace fiva
