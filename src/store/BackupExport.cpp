#include "model/JsonCodec.h"
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
#include "zip/Archive.h"
#include "zip/ConfinedFolder.h"
#include "zip/FileCopy.h"

#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QSet>
#include <QUuid>

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace fiva {

namespace {

// Reads the new archive's central directory back: every entry written must be there, and the file must end
// where its end records say. A short write the library did not notice, or a disk that lost the tail, shows
// here rather than at the restore, when the data it should have saved may be gone.
std::optional<QString> verifyWrittenArchive(const QString &written, const QString &location, quint64 expected)
{
    const Result<backup::ArchiveDirectory> directory = backup::readArchiveDirectory(written);
    if (!directory)
        return directory.error();
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

// The bits a file or folder made now would lose, as the process's umask says; read without changing it.
mode_t currentUmask()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (status.open(QIODevice::ReadOnly)) {
        for (const QByteArray &line : status.readAll().split('\n')) {
            if (line.startsWith("Umask:"))
                return mode_t(line.mid(6).trimmed().toUInt(nullptr, 8) & 0777);
        }
    }
    const mode_t mask = ::umask(022);
    ::umask(mask);
    return mask;
}

// The data document encoded straight into its entry: each thread of the encoder writes its runs at their
// offsets and checksums them on the way, and the pieces' checksums are joined in order at the end.
class ArchivedDocument final : public json::DocumentOutput
{
public:
    ArchivedDocument(zip::Archive &archive, std::string path, std::uint16_t permissions, QString shown)
        : m_archive(archive), m_path(std::move(path)), m_permissions(permissions), m_shown(std::move(shown))
    {
    }

    std::optional<QString> reserve(qint64 size) override
    {
        try {
            m_size = std::uint64_t(size);
            m_offset =
                m_archive.beginPlacedEntry(m_path, m_size, std::chrono::system_clock::now(), m_permissions);
            m_fd = m_archive.placedFile();
        } catch (const std::exception &error) {
            return backup::describe(error, m_shown);
        }
        return std::nullopt;
    }

    std::optional<QString> write(qint64 offset, QByteArrayView bytes) override
    {
        const zip::ByteView view(reinterpret_cast<const std::uint8_t *>(bytes.data()),
                                 std::size_t(bytes.size()));
        const std::uint32_t checksum = zip::crc32(view);
        if (const int error = zip::writeFully(m_fd, view.data(), view.size(), qint64(m_offset) + offset))
            return backup::describeFileError(m_shown, error);
        const std::lock_guard lock(m_mutex);
        m_pieces.push_back({std::uint64_t(offset), view.size(), checksum});
        return std::nullopt;
    }

    std::optional<QString> finish()
    {
        std::sort(m_pieces.begin(), m_pieces.end(),
                  [](const Piece &a, const Piece &b) { return a.offset < b.offset; });
        std::uint32_t checksum = 0;
        std::uint64_t covered = 0;
        for (const Piece &piece : m_pieces) {
            if (piece.offset != covered)
                break;
            checksum = zip::crc32Combine(checksum, piece.checksum, piece.length);
            covered += piece.length;
        }
        if (covered != m_size)
            return QStringLiteral("Le fichier ") + backup::quoted(m_shown) +
                   QStringLiteral(" n'a pas pu être écrit.");
        try {
            m_archive.finishPlacedEntry(checksum);
        } catch (const std::exception &error) {
            return backup::describe(error, m_shown);
        }
        return std::nullopt;
    }

private:
    struct Piece
    {
        std::uint64_t offset;
        std::uint64_t length;
        std::uint32_t checksum;
    };

    zip::Archive &m_archive;
    std::string m_path;
    std::uint16_t m_permissions;
    QString m_shown;
    std::uint64_t m_size = 0;
    std::uint64_t m_offset = 0;
    int m_fd = -1;
    std::mutex m_mutex;
    std::vector<Piece> m_pieces;
};

struct PlannedCopy
{
    std::string name; // in the archive's attachments folder
    QString source;
};

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
    // Unlike packing a staging folder in the temporary folder, the archive is written straight from the
    // attachments folder and the encoded data: the temporary folder is often memory, which a backup of
    // several gigabytes would fill. The entries are those the staging folder would give, in its order and
    // with its attributes: the top folder made private (0700), the data, the index and the attachments
    // folder as new files and folders get them under the umask, each copy with its source's permissions
    // and date, and the names in the byte order the folder listing sorts them in.
    const QString top =
        QStringLiteral("FivaExport-") + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();

    QList<backup::ArchivedAttachment> archived;
    std::vector<PlannedCopy> copies;
    QSet<QString> taken;
    for (qsizetype r = 0; r < m_items.size(); ++r) {
        const QList<Attachment> &list = m_items.at(r).attachments;
        for (qsizetype a = 0; a < list.size(); ++a) {
            const QString &source = list.at(a).filePath;
            // A file the user removed by hand is simply not in the archive.
            if (!backup::isRegularFile(source))
                continue;
            const QString name = backup::lastComponent(source);
            QString target = name;
            for (int n = 1; taken.contains(target); ++n)
                target = backup::exportCandidate(name, n);
            taken.insert(target);
            copies.push_back({QFile::encodeName(target).toStdString(), source});
            archived.append({r, a, source, target});
        }
    }
    std::sort(copies.begin(), copies.end(),
              [](const PlannedCopy &a, const PlannedCopy &b) { return a.name < b.name; });

    const mode_t mask = currentUmask();
    const auto fileMode = static_cast<std::uint16_t>(S_IFREG | (0666 & ~mask));
    const auto folderMode = static_cast<std::uint16_t>(S_IFDIR | (0777 & ~mask));
    const std::string prefix = QFile::encodeName(top).toStdString() + '/';

    // The archive is written beside the chosen location and renamed over it only once read back
    // whole: an existing archive there stays until a good one replaces it, and a crash leaves
    // either the old archive or the new one.
    fileio::Replacement replacement(location);
    const QString written = replacement.temporaryPath();
    try {
        zip::Archive archive(backup::toFsPath(written), zip::Archive::AccessMode::create);
        archive.beginDeferringCentralDirectory();
        const QByteArray index = backup::encodeAttachmentIndex(archived);
        archive.addEntry(
            prefix + backup::attachmentIndexName().toStdString(), zip::EntryType::file, quint64(index.size()),
            std::chrono::system_clock::now(), fileMode, zip::CompressionMethod::none,
            std::size_t(std::max<qsizetype>(index.size(), 1)), [&](std::uint64_t, std::size_t count) {
                return zip::ByteView(reinterpret_cast<const std::uint8_t *>(index.constData()), count);
            });
        ArchivedDocument document(archive, prefix + "FivaData.json", fileMode, location);
        if (auto error = json::encode(SavedData{m_items, m_categories, m_clock.now()}, document))
            return error;
        if (auto error = document.finish())
            return error;
        archive.addEntry(prefix + "attachments/", zip::EntryType::directory, 0,
                         std::chrono::system_clock::now(), folderMode);
        for (const PlannedCopy &copy : copies) {
            const QByteArray source = QFile::encodeName(copy.source);
            // Followed through links, as a copy would be; never blocking on what is not a file.
            const int fd = ::open(source.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
            if (fd < 0)
                return backup::describeFileError(copy.source, errno);
            const zip::UniqueFd file(fd);
            archive.addEntryFromFile(prefix + "attachments/" + copy.name, file.get(), source.toStdString());
        }
        archive.addEntry(prefix, zip::EntryType::directory, 0, std::chrono::system_clock::now(),
                         static_cast<std::uint16_t>(S_IFDIR | 0700));
        archive.writeDeferredCentralDirectory();
    } catch (const std::exception &error) {
        // The library names the file it was writing, which is our temporary one.
        return backup::describe(error, location).replace(written, location);
    }
    if (auto error = verifyWrittenArchive(written, location, quint64(copies.size()) + 4))
        return error;
    if (auto error = replacement.commit())
        return error;

    setLastBackupDate(m_clock.now());
    addBackupLog(location);
    return std::nullopt;
}

} // namespace fiva
