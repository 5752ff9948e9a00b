#include "model/JsonCodec.h"
#include "model/SavedData.h"
#include "platform/Clock.h"
#include "platform/Paths.h"
#include "platform/Workspace.h"
#include "store/Console.h"
#include "store/FileIO.h"
#include "store/LinkStore.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMetaObject>
#include <QTimer>

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

namespace fiva {

namespace {

constexpr qsizetype autoBackupsKept = 10;

struct FolderEntry
{
    QString path;
    QString name;
    // Seconds and nanoseconds since 1970; none when the file system would not say.
    std::optional<std::pair<qint64, quint32>> created;
};

// The birth time where the file system records it, else the last modification.
std::optional<std::pair<qint64, quint32>> creationTime(const QString &path)
{
    struct statx info
    {
    };
    if (::statx(AT_FDCWD, QFile::encodeName(path).constData(), AT_SYMLINK_NOFOLLOW, STATX_BTIME | STATX_MTIME,
                &info) != 0)
        return std::nullopt;
    const auto nanoseconds = [](const statx_timestamp &t) {
        return std::pair<qint64, quint32>{t.tv_sec, t.tv_nsec};
    };
    if (info.stx_mask & STATX_BTIME)
        return nanoseconds(info.stx_btime);
    if (info.stx_mask & STATX_MTIME)
        return nanoseconds(info.stx_mtime);
    return std::nullopt;
}

// Newest first; entries of unknown age last. Equal times happen on file systems with coarse
// timestamps: then the greater name goes first, which for our own files is the later backup.
bool newerFirst(const FolderEntry &a, const FolderEntry &b)
{
    if (a.created.has_value() != b.created.has_value())
        return a.created.has_value();
    if (a.created && *a.created != *b.created)
        return *a.created > *b.created;
    return a.name > b.name;
}

} // namespace

std::chrono::milliseconds realTimerPeriod(AutoBackupInterval interval)
{
    return std::chrono::milliseconds(std::llround(rawValue(interval) * 1000.0));
}

QString LinkStore::autoBackupFileName(Timestamp time)
{
    char digits[64];
    const auto [end, ec] =
        std::to_chars(digits, digits + sizeof digits, time.toUnix(), std::chars_format::fixed);
    QString number = ec == std::errc() ? QString::fromLatin1(digits, end - digits) : QStringLiteral("0");
    if (!number.contains(u'.'))
        number += QStringLiteral(".0");
    return QStringLiteral("AutoBackup-") + number + QStringLiteral(".fivabackup");
}

void LinkStore::setupAutoBackupTimer()
{
    if (m_autoBackupTimer) {
        m_autoBackupTimer->stop();
        delete m_autoBackupTimer;
        m_autoBackupTimer = nullptr;
    }
    if (!m_autoBackupEnabled)
        return;
    auto *timer = new QTimer(this);
    timer->setSingleShot(false);
    timer->setInterval(m_timerPeriod(m_autoBackupIntervalOption));
    // The backup runs as its own task on the main thread, never inside the timer's signal.
    connect(timer, &QTimer::timeout, this,
            [this] { QMetaObject::invokeMethod(this, &LinkStore::performAutoBackup, Qt::QueuedConnection); });
    timer->start();
    m_autoBackupTimer = timer;
}

void LinkStore::performAutoBackup()
{
    const auto fail = [](const QString &description) {
        console::print(u"❌ Auto-backup error:", description);
    };
    const QString folder = autoBackupsFolderURL();
    if (folder.isEmpty())
        return fail(QStringLiteral("no application-support folder"));
    if (const auto error = fileio::makeFolder(folder))
        return fail(*error);

    const Timestamp now = m_clock.now();
    const QString path = QDir(folder).filePath(autoBackupFileName(now));
    const bool existed = QFileInfo::exists(path);
    if (const auto error = fileio::writeDocument(path, SavedData{m_items, m_categories, now})) {
        // A half-written backup would count toward the ten kept and push out a good one.
        if (!existed)
            QFile::remove(path);
        return fail(*error);
    }

    setLastBackupDate(now);
    addBackupLog(path);
    pruneAutoBackups();
}

void LinkStore::addBackupLog(const QString &backupFilePath)
{
    const QFileInfo info(backupFilePath);
    const qint64 size = info.exists() ? info.size() : 0;
    m_backupHistory.prepend(BackupLog{QUuid::createUuid(), m_clock.now(), info.absoluteFilePath(), size});
    Q_EMIT backupHistoryChanged();

    const auto fail = [](const QString &description) {
        console::print(u"⚠️ Erreur historique :", description);
    };
    const QString historyPath = historyFileURL();
    if (historyPath.isEmpty())
        return fail(QStringLiteral("no application-support folder"));
    const Result<QByteArray> bytes = json::encode(m_backupHistory);
    if (!bytes)
        return fail(bytes.error());
    if (const auto error = fileio::writeWholeFile(historyPath, bytes.value()))
        return fail(*error);
}

void LinkStore::pruneAutoBackups()
{
    const QString folder = autoBackupsFolderURL();
    if (folder.isEmpty())
        return;
    const QDir dir(folder);
    // Every visible entry counts, whatever made it: the folder holds ten things at most.
    const QStringList names =
        dir.entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System, QDir::Name);
    if (names.size() <= autoBackupsKept)
        return;
    std::vector<FolderEntry> entries;
    entries.reserve(static_cast<size_t>(names.size()));
    for (const QString &name : names) {
        const QString path = dir.filePath(name);
        entries.push_back({path, name, creationTime(path)});
    }
    std::stable_sort(entries.begin(), entries.end(), newerFirst);
    for (size_t i = autoBackupsKept; i < entries.size(); ++i) {
        std::error_code ignored;
        std::filesystem::remove_all(std::filesystem::path(QFile::encodeName(entries[i].path).toStdString()),
                                    ignored);
    }
}

void LinkStore::openAutoBackupsFolder()
{
    if (m_paths.applicationSupportFolder().isEmpty()) {
        console::print(u"⚠️ Impossible de trouver Application Support");
        return;
    }
    const QString folder = autoBackupsFolderURL();
    if (const auto error = fileio::makeFolder(folder))
        console::print(u"❌ Impossible de créer le dossier AutoBackups :", *error);
    m_workspace.revealItem(folder);
}

void LinkStore::loadBackupHistory()
{
    const QString path = historyFileURL();
    if (path.isEmpty())
        return;
    const Result<QByteArray> bytes = fileio::readWholeFile(path);
    if (!bytes)
        return;
    Result<QList<BackupLog>> history = json::decodeBackupHistory(bytes.value());
    if (history) {
        setBackupHistory(std::move(history).value());
        return;
    }
    // Like the data file, a history that cannot be decoded may still be mended by hand: it goes out
    // of the way, or the next backup would replace it with a history of one entry.
    const QString stamp =
        QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(m_clock.now().toUnix() * 1000.0), Qt::UTC)
            .toString(QStringLiteral("yyyyMMdd'T'HHmmss'Z'"));
    const QString base = path + QStringLiteral(".unreadable-") + stamp;
    QString target = base;
    for (int n = 2; QFileInfo::exists(target) || QFileInfo(target).isSymLink(); ++n)
        target = base + u'-' + QString::number(n);
    if (QFile::rename(path, target))
        console::print(u"⚠️ Historique illisible mis de côté :", target);
    else
        console::print(u"⚠️ Historique illisible non déplacé :",
                       QString(path + QStringLiteral(": ") + history.error()));
}

} // namespace fiva
