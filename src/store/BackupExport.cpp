#include "model/SavedData.h"
#include "platform/Clock.h"
#include "platform/Dialogs.h"
#include "platform/Paths.h"
#include "store/BackupFiles.h"
#include "store/Console.h"
#include "store/FileIO.h"
#include "store/LinkStore.h"
#include "zip/FolderZip.h"

#include <QDir>
#include <QPointer>

#include <exception>
#include <filesystem>
#include <system_error>
#include <utility>

namespace fiva {

void LinkStore::setDialogs(Dialogs *dialogs)
{
    m_dialogs = dialogs;
}

void LinkStore::exportBackup(std::function<void()> completion)
{
    if (!m_dialogs) {
        console::print(u"❌ Erreur export :", QStringLiteral("no save panel to ask for a location"));
        return;
    }
    // The panel answers later; the store may be gone by then.
    QPointer<LinkStore> self(this);
    m_dialogs->showSavePanel(
        SavePanelRequest{QStringLiteral("Sauvegarde-Fiva.fivabackup"), {QStringLiteral("fivabackup")}},
        [self, completion = std::move(completion)](std::optional<QString> location) {
            if (!self || !location || location->isEmpty())
                return;
            if (const auto error = self->writeBackupArchive(*location))
                console::print(u"❌ Erreur export :", *error);
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
            QString target = attachments.filePath(name);
            for (int n = 1; backup::isOccupied(target); ++n)
                target = attachments.filePath(backup::exportCandidate(name, n));
            if (auto error = backup::copyFile(source, target))
                return error;
            archived.append({r, a, source, backup::lastComponent(target)});
        }
    }
    if (auto error = fileio::writeWholeFile(staging.filePath(backup::attachmentIndexName()),
                                            backup::encodeAttachmentIndex(archived)))
        return error;

    // zipItem refuses an existing destination; choosing an existing archive means replacing it.
    if (backup::isOccupied(location)) {
        std::error_code ec;
        std::filesystem::remove(backup::toFsPath(location), ec);
        if (ec)
            return location + QStringLiteral(": ") + QString::fromStdString(ec.message());
    }
    try {
        zip::zipItem(backup::toFsPath(staging.path()), backup::toFsPath(location), true,
                     zip::CompressionMethod::none);
    } catch (const std::exception &error) {
        // What zipItem left behind is no archive anyone could restore; the old one is gone
        // already, so removing the remains loses nothing and leaves no trap with a good name.
        std::error_code ignored;
        std::filesystem::remove(backup::toFsPath(location), ignored);
        return backup::describe(error);
    }

    setLastBackupDate(m_clock.now());
    addBackupLog(location);
    return std::nullopt;
}

} // namespace fiva
