#include "model/JsonCodec.h"
#include "model/SavedData.h"
#include "platform/Clock.h"
#include "platform/Dialogs.h"
#include "platform/Paths.h"
#include "store/AttachmentIndex.h"
#include "store/BackupFiles.h"
#include "store/Console.h"
#include "store/FileIO.h"
#include "store/LinkStore.h"
#include "store/RestoreSnapshots.h"
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

// The file layer and the lock give the system's own words, which the C locale leaves in English.
QString inFrench(const QString &reason)
{
    return backup::frenchReason(reason).value_or(reason);
}

// A person first reads what could not be done, then why.
QString unreadable(const QString &file, const QString &reason)
{
    if (const std::optional<QString> french = backup::frenchReason(reason))
        return QStringLiteral("Le fichier ") + backup::quoted(file) +
               QStringLiteral(" n'a pas pu être lu : ") + *french;
    return QStringLiteral("Le fichier ") + backup::quoted(file) + QStringLiteral(" n'a pas pu être lu (") +
           reason + QStringLiteral(").");
}

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

// A data document, or else the older bare list of records; when both fail, the second error is
// the one reported.
Result<SavedData> decodeDocument(const QByteArray &bytes, Timestamp now)
{
    if (Result<SavedData> decoded = json::decodeSavedData(bytes, now))
        return decoded;
    Result<QList<LinkItem>> legacy = json::decodeLinkItems(bytes, now);
    if (!legacy)
        return Result<SavedData>::failure(legacy.error());
    return SavedData{std::move(legacy).value(), {LinkStore::uncategorized()}, std::nullopt};
}

// What a restore reads, once the archive is unpacked into the staging folder.
struct Staged
{
    QString document;    // the data document; empty when the archive holds none
    QString attachments; // the folder of attachment copies; empty when there is none
    bool isArchive = false;
};

// Stage: an automatic backup is read where it is; an archive is checked whole, then unpacked.
Result<Staged> stage(const QString &location, backup::StagingFolder &staging, const QString &temporaryFolder)
{
    // An automatic backup is the data file's JSON under the archive's extension: its records and
    // categories come back, and there are no attachment copies to bring.
    if (backup::startsLikeJson(location))
        return Staged{location, {}, false};
    // Unpacking stops quietly at the first record it cannot read, which would restore part of the
    // archive without a word: the directory must account for every entry first. Every entry's CRC
    // is then checked while unpacking, before anything of the store changes.
    const Result<backup::ArchiveDirectory> directory = backup::readArchiveDirectory(location);
    if (!directory)
        return Result<Staged>::failure(directory.error());
    if (auto error = backup::checkAllEntriesReadable(location, directory.value()))
        return Result<Staged>::failure(*error);
    if (auto error = staging.create(temporaryFolder, u"FivaImport-"))
        return Result<Staged>::failure(*error);
    try {
        zip::unzipItem(backup::toFsPath(location), backup::toFsPath(staging.path()), false, false);
    } catch (const std::exception &error) {
        return Result<Staged>::failure(backup::describe(error, location));
    }
    const Result<QStringList> listing = backup::listTree(staging.path());
    if (!listing)
        return Result<Staged>::failure(listing.error());
    // The listing goes shallowest first, so the document at the archive's top wins over an
    // attachment that happens to be called FivaData.json.
    const std::vector<QString> found =
        firstNamed(listing.value(), {QStringLiteral("FivaData.json"), QStringLiteral("attachments")});
    return Staged{found[0], found[1], true};
}

// Decode: the staged document, as a sentence naming the file when it cannot be read.
Result<SavedData> decode(const Staged &staged, const QString &location, Timestamp now)
{
    const Result<QByteArray> bytes = fileio::readWholeFile(staged.document);
    if (!bytes)
        return Result<SavedData>::failure(unreadable(staged.document, bytes.error()));
    Result<SavedData> decoded = decodeDocument(bytes.value(), now);
    if (decoded)
        return decoded;
    if (staged.isArchive)
        return Result<SavedData>::failure(QStringLiteral("Le fichier FivaData.json de l'archive ") +
                                          backup::quoted(location) + QStringLiteral(" est illisible (") +
                                          decoded.error() + u')');
    return Result<SavedData>::failure(
        QStringLiteral("Ce fichier n'est pas une archive ZIP, ni une sauvegarde automatique lisible : ") +
        backup::quoted(location) + QStringLiteral(" (") + decoded.error() + u')');
}

// Only regular files of the unpacked tree are copied, and none reached through a link: a link in
// the archive would otherwise hand over any file the user can read.
bool isPlainFileIn(const QDir &root, const QString &path)
{
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
}

// Copy: each attachment's archived copy into the attachments folder under a free name, and the
// record pointed at the copy. Every copy made is added to `copied`, also when a later one fails.
std::optional<QString> copyAttachments(QList<LinkItem> &items, const Staged &staged,
                                       const QString &stagingRoot, const QString &attachmentsFolder,
                                       QStringList &copied)
{
    if (staged.attachments.isEmpty())
        return std::nullopt;
    const QDir archived(staged.attachments);
    std::optional<QList<backup::ArchivedAttachment>> index;
    const QString indexPath = QFileInfo(staged.document).dir().filePath(backup::attachmentIndexName());
    if (backup::isRegularFile(indexPath)) {
        if (const Result<QByteArray> indexBytes = fileio::readWholeFile(indexPath))
            index = backup::decodeAttachmentIndex(indexBytes.value());
    }
    const QHash<Position, QString> files = matchArchivedFiles(items, archived, index);

    const QDir root(stagingRoot);
    const QDir folder(attachmentsFolder);
    // Each unpacked file is moved into place after its last use rather than copied, so that no more
    // than one copy of an attachment exists beside the unpacked tree at any moment, whatever the
    // archive's size.
    QHash<QString, int> usesLeft;
    for (const QString &file : files)
        ++usesLeft[file];
    for (qsizetype r = 0; r < items.size(); ++r) {
        QList<Attachment> &list = items[r].attachments;
        for (qsizetype a = 0; a < list.size(); ++a) {
            const auto file = files.constFind({r, a});
            if (file == files.cend())
                continue;
            const QString source = archived.filePath(*file);
            if (!isPlainFileIn(root, source))
                continue;
            const QString name = backup::lastComponent(list.at(a).filePath);
            QString target = folder.filePath(name);
            for (int n = 1; backup::isOccupied(target); ++n)
                target = folder.filePath(backup::restoreCandidate(name, n));
            const bool last = --usesLeft[*file] == 0;
            if (auto error = last ? backup::moveFile(source, target) : backup::copyFile(source, target))
                return error;
            copied.append(target);
            list[a].filePath = target;
            list[a].fileName = backup::lastComponent(target);
        }
    }
    return std::nullopt;
}

} // namespace

// What a restore keeps to undo itself: the data file's bytes (none without a data file) and the
// snapshot made of them.
struct RestoreUndo
{
    std::optional<QByteArray> file;
    QString snapshot;
};

namespace {

// The data as it is now is kept before anything changes, so that the restore can be undone
// byte for byte. Without a data file yet, what the store holds is what there is to go back to.
Result<RestoreUndo> keepCurrentData(const QString &dataFile, const SavedData &current,
                                    const QString &programFolder, Timestamp now)
{
    RestoreUndo undo;
    if (backup::isOccupied(dataFile)) {
        Result<QByteArray> previous = fileio::readWholeFile(dataFile);
        if (!previous)
            return Result<RestoreUndo>::failure(unreadable(dataFile, previous.error()));
        undo.file = std::move(previous).value();
    }
    Result<QByteArray> encoded = undo.file ? Result<QByteArray>(*undo.file) : json::encode(current);
    if (!encoded)
        return Result<RestoreUndo>::failure(inFrench(encoded.error()));
    const Result<QString> snapshot = snapshots::keep(programFolder, encoded.value(), now);
    if (!snapshot) {
        return Result<RestoreUndo>::failure(
            QStringLiteral("Les données actuelles n'ont pas pu être mises de côté avant "
                           "la restauration, qui n'a donc pas eu lieu. ") +
            snapshot.error());
    }
    undo.snapshot = snapshot.value();
    return undo;
}

} // namespace

bool LinkStore::restoreBackup(const QString &location)
{
    const auto fail = [this](const QString &message, const QString &title = failureTitle()) {
        if (m_dialogs)
            m_dialogs->showAlert(title, message);
        else
            console::print(title, message);
        return false;
    };

    backup::StagingFolder staging;
    const Result<Staged> staged = stage(location, staging, m_paths.temporaryFolder());
    if (!staged)
        return fail(staged.error());
    if (staged.value().document.isEmpty())
        return fail(QStringLiteral("FivaData.json introuvable."), QStringLiteral("Erreur restauration"));
    Result<SavedData> decoded = decode(staged.value(), location, m_clock.now());
    if (!decoded)
        return fail(decoded.error());
    SavedData restored = std::move(decoded).value();

    // From the snapshot to the last write, no other process may change the data: its change would
    // be neither in the snapshot nor in the restored data.
    const LockScope lock(*this);
    if (!lock.error().isEmpty())
        return fail(inFrench(lock.error()));
    const SavedData current{m_items, m_categories, m_lastBackupDate};
    const Result<RestoreUndo> undo = keepCurrentData(dataFileURL(), current, programFolder(), m_clock.now());
    if (!undo)
        return fail(undo.error());

    // When a copy fails, the ones before it stay where they are: they are extra files that nothing
    // refers to, and never replace a file that was there. Only a restore whose data cannot be
    // saved takes them back, together with the old data.
    QStringList copied;
    if (auto error =
            copyAttachments(restored.items, staged.value(), staging.path(), attachmentsFolderURL(), copied)) {
        QFile::remove(undo.value().snapshot);
        return fail(*error);
    }
    if (commitRestored(std::move(restored))) {
        Q_EMIT restoreCompleted(location);
        return true;
    }
    rollBackRestore(current, undo.value(), copied);
    return fail(QStringLiteral("Les données restaurées n'ont pas pu être enregistrées dans ") +
                backup::quoted(dataFileURL()) +
                QStringLiteral(" : rien n'a changé. Vérifiez la place libre sur le disque et "
                               "les droits du dossier de Fiva."));
}

// Commit: from here the store changes; false when the data file could not take the new data.
bool LinkStore::commitRestored(SavedData restored)
{
    setItems(std::move(restored.items));
    setCategories(std::move(restored.categories));
    m_lastBackupDate = restored.lastBackupDate;
    Q_EMIT lastBackupDateChanged();
    if (!save())
        return false;
    std::stable_sort(m_categories.begin(), m_categories.end(), backup::ordinalLess);
    Q_EMIT categoriesChanged();
    return save();
}

// Roll back: the old state comes back in memory and on disk, byte for byte, as if the restore had
// never started, and the copies it added go.
void LinkStore::rollBackRestore(const SavedData &previous, const RestoreUndo &undo, const QStringList &copied)
{
    setItems(previous.items);
    setCategories(previous.categories);
    m_lastBackupDate = previous.lastBackupDate;
    Q_EMIT lastBackupDateChanged();
    if (undo.file)
        (void)fileio::writeWholeFile(dataFileURL(), *undo.file);
    else
        QFile::remove(dataFileURL());
    for (const QString &path : copied)
        QFile::remove(path);
    QFile::remove(undo.snapshot);
}

QString LinkStore::restoreConfirmationText(const QString &location)
{
    QString text = QStringLiteral("Cette opération écrasera toutes les données actuelles.");
    if (backup::startsLikeJson(location)) {
        text += QStringLiteral(" Ce fichier est une sauvegarde automatique : il ramène les fiches et les "
                               "catégories, mais aucune copie de pièce jointe.");
    }
    return text;
}

bool LinkStore::canUndoRestore() const
{
    const QString folder = programFolder();
    return !folder.isEmpty() && !snapshots::list(folder).isEmpty();
}

bool LinkStore::undoRestore()
{
    const auto fail = [this](const QString &message) {
        const QString title = QStringLiteral("Annulation impossible");
        if (m_dialogs)
            m_dialogs->showAlert(title, message);
        else
            console::print(title, message);
        return false;
    };
    const LockScope lock(*this);
    if (!lock.error().isEmpty())
        return fail(inFrench(lock.error()));
    const QString folder = programFolder();
    const QStringList kept = folder.isEmpty() ? QStringList() : snapshots::list(folder);
    if (kept.isEmpty()) {
        return fail(QStringLiteral("Aucune restauration à annuler : le dossier ") + backup::quoted(folder) +
                    QStringLiteral(" ne contient aucune copie des données d'avant une restauration."));
    }
    const QString &snapshot = kept.first();
    const Result<QByteArray> bytes = fileio::readWholeFile(snapshot);
    if (!bytes)
        return fail(unreadable(snapshot, bytes.error()));
    Result<SavedData> decoded = json::decodeSavedData(bytes.value(), m_clock.now());
    if (!decoded) {
        return fail(QStringLiteral("La copie des données d'avant la restauration ") +
                    backup::quoted(snapshot) + QStringLiteral(" est illisible (") + decoded.error() +
                    QStringLiteral(") : rien n'a changé."));
    }
    // The snapshot's bytes, not a new encoding of them: the data file comes back exactly as it was.
    const QString dataFile = dataFileURL();
    // An unreadable data file that could not be set aside is the user's only copy of it.
    if (!m_saveRefusal.isEmpty()) {
        return fail(QStringLiteral("Le fichier de données ") + backup::quoted(dataFile) +
                    QStringLiteral(" est illisible et n'a pas pu être mis de côté : Fiva ne le remplace pas. "
                                   "Déplacez-le, puis relancez Fiva."));
    }
    if (auto error = fileio::writeWholeFile(dataFile, bytes.value())) {
        return fail(QStringLiteral("Les données d'avant la restauration n'ont pas pu être remises dans ") +
                    backup::quoted(dataFile) + QStringLiteral(" (") + inFrench(*error) +
                    QStringLiteral(") : rien n'a changé."));
    }
    m_dataStamp = fileio::stampOf(dataFile);
    // The snapshot is now the data file itself. Kept, it would make a second undo bring back the
    // same data instead of going one restore further back.
    QFile::remove(snapshot);

    SavedData previous = std::move(decoded).value();
    setItems(std::move(previous.items));
    setCategories(std::move(previous.categories));
    // In the order a fresh start from this file would show them; the file itself stays as it was.
    sortCategories();
    m_lastBackupDate = previous.lastBackupDate;
    Q_EMIT lastBackupDateChanged();
    Q_EMIT restoreUndone();
    return true;
}

} // namespace fiva
