#include "model/SavedData.h"
#include "platform/Clock.h"
#include "platform/Dialogs.h"
#include "platform/Paths.h"
#include "store/AttachmentIndex.h"
#include "store/BackupFiles.h"
#include "store/Console.h"
#include "store/Failures.h"
#include "store/FileIO.h"
#include "store/LinkStore.h"
#include "zip/FolderZip.h"

#include <QDir>
#include <QFileInfo>
#include <QPointer>

#include <exception>
#include <filesystem>
#include <system_error>
#include <utility>

namespace fiva {

namespace {

// Reads the new archive's central directory back: every item of the staging folder, and the top
// folder itself, must be an entry, and the file must end where its end records say. A short
// write the library did not notice, or a disk that lost the tail, shows here rather than at the
// restore, when the data it should have saved may be gone.
std::optional<QString> verifyWrittenArchive(const QString &written, const QString &location,
                                            const QString &staging)
{
    const Result<QStringList> items = backup::listTree(staging);
    if (!items)
        return items.error();
    const Result<backup::ArchiveDirectory> directory = backup::readArchiveDirectory(written);
    if (!directory)
        return directory.error();
    const quint64 expected = quint64(items.value().size()) + 1;
    const backup::ArchiveDirectory &found = directory.value();
    const quint64 size = quint64(QFileInfo(written).size());
    if (found.walked != expected || found.declared != expected || found.endOfData != size) {
        return QStringLiteral("L'archive écrite pour ") + backup::quoted(location) +
               QStringLiteral(" ne se relit pas correctement : ") + QString::number(found.walked) +
               QStringLiteral(" éléments lisibles sur ") + QString::number(expected) +
               QStringLiteral(" attendus, ") + QString::number(size) + QStringLiteral(" octets sur ") +
               QString::number(found.endOfData) + u'.';
    }
    return std::nullopt;
}

} // namespace

void LinkStore::setDialogs(Dialogs *dialogs)
{
    m_dialogs = dialogs;
}

void LinkStore::exportBackup(std::function<void()> completion)
{
    if (!m_dialogs) {
        console::print(
            u"❌ Erreur export :",
            QStringLiteral("Aucune fenêtre d'enregistrement n'est là pour demander où écrire l'archive."));
        return;
    }
    // The panel answers later; the store may be gone by then.
    QPointer<LinkStore> self(this);
    m_dialogs->showSavePanel(
        SavePanelRequest{QStringLiteral("Sauvegarde-Fiva.fivabackup"), {QStringLiteral("fivabackup")}},
        [self, completion = std::move(completion)](std::optional<QString> location) {
            if (!self || !location || location->isEmpty())
                return;
            if (const auto error = self->writeBackupArchive(*location)) {
                console::print(u"❌ Erreur export :", *error);
                Q_EMIT self->failureReported(failureSentence(FailureKind::exportBackup, *error));
            }
            if (completion)
                completion();
        });
}

std::optional<QString> LinkStore::writeBackupArchive(const QString &location)
{
    backup::StagingFolder staging;
    if (auto error = staging.create(m_paths.temporaryFolder(), u"FivaExport-"))
        return error;

    if (auto error = fileio::writeDocument(staging.filePath(QStringLiteral("FivaData.json")),
                                           SavedData{m_items, m_categories, m_clock.now()}))
        return error;
    const QDir attachments(staging.filePath(QStringLiteral("attachments")));
    if (auto error = fileio::makeFolder(attachments.path()))
        return error;

    QList<backup::ArchivedAttachment> archived;
    for (qsizetype r = 0; r < m_items.size(); ++r) {
        const QList<Attachment> &list = m_items.at(r).attachments;
        for (qsizetype a = 0; a < list.size(); ++a) {
            const QString &source = list.at(a).filePath;
            // A file the user removed by hand is simply not in the archive.
            if (!backup::isRegularFile(source))
                continue;
            const QString name = backup::lastComponent(source);
            const QString target = backup::freeCopyPath(attachments.path(), name);
            if (auto error = backup::copyFile(source, target))
                return error;
            archived.append({r, a, source, backup::lastComponent(target)});
        }
    }
    if (auto error = fileio::writeWholeFile(staging.filePath(backup::attachmentIndexName()),
                                            backup::encodeAttachmentIndex(archived)))
        return error;

    // The archive is written beside the chosen location and renamed over it only once read back
    // whole: an existing archive there stays until a good one replaces it, and a crash leaves
    // either the old archive or the new one.
    fileio::Replacement replacement(location);
    try {
        zip::zipItem(backup::toFsPath(staging.path()), backup::toFsPath(replacement.temporaryPath()), true,
                     zip::CompressionMethod::none);
    } catch (const std::exception &error) {
        // The library names the file it was writing, which is our temporary one.
        return backup::describe(error, location).replace(replacement.temporaryPath(), location);
    }
    if (auto error = verifyWrittenArchive(replacement.temporaryPath(), location, staging.path()))
        return error;
    if (auto error = replacement.commit())
        return error;

    setLastBackupDate(m_clock.now());
    addBackupLog(location);
    return std::nullopt;
}

} // namespace fiva
