#include "store/LinkStore.h"

#include "model/DateTimeConversion.h"
#include "model/JsonCodec.h"
#include "model/SavedData.h"
#include "platform/Clock.h"
#include "platform/Collation.h"
#include "platform/Paths.h"
#include "store/Console.h"
#include "store/DataLock.h"
#include "store/Failures.h"
#include "store/FileIO.h"
#include "store/Trash.h"
#include "store/Trimming.h"

#include <QCollator>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QMetaObject>
#include <QSet>
#include <QTimer>

#include <algorithm>
#include <system_error>
#include <utility>

namespace fiva {

namespace {

constexpr double oldBackupAge = 259200.0; // three days

const QString &dataFileName()
{
    static const QString name = QStringLiteral("FivaData.json");
    return name;
}

} // namespace

LinkStore::LinkStore(const Paths &paths, Workspace &workspace, const Clock &clock, TimerPeriod timerPeriod,
                     StartupRewrite startupRewrite, QObject *parent)
    : QObject(parent), m_paths(paths), m_workspace(workspace), m_clock(clock),
      m_timerPeriod(std::move(timerPeriod)), m_categories{uncategorized()}
{
    if (!m_timerPeriod)
        m_timerPeriod = realTimerPeriod;
    setupAutoBackupTimer();
    load();
    loadBackupHistory();
    if (startupRewrite == StartupRewrite::beforeReturning)
        finishStartup(true);
}

LinkStore::~LinkStore()
{
    // Its answer, queued for this store, is dropped with it.
    if (m_startupCheck.valid())
        m_startupCheck.wait();
}

void LinkStore::finishStartup(bool wait)
{
    if (!m_startupData || (m_startupCheck.valid() && !wait))
        return;
    const auto decide = [this, stamp = m_startupStamp](bool same) {
        if (!m_startupData)
            return;
        const SavedData loaded = *std::exchange(m_startupData, std::nullopt);
        if (same)
            return;
        const LockScope lock(*this);
        if (!lock.error().isEmpty()) {
            console::print(u"❌ Erreur save:", lock.error());
            Q_EMIT saveFailed();
            return;
        }
        // Another writer's file is newer than what was loaded: it is not to be replaced by older data,
        // and the watcher brings it in.
        if (fileio::stampOf(dataFileURL()) == stamp)
            writeDataFile(loaded);
    };
    const QString path = dataFileURL();
    if (wait) {
        // The answer the other thread queues finds the decision taken.
        decide(m_startupCheck.valid() ? m_startupCheck.get() : fileio::holdsDocument(path, *m_startupData));
        return;
    }
    const auto compare = [this, path, loaded = *m_startupData, decide] {
        const bool same = fileio::holdsDocument(path, loaded);
        QMetaObject::invokeMethod(
            this, [decide, same] { decide(same); }, Qt::QueuedConnection);
        return same;
    };
    try {
        m_startupCheck = std::async(std::launch::async, compare);
    } catch (const std::system_error &) {
        std::promise<bool> done;
        done.set_value(compare());
        m_startupCheck = done.get_future();
    }
}

QString LinkStore::uncategorized()
{
    return QStringLiteral("Sans catégorie");
}

void LinkStore::setAutoBackupEnabled(bool enabled)
{
    m_autoBackupEnabled = enabled;
    Q_EMIT autoBackupEnabledChanged();
    setupAutoBackupTimer();
}

void LinkStore::setAutoBackupIntervalOption(AutoBackupInterval interval)
{
    m_autoBackupIntervalOption = interval;
    Q_EMIT autoBackupIntervalOptionChanged();
    setupAutoBackupTimer();
}

void LinkStore::setItems(QList<LinkItem> items)
{
    m_items = std::move(items);
    Q_EMIT itemsChanged();
}

void LinkStore::appendItem(LinkItem item)
{
    m_items.append(std::move(item));
    Q_EMIT itemsChanged();
}

bool LinkStore::updateItem(const QUuid &id, const std::function<void(LinkItem &)> &change)
{
    const auto it =
        std::find_if(m_items.begin(), m_items.end(), [&](const LinkItem &i) { return i.id == id; });
    if (it == m_items.end())
        return false;
    change(*it);
    Q_EMIT itemsChanged();
    return true;
}

void LinkStore::setCategories(QStringList categories)
{
    m_categories = std::move(categories);
    Q_EMIT categoriesChanged();
}

void LinkStore::setBackupHistory(QList<BackupLog> history)
{
    m_backupHistory = std::move(history);
    Q_EMIT backupHistoryChanged();
}

void LinkStore::setLastBackupDate(std::optional<Timestamp> date)
{
    change([&] {
        m_lastBackupDate = date;
        Q_EMIT lastBackupDateChanged();
        return true;
    });
}

QString LinkStore::programFolder() const
{
    const QString as = m_paths.applicationSupportFolder();
    if (as.isEmpty())
        return {};
    const QString folder = QDir(as).filePath(QStringLiteral("Fiva"));
    // A folder we cannot create shows up as the failure of the read or write that follows.
    (void)fileio::makeFolder(folder);
    return folder;
}

QString LinkStore::dataFileURL() const
{
    const QString folder = programFolder();
    return folder.isEmpty() ? QString() : QDir(folder).filePath(dataFileName());
}

QString LinkStore::historyFileURL() const
{
    const QString folder = programFolder();
    return folder.isEmpty() ? QString() : QDir(folder).filePath(QStringLiteral("BackupHistory.json"));
}

QString LinkStore::autoBackupsFolderURL() const
{
    const QString as = m_paths.applicationSupportFolder();
    return as.isEmpty() ? QString() : QDir(as).filePath(QStringLiteral("Fiva/AutoBackups"));
}

QString LinkStore::attachmentsFolderURL() const
{
    const QString as = m_paths.applicationSupportFolder();
    if (as.isEmpty())
        return {};
    const QString folder = QDir(as).filePath(QStringLiteral("Fiva_Attachments"));
    (void)fileio::makeFolder(folder);
    return folder;
}

LinkStore::LockScope::LockScope(LinkStore &store) : m_store(store)
{
    if (m_store.m_lockDepth++ > 0) {
        if (!m_store.m_lock)
            m_error = QStringLiteral("verrou des données non obtenu");
        return;
    }
    const QString file = m_store.lockFileURL();
    if (file.isEmpty()) {
        m_error = noDataFolder();
        return;
    }
    auto lock = std::make_unique<DataLock>(file);
    if (!lock->isHeld()) {
        m_error = lock->error();
        return;
    }
    m_store.m_lock = std::move(lock);
}

LinkStore::LockScope::~LockScope()
{
    if (--m_store.m_lockDepth == 0)
        m_store.m_lock.reset();
}

QString LinkStore::lockFileURL() const
{
    const QString folder = programFolder();
    return folder.isEmpty() ? QString() : QDir(folder).filePath(DataLock::fileName());
}

bool LinkStore::save()
{
    // The caller's records are the ones to write (a restore, a whole new list): no reload here.
    const LockScope lock(*this);
    if (!lock.error().isEmpty()) {
        console::print(u"❌ Erreur save:", lock.error());
        Q_EMIT saveFailed();
        return false;
    }
    return writeDataFile();
}

bool LinkStore::writeDataFile()
{
    return writeDataFile(SavedData{m_items, m_categories, m_lastBackupDate});
}

bool LinkStore::writeDataFile(const SavedData &data)
{
    const auto fail = [this](const QString &description) {
        console::print(u"❌ Erreur save:", description);
        Q_EMIT saveFailed();
        Q_EMIT failureReported(failureSentence(FailureKind::save, description));
        return false;
    };
    if (!m_saveRefusal.isEmpty())
        return fail(m_saveRefusal);
    const QString path = dataFileURL();
    if (path.isEmpty())
        return fail(noDataFolder());
    // A save writes everything the start-up rewrite would.
    m_startupData.reset();
    if (const auto error = fileio::writeDocument(path, data))
        return fail(*error);
    m_dataStamp = fileio::stampOf(path);
    return true;
}

bool LinkStore::change(const std::function<bool()> &apply)
{
    const LockScope lock(*this);
    if (!lock.error().isEmpty()) {
        // Writing without the lock could undo another writer's save: nothing is changed.
        console::print(u"❌ Erreur save:", lock.error());
        Q_EMIT saveFailed();
        return false;
    }
    reloadIfChanged();
    if (!apply())
        return false;
    return writeDataFile();
}

bool LinkStore::reloadIfChanged()
{
    bool reloaded = false;
    const QString data = dataFileURL();
    if (!data.isEmpty() && fileio::stampOf(data) != m_dataStamp)
        reloaded = reloadDataFile();
    const QString history = historyFileURL();
    if (!history.isEmpty() && fileio::stampOf(history) != m_historyStamp)
        reloaded = reloadHistoryFile() || reloaded;
    if (reloaded)
        Q_EMIT reloadedFromDisk();
    return reloaded;
}

bool LinkStore::reloadDataFile()
{
    const QString path = dataFileURL();
    const fileio::FileStamp stamp = fileio::stampOf(path);
    if (!stamp.exists) {
        // Gone from disk: what this store holds is the best copy left, and the next save writes it.
        m_dataStamp = stamp;
        return false;
    }
    Result<json::InputBuffer> bytes = fileio::readDocument(path);
    // Something we cannot read (a folder in its place, no permission) is not data we could lose
    // by writing: the write that follows reports its own failure if there is one.
    if (!bytes)
        return false;
    Result<SavedData> decoded = json::decodeSavedData(std::move(bytes).value(), m_clock.now());
    if (decoded) {
        SavedData data = std::move(decoded).value();
        m_dataStamp = stamp;
        // Another writer's file: the start-up rewrite of older data is off.
        m_startupData.reset();
        setItems(std::move(data.items));
        setCategories(std::move(data.categories));
        m_lastBackupDate = data.lastBackupDate;
        Q_EMIT lastBackupDateChanged();
        sortCategories();
        return true;
    }
    console::print(u"⚠️ Données absentes :", QString(path + QStringLiteral(": ") + decoded.error()));
    // Only a writer may move the file; a mere look leaves it for the next change to deal with.
    if (m_lock) {
        setAsideUnreadableDataFile(path);
        m_dataStamp = fileio::stampOf(path);
    }
    return false;
}

bool LinkStore::reloadHistoryFile()
{
    const QString path = historyFileURL();
    const fileio::FileStamp stamp = fileio::stampOf(path);
    m_historyStamp = stamp;
    if (!stamp.exists)
        return false;
    const Result<QByteArray> bytes = fileio::readWholeFile(path);
    if (!bytes)
        return false;
    Result<QList<BackupLog>> history = json::decodeBackupHistory(bytes.value());
    if (!history) {
        // Like the data file, a history that cannot be decoded may still be mended by hand: it goes
        // out of the way, or the next backup would replace it with a history of one entry. Only the
        // lock's holder moves it, so that no other writer is in the middle of replacing it.
        if (m_lock)
            setAsideUnreadableHistory(path, history.error());
        return false;
    }
    setBackupHistory(std::move(history).value());
    return true;
}

void LinkStore::setAsideUnreadableHistory(const QString &path, const QString &error)
{
    const QString target = asideName(path);
    if (QFile::rename(path, target))
        console::print(u"⚠️ Historique illisible mis de côté :", target);
    else
        console::print(u"⚠️ Historique illisible non déplacé :",
                       QString(path + QStringLiteral(": ") + error));
    m_historyStamp = fileio::stampOf(path);
}

void LinkStore::watchFiles()
{
    if (m_watcher)
        return;
    m_watcher = new QFileSystemWatcher(this);
    m_reloadTimer = new QTimer(this);
    m_reloadTimer->setSingleShot(true);
    // A writer's burst (temporary file, rename, folder flush) ends in one reload.
    m_reloadTimer->setInterval(100);
    const auto schedule = [this] { m_reloadTimer->start(); };
    connect(m_watcher, &QFileSystemWatcher::directoryChanged, this, schedule);
    connect(m_watcher, &QFileSystemWatcher::fileChanged, this, schedule);
    connect(m_reloadTimer, &QTimer::timeout, this, [this] {
        rearmWatcher();
        // Our own writes left the stamps equal to the files: only someone else's change reloads.
        reloadIfChanged();
    });
    rearmWatcher();
}

// A file replaced by a rename is a new file: the watch on the old one is gone with it.
void LinkStore::rearmWatcher()
{
    const QStringList watched = m_watcher->files() + m_watcher->directories();
    for (const QString &path : {programFolder(), dataFileURL(), historyFileURL()}) {
        if (!path.isEmpty() && !watched.contains(path) && QFileInfo::exists(path))
            m_watcher->addPath(path);
    }
}

// A writer killed between writing its new file and renaming it leaves that file behind. Only a
// lock holder writes them, so under the lock every one of them is a leftover.
void LinkStore::removeStaleReplacements()
{
    const QString folder = programFolder();
    if (folder.isEmpty())
        return;
    const QDir dir(folder);
    const QStringList patterns{QStringLiteral(".FivaData.json.tmp-*"),
                               QStringLiteral(".BackupHistory.json.tmp-*")};
    for (const QString &name : dir.entryList(patterns, QDir::Files | QDir::Hidden | QDir::System))
        QFile::remove(dir.filePath(name));
}

void LinkStore::load()
{
    const QString path = dataFileURL();
    if (path.isEmpty()) {
        console::print(u"⚠️ Données absentes :", noDataFolder());
        return;
    }
    // The start-up rewrite below is a write like any other.
    const LockScope lock(*this);
    if (lock.error().isEmpty())
        removeStaleReplacements();
    QString error;
    std::optional<SavedData> data;
    const fileio::FileStamp stamp = fileio::stampOf(path);
    Result<json::InputBuffer> bytes = fileio::readDocument(path);
    if (!bytes) {
        error = bytes.error();
    } else {
        Result<SavedData> decoded = json::decodeSavedData(std::move(bytes).value(), m_clock.now());
        if (decoded)
            data = std::move(decoded).value();
        else
            error = path + QStringLiteral(": ") + decoded.error();
    }
    if (!data) {
        console::print(u"⚠️ Données absentes :", error);
        // A missing file is the normal first start; anything else on disk is the user's data.
        if (QFileInfo::exists(path))
            setAsideUnreadableDataFile(path);
        // What stays at the path (nothing, or a file that could not be moved) is known already.
        m_dataStamp = fileio::stampOf(path);
        return;
    }
    m_dataStamp = stamp;
    setItems(std::move(data->items));
    setCategories(std::move(data->categories));
    m_lastBackupDate = data->lastBackupDate;
    Q_EMIT lastBackupDateChanged();
    // Saved (by finishStartup), so that ids and creation dates the file lacked are stored from now on.
    // A file that already holds exactly those bytes is left as it is: writing 77 MB again would change
    // nothing but its date. The window asks for it once it shows, the comparison being a whole encode.
    if (lock.error().isEmpty()) {
        m_startupData = SavedData{m_items, m_categories, m_lastBackupDate};
        m_startupStamp = stamp;
    } else {
        console::print(u"❌ Erreur save:", lock.error());
        Q_EMIT saveFailed();
    }
    sortCategories();
}

QString LinkStore::asideName(const QString &path) const
{
    const QString stamp = toDateTime(m_clock.now())
                              .value_or(QDateTime())
                              .toUTC()
                              .toString(QStringLiteral("yyyyMMdd'T'HHmmss'Z'"));
    const QString base = path + QStringLiteral(".unreadable-") + stamp;
    QString target = base;
    for (int n = 2; QFileInfo::exists(target) || QFileInfo(target).isSymLink(); ++n)
        target = base + u'-' + QString::number(n);
    return target;
}

// The file may still be recoverable by hand, so it goes out of the way of the next save instead
// of being overwritten by it. If it cannot be moved, saves are refused for this run.
void LinkStore::setAsideUnreadableDataFile(const QString &path)
{
    const QString target = asideName(path);
    if (QFile::rename(path, target)) {
        m_setAsideDataFile = target;
        console::print(u"⚠️ Fichier de données illisible mis de côté :", target);
        m_startupFailure = failureSentence(FailureKind::dataFileSetAside, target);
        return;
    }
    m_saveRefusal = QStringLiteral("le fichier de données ") + path +
                    QStringLiteral(" est illisible et n'a pas pu être mis de côté : Fiva ne l'écrase pas. "
                                   "Déplacez-le, puis relancez Fiva.");
    console::print(
        u"⚠️ Fichier de données illisible non déplacé, aucune sauvegarde ne le remplacera :", path);
    m_startupFailure = failureSentence(FailureKind::dataFileKept, path);
}

void LinkStore::sortCategories()
{
    const QCollator collator = userCollator();
    std::stable_sort(m_categories.begin(), m_categories.end(),
                     [&](const QString &a, const QString &b) { return collator.compare(a, b) < 0; });
    Q_EMIT categoriesChanged();
}

void LinkStore::toggleFavorite(const QUuid &id)
{
    change([&] { return updateItem(id, [](LinkItem &item) { item.isFavorite = !item.isFavorite; }); });
}

bool LinkStore::addItem(LinkItem item)
{
    return change([&] {
        appendItem(std::move(item));
        return true;
    });
}

bool LinkStore::editItem(const QUuid &id, const std::function<void(LinkItem &)> &edit)
{
    return change([&] { return updateItem(id, edit); });
}

bool LinkStore::addAttachment(const QUuid &id, const Attachment &attachment)
{
    return change(
        [&] { return updateItem(id, [&](LinkItem &item) { item.attachments.append(attachment); }); });
}

std::optional<LinkStore::ImportBatch> LinkStore::importRecords(const ImportPlanner &plan)
{
    std::optional<ImportBatch> saved;
    const bool written = change([&] {
        ImportBatch batch = plan(m_items, m_categories);
        if (batch.records.isEmpty() && batch.newCategories.isEmpty())
            return false;
        bool categoriesAdded = false;
        for (const QString &name : std::as_const(batch.newCategories)) {
            if (!name.isEmpty() && !m_categories.contains(name)) {
                m_categories.append(name);
                categoriesAdded = true;
            }
        }
        if (categoriesAdded)
            sortCategories();
        if (!batch.records.isEmpty()) {
            m_items.reserve(m_items.size() + batch.records.size());
            m_items.append(batch.records);
            Q_EMIT itemsChanged();
        }
        saved = std::move(batch);
        return true;
    });
    if (!written)
        return std::nullopt;
    return saved;
}

namespace {

// Only plain files: a path naming a folder is never deleted recursively. The file goes to the
// desktop trash rather than being unlinked, so that a wrong click can be undone from there.
void discardAttachmentFile(const QString &path)
{
    const QFileInfo info(path);
    if (info.exists() && !info.isDir())
        (void)discardFile(path);
}

} // namespace

bool LinkStore::removeAttachment(const QUuid &id, const Attachment &attachment)
{
    return change([&] {
        discardAttachmentFile(attachment.filePath);
        return updateItem(id, [&](LinkItem &item) {
            item.attachments.removeIf([&](const Attachment &a) { return a.id == attachment.id; });
        });
    });
}

void LinkStore::deleteItem(const QUuid &id)
{
    deleteItems({id});
}

std::optional<qsizetype> LinkStore::deleteItems(const QList<QUuid> &ids)
{
    const QSet<QUuid> gone(ids.cbegin(), ids.cend());
    qsizetype removed = 0;
    bool applied = false;
    const bool saved = change([&] {
        applied = true;
        // Every record with a deleted id goes, but the files of only the first: a record copied by
        // hand with the same id may point at copies that are not its own.
        QSet<QUuid> discarded;
        for (const LinkItem &item : std::as_const(m_items)) {
            if (gone.contains(item.id) && !discarded.contains(item.id)) {
                discarded.insert(item.id);
                for (const Attachment &attachment : item.attachments)
                    discardAttachmentFile(attachment.filePath);
            }
        }
        removed = m_items.removeIf([&](const LinkItem &i) { return gone.contains(i.id); });
        if (removed > 0)
            Q_EMIT itemsChanged();
        return true;
    });
    if (!applied || !saved)
        return std::nullopt;
    return removed;
}

void LinkStore::addCategory(const QString &name)
{
    const QString trimmed = trimHorizontalWhitespace(name);
    if (trimmed.isEmpty())
        return;
    change([&] {
        if (m_categories.contains(trimmed))
            return false;
        m_categories.append(trimmed);
        sortCategories();
        return true;
    });
}

void LinkStore::addSubCategory(const QString &parent, const QString &name)
{
    const QString trimmed = trimHorizontalWhitespace(name);
    if (trimmed.isEmpty())
        return;
    const QString fullName = parent + QStringLiteral(" / ") + trimmed;
    change([&] {
        if (m_categories.contains(fullName))
            return false;
        m_categories.append(fullName);
        sortCategories();
        return true;
    });
}

void LinkStore::renameCategory(const QString &oldName, const QString &newName)
{
    const QString trimmed = trimHorizontalWhitespace(newName);
    if (trimmed.isEmpty())
        return;
    change([&] {
        const qsizetype index = m_categories.indexOf(oldName);
        if (index >= 0)
            m_categories[index] = trimmed;
        bool relabelled = false;
        for (LinkItem &item : m_items) {
            if (item.category == oldName) {
                item.category = trimmed;
                relabelled = true;
            }
        }
        if (relabelled)
            Q_EMIT itemsChanged();
        sortCategories();
        return true;
    });
}

void LinkStore::deleteCategory(const QString &name)
{
    change([&] {
        m_categories.removeAll(name);
        bool relabelled = false;
        for (LinkItem &item : m_items) {
            if (item.category == name) {
                item.category = uncategorized();
                relabelled = true;
            }
        }
        if (relabelled)
            Q_EMIT itemsChanged();
        sortCategories();
        return true;
    });
}

bool LinkStore::isBackupOld() const
{
    if (!m_lastBackupDate)
        return true;
    return m_clock.now().seconds - m_lastBackupDate->seconds > oldBackupAge;
}

} // namespace fiva
