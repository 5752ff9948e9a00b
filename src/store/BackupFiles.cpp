#include "store/BackupFiles.h"

#include "zip/Errors.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUuid>

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <system_error>
#include <vector>

namespace fiva::backup {

namespace {

QString describePath(const QString &path, int error)
{
    return path + QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(error));
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
        return QStringLiteral("no temporary folder to work in");
    const QString path = QDir(temporaryFolder).filePath(name);
    std::error_code ec;
    std::filesystem::create_directories(toFsPath(temporaryFolder), ec);
    if (ec)
        return temporaryFolder + QStringLiteral(": ") + QString::fromStdString(ec.message());
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

QString describe(const std::exception &error)
{
    if (const auto *zipError = dynamic_cast<const zip::ZipError *>(&error))
        return QString::fromStdString(zipError->description());
    return QString::fromLocal8Bit(error.what());
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
    const QByteArray target = QFile::encodeName(to);
    const int out = ::open(target.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
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
        ssize_t done = 0;
        while (done < got) {
            const ssize_t put = ::write(out, buffer.data() + done, static_cast<size_t>(got - done));
            if (put < 0) {
                if (errno == EINTR)
                    continue;
                return fail(to, errno);
            }
            done += put;
        }
    }
    ::close(in);
    if (::close(out) != 0) {
        const int error = errno;
        ::unlink(target.constData());
        return describePath(to, error);
    }
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
            return Result<QStringList>::failure(fromFsPath(current) + QStringLiteral(": ") +
                                                QString::fromStdString(ec.message()));
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

QString attachmentIndexName()
{
    return QStringLiteral("FivaAttachments.json");
}

QByteArray encodeAttachmentIndex(const QList<ArchivedAttachment> &entries)
{
    QJsonArray files;
    for (const ArchivedAttachment &entry : entries) {
        files.append(QJsonObject{{QStringLiteral("record"), static_cast<qint64>(entry.record)},
                                 {QStringLiteral("attachment"), static_cast<qint64>(entry.attachment)},
                                 {QStringLiteral("filePath"), entry.filePath},
                                 {QStringLiteral("file"), entry.file}});
    }
    return QJsonDocument(QJsonObject{{QStringLiteral("version"), 1}, {QStringLiteral("files"), files}})
        .toJson(QJsonDocument::Compact);
}

std::optional<QList<ArchivedAttachment>> decodeAttachmentIndex(const QByteArray &bytes)
{
    const QJsonDocument document = QJsonDocument::fromJson(bytes);
    if (!document.isObject() || document.object().value(QStringLiteral("version")).toInt() != 1)
        return std::nullopt;
    const QJsonValue files = document.object().value(QStringLiteral("files"));
    if (!files.isArray())
        return std::nullopt;
    QList<ArchivedAttachment> entries;
    for (const QJsonValue &value : files.toArray()) {
        const QJsonObject object = value.toObject();
        const QJsonValue record = object.value(QStringLiteral("record"));
        const QJsonValue attachment = object.value(QStringLiteral("attachment"));
        const QJsonValue filePath = object.value(QStringLiteral("filePath"));
        const QJsonValue file = object.value(QStringLiteral("file"));
        if (!record.isDouble() || !attachment.isDouble() || !filePath.isString() || !file.isString())
            return std::nullopt;
        const QString name = file.toString();
        // The name is joined to a folder of ours: it must stay a plain name inside it.
        if (name.isEmpty() || name.contains(u'/') || name.contains(QChar(0)) || name == u"." || name == u"..")
            return std::nullopt;
        const double r = record.toDouble();
        const double a = attachment.toDouble();
        if (!(r >= 0 && r < 1e15 && a >= 0 && a < 1e15) || r != static_cast<double>(static_cast<qint64>(r)) ||
            a != static_cast<double>(static_cast<qint64>(a)))
            return std::nullopt;
        entries.append({static_cast<qsizetype>(r), static_cast<qsizetype>(a), filePath.toString(), name});
    }
    return entries;
}

bool ordinalLess(const QString &a, const QString &b)
{
    const QList<uint> left = a.normalized(QString::NormalizationForm_C).toUcs4();
    const QList<uint> right = b.normalized(QString::NormalizationForm_C).toUcs4();
    return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end());
}

} // namespace fiva::backup
