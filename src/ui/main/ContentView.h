#pragma once

#include <QPointer>
#include <QRect>
#include <QString>
#include <QUuid>
#include <QWidget>

#include <functional>
#include <optional>
#include <vector>

class QAction;
class QCheckBox;
class QComboBox;
class QDateEdit;
class QDialog;
class QLabel;
class QLineEdit;
class QListView;
class QStackedWidget;
class QToolBar;

namespace fiva {

class Clock;
class DetailView;
class DuplicatesDialog;
class Dialogs;
class EditLinkView;
class LinkListModel;
class LinkStore;
class Settings;
class Workspace;
struct DroppedLink;
struct FilterState;
struct LinkItem;
struct Timestamp;

// The main window's content: the filtered record list with its search and filter controls on the
// left, the selected record on the right, and the toolbar that opens everything else. It keeps no
// records of its own; the list, the detail and every sheet read the store.
class ContentView final : public QWidget
{
    Q_OBJECT

public:
    // Everything passed in must outlive the view.
    ContentView(LinkStore &store, Dialogs &dialogs, Workspace &workspace, Settings &settings,
                const Clock &clock, QWidget *parent = nullptr);
    ~ContentView() override;

    // The five buttons and the last-backup text. It sits at the top of the view until a window
    // takes it with QMainWindow::addToolBar.
    QToolBar *toolBar() const { return m_toolBar; }
    QAction *newItemAction() const { return m_newItem; }
    QAction *categoriesAction() const { return m_categories; }
    QAction *exportAction() const { return m_export; }
    QAction *restoreAction() const { return m_restore; }
    QAction *backupHistoryAction() const { return m_backupHistory; }
    // The record commands with their keyboard shortcuts, in the order the menu shows them.
    QList<QAction *> recordActions() const;
    QAction *importBookmarksAction() const { return m_importBookmarks; }
    QAction *exportBookmarksAction() const { return m_exportBookmarks; }
    // "Vérifier les pages web…", "Réparer les dossiers déplacés…" and "Doublons…", for the menu.
    QList<QAction *> healthActions() const;

    QListView *list() const { return m_list; }
    LinkListModel &model() const { return *m_model; }
    const FilterState &filterState() const;

    std::optional<QUuid> selectedItemID() const { return m_selectedItemID; }
    void setSelectedItemID(const std::optional<QUuid> &id);

    // Deletes the records shown at these rows, without asking, and clears the selection.
    void deleteRows(std::vector<int> rows);
    // The Delete key and the list's delete command: asks "Supprimer cette fiche ?" first while
    // the setting askDeleteConfirmation is on, then deleteRows.
    void deleteSelectedRows();
    // Raises "⚠️ Sauvegarde ancienne" when the warning is on and the last backup is old or missing.
    void checkOldBackup();
    // On the weekday of the setting backupReminderDay, suggests a manual backup unless one was made
    // in the last 24 hours or the reminder was already shown that day, by this window or an earlier
    // run. The window asks once, the first time it is shown.
    void checkBackupReminder();
    // Dropped on the list or pasted into it: one link opens the new-record form filled with it;
    // several are listed in one confirmation and then added as records in one save.
    void addDroppedLinks(const QList<DroppedLink> &links);
    // The open panel, then the preview of what the file would add, then one save.
    void importBookmarks();
    // The save panel, then every record written as a browser bookmark file.
    void exportBookmarks();
    void exportBackup();
    // Checks every web record's page behind a progress dialog that can cancel it; one run at a time.
    void startWebCheck();
    // The duplicates dialog, or an alert saying that there are none.
    void showDuplicates();
    void startRestore();
    // The restore confirmation for `file`, then the restore if the answer is "Restaurer": what the
    // open panel leads to, and what opening a backup archive from the file manager shows.
    void confirmRestore(const QString &file);
    // The edit sheet for a new record (null) or for `item`.
    void showEditSheet(const LinkItem *item);
    void showCategories();
    void showBackupHistory();

    // The sheets open now, or null.
    EditLinkView *editSheet() const;
    QDialog *categoriesSheet() const;
    QDialog *backupHistorySheet() const;
    DuplicatesDialog *duplicatesSheet() const;
    DetailView *detailView() const;

    static QString lastBackupText(const std::optional<Timestamp> &lastBackupDate);
    // Where the favourite star of a row is drawn, in viewport coordinates.
    QRect starRectOfRow(int row) const;

protected:
    void showEvent(QShowEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void buildToolBar();
    QWidget *buildSidebar();
    void reloadCategories();
    void reloadSortPicker();
    void updateFilter(const std::function<void(FilterState &)> &change);
    void reloadItems();
    void selectionChangedByUser();
    void showSelectedRow();
    void updateDetail();
    void updateLastBackupText();
    void buildRecordActions();
    const LinkItem *selectedItem() const;

    LinkStore &m_store;
    Dialogs &m_dialogs;
    Workspace &m_workspace;
    Settings &m_settings;
    const Clock &m_clock;

    LinkListModel *m_model = nullptr;
    std::optional<QUuid> m_selectedItemID;
    // Set while the view itself moves the list's selection, so that only the user's changes count.
    bool m_syncingSelection = false;

    QToolBar *m_toolBar = nullptr;
    QAction *m_newItem = nullptr;
    QAction *m_categories = nullptr;
    QAction *m_export = nullptr;
    QAction *m_restore = nullptr;
    QAction *m_backupHistory = nullptr;
    QLabel *m_lastBackup = nullptr;
    QAction *m_searchAction = nullptr;
    QAction *m_editAction = nullptr;
    QAction *m_openAction = nullptr;
    QAction *m_favoriteAction = nullptr;
    QAction *m_deleteAction = nullptr;
    QAction *m_clearSearchAction = nullptr;
    QAction *m_importBookmarks = nullptr;
    QAction *m_exportBookmarks = nullptr;
    QAction *m_webCheckAction = nullptr;
    QAction *m_movedFoldersAction = nullptr;
    QAction *m_duplicatesAction = nullptr;
    bool m_reminderChecked = false;

    QLineEdit *m_search = nullptr;
    QComboBox *m_categoryPicker = nullptr;
    QComboBox *m_sortPicker = nullptr;
    QCheckBox *m_favoritesOnly = nullptr;
    QCheckBox *m_dateFilter = nullptr;
    QWidget *m_dateRow = nullptr;
    QDateEdit *m_dateFrom = nullptr;
    QDateEdit *m_dateTo = nullptr;
    QListView *m_list = nullptr;

    QStackedWidget *m_detailColumn = nullptr;
    QWidget *m_noSelection = nullptr;
    QPointer<DetailView> m_detail;

    QPointer<EditLinkView> m_editSheet;
    QUuid m_editSheetId;
    QPointer<QDialog> m_categoriesSheet;
    QPointer<QDialog> m_historySheet;
    QPointer<DuplicatesDialog> m_duplicatesSheet;
};

} // namespace fiva
