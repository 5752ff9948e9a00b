#include "model/JsonCodec.h"
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
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSet>

#include <sys/stat.h>

#include <algorithm>
#include <exception>
#include <utility>
#include <vector>

namespace fiva {

namespace {

const QString &failureTitle()
{
    static const QString title = QStringLiteral("Erreur restauration :");
    return title;
}

struct Position
{
    qsizetype record;
    qsizetype attachment;
    friend bool operator==(const Position &, const Position &) = default;
};

size_t qHash(const Position &p, size_t seed = 0)
{
    return qHashMulti(seed, p.record, p.attachment);
}

// Which copy in the archive's attachments folder belongs to which attachment.
//
// The export names its copies NAME, then NAME-1.ext, NAME-2.ext... in record and attachment order,
// skipping files that were missing, while the records keep their original paths. Matching by
// NAME alone would hand the first copy to every attachment called NAME, so two different
// rapport.pdf would come back as one. Our exports therefore write an index beside FivaData.json
// naming, for each archived attachment, its position and the copy's name; readers that do not
// know the index never look at it, and FivaData.json is untouched. An index is trusted only
// when each entry's position exists in the document and still holds the recorded filePath.
//
// Archives without a usable index (older ones, or made by hand) get the export's naming replayed:
// walking the records in the same order, a name counts as taken only when its copy is really in
// the archive, since a file missing at export time took no name. Replay is fooled only when a
// file was missing at export while a later one of the same name was not; the index exists
// because that case cannot be told apart from the archive alone.
QHash<Position, QString> matchArchivedFiles(const QList<LinkItem> &items, const QDir &archived,
                                            const std::optional<QList<backup::ArchivedAttachment>> &index)
{
    QHash<Position, QString> files;
    if (index) {
        bool consistent = true;
        for (const backup::ArchivedAttachment &entry : *index) {
            if (entry.record >= items.size() ||
                entry.attachment >= items.at(entry.record).attachments.size() ||
                items.at(entry.record).attachments.at(entry.attachment).filePath != entry.filePath) {
                consistent = false;
                break;
            }
            files.insert({entry.record, entry.attachment}, entry.file);
        }
        if (consistent)
            return files;
        files.clear();
    }
    QSet<QString> taken;
    for (qsizetype r = 0; r < items.size(); ++r) {
        const QList<Attachment> &list = items.at(r).attachments;
        for (qsizetype a = 0; a < list.size(); ++a) {
            const QString name = backup::lastComponent(list.at(a).filePath);
            if (name.isEmpty())
                continue;
            QString candidate = name;
            for (int n = 1; taken.contains(candidate); ++n)
                candidate = backup::exportCandidate(name, n);
            if (!backup::isRegularFile(archived.filePath(candidate)))
                continue;
            taken.insert(candidate);
            files.insert({r, a}, candidate);
        }
    }
    return files;
}

std::vector<QString> firstNamed(const QStringList &paths, const QStringList &names)
{
    std::vector<QString> found(static_cast<size_t>(names.size()));
    for (const QString &path : paths) {
        const qsizetype which = names.indexOf(backup::lastComponent(path));
        if (which >= 0 && found[static_cast<size_t>(which)].isEmpty())
            found[static_cast<size_t>(which)] = path;
    }
    return found;
}

} // namespace

bool LinkStore::restoreBackup(const QString &location)
{
    const auto fail = [this](const QString &title, const QString &message) {
        if (m_dialogs)
            m_dialogs->showAlert(title, message);
        else
            console::print(title, message);
        return false;
    };

    backup::StagingFolder staging;
    if (auto error = staging.create(m_paths.temporaryFolder(), u"FivaImport-"))
        return fail(failureTitle(), *error);
    try {
        zip::unzipItem(backup::toFsPath(location), backup::toFsPath(staging.path()), false, false);
    } catch (const std::exception &error) {
        return fail(failureTitle(), backup::describe(error));
    }
    const Result<QStringList> listing = backup::listTree(staging.path());
    if (!listing)
        return fail(failureTitle(), listing.error());
    // The listing goes shallowest first, so the document at the archive's top wins over an
    // attachment that happens to be called FivaData.json.
    const std::vector<QString> found =
        firstNamed(listing.value(), {QStringLiteral("FivaData.json"), QStringLiteral("attachments")});
    const QString &dataPath = found[0];
    const QString &archivedAttachments = found[1];
    if (dataPath.isEmpty())
        return fail(QStringLiteral("Erreur restauration"), QStringLiteral("FivaData.json introuvable."));

    const Result<QByteArray> bytes = fileio::readWholeFile(dataPath);
    if (!bytes)
        return fail(failureTitle(), bytes.error());
    SavedData restored;
    if (Result<SavedData> decoded = json::decodeSavedData(bytes.value(), m_clock.now())) {
        restored = std::move(decoded).value();
    } else {
        Result<QList<LinkItem>> legacy = json::decodeLinkItems(bytes.value(), m_clock.now());
        if (!legacy)
            return fail(failureTitle(), legacy.error());
        restored = SavedData{std::move(legacy).value(), {uncategorized()}, std::nullopt};
    }

    // Copies made by this run. When a copy fails, the ones before it stay where they are: they
    // are extra files that nothing refers to, and never replace a file that was there. Only a
    // restore whose data cannot be saved takes them back, together with the old data.
    QStringList copied;
    const auto undoCopies = [&copied] {
        for (const QString &path : std::as_const(copied))
            QFile::remove(path);
    };
    if (!archivedAttachments.isEmpty()) {
        const QDir archived(archivedAttachments);
        std::optional<QList<backup::ArchivedAttachment>> index;
        const QString indexPath = QFileInfo(dataPath).dir().filePath(backup::attachmentIndexName());
        if (backup::isRegularFile(indexPath)) {
            if (const Result<QByteArray> indexBytes = fileio::readWholeFile(indexPath))
                index = backup::decodeAttachmentIndex(indexBytes.value());
        }
        const QHash<Position, QString> files = matchArchivedFiles(restored.items, archived, index);

        const QDir folder(attachmentsFolderURL());
        // Only regular files of the unpacked tree are copied, and none reached through a link: a link in
        // the archive would otherwise hand over any file the user can read.
        const auto isPlainFileInStaging = [root = QDir(staging.path())](const QString &path) {
            const QStringList parts = root.relativeFilePath(path).split(u'/', Qt::SkipEmptyParts);
            if (parts.isEmpty() || parts.first() == u"..")
                return false;
            QString walked = root.path();
            for (qsizetype i = 0; i < parts.size(); ++i) {
                walked += u'/' + parts.at(i);
                struct stat info
                {
                };
                if (::lstat(QFile::encodeName(walked).constData(), &info) != 0 ||
                    !(i + 1 < parts.size() ? S_ISDIR(info.st_mode) : S_ISREG(info.st_mode)))
                    return false;
            }
            return true;
        };
        for (qsizetype r = 0; r < restored.items.size(); ++r) {
            QList<Attachment> &list = restored.items[r].attachments;
            for (qsizetype a = 0; a < list.size(); ++a) {
                const auto file = files.constFind({r, a});
                if (file == files.cend())
                    continue;
                const QString source = archived.filePath(*file);
                if (!isPlainFileInStaging(source))
                    continue;
                const QString name = backup::lastComponent(list.at(a).filePath);
                QString target = folder.filePath(name);
                for (int n = 1; backup::isOccupied(target); ++n)
                    target = folder.filePath(backup::restoreCandidate(name, n));
                if (auto error = backup::copyFile(source, target))
                    return fail(failureTitle(), *error);
                copied.append(target);
                list[a].filePath = target;
                list[a].fileName = backup::lastComponent(target);
            }
        }
    }

    // From here the store changes. If the data file cannot take the new data, the old state
    // comes back in memory and on disk, byte for byte, as if the restore had never started.
    const QString dataFile = dataFileURL();
    std::optional<QByteArray> previousFile;
    if (backup::isOccupied(dataFile)) {
        Result<QByteArray> previous = fileio::readWholeFile(dataFile);
        if (!previous) {
            undoCopies();
            return fail(failureTitle(), previous.error());
        }
        previousFile = std::move(previous).value();
    }
    QList<LinkItem> previousItems = m_items;
    QStringList previousCategories = m_categories;
    const std::optional<Timestamp> previousDate = m_lastBackupDate;

    setItems(std::move(restored.items));
    setCategories(std::move(restored.categories));
    m_lastBackupDate = restored.lastBackupDate;
    Q_EMIT lastBackupDateChanged();
    bool saved = save();
    if (saved) {
        std::stable_sort(m_categories.begin(), m_categories.end(), backup::ordinalLess);
        Q_EMIT categoriesChanged();
        saved = save();
    }
    if (saved)
        return true;

    setItems(std::move(previousItems));
    setCategories(std::move(previousCategories));
    m_lastBackupDate = previousDate;
    Q_EMIT lastBackupDateChanged();
    if (previousFile)
        (void)fileio::writeWholeFile(dataFile, *previousFile);
    else
        QFile::remove(dataFile);
    undoCopies();
    return fail(failureTitle(), dataFile + QStringLiteral(": the restored data could not be saved"));
}

} // namespace fiva
