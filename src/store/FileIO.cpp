#include "store/FileIO.h"

#include <QFile>

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <system_error>

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

std::optional<QString> writeWholeFile(const QString &path, const QByteArray &bytes)
{
    const auto failure = [&](int error) {
        return describe(path, QString::fromLocal8Bit(std::strerror(error)));
    };
    const int fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0)
        return failure(errno);
    const auto closeWith = [&](int error) {
        ::close(fd);
        return failure(error);
    };
    struct stat info
    {
    };
    if (::fstat(fd, &info) != 0)
        return closeWith(errno);
    const bool regular = S_ISREG(info.st_mode);
    const auto size = static_cast<off_t>(bytes.size());
    // Reserve the room before overwriting anything: on a full disk the old content stays whole.
    if (regular && size > 0) {
        const int error = ::posix_fallocate(fd, 0, size);
        if (error != 0 && error != EOPNOTSUPP && error != EINVAL)
            return closeWith(error);
    }
    const char *data = bytes.constData();
    qsizetype left = bytes.size();
    while (left > 0) {
        const ssize_t n = ::write(fd, data, static_cast<size_t>(left));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return closeWith(errno);
        }
        data += n;
        left -= n;
    }
    // The old content may have been longer.
    if (regular && ::ftruncate(fd, size) != 0)
        return closeWith(errno);
    if (::close(fd) != 0)
        return failure(errno);
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
        return describe(path, QStringLiteral("not a folder"));
    return std::nullopt;
}

} // namespace fiva::fileio
