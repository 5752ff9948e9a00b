#include "ui/main/RelocationSearch.h"

#include "model/LinkItem.h"
#include "platform/Dialogs.h"
#include "store/LinkStore.h"

#include <QPointer>
#include <QProgressDialog>

#include <atomic>
#include <memory>

#include "health/Relocation.h"

namespace fiva {

RelocationSearch::RelocationSearch(LinkStore &store, Dialogs &dialogs, QWidget *parent)
    : QObject(parent), m_store(store), m_dialogs(dialogs), m_parent(parent)
{
}

RelocationSearch::~RelocationSearch()
{
    if (m_worker.joinable()) {
        m_worker.request_stop();
        m_worker.join();
    }
}

RelocationSearch *RelocationSearch::forRecord(LinkStore &store, Dialogs &dialogs, const LinkItem &item,
                                              QWidget *parent)
{
    auto *search = new RelocationSearch(store, dialogs, parent);
    const RelocationTarget target = RelocationTarget::forRecord(item);
    search->m_itemId = item.id;
    search->m_name = target.name;
    search->m_isFolder = target.isFolder;
    search->askForFolder();
    return search;
}

RelocationSearch *RelocationSearch::forAttachment(LinkStore &store, Dialogs &dialogs, const QUuid &itemId,
                                                  const Attachment &attachment, std::optional<qint64> size,
                                                  QWidget *parent)
{
    auto *search = new RelocationSearch(store, dialogs, parent);
    const RelocationTarget target = RelocationTarget::forAttachment(attachment, size);
    search->m_itemId = itemId;
    search->m_attachmentId = attachment.id;
    search->m_name = target.name;
    search->m_size = target.size;
    search->askForFolder();
    return search;
}

void RelocationSearch::askForFolder()
{
    QPointer<RelocationSearch> self(this);
    m_dialogs.showOpenPanel({OpenPanelRequest::Kind::folders, {}, false, QStringLiteral("Rechercher")},
                            [self](std::optional<QStringList> chosen) {
                                if (!self)
                                    return;
                                if (!chosen || chosen->isEmpty())
                                    return self->end();
                                self->search(chosen->first());
                            });
}

void RelocationSearch::search(const QString &root)
{
    m_progress = new QProgressDialog(QStringLiteral("Recherche de « %1 »…").arg(m_name),
                                     QStringLiteral("Annuler"), 0, 0, m_parent);
    m_progress->setObjectName(QStringLiteral("relocationProgress"));
    m_progress->setWindowModality(Qt::WindowModal);
    m_progress->setMinimumDuration(0);
    connect(m_progress, &QProgressDialog::canceled, this, [this] { m_worker.request_stop(); });
    m_progress->show();

    const RelocationTarget target{m_name, m_isFolder, m_size};
    // Progress reaches the dialog through the event loop; only the latest folder matters, so a
    // report waits until the dialog took the previous one.
    auto pending = std::make_shared<std::atomic_bool>(false);
    m_worker = std::jthread([this, target, root, pending](std::stop_token stop) {
        const auto candidates =
            findRelocationCandidates(target, root, stop, [this, pending](const SearchProgress &progress) {
                if (pending->exchange(true))
                    return;
                QMetaObject::invokeMethod(
                    this,
                    [this, pending, folder = progress.currentFolder, visited = progress.foldersVisited] {
                        pending->store(false);
                        if (m_progress)
                            m_progress->setLabelText(
                                QStringLiteral("Recherche de « %1 »… %2 dossiers parcourus\n%3")
                                    .arg(m_name, QString::number(visited), folder));
                    },
                    Qt::QueuedConnection);
            });
        if (stop.stop_requested()) {
            QMetaObject::invokeMethod(
                this, [this] { end(); }, Qt::QueuedConnection);
            return;
        }
        QMetaObject::invokeMethod(
            this, [this, list = candidates.value_or(QStringList()), root] { found(list, root); },
            Qt::QueuedConnection);
    });
}

void RelocationSearch::found(const QStringList &candidates, const QString &root)
{
    if (m_progress) {
        m_progress->hide();
        m_progress->deleteLater();
        m_progress = nullptr;
    }
    if (candidates.isEmpty()) {
        m_dialogs.runAlert(
            {QStringLiteral("Rien trouvé"),
             QStringLiteral("Aucun %1 nommé « %2 » n’a été trouvé sous « %3 ».")
                 .arg(m_isFolder ? QStringLiteral("dossier") : QStringLiteral("fichier"), m_name, root),
             AlertStyle::informational,
             {QStringLiteral("OK")},
             std::nullopt});
        return end();
    }
    // The first find is proposed in a field the user may change to one of the others listed.
    QString others;
    if (candidates.size() > 1)
        others = QStringLiteral("\n\nAutres emplacements trouvés :\n") + candidates.mid(1, 20).join(u'\n');
    const AlertAnswer answer =
        m_dialogs.runAlert({QStringLiteral("« %1 » a été trouvé").arg(m_name),
                            QStringLiteral("La fiche pointera vers l’emplacement ci-dessous.") + others,
                            AlertStyle::informational,
                            {QStringLiteral("Réparer"), QStringLiteral("Annuler")},
                            candidates.first()});
    if (answer.button != 0)
        return end();
    const QString chosen = answer.text.trimmed();
    // Only a path that is what was looked for: a typo must not replace one broken path by another.
    const PathInfo info = inspectPath(chosen);
    const bool fits = m_isFolder ? info.state == PathState::folder
                                 : info.state == PathState::file && (!m_size || info.size == *m_size);
    if (!fits) {
        m_dialogs.showAlert(
            QStringLiteral("La fiche n’a pas été modifiée"),
            QStringLiteral("« %1 » n’est pas un %2 existant.")
                .arg(chosen, m_isFolder ? QStringLiteral("dossier") : QStringLiteral("fichier")));
        return end();
    }
    const bool saved = m_attachmentId ? m_store.relocateAttachment(m_itemId, *m_attachmentId, chosen)
                                      : m_store.relocate(m_itemId, chosen);
    if (!saved)
        m_dialogs.showAlert(
            QStringLiteral("La fiche n’a pas été modifiée"),
            QStringLiteral("La fiche a été supprimée entre-temps, ou le fichier de données n’a pas "
                           "pu être enregistré."));
    end();
}

void RelocationSearch::end()
{
    if (m_progress) {
        m_progress->hide();
        m_progress->deleteLater();
        m_progress = nullptr;
    }
    Q_EMIT finished();
    deleteLater();
}

} // namespace fiva
