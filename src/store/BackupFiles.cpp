#include "store/BackupFiles.h"

#include "zip/Archive.h"
#include "zip/Errors.h"
#include "zip/FileCopy.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <stdio.h>
#include <system_error>
#include <vector>

namespace fiva::backup {

// What happened, without the identifier that describeFileError adds.
QString errnoSentence(const QString &path, int error);

namespace {

QString describePath(const QString &path, int error)
{
    return describeFileError(path, error);
}

QString withIdentifier(const QString &sentence, const QString &identifier)
{
    return sentence + QStringLiteral(" (") + identifier + u')';
}

QString archiveSentence(zip::ArchiveError::Case c, const QString &file)
{
    using E = zip::ArchiveError;
    switch (c) {
    case E::missingEndOfCentralDirectoryRecord:
    case E::unreadableArchive:
        return QStringLiteral("Ce fichier n'est pas une archive ZIP : ") + quoted(file) + u'.';
    case E::unwritableArchive:
        return QStringLiteral("L'archive ") + quoted(file) + QStringLiteral(" n'a pas pu être écrite.");
    case E::invalidCRC32:
        return QStringLiteral("L'archive ") + quoted(file) +
               QStringLiteral(
                   " est endommagée : le contenu d'un élément ne correspond pas à sa somme de contrôle.");
    case E::invalidEntryPath:
        return QStringLiteral("L'archive ") + quoted(file) +
               QStringLiteral(" contient un nom d'élément illisible.");
    case E::uncontainedSymlink:
        return QStringLiteral("L'archive ") + quoted(file) +
               QStringLiteral(" contient un lien qui mène hors de son dossier : elle est refusée.");
    case E::invalidCompressionMethod:
        return QStringLiteral("L'archive ") + quoted(file) +
               QStringLiteral(" utilise une méthode de compression que Fiva ne sait pas lire.");
    case E::cancelledOperation:
    case E::invalidBufferSize:
        return QStringLiteral("Le travail sur l'archive ") + quoted(file) +
               QStringLiteral(" a été interrompu.");
    case E::invalidEntrySize:
    case E::invalidLocalHeaderDataOffset:
    case E::invalidLocalHeaderSize:
    case E::invalidCentralDirectoryOffset:
    case E::invalidCentralDirectorySize:
    case E::invalidCentralDirectoryEntryCount:
        break;
    }
    return QStringLiteral("L'archive ") + quoted(file) + QStringLiteral(" est endommagée.");
}

QString fileSystemSentence(const zip::FileSystemError &error, const QString &fallback)
{
    using E = zip::FileSystemError;
    const QString path = error.path().empty() ? fallback : fromFsPath(error.path());
    switch (error.errorCase()) {
    case E::fileReadNoSuchFile:
        return QStringLiteral("Le fichier ") + quoted(path) + QStringLiteral(" n'existe pas.");
    case E::fileReadNoPermission:
        return QStringLiteral("Fiva n'a pas le droit de lire le fichier ") + quoted(path) + u'.';
    case E::fileReadTooLarge:
        return QStringLiteral("Le fichier ") + quoted(path) + QStringLiteral(" est trop volumineux.");
    case E::fileReadInvalidFileName:
        return QStringLiteral("L'archive contient un élément dont le chemin sort du dossier où elle est "
                              "dépliée : ") +
               quoted(path) + QStringLiteral(". Elle est refusée.");
    case E::fileWriteFileExists:
        return QStringLiteral("Le fichier ") + quoted(path) + QStringLiteral(" existe déjà.");
    case E::posixError:
        break;
    }
    return errnoSentence(path, error.errorNumber());
}

// Large enough that the copy costs no more system calls than the disk needs, small enough that
// memory stays flat whatever the file's size.
constexpr size_t copyChunk = 1 << 18;

} // namespace

StagingFolder::~StagingFolder()
{
    if (!m_path.isEmpty())
        removeTree(m_path);
}

std::optional<QString> StagingFolder::create(const QString &temporaryFolder, QStringView prefix)
{
    const QString name = prefix.toString() + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    if (temporaryFolder.isEmpty())
        return QStringLiteral("Le système ne donne aucun dossier temporaire où travailler.");
    const QString path = QDir(temporaryFolder).filePath(name);
    std::error_code ec;
    std::filesystem::create_directories(toFsPath(temporaryFolder), ec);
    if (ec)
        return describeFileError(temporaryFolder, ec.value());
    // A folder of our own, never one that happens to be there already.
    if (::mkdir(QFile::encodeName(path).constData(), 0700) != 0)
        return describePath(path, errno);
    m_path = path;
    return std::nullopt;
}

QString StagingFolder::filePath(const QString &relative) const
{
    return QDir(m_path).filePath(relative);
}

std::filesystem::path toFsPath(const QString &path)
{
    return std::filesystem::path(QFile::encodeName(path).toStdString());
}

QString fromFsPath(const std::filesystem::path &path)
{
    return QFile::decodeName(QByteArray::fromStdString(path.string()));
}

QString quoted(const QString &path)
{
    return QStringLiteral("« ") + path + QStringLiteral(" »");
}

QString errnoSentence(const QString &path, int error)
{
    QString sentence;
    switch (error) {
    case ENOENT: {
        // Writing into a folder that is gone fails the same way as reading a file that is.
        const QString folder = QFileInfo(path).absolutePath();
        sentence = QFileInfo(folder).isDir()
                       ? QStringLiteral("Le fichier ") + quoted(path) + QStringLiteral(" n'existe pas.")
                       : QStringLiteral("Le dossier ") + quoted(folder) + QStringLiteral(" n'existe pas.");
        break;
    }
    case EACCES:
    case EPERM:
        sentence = QStringLiteral("Fiva n'a pas le droit d'accéder à ") + quoted(path) + u'.';
        break;
    case ENOSPC:
    case EDQUOT:
        sentence = QStringLiteral("Le disque est plein : ") + quoted(path) +
                   QStringLiteral(" n'a pas pu être écrit.");
        break;
    case EROFS:
        sentence = quoted(path) + QStringLiteral(" se trouve sur un disque en lecture seule.");
        break;
    case EEXIST:
        sentence = QStringLiteral("Le fichier ") + quoted(path) + QStringLiteral(" existe déjà.");
        break;
    case EISDIR:
        sentence = quoted(path) + QStringLiteral(" est un dossier, pas un fichier.");
        break;
    case ENOTDIR:
        sentence =
            QStringLiteral("Un élément du chemin ") + quoted(path) + QStringLiteral(" n'est pas un dossier.");
        break;
    case ENAMETOOLONG:
        sentence = QStringLiteral("Le nom ") + quoted(path) + QStringLiteral(" est trop long.");
        break;
    case EIO:
        sentence = QStringLiteral("Le disque a renvoyé une erreur de lecture ou d'écriture sur ") +
                   quoted(path) + u'.';
        break;
    default:
        sentence = QStringLiteral("Le système a refusé l'accès à ") + quoted(path) + u'.';
        break;
    }
    return sentence;
}

// "No such file or directory, ENOENT": the system's words and the constant's name, for logs.
QString errnoIdentifier(int error)
{
    const char *name = error != 0 ? ::strerrorname_np(error) : nullptr;
    return QString::fromLocal8Bit(std::strerror(error)) +
           (name ? QStringLiteral(", ") + QString::fromLatin1(name) : QString());
}

QString describeFileError(const QString &path, int error)
{
    return withIdentifier(errnoSentence(path, error), errnoIdentifier(error));
}

std::optional<QString> frenchReason(const QString &description)
{
    const qsizetype colon = description.lastIndexOf(QStringLiteral(": "));
    if (colon <= 0)
        return std::nullopt;
    const QString cause = description.sliced(colon + 2);
    for (int error = 1; error < 200; ++error) {
        if (cause == QString::fromLocal8Bit(std::strerror(error)))
            return describeFileError(description.first(colon), error);
    }
    return std::nullopt;
}

QString describe(const std::exception &error, const QString &file)
{
    const QString identifier = QString::fromLocal8Bit(error.what());
    if (const auto *e = dynamic_cast<const zip::ArchiveError *>(&error))
        return withIdentifier(archiveSentence(e->errorCase(), file), identifier);
    if (dynamic_cast<const zip::CompressionError *>(&error)) {
        return withIdentifier(QStringLiteral("Les données compressées de l'archive ") + quoted(file) +
                                  QStringLiteral(" sont endommagées."),
                              identifier);
    }
    if (const auto *e = dynamic_cast<const zip::DataError *>(&error)) {
        const bool reading = e->errorCase() == zip::DataError::unreadableFile;
        return withIdentifier(QStringLiteral("Le fichier ") + quoted(file) +
                                  (reading ? QStringLiteral(" n'a pas pu être lu.")
                                           : QStringLiteral(" n'a pas pu être écrit.")),
                              identifier);
    }
    if (const auto *e = dynamic_cast<const zip::FileSystemError *>(&error)) {
        // The library's own description repeats the path and the errno; the case names the failure.
        const char *name = e->errorNumber() != 0 ? ::strerrorname_np(e->errorNumber()) : nullptr;
        return withIdentifier(fileSystemSentence(*e, file),
                              QStringLiteral("FileSystemError.") +
                                  QString::fromLatin1(zip::FileSystemError::caseName(e->errorCase())) +
                                  (name ? QStringLiteral(", ") + QString::fromLatin1(name) : QString()));
    }
    if (dynamic_cast<const std::bad_alloc *>(&error))
        return withIdentifier(QStringLiteral("La mémoire a manqué pour traiter ") + quoted(file) + u'.',
                              identifier);
    return withIdentifier(QStringLiteral("Une erreur inattendue a interrompu le travail sur ") +
                              quoted(file) + u'.',
                          identifier);
}

QString lastComponent(const QString &path)
{
    qsizetype end = path.size();
    while (end > 1 && path.at(end - 1) == u'/')
        --end;
    const QStringView trimmed = QStringView(path).first(end);
    const qsizetype slash = trimmed.lastIndexOf(u'/');
    return trimmed.sliced(slash + 1).toString();
}

QString extensionOf(const QString &name)
{
    const qsizetype dot = name.lastIndexOf(u'.');
    if (dot <= 0 || dot == name.size() - 1)
        return {};
    return name.sliced(dot + 1);
}

QString exportCandidate(const QString &name, int n)
{
    const QString extension = extensionOf(name);
    const QString stem = extension.isEmpty() ? name : name.first(name.size() - extension.size() - 1);
    return stem + u'-' + QString::number(n) + u'.' + extension;
}

QString restoreCandidate(const QString &name, int n)
{
    QStringList parts = name.split(u'.', Qt::SkipEmptyParts);
    if (!parts.isEmpty())
        parts.removeLast();
    return parts.join(QString()) + u'-' + QString::number(n) + u'.' + extensionOf(name);
}

bool isOccupied(const QString &path)
{
    struct stat info
    {
    };
    return !path.isEmpty() && ::lstat(QFile::encodeName(path).constData(), &info) == 0;
}

QString freeCopyPath(const QString &folder, const QString &name)
{
    const QDir dir(folder);
    QString path = dir.filePath(name);
    for (int n = 1; isOccupied(path); ++n)
        path = dir.filePath(exportCandidate(name, n));
    return path;
}

bool isRegularFile(const QString &path)
{
    struct stat info
    {
    };
    return !path.isEmpty() && ::stat(QFile::encodeName(path).constData(), &info) == 0 &&
           S_ISREG(info.st_mode);
}

std::optional<QString> copyFile(const QString &from, const QString &to)
{
    const int in = ::open(QFile::encodeName(from).constData(), O_RDONLY | O_CLOEXEC);
    if (in < 0)
        return describePath(from, errno);
    struct stat source
    {
    };
    if (::fstat(in, &source) != 0) {
        const int error = errno;
        ::close(in);
        return describePath(from, error);
    }
    const QByteArray target = QFile::encodeName(to);
    // Created private, and given the source's bits only once complete: a half-made copy of a
    // private document is never readable by others.
    const int out = ::open(target.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (out < 0) {
        const int error = errno;
        ::close(in);
        return describePath(to, error);
    }
    const auto fail = [&](const QString &path, int error) -> std::optional<QString> {
        ::close(in);
        ::close(out);
        ::unlink(target.constData());
        return describePath(path, error);
    };
    std::vector<char> buffer(copyChunk);
    for (;;) {
        const ssize_t got = ::read(in, buffer.data(), buffer.size());
        if (got < 0) {
            if (errno == EINTR)
                continue;
            return fail(from, errno);
        }
        if (got == 0)
            break;
        if (const int error = zip::writeFully(out, buffer.data(), static_cast<size_t>(got)))
            return fail(to, error);
    }
    ::close(in);
    const timespec times[2] = {source.st_atim, source.st_mtim};
    if (::fchmod(out, source.st_mode & 07777) != 0 || ::futimens(out, times) != 0)
        return fail(to, errno);
    if (::close(out) != 0) {
        const int error = errno;
        ::unlink(target.constData());
        return describePath(to, error);
    }
    return std::nullopt;
}

std::optional<QString> moveFile(const QString &from, const QString &to)
{
    const QByteArray source = QFile::encodeName(from);
    if (::renameat2(AT_FDCWD, source.constData(), AT_FDCWD, QFile::encodeName(to).constData(),
                    RENAME_NOREPLACE) == 0)
        return std::nullopt;
    // Another file system, or one that cannot refuse to replace, takes a copy. So does any other refusal:
    // a rename does not say which side refused, and the copy's failure names the file at fault.
    if (auto failure = copyFile(from, to))
        return failure;
    ::unlink(source.constData());
    return std::nullopt;
}

void removeTree(const QString &path)
{
    std::error_code ignored;
    std::filesystem::remove_all(toFsPath(path), ignored);
}

Result<QStringList> listTree(const QString &folder)
{
    QStringList found;
    std::deque<std::filesystem::path> pending{toFsPath(folder)};
    while (!pending.empty()) {
        const std::filesystem::path current = std::move(pending.front());
        pending.pop_front();
        std::error_code ec;
        std::vector<std::filesystem::directory_entry> children;
        for (std::filesystem::directory_iterator it(current, ec), end; !ec && it != end; it.increment(ec))
            children.push_back(*it);
        if (ec)
            return Result<QStringList>::failure(describeFileError(fromFsPath(current), ec.value()));
        std::sort(children.begin(), children.end(),
                  [](const auto &a, const auto &b) { return a.path().filename() < b.path().filename(); });
        for (const auto &child : children) {
            found.append(fromFsPath(child.path()));
            if (child.is_directory(ec) && !child.is_symlink(ec))
                pending.push_back(child.path());
        }
    }
    return found;
}

Result<ArchiveDirectory> readArchiveDirectory(const QString &archive)
{
    try {
        if (!isOccupied(archive))
            throw zip::FileSystemError(zip::FileSystemError::fileReadNoSuchFile, ENOENT, toFsPath(archive));
        zip::Archive zipFile(toFsPath(archive), zip::Archive::AccessMode::read);
        ArchiveDirectory directory;
        const auto &end = zipFile.endOfCentralDirectoryRecord();
        quint64 cdEnd = quint64(end.offsetToStartOfCentralDirectory) + end.sizeOfCentralDirectory;
        directory.declared = end.totalNumberOfEntriesInCentralDirectory;
        quint64 zip64Records = 0;
        if (const auto &zip64 = zipFile.zip64EndOfCentralDirectory()) {
            directory.declared = zip64->record.totalNumberOfEntriesInCentralDirectory;
            cdEnd = zip64->record.offsetToStartOfCentralDirectory + zip64->record.sizeOfCentralDirectory;
            zip64Records = zip64->record.sizeOfZIP64EndOfCentralDirectoryRecord + 12 +
                           zip::ZIP64EndOfCentralDirectoryLocator::size;
        }
        directory.endOfData =
            cdEnd + zip64Records + zip::EndOfCentralDirectoryRecord::size + end.zipFileCommentLength;
        for (auto it = zipFile.begin(); it != zipFile.end(); ++it)
            ++directory.walked;
        return directory;
    } catch (const std::exception &error) {
        return Result<ArchiveDirectory>::failure(describe(error, archive));
    }
}

std::optional<QString> checkAllEntriesReadable(const QString &archive, const ArchiveDirectory &directory)
{
    if (directory.walked == directory.declared)
        return std::nullopt;
    return QStringLiteral("L'archive ") + quoted(archive) + QStringLiteral(" est endommagée : ") +
           QString::number(directory.walked) + QStringLiteral(" éléments sur ") +
           QString::number(directory.declared) + QStringLiteral(" sont lisibles.");
}

bool startsLikeJson(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false; // the archive reader says what is wrong with it
    QByteArray head = file.read(64);
    if (head.startsWith("\xEF\xBB\xBF"))
        head.remove(0, 3);
    head = head.trimmed();
    return head.startsWith('{') || head.startsWith('[');
}

bool ordinalLess(const QString &a, const QString &b)
{
    const QList<uint> left = a.normalized(QString::NormalizationForm_C).toUcs4();
    const QList<uint> right = b.normalized(QString::NormalizationForm_C).toUcs4();
    return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end());
}

} // namespace fiva::backup
