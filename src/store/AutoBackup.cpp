#include "model/JsonCodec.h"
#include "model/SavedData.h"
#include "platform/Clock.h"
#include "platform/Paths.h"
#include "platform/Workspace.h"
#include "store/Console.h"
#include "store/Failures.h"
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
    const auto fail = [this](const QString &description) {
        console::print(u"❌ Auto-backup error:", description);
        Q_EMIT failureReported(failureSentence(FailureKind::autoBackup, description));
    };
    const QString folder = autoBackupsFolderURL();
    if (folder.isEmpty())
        return fail(noDataFolder());
    if (const auto error = fileio::makeFolder(folder))
        return fail(*error);
    // The backup, the backup date and the history entry are one change: another writer's records
    // are read first, so the backup holds them too.
    const LockScope lock(*this);
    if (!lock.error().isEmpty())
        return fail(lock.error());
    reloadIfChanged();

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
    const LockScope lock(*this);
    // Entries another process added meanwhile are kept.
    const QString historyFile = historyFileURL();
    if (lock.error().isEmpty() && !historyFile.isEmpty() && fileio::stampOf(historyFile) != m_historyStamp &&
        reloadHistoryFile())
        Q_EMIT reloadedFromDisk();
    const QFileInfo info(backupFilePath);
    const qint64 size = info.exists() ? info.size() : 0;
    m_backupHistory.prepend(BackupLog{QUuid::createUuid(), m_clock.now(), info.absoluteFilePath(), size});
    Q_EMIT backupHistoryChanged();

    const auto fail = [](const QString &description) {
        console::print(u"⚠️ Erreur historique :", description);
    };
    const QString historyPath = historyFileURL();
    if (historyPath.isEmpty())
        return fail(noDataFolder());
    if (!lock.error().isEmpty())
        return fail(lock.error());
    const Result<QByteArray> bytes = json::encode(m_backupHistory);
    if (!bytes)
        return fail(bytes.error());
    if (const auto error = fileio::writeWholeFile(historyPath, bytes.value()))
        return fail(*error);
    m_historyStamp = fileio::stampOf(historyPath);
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
    if (historyFileURL().isEmpty())
        return;
    // Under the lock, so that an unreadable history can be set aside safely.
    const LockScope lock(*this);
    reloadHistoryFile();
}

namespace {

// The seconds since 1970 in an automatic backup's name, if it has the form we write.
std::optional<double> autoBackupTime(const QString &name)
{
    static const QString prefix = QStringLiteral("AutoBackup-");
    static const QString suffix = QStringLiteral(".fivabackup");
    if (!name.startsWith(prefix) || !name.endsWith(suffix))
        return std::nullopt;
    bool ok = false;
    const double seconds = name.mid(prefix.size(), name.size() - prefix.size() - suffix.size()).toDouble(&ok);
    return ok ? std::optional<double>(seconds) : std::nullopt;
}

} // namespace

std::optional<LinkStore::AutoBackupCandidate> LinkStore::newestReadableAutoBackup() const
{
    const QString folder = autoBackupsFolderURL();
    if (folder.isEmpty())
        return std::nullopt;
    std::vector<std::pair<double, QString>> backups;
    const QStringList names = QDir(folder).entryList(QDir::Files | QDir::NoDotAndDotDot);
    for (const QString &name : names) {
        if (const auto seconds = autoBackupTime(name))
            backups.emplace_back(*seconds, QDir(folder).filePath(name));
    }
    std::sort(backups.begin(), backups.end(), [](const auto &a, const auto &b) { return a.first > b.first; });
    for (const auto &[seconds, path] : backups) {
        Result<json::InputBuffer> bytes = fileio::readDocument(path);
        if (!bytes)
            continue;
        Result<SavedData> decoded = json::decodeSavedData(std::move(bytes).value(), m_clock.now());
        if (!decoded)
            continue;
        // The document's backup date is the moment it was written; the name says the same.
        const Timestamp date = decoded.value().lastBackupDate.value_or(Timestamp::fromUnix(seconds));
        return AutoBackupCandidate{path, date, decoded.value().items.size()};
    }
    return std::nullopt;
}

bool LinkStore::recoverFromAutoBackup(const QString &path)
{
    const auto fail = [](const QString &description) {
        console::print(u"❌ Erreur récupération :", description);
        return false;
    };
    const LockScope lock(*this);
    if (!lock.error().isEmpty())
        return fail(lock.error());
    Result<json::InputBuffer> bytes = fileio::readDocument(path);
    if (!bytes)
        return fail(bytes.error());
    Result<SavedData> decoded = json::decodeSavedData(std::move(bytes).value(), m_clock.now());
    if (!decoded)
        return fail(path + QStringLiteral(": ") + decoded.error());
    SavedData data = std::move(decoded).value();
    // Loaded as the data file would be at start, then saved as the data file.
    setItems(std::move(data.items));
    setCategories(std::move(data.categories));
    m_lastBackupDate = data.lastBackupDate;
    Q_EMIT lastBackupDateChanged();
    if (!writeDataFile())
        return false;
    sortCategories();
    m_setAsideDataFile.clear();
    return true;
}

} // namespace fiva
