#include "store/FileIO.h"

#include <QFile>

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
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return describe(path, file.errorString());
    const qint64 written = file.write(bytes);
    if (written != bytes.size()) {
        const QString cause = file.error() != QFileDevice::NoError
                                  ? file.errorString()
                                  : QStringLiteral("%1 of %2 bytes written").arg(written).arg(bytes.size());
        file.close();
        return describe(path, cause);
    }
    if (!file.flush()) {
        const QString cause = file.errorString();
        file.close();
        return describe(path, cause);
    }
    file.close();
    if (file.error() != QFileDevice::NoError)
        return describe(path, file.errorString());
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
