#include "ui/main/WebCheckRun.h"

#include "model/LinkItem.h"
#include "platform/Dialogs.h"
#include "store/LinkStore.h"
#include "ui/main/HealthMonitor.h"

#include <QProgressDialog>
#include <QWidget>

#include "health/WebCheck.h"

namespace fiva {

WebCheckRun::WebCheckRun(LinkStore &store, Dialogs &dialogs, HealthMonitor &health, QWidget *parent)
    : QObject(parent), m_store(store), m_dialogs(dialogs), m_health(health)
{
}

WebCheckRun *WebCheckRun::start(LinkStore &store, Dialogs &dialogs, HealthMonitor &health, QWidget *parent)
{
    auto *run = new WebCheckRun(store, dialogs, health, parent);
    QList<WebCheckRequest> requests;
    for (const LinkItem &item : store.items()) {
        if (item.kind == LinkKind::url)
            requests.append({item.id, item.path});
    }
    run->m_progress = new QProgressDialog(QStringLiteral("Vérification des pages web…"),
                                          QStringLiteral("Annuler"), 0, int(requests.size()), parent);
    run->m_progress->setObjectName(QStringLiteral("webCheckProgress"));
    run->m_progress->setWindowModality(Qt::WindowModal);
    run->m_progress->setMinimumDuration(0);
    run->m_checker = new WebChecker({}, run);
    connect(run->m_checker, &WebChecker::progressChanged, run->m_progress, &QProgressDialog::setValue);
    connect(run->m_progress, &QProgressDialog::canceled, run->m_checker, &WebChecker::cancel);
    connect(run->m_checker, &WebChecker::finished, run, &WebCheckRun::done);
    run->m_progress->show();
    run->m_checker->start(requests);
    return run;
}

void WebCheckRun::done()
{
    m_progress->hide();
    m_progress->deleteLater();
    const QList<WebCheckResult> results = m_checker->results();
    m_health.recordWebResults(results);

    qsizetype dead = 0;
    for (const WebCheckResult &result : results)
        dead += result.isBroken();
    m_dialogs.runAlert({QStringLiteral("Vérification terminée"),
                        QStringLiteral("%1 page(s) vérifiée(s), %2 en erreur.")
                            .arg(QString::number(results.size()), QString::number(dead)),
                        AlertStyle::informational,
                        {QStringLiteral("OK")},
                        std::nullopt});
    for (const WebCheckResult &result : results) {
        if (result.isBroken() || !result.wasRedirected())
            continue;
        const AlertAnswer answer =
            m_dialogs.runAlert({QStringLiteral("La page a changé d’adresse"),
                                QStringLiteral("« %1 » mène à « %2 ». Mettre à jour la fiche ?")
                                    .arg(result.address, result.finalAddress),
                                AlertStyle::informational,
                                {QStringLiteral("Mettre à jour"), QStringLiteral("Ignorer")},
                                std::nullopt});
        // Only while the record still points where it was checked: it may have been edited meanwhile.
        if (answer.button == 0)
            m_store.editItem(result.id, [&](LinkItem &item) {
                if (item.path == result.address)
                    item.path = result.finalAddress;
            });
    }
    Q_EMIT finished();
    deleteLater();
}

} // namespace fiva
