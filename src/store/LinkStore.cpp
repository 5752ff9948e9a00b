#include "store/LinkStore.h"

#include "model/JsonCodec.h"
#include "model/SavedData.h"
#include "platform/Clock.h"
#include "platform/Collation.h"
#include "platform/Paths.h"
#include "store/Console.h"
#include "store/Failures.h"
#include "store/FileIO.h"
#include "store/Trimming.h"

#include <QCollator>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTimer>

#include <algorithm>
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
                     QObject *parent)
    : QObject(parent), m_paths(paths), m_workspace(workspace), m_clock(clock),
      m_timerPeriod(std::move(timerPeriod)), m_categories{uncategorized()}
{
    if (!m_timerPeriod)
        m_timerPeriod = realTimerPeriod;
    setupAutoBackupTimer();
    load();
    loadBackupHistory();
}

LinkStore::~LinkStore() = default;

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
    m_lastBackupDate = date;
    Q_EMIT lastBackupDateChanged();
    save();
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

bool LinkStore::save()
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
        return fail(QStringLiteral("no application-support folder"));
    if (const auto error = fileio::writeDocument(path, SavedData{m_items, m_categories, m_lastBackupDate}))
        return fail(*error);
    return true;
}

void LinkStore::load()
{
    const QString path = dataFileURL();
    if (path.isEmpty()) {
        console::print(u"⚠️ Données absentes :", QStringLiteral("no application-support folder"));
        return;
    }
    QString error;
    std::optional<SavedData> data;
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
        return;
    }
    setItems(std::move(data->items));
    setCategories(std::move(data->categories));
    // Saves, so that ids and creation dates the file lacked are stored from now on.
    setLastBackupDate(data->lastBackupDate);
    sortCategories();
}

// The file may still be recoverable by hand, so it goes out of the way of the next save instead
// of being overwritten by it. If it cannot be moved, saves are refused for this run.
void LinkStore::setAsideUnreadableDataFile(const QString &path)
{
    const QString stamp =
        QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(m_clock.now().toUnix() * 1000.0), Qt::UTC)
            .toString(QStringLiteral("yyyyMMdd'T'HHmmss'Z'"));
    const QString base = path + QStringLiteral(".unreadable-") + stamp;
    QString target = base;
    for (int n = 2; QFileInfo::exists(target) || QFileInfo(target).isSymLink(); ++n)
        target = base + u'-' + QString::number(n);
    if (QFile::rename(path, target)) {
        console::print(u"⚠️ Fichier de données illisible mis de côté :", target);
        m_startupFailure = failureSentence(FailureKind::dataFileSetAside, target);
        return;
    }
    m_saveRefusal = path + QStringLiteral(": unreadable and could not be moved aside, not overwriting it");
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
    if (!updateItem(id, [](LinkItem &item) { item.isFavorite = !item.isFavorite; }))
        return;
    save();
}

void LinkStore::deleteItem(const QUuid &id)
{
    const auto it =
        std::find_if(m_items.cbegin(), m_items.cend(), [&](const LinkItem &i) { return i.id == id; });
    if (it != m_items.cend()) {
        for (const Attachment &attachment : it->attachments) {
            // Only plain files: a path naming a folder is never deleted recursively.
            const QFileInfo info(attachment.filePath);
            if (info.exists() && !info.isDir())
                QFile::remove(attachment.filePath);
        }
    }
    const auto removed = m_items.removeIf([&](const LinkItem &i) { return i.id == id; });
    if (removed > 0)
        Q_EMIT itemsChanged();
    save();
}

void LinkStore::addCategory(const QString &name)
{
    const QString trimmed = trimHorizontalWhitespace(name);
    if (trimmed.isEmpty() || m_categories.contains(trimmed))
        return;
    m_categories.append(trimmed);
    sortCategories();
    save();
}

void LinkStore::addSubCategory(const QString &parent, const QString &name)
{
    const QString trimmed = trimHorizontalWhitespace(name);
    if (trimmed.isEmpty())
        return;
    const QString fullName = parent + QStringLiteral(" / ") + trimmed;
    if (m_categories.contains(fullName))
        return;
    m_categories.append(fullName);
    sortCategories();
    save();
}

void LinkStore::renameCategory(const QString &oldName, const QString &newName)
{
    const QString trimmed = trimHorizontalWhitespace(newName);
    if (trimmed.isEmpty())
        return;
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
    save();
}

void LinkStore::deleteCategory(const QString &name)
{
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
    save();
}

bool LinkStore::isBackupOld() const
{
    if (!m_lastBackupDate)
        return true;
    return m_clock.now().seconds - m_lastBackupDate->seconds > oldBackupAge;
}

} // namespace fiva
