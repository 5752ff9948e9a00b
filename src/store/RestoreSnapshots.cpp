#include "store/RestoreSnapshots.h"

#include "model/DateTimeConversion.h"
#include "store/BackupFiles.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace fiva::snapshots {

namespace {

const QString &prefix()
{
    static const QString text = QStringLiteral("FivaData-avant-restauration-");
    return text;
}

// "<prefix><stamp>[-n].json": the stamp orders snapshots, n those made within the same second.
const QRegularExpression &pattern()
{
    static const QRegularExpression re(
        QRegularExpression::escape(prefix()) +
        QStringLiteral(R"((\d{4}-\d\d-\d\dT\d\d-\d\d-\d\dZ)(?:-(\d+))?\.json)"));
    return re;
}

// Written whole and flushed before it counts: a snapshot is the only copy of the replaced data.
std::optional<QString> writeNew(const QString &path, const QByteArray &bytes)
{
    const QByteArray name = QFile::encodeName(path);
    const int fd = ::open(name.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0)
        return backup::describeFileError(path, errno);
    const char *data = bytes.constData();
    qsizetype left = bytes.size();
    int error = 0;
    while (left > 0 && error == 0) {
        const ssize_t n = ::write(fd, data, size_t(left));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            error = n < 0 ? errno : EIO;
        else {
            data += n;
            left -= n;
        }
    }
    if (error == 0 && ::fsync(fd) != 0)
        error = errno;
    if (::close(fd) != 0 && error == 0)
        error = errno;
    if (error != 0) {
        ::unlink(name.constData());
        return backup::describeFileError(path, error);
    }
    return std::nullopt;
}

} // namespace

QStringList list(const QString &folder)
{
    std::vector<std::pair<std::pair<QString, int>, QString>> found;
    const QDir dir(folder);
    for (const QString &name : dir.entryList({prefix() + u'*'}, QDir::Files)) {
        const QRegularExpressionMatch match = pattern().match(name);
        if (match.hasMatch() && match.capturedLength() == name.size())
            found.push_back({{match.captured(1), match.captured(2).isEmpty() ? 1 : match.captured(2).toInt()},
                             dir.filePath(name)});
    }
    std::sort(found.begin(), found.end(), [](const auto &a, const auto &b) { return a.first > b.first; });
    QStringList paths;
    for (const auto &entry : found)
        paths.append(entry.second);
    return paths;
}

Result<QString> keep(const QString &folder, const QByteArray &bytes, Timestamp time)
{
    if (folder.isEmpty())
        return Result<QString>::failure(
            QStringLiteral("Le système ne donne aucun dossier où garder les données."));
    const QString stamp =
        toDateTime(time).value_or(QDateTime()).toUTC().toString(QStringLiteral("yyyy-MM-dd'T'HH-mm-ss'Z'"));
    const QDir dir(folder);
    QString path = dir.filePath(prefix() + stamp + QStringLiteral(".json"));
    for (int n = 2; backup::isOccupied(path); ++n)
        path = dir.filePath(prefix() + stamp + u'-' + QString::number(n) + QStringLiteral(".json"));
    if (auto error = writeNew(path, bytes))
        return Result<QString>::failure(*error);
    const QStringList all = list(folder);
    for (qsizetype i = kept; i < all.size(); ++i)
        QFile::remove(all.at(i));
    return path;
}

} // namespace fiva::snapshots
