#pragma once

#include "model/AutoBackupInterval.h"
#include "model/BackupLog.h"
#include "model/LinkItem.h"
#include "model/SavedData.h"
#include "model/Timestamp.h"
#include "store/FileIO.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>

class QFileSystemWatcher;
class QTimer;

namespace fiva {

class Clock;
class DataLock;
class Dialogs;
class Paths;
class Workspace;
struct RestoreUndo;

// How long the automatic-backup timer waits for an interval. The application uses the interval's
// real length; tests pass something short so that nothing waits minutes.
using TimerPeriod = std::function<std::chrono::milliseconds(AutoBackupInterval)>;
std::chrono::milliseconds realTimerPeriod(AutoBackupInterval interval);

// The one owner of the user's data: records, categories, backup history, date of the last backup
// and the automatic-backup settings. Every change to records or categories rewrites
// AS/Fiva/FivaData.json whole. Operations never report failure to the caller: they print it
// (see console::print) and leave the in-memory state as it is.
//
// Other processes (fiva-cli, a script) may change the same files. Every operation that writes
// takes the data folder's lock (AS/Fiva/Fiva.lock), reloads the files that changed on disk since
// this store last read or wrote them, applies its change to the fresh records by id, saves and
// only then lets go of the lock: nothing another writer saved meanwhile is written over.
//
// Lives on the main thread. Paths, Workspace and Clock must outlive the store.
class LinkStore final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool autoBackupEnabled READ autoBackupEnabled WRITE setAutoBackupEnabled NOTIFY
                   autoBackupEnabledChanged)
    Q_PROPERTY(fiva::AutoBackupInterval autoBackupIntervalOption READ autoBackupIntervalOption WRITE
                   setAutoBackupIntervalOption NOTIFY autoBackupIntervalOptionChanged)
    Q_PROPERTY(QList<fiva::LinkItem> items READ items WRITE setItems NOTIFY itemsChanged)
    Q_PROPERTY(QStringList categories READ categories WRITE setCategories NOTIFY categoriesChanged)
    Q_PROPERTY(QList<fiva::BackupLog> backupHistory READ backupHistory WRITE setBackupHistory NOTIFY
                   backupHistoryChanged)
    Q_PROPERTY(std::optional<fiva::Timestamp> lastBackupDate READ lastBackupDate WRITE setLastBackupDate
                   NOTIFY lastBackupDateChanged)

public:
    // Sets the initial values, starts the automatic-backup timer, loads the data file and then
    // the backup history.
    // When the data file is rewritten after loading, so that ids and dates it lacked are stored: before
    // the constructor returns, or once finishStartup() is called.
    enum class StartupRewrite {
        beforeReturning,
        whenAsked,
    };

    LinkStore(const Paths &paths, Workspace &workspace, const Clock &clock,
              TimerPeriod timerPeriod = realTimerPeriod,
              StartupRewrite startupRewrite = StartupRewrite::beforeReturning, QObject *parent = nullptr);
    ~LinkStore() override;

    // The start-up rewrite of StartupRewrite::whenAsked. The comparison of the file with the loaded data
    // runs on another thread; back on this one, the file is rewritten when they differ and nothing has
    // written it meanwhile (a save since holds all the rewrite would add). `wait` does it all before
    // returning.
    void finishStartup(bool wait = false);

    // The fallback category of records whose category is deleted, and the initial sole entry.
    static QString uncategorized();

    bool autoBackupEnabled() const { return m_autoBackupEnabled; }
    // Every assignment restarts the timer, also when the value does not change.
    void setAutoBackupEnabled(bool enabled);
    AutoBackupInterval autoBackupIntervalOption() const { return m_autoBackupIntervalOption; }
    // Every assignment restarts the timer, also when the value does not change.
    void setAutoBackupIntervalOption(AutoBackupInterval interval);

    // Records in the order they were added; views sort and filter copies.
    const QList<LinkItem> &items() const { return m_items; }
    // In-memory changes only: none of the three writes the file or takes the lock. Screens and
    // fiva-cli use addItem, editItem and the other operations below instead.
    void setItems(QList<LinkItem> items);
    void appendItem(LinkItem item);
    // Applies `change` to the first record with this id; false, and no signal, when there is none.
    bool updateItem(const QUuid &id, const std::function<void(LinkItem &)> &change);

    const QStringList &categories() const { return m_categories; }
    // Replaces the list as given (no sorting, no saving).
    void setCategories(QStringList categories);

    // Newest first.
    const QList<BackupLog> &backupHistory() const { return m_backupHistory; }
    // Replaces the history in memory only; only addBackupLog writes the history file.
    void setBackupHistory(QList<BackupLog> history);

    const std::optional<Timestamp> &lastBackupDate() const { return m_lastBackupDate; }
    // Every assignment is followed by save().
    void setLastBackupDate(std::optional<Timestamp> date);

    // Writes items, categories and lastBackupDate to AS/Fiva/FivaData.json, under the lock but
    // without reloading: what is in memory is what the caller wants on disk. Returns whether the
    // file was written; a failure has already been printed as "❌ Erreur save:".
    bool save();
    // Start-up reading of the data file. A data file that exists but cannot be read or decoded
    // is moved aside first, so that no later save can replace it.
    void load();
    // Local paths. AS/Fiva and AS/Fiva_Attachments are created on the way (failures ignored).
    // Empty when the desktop gives no application-support folder.
    QString dataFileURL() const;
    QString historyFileURL() const;
    QString autoBackupsFolderURL() const;
    QString attachmentsFolderURL() const;

    // Adding and changing a record are store operations, so that they happen under the lock on
    // fresh records; a screen that edited a copy in place and saved it would write back a stale
    // list. Each takes the lock, reloads what changed on disk, applies the change and saves.
    // Appends the record and saves; whether the file was written.
    bool addItem(LinkItem item);
    // Applies `change` to the first record with this id and saves. A record deleted meanwhile
    // (here or by another process) is not brought back: false, and nothing is written.
    bool editItem(const QUuid &id, const std::function<void(LinkItem &)> &change);
    // Appends the attachment to the record and saves; false, and nothing written, without the record.
    bool addAttachment(const QUuid &id, const Attachment &attachment);
    // Discards the attachment's file (into the desktop trash) and removes every attachment of the
    // record with that attachment's id, then saves; false when the record is gone.
    bool removeAttachment(const QUuid &id, const Attachment &attachment);

    // Records and categories brought in from outside (a bookmark file), added in one save.
    struct ImportBatch
    {
        QList<LinkItem> records;
        QStringList newCategories;
    };
    // Which records to add is decided by `plan`, called under the lock with the records and
    // categories as they are on disk at that moment: whether a link is already there can only be
    // judged then, since the window or a script may have saved since the caller last looked (a
    // preview shown earlier is only a forecast). The store knows nothing of bookmark files; the
    // caller's plan does. Records are appended in the plan's order; categories not yet present are
    // added and the list sorted. Returns the batch that was saved, or nothing when nothing was
    // written (an empty plan, or a failure already printed).
    using ImportPlanner =
        std::function<ImportBatch(const QList<LinkItem> &items, const QStringList &categories)>;
    std::optional<ImportBatch> importRecords(const ImportPlanner &plan);
    // Repairs of broken paths. Each is one save under the lock, applied by id to the records as
    // they are on disk, so that a repair worked out on an older copy never writes back stale fields.
    // `repair` is given the fresh records and returns those it changes, each carrying its id; only
    // their path and the copies of their attachments (matched by attachment id) are taken over.
    // The number of records changed (0, and nothing written, when none); nothing when the change
    // could not be saved.
    using PathRepair = std::function<QList<LinkItem>(const QList<LinkItem> &)>;
    std::optional<qsizetype> repairPaths(const PathRepair &repair);
    // Points the record at `newPath`; false when the record is gone or the file was not written.
    bool relocate(const QUuid &id, const QString &newPath);
    // Points the attachment's copy at `newFilePath`; false when the record or the attachment is gone.
    bool relocateAttachment(const QUuid &id, const QUuid &attachmentId, const QString &newFilePath);

    // Flips the favourite flag and saves; an unknown id changes and writes nothing.
    void toggleFavorite(const QUuid &id);
    // Deletes the record, its attachment files, and saves (also for an unknown id).
    void deleteItem(const QUuid &id);
    // Deletes these records and their attachment files in one save; ids no longer there are passed
    // over. The number of records deleted; nothing when the file could not be written.
    std::optional<qsizetype> deleteItems(const QList<QUuid> &ids);
    void addCategory(const QString &name);
    void addSubCategory(const QString &parent, const QString &name);
    void renameCategory(const QString &oldName, const QString &newName);
    void deleteCategory(const QString &name);
    // True without a backup date or when it is more than three days old.
    bool isBackupOld() const;

    // Following the files. Reloads the data file (and the history file) when another process
    // changed it, at once: reading needs no lock since every file is replaced whole by a rename.
    // True when something was reloaded (and reloadedFromDisk emitted).
    bool reloadIfChanged();
    // Watches AS/Fiva so that a change made by another process is loaded within a second; the
    // window turns it on, a one-shot fiva-cli does not need it.
    void watchFiles();

    // Recovery. The path the unreadable data file was moved to at start, or empty.
    const QString &setAsideDataFile() const { return m_setAsideDataFile; }
    struct AutoBackupCandidate
    {
        QString path;
        Timestamp date; // when it was written
        qsizetype records = 0;
    };
    // The newest automatic backup that reads and decodes, if any.
    std::optional<AutoBackupCandidate> newestReadableAutoBackup() const;
    // Loads that automatic backup as if it were the data file and saves it. False, with the
    // reason printed as "❌ Erreur récupération :", when it no longer decodes or cannot be saved.
    bool recoverFromAutoBackup(const QString &path);

    // Automatic backup and history.
    void setupAutoBackupTimer();
    void performAutoBackup();
    void addBackupLog(const QString &backupFilePath);
    void pruneAutoBackups();
    void openAutoBackupsFolder();
    // The running automatic-backup timer, or null when switched off.
    QTimer *autoBackupTimer() const { return m_autoBackupTimer; }

    // "AutoBackup-<seconds since 1970>.fivabackup", the number in its shortest exact decimal form.
    static QString autoBackupFileName(Timestamp time);

    // Backup archives. Panels and alerts go through these dialogs (which must outlive the store);
    // without any, the export has no save panel and the restore prints its alerts.
    void setDialogs(Dialogs *dialogs);
    // The save panel, then writeBackupArchive. The completion runs after every export that got
    // past the panel, failed or not; a failure is printed as "❌ Erreur export :".
    void exportBackup(std::function<void()> completion = {});
    // Writes the archive to `location`, replacing what is there. The failure's description, if any.
    std::optional<QString> writeBackupArchive(const QString &location);
    // Replaces items, categories and lastBackupDate by the archive's. A failure is shown in an
    // alert and changes none of them. True when the archive's data is now the store's.
    bool restoreBackup(const QString &location);
    // The confirmation's informative text for restoring `location`: an automatic backup says that
    // it brings back records and categories but no attachment copies.
    static QString restoreConfirmationText(const QString &location);
    // Brings back the data file as it was before the latest restore, byte for byte, and the
    // records, categories and backup date it holds. Attachment copies the restore added stay.
    // A failure is shown in an alert and changes nothing. True when the earlier data is back.
    bool undoRestore();
    // Whether a copy of the data from before a restore is there to go back to.
    bool canUndoRestore() const;
    // Set at start when the data file had to be set aside, or could not be: what the user must
    // know, as a sentence; empty otherwise.
    const QString &startupFailure() const { return m_startupFailure; }

Q_SIGNALS:
    void autoBackupEnabledChanged();
    void autoBackupIntervalOptionChanged();
    void itemsChanged();
    void categoriesChanged();
    void backupHistoryChanged();
    void lastBackupDateChanged();
    // The data file could not be written; the reason has been printed.
    void saveFailed();
    // Another process changed the data or history file and the store now holds its content.
    void reloadedFromDisk();
    // A failure the user should see although no alert reports it (a save, an automatic backup,
    // an export): what failed and what to do next, in French.
    void failureReported(const QString &sentence);
    // A restore replaced the data; undoRestore() can bring the earlier data back.
    void restoreCompleted(const QString &location);
    void restoreUndone();

private:
    // Holds the data folder's lock for its lifetime; nested scopes share the one lock. Other
    // store files (the restore) take it the same way around their read-change-write.
    class LockScope final
    {
    public:
        explicit LockScope(LinkStore &store);
        ~LockScope();
        LockScope(const LockScope &) = delete;
        LockScope &operator=(const LockScope &) = delete;
        // Why the lock could not be had (empty when held): nothing may be written then.
        const QString &error() const { return m_error; }

    private:
        LinkStore &m_store;
        QString m_error;
    };

    // The one path of every change: lock, reload what changed, apply, save when `apply` says
    // it changed something, unlock. Returns what `apply` returned (false as well when nothing
    // could be written).
    bool change(const std::function<bool()> &apply);
    // Writes the data file as it is in memory and remembers its stamp; no lock, no reload.
    bool writeDataFile();
    bool writeDataFile(const SavedData &data);
    bool reloadDataFile();
    bool reloadHistoryFile();
    void rearmWatcher();
    void removeStaleReplacements();
    QString lockFileURL() const;

    QString programFolder() const;
    void loadBackupHistory();
    void sortCategories();
    bool commitRestored(SavedData restored);
    void rollBackRestore(const SavedData &previous, const RestoreUndo &undo, const QStringList &copied);
    void setAsideUnreadableDataFile(const QString &path);
    void setAsideUnreadableHistory(const QString &path, const QString &error);
    // "<path>.unreadable-<date>", numbered when taken.
    QString asideName(const QString &path) const;

    const Paths &m_paths;
    Workspace &m_workspace;
    const Clock &m_clock;
    TimerPeriod m_timerPeriod;

    bool m_autoBackupEnabled = true;
    AutoBackupInterval m_autoBackupIntervalOption = AutoBackupInterval::fifteenMinutes;
    QList<LinkItem> m_items;
    QStringList m_categories;
    QList<BackupLog> m_backupHistory;
    std::optional<Timestamp> m_lastBackupDate;
    QTimer *m_autoBackupTimer = nullptr;
    // Set when an unreadable data file could not be moved aside: saving would destroy it.
    QString m_saveRefusal;
    Dialogs *m_dialogs = nullptr;

    // What this store last read or wrote; a different stamp on disk means another writer.
    fileio::FileStamp m_dataStamp;
    fileio::FileStamp m_historyStamp;
    std::unique_ptr<DataLock> m_lock;
    int m_lockDepth = 0;
    QFileSystemWatcher *m_watcher = nullptr;
    QTimer *m_reloadTimer = nullptr;
    QString m_setAsideDataFile;
    // The data as loaded, while the start-up rewrite has still to be decided; any write of the data
    // file clears it.
    std::optional<SavedData> m_startupData;
    fileio::FileStamp m_startupStamp;
    std::future<bool> m_startupCheck;
    QString m_startupFailure;
};

} // namespace fiva
