#include "store/FileIO.h"

#include "model/JsonCodec.h"
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
#include <atomic>
#include <cstring>
#include <filesystem>
#include <new>
#include <system_error>
#include <utility>
#include <vector>

namespace fiva::fileio {

namespace {

QString describe(const QString &path, const QString &cause)
{
    return path + QStringLiteral(": ") + cause;
}

} // namespace

Result<QByteArray> readWholeFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return Result<QByteArray>::failure(describe(path, file.errorString()));
    QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return Result<QByteArray>::failure(describe(path, file.errorString()));
    return bytes;
}

Result<json::InputBuffer> readDocument(const QString &path)
{
    const auto failure = [&](int error) {
        return Result<json::InputBuffer>::failure(
            describe(path, QString::fromLocal8Bit(std::strerror(error))));
    };
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return failure(errno);
    struct stat info
    {
    };
    if (::fstat(fd, &info) != 0 || S_ISDIR(info.st_mode)) {
        const int error = S_ISDIR(info.st_mode) ? EISDIR : errno;
        ::close(fd);
        return failure(error);
    }
    try {
        // The size is only a first guess: the file may change while it is read, and some files
        // report no size at all.
        json::InputBuffer buffer(info.st_size > 0 ? std::size_t(info.st_size) : 0);
        std::size_t filled = 0;
        for (;;) {
            // Once the guessed size is filled, a small read tells the end from a file that grew,
            // without doubling a large buffer for nothing.
            char probe[4096];
            const bool full = filled == buffer.size();
            const ssize_t n = full ? ::read(fd, probe, sizeof probe)
                                   : ::read(fd, buffer.data() + filled, buffer.size() - filled);
            if (n < 0 && errno == EINTR)
                continue;
            if (n < 0) {
                const int error = errno;
                ::close(fd);
                return failure(error);
            }
            if (n == 0)
                break;
            if (full) {
                buffer.resize(std::max<std::size_t>(buffer.size() * 2, 64 * 1024));
                std::memcpy(buffer.data() + filled, probe, std::size_t(n));
            }
            filled += std::size_t(n);
        }
        ::close(fd);
        buffer.resize(filled);
        return buffer;
    } catch (const std::bad_alloc &) {
        ::close(fd);
        return failure(ENOMEM);
    }
}

namespace {

int writeAll(int fd, QByteArrayView bytes, qint64 offset)
{
    return zip::writeFully(fd, bytes.data(), std::size_t(bytes.size()), offset);
}

// The file is opened only once the document's size is known, so that a document that cannot be
// encoded leaves no empty file behind. Regular files get the room for the whole content reserved
// first, so that a full disk leaves the old content whole, and are then written in place from
// several threads; anything else (a device, a pipe) gets the bytes in order, in one go.
class FileOutput final : public json::DocumentOutput
{
public:
    // Failures name `shownPath`: the user knows the target, not the temporary file beside it.
    explicit FileOutput(const QString &path, const QString &shownPath = {})
        : m_path(path), m_shownPath(shownPath.isEmpty() ? path : shownPath)
    {
    }
    // A new file of its own, made with `mode` (the umask still applies), never through a link left at its
    // name.
    FileOutput(const QString &path, const QString &shownPath, mode_t mode)
        : m_path(path), m_shownPath(shownPath), m_flags(O_EXCL | O_NOFOLLOW), m_mode(mode)
    {
    }
    ~FileOutput() override
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }

    std::optional<QString> reserve(qint64 size) override
    {
        m_fd =
            ::open(QFile::encodeName(m_path).constData(), O_WRONLY | O_CREAT | O_CLOEXEC | m_flags, m_mode);
        if (m_fd < 0)
            return failure(errno);
        struct stat info
        {
        };
        if (::fstat(m_fd, &info) != 0)
            return failure(errno);
        m_size = size;
        m_regular = S_ISREG(info.st_mode);
        if (!m_regular) {
            m_inOrder.resize(qsizetype(size));
            // Taken once here: the writes come from several threads and must not touch the array itself.
            m_inOrderData = m_inOrder.data();
            return std::nullopt;
        }
        if (size > 0) {
            const int error = ::posix_fallocate(m_fd, 0, off_t(size));
            if (error != 0 && error != EOPNOTSUPP && error != EINVAL)
                return failure(error);
        }
        return std::nullopt;
    }

    std::optional<QString> write(qint64 offset, QByteArrayView bytes) override
    {
        if (!m_regular) {
            std::memcpy(m_inOrderData + offset, bytes.data(), std::size_t(bytes.size()));
            return std::nullopt;
        }
        if (const int error = writeAll(m_fd, bytes, offset))
            return failure(error);
        return std::nullopt;
    }

    std::optional<QString> finish()
    {
        if (!m_regular) {
            if (const int error = writeAll(m_fd, m_inOrder, -1))
                return failure(error);
        } else if (::ftruncate(m_fd, off_t(m_size)) != 0) {
            // The old content may have been longer.
            return failure(errno);
        }
        const int fd = std::exchange(m_fd, -1);
        if (::close(fd) != 0)
            return failure(errno);
        return std::nullopt;
    }

private:
    QString failure(int error) const
    {
        return describe(m_shownPath, QString::fromLocal8Bit(std::strerror(error)));
    }

    QString m_path;
    QString m_shownPath;
    int m_flags = 0;
    mode_t m_mode = 0666;
    int m_fd = -1;
    qint64 m_size = 0;
    bool m_regular = true;
    QByteArray m_inOrder;
    char *m_inOrderData = nullptr;
};

} // namespace

namespace {

// Whether the target is something a Replacement can stand in for: a regular file, or nothing yet.
// A device or a pipe named as the target must keep receiving the bytes itself.
bool replaceable(const QString &path)
{
    struct stat info
    {
    };
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        return errno == ENOENT;
    return S_ISREG(info.st_mode);
}

// Writes through `write` into a new file beside the target and renames it over the target.
// Done instead of rewriting the file in place: a kill or a power cut in the middle of an in-place
// rewrite leaves a torn file, and that file is all the user has.
template <typename Write> std::optional<QString> writeReplacing(const QString &path, Write write)
{
    if (!replaceable(path)) {
        FileOutput output(path);
        if (auto error = write(output))
            return error;
        return output.finish();
    }
    Replacement replacement(path);
    // Made with the target's permission bits from the start: a private data file must not be readable by
    // others as a temporary copy while it is written.
    FileOutput output(replacement.temporaryPath(), path, replacement.targetMode().value_or(0666) & 0777);
    if (auto error = write(output))
        return error;
    if (auto error = output.finish())
        return error;
    return replacement.commit();
}

} // namespace

std::optional<QString> writeWholeFile(const QString &path, const QByteArray &bytes)
{
    return writeReplacing(path, [&](FileOutput &output) -> std::optional<QString> {
        if (auto error = output.reserve(bytes.size()))
            return error;
        return output.write(0, bytes);
    });
}

std::optional<QString> writeDocument(const QString &path, const SavedData &data)
{
    return writeReplacing(path, [&](FileOutput &output) { return json::encode(data, output); });
}

namespace {

class SameBytes final : public json::DocumentOutput
{
public:
    explicit SameBytes(const QString &path)
        : m_fd(::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC))
    {
    }
    ~SameBytes() override
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }

    std::optional<QString> reserve(qint64 size) override
    {
        struct stat info
        {
        };
        if (m_fd < 0 || ::fstat(m_fd, &info) != 0 || !S_ISREG(info.st_mode) || qint64(info.st_size) != size)
            m_same = false;
        // Stops the encoding at once: the answer is known.
        return m_same ? std::nullopt : std::optional<QString>(QString());
    }

    std::optional<QString> write(qint64 offset, QByteArrayView bytes) override
    {
        thread_local std::vector<char> onDisk;
        onDisk.resize(std::size_t(bytes.size()));
        qint64 done = 0;
        while (m_same && done < bytes.size()) {
            const ssize_t n =
                ::pread(m_fd, onDisk.data() + done, std::size_t(bytes.size() - done), off_t(offset + done));
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                m_same = false;
            else
                done += n;
        }
        if (m_same && std::memcmp(onDisk.data(), bytes.data(), std::size_t(bytes.size())) != 0)
            m_same = false;
        return m_same ? std::nullopt : std::optional<QString>(QString());
    }

    bool same() const { return m_same; }

private:
    int m_fd;
    std::atomic<bool> m_same{true};
};

} // namespace

bool holdsDocument(const QString &path, const SavedData &data)
{
    SameBytes check(path);
    return !json::encode(data, check) && check.same();
}

FileStamp stampOf(const QString &path)
{
    struct stat info
    {
    };
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        return {};
    return {true,
            quint64(info.st_dev),
            quint64(info.st_ino),
            qint64(info.st_size),
            qint64(info.st_mtim.tv_sec),
            qint64(info.st_mtim.tv_nsec)};
}

Replacement::Replacement(const QString &target) : m_target(target)
{
    const QFileInfo info(target);
    if (info.isSymLink()) {
        // A dangling link keeps its text as the place to write; a loop leaves the link itself.
        const QString resolved = info.symLinkTarget();
        if (!resolved.isEmpty())
            m_target = resolved;
    }
    const QFileInfo resolvedInfo(m_target);
    const QString name = QStringLiteral(".") + resolvedInfo.fileName() + QStringLiteral(".tmp-") +
                         QUuid::createUuid().toString(QUuid::WithoutBraces);
    m_temporary = resolvedInfo.dir().filePath(name);
}

Replacement::~Replacement()
{
    if (!m_committed)
        ::unlink(QFile::encodeName(m_temporary).constData());
}

std::optional<mode_t> Replacement::targetMode() const
{
    struct stat info
    {
    };
    if (::stat(QFile::encodeName(m_target).constData(), &info) != 0 || !S_ISREG(info.st_mode))
        return std::nullopt;
    return info.st_mode & 07777;
}

std::optional<QString> Replacement::commit()
{
    const QByteArray temporary = QFile::encodeName(m_temporary);
    const QByteArray target = QFile::encodeName(m_target);
    const int fd = ::open(temporary.constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0)
        return describe(m_temporary, QString::fromLocal8Bit(std::strerror(errno)));
    struct stat previous
    {
    };
    if (::stat(target.constData(), &previous) == 0 && S_ISREG(previous.st_mode))
        (void)::fchmod(fd, previous.st_mode & 07777);
    if (::fsync(fd) != 0) {
        const int error = errno;
        ::close(fd);
        return describe(m_temporary, QString::fromLocal8Bit(std::strerror(error)));
    }
    ::close(fd);
    if (::rename(temporary.constData(), target.constData()) != 0)
        return describe(m_target, QString::fromLocal8Bit(std::strerror(errno)));
    m_committed = true;
    // The rename itself lives in the folder; without this a power cut may still bring back the old name.
    const QByteArray folder = QFile::encodeName(QFileInfo(m_target).absolutePath());
    const int dirFd = ::open(folder.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd >= 0) {
        (void)::fsync(dirFd);
        ::close(dirFd);
    }
    return std::nullopt;
}

std::optional<QString> makeFolder(const QString &path)
{
    std::error_code ec;
    const std::filesystem::path folder(QFile::encodeName(path).toStdString());
    std::filesystem::create_directories(folder, ec);
    if (ec)
        return describe(path, QString::fromStdString(ec.message()));
    if (!std::filesystem::is_directory(folder, ec))
        return describe(path, QStringLiteral("ce n'est pas un dossier"));
    return std::nullopt;
}

} // namespace fiva::fileio
