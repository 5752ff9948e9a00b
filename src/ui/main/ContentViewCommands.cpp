// The record commands of the main window (keyboard shortcuts and menus), the delete confirmation,
// the weekly backup reminder, and bookmark import and export.
#include "interchange/BookmarkExport.h"
#include "model/LinkItem.h"
#include "platform/Clock.h"
#include "platform/Dialogs.h"
#include "platform/Settings.h"
#include "store/FileIO.h"
#include "store/LinkStore.h"
#include "store/StoredNotes.h"
#include "ui/editing/EditLinkView.h"
#include "ui/main/BookmarkImportDialog.h"
#include "ui/main/ContentView.h"
#include "ui/main/DetailView.h"
#include "ui/main/DroppedLinks.h"
#include "ui/main/DuplicatesDialog.h"
#include "ui/main/HealthMonitor.h"
#include "ui/main/LinkListModel.h"
#include "ui/main/PrefixRelocation.h"
#include "ui/main/WebCheckRun.h"

#include <QAction>
#include <QApplication>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QItemSelectionModel>
#include <QLineEdit>
#include <QListView>

#include <algorithm>
#include <cmath>

#include "health/Duplicates.h"

namespace fiva {

namespace {

// The weekday names of the reminder setting, Monday first as QDate::dayOfWeek counts.
const QStringList reminderDays{
    QStringLiteral("Lundi"),    QStringLiteral("Mardi"),  QStringLiteral("Mercredi"), QStringLiteral("Jeudi"),
    QStringLiteral("Vendredi"), QStringLiteral("Samedi"), QStringLiteral("Dimanche")};

constexpr double secondsPerDay = 86400.0;

} // namespace

void ContentView::buildRecordActions()
{
    const auto action = [this](const QString &text, const QString &objectName, const QKeySequence &keys) {
        auto *a = new QAction(text, this);
        a->setObjectName(objectName);
        a->setShortcut(keys);
        addAction(a);
        return a;
    };
    m_newItem->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_N));
    addAction(m_newItem);
    m_searchAction = action(QStringLiteral("Rechercher"), QStringLiteral("searchAction"),
                            QKeySequence(Qt::CTRL | Qt::Key_F));
    m_editAction = action(QStringLiteral("Modifier la fiche…"), QStringLiteral("editAction"),
                          QKeySequence(Qt::CTRL | Qt::Key_E));
    m_favoriteAction = action(QStringLiteral("Favori oui/non"), QStringLiteral("favoriteAction"),
                              QKeySequence(Qt::CTRL | Qt::Key_D));
    m_clearSearchAction = action(QStringLiteral("Effacer la recherche"), QStringLiteral("clearSearchAction"),
                                 QKeySequence(Qt::Key_Escape));
    // Return and Delete too work wherever the focus is in the window; in a text field Delete still
    // deletes a character, since the field claims it before any shortcut.
    m_openAction =
        action(QStringLiteral("Ouvrir le lien"), QStringLiteral("openAction"), QKeySequence(Qt::Key_Return));
    m_deleteAction = action(QStringLiteral("Supprimer"), QStringLiteral("deleteAction"),
                            QKeySequence(QKeySequence::Delete));
    m_importBookmarks = new QAction(QStringLiteral("Importer des favoris…"), this);
    m_importBookmarks->setObjectName(QStringLiteral("importBookmarksAction"));
    m_exportBookmarks = new QAction(QStringLiteral("Exporter des favoris…"), this);
    m_exportBookmarks->setObjectName(QStringLiteral("exportBookmarksAction"));
    m_webCheckAction =
        action(QStringLiteral("Vérifier les pages web…"), QStringLiteral("webCheckAction"), {});
    m_movedFoldersAction =
        action(QStringLiteral("Réparer les dossiers déplacés…"), QStringLiteral("movedFoldersAction"), {});
    m_duplicatesAction = action(QStringLiteral("Doublons…"), QStringLiteral("duplicatesAction"), {});

    connect(m_searchAction, &QAction::triggered, this, [this] {
        m_search->setFocus(Qt::ShortcutFocusReason);
        m_search->selectAll();
    });
    connect(m_editAction, &QAction::triggered, this, [this] {
        if (const LinkItem *item = selectedItem())
            showEditSheet(item);
    });
    connect(m_openAction, &QAction::triggered, this, [this] {
        // From the search field, Return opens what the list shows selected, never a record the
        // search has just hidden.
        const bool fromSearch = QApplication::focusWidget() == m_search;
        if (m_detail && (!fromSearch || (m_selectedItemID && m_model->rowOf(*m_selectedItemID) >= 0)))
            m_detail->openLink();
    });
    connect(m_favoriteAction, &QAction::triggered, this, [this] {
        if (const LinkItem *item = selectedItem())
            m_store.toggleFavorite(item->id);
    });
    connect(m_deleteAction, &QAction::triggered, this, &ContentView::deleteSelectedRows);
    connect(m_clearSearchAction, &QAction::triggered, m_search, &QLineEdit::clear);
    connect(m_importBookmarks, &QAction::triggered, this, &ContentView::importBookmarks);
    connect(m_webCheckAction, &QAction::triggered, this, &ContentView::startWebCheck);
    connect(m_movedFoldersAction, &QAction::triggered, this, [this] {
        if (auto *health = findChild<HealthMonitor *>(QStringLiteral("healthMonitor")))
            PrefixRelocation::start(m_store, m_dialogs, *health, this);
    });
    connect(m_duplicatesAction, &QAction::triggered, this, &ContentView::showDuplicates);
    connect(m_exportBookmarks, &QAction::triggered, this, &ContentView::exportBookmarks);
}

QList<QAction *> ContentView::recordActions() const
{
    return {m_newItem,        m_searchAction, m_editAction,       m_openAction,
            m_favoriteAction, m_deleteAction, m_clearSearchAction};
}

QList<QAction *> ContentView::healthActions() const
{
    return {m_webCheckAction, m_movedFoldersAction, m_duplicatesAction};
}

void ContentView::startWebCheck()
{
    auto *health = findChild<HealthMonitor *>(QStringLiteral("healthMonitor"));
    // The progress dialog holds the window while a run goes on; this guards the menu's shortcut path.
    if (!health || findChild<WebCheckRun *>())
        return;
    WebCheckRun::start(m_store, m_dialogs, *health, this);
}

void ContentView::showDuplicates()
{
    if (m_duplicatesSheet) {
        m_duplicatesSheet->raise();
        m_duplicatesSheet->activateWindow();
        return;
    }
    if (findDuplicates(m_store.items()).isEmpty()) {
        m_dialogs.runAlert(AlertRequest{
            QStringLiteral("Aucun doublon"),
            QStringLiteral("Aucune fiche ne pointe vers la même adresse ou le même chemin qu’une autre."),
            AlertStyle::informational,
            {QStringLiteral("OK")},
            std::nullopt});
        return;
    }
    // Not modal: the user may look at the records in the window before choosing which to delete.
    auto *sheet = new DuplicatesDialog(m_store, m_dialogs, m_settings, this);
    sheet->setWindowFlag(Qt::Window);
    m_duplicatesSheet = sheet;
    connect(sheet, &DuplicatesDialog::recordActivated, this,
            [this](const QUuid &id) { setSelectedItemID(id); });
    connect(sheet, &QDialog::finished, sheet, &QObject::deleteLater);
    sheet->show();
}

const LinkItem *ContentView::selectedItem() const
{
    if (!m_selectedItemID)
        return nullptr;
    const QList<LinkItem> &items = m_store.items();
    const auto found = std::find_if(items.begin(), items.end(),
                                    [this](const LinkItem &i) { return i.id == *m_selectedItemID; });
    return found == items.end() ? nullptr : &*found;
}

void ContentView::deleteSelectedRows()
{
    std::vector<int> rows;
    for (const QModelIndex &index : m_list->selectionModel()->selectedRows())
        rows.push_back(index.row());
    if (rows.empty())
        return;
    if (m_settings.askDeleteConfirmation() && !DetailView::confirmRecordDeletion(m_dialogs))
        return;
    deleteRows(std::move(rows));
}

void ContentView::checkBackupReminder()
{
    const qsizetype day = reminderDays.indexOf(m_settings.backupReminderDay());
    const Timestamp now = m_clock.now();
    const double ms = now.toUnix() * 1000.0;
    // A name that is not a weekday (written by another tool) never comes round.
    if (day < 0 || !std::isfinite(ms))
        return;
    const QDate today = QDateTime::fromMSecsSinceEpoch(qint64(ms)).date();
    // Once a day, also when the program is started again that day: the day is kept in the settings
    // rather than in the data file, which it has nothing to do with.
    const QString todayText = today.toString(Qt::ISODate);
    if (today.dayOfWeek() != day + 1 ||
        m_settings.value(Settings::Key::lastBackupReminderDate).toString() == todayText)
        return;
    // The reminder is about a manual backup, the only kind that holds the attachment copies. Automatic
    // backups move the last-backup date too, so the history tells them apart by their folder.
    const QString automatic = QDir(m_store.autoBackupsFolderURL()).absolutePath() + u'/';
    for (const BackupLog &log : m_store.backupHistory()) {
        if (QFileInfo(log.filePath).absoluteFilePath().startsWith(automatic))
            continue;
        if (now.seconds - log.date.seconds < secondsPerDay)
            return;
        break; // newest first
    }
    m_settings.setValue(Settings::Key::lastBackupReminderDate, todayText);
    const AlertAnswer answer = m_dialogs.runAlert(
        AlertRequest{QStringLiteral("Rappel de sauvegarde"),
                     QStringLiteral("C’est %1 : pensez à faire une sauvegarde manuelle de vos fiches.")
                         .arg(reminderDays.at(day).toLower()),
                     AlertStyle::informational,
                     {QStringLiteral("Sauvegarder maintenant"), QStringLiteral("Plus tard")},
                     std::nullopt});
    if (answer.button == 0)
        exportBackup();
}

void ContentView::addDroppedLinks(const QList<DroppedLink> &links)
{
    if (links.isEmpty())
        return;
    if (links.size() == 1) {
        showEditSheet(nullptr);
        if (m_editSheet) {
            const DroppedLink &link = links.first();
            m_editSheet->prefill(link.title, link.path, EditLinkView::LinkType(int(link.kind)));
        }
        return;
    }
    // A folder's worth of files would make an alert taller than the screen: the rest is counted.
    constexpr qsizetype listed = 15;
    QStringList lines;
    for (const DroppedLink &link : links.mid(0, listed))
        lines << QStringLiteral("• ") + link.title + QStringLiteral(" — ") + link.path;
    if (links.size() > listed)
        lines << QStringLiteral("… et %1 autres").arg(links.size() - listed);
    const AlertAnswer answer =
        m_dialogs.runAlert(AlertRequest{QStringLiteral("Ajouter %1 fiches ?").arg(links.size()),
                                        lines.join(u'\n'),
                                        AlertStyle::informational,
                                        {QStringLiteral("Ajouter"), QStringLiteral("Annuler")},
                                        std::nullopt});
    if (answer.button != 0)
        return;
    const Timestamp now = m_clock.now();
    m_store.importRecords([&](const QList<LinkItem> &, const QStringList &categories) {
        // The category a new record gets in the form.
        const QString category = categories.isEmpty() ? LinkStore::uncategorized() : categories.first();
        LinkStore::ImportBatch batch;
        for (const DroppedLink &link : links) {
            LinkItem item;
            item.id = QUuid::createUuid();
            item.title = link.title;
            item.path = link.path;
            item.category = category;
            item.notes = notesHTML(QString());
            item.createdAt = now;
            item.kind = link.kind;
            batch.records << item;
        }
        return batch;
    });
}

void ContentView::importBookmarks()
{
    QPointer<ContentView> self(this);
    const OpenPanelRequest request{OpenPanelRequest::Kind::files,
                                   {QStringLiteral("html"), QStringLiteral("htm")},
                                   false,
                                   QStringLiteral("Importer")};
    m_dialogs.showOpenPanel(request, [self](std::optional<QStringList> chosen) {
        if (!self || !chosen || chosen->isEmpty())
            return;
        const QString path = chosen->first();
        Result<QByteArray> bytes = fileio::readWholeFile(path);
        if (!bytes) {
            self->m_dialogs.showAlert(QStringLiteral("Import impossible"),
                                      QStringLiteral("Le fichier n’a pas pu être lu. ") + bytes.error());
            return;
        }
        auto *sheet = new BookmarkImportDialog(self->m_store, self->m_clock, std::move(bytes).value(),
                                               QFileInfo(path).fileName(), self);
        if (!sheet->plan().recognized) {
            self->m_dialogs.showAlert(QStringLiteral("Import impossible"),
                                      QFileInfo(path).fileName() + QStringLiteral(" : ") +
                                          sheet->plan().problems().join(u' '));
            delete sheet;
            return;
        }
        connect(sheet, &QDialog::finished, sheet, &QObject::deleteLater);
        sheet->open();
    });
}

void ContentView::exportBookmarks()
{
    QPointer<ContentView> self(this);
    const SavePanelRequest request{QStringLiteral("Favoris Fiva.html"), {QStringLiteral("html")}};
    m_dialogs.showSavePanel(request, [self](std::optional<QString> chosen) {
        if (!self || !chosen || chosen->isEmpty())
            return;
        const LinkStore &store = self->m_store;
        const QByteArray bytes =
            interchange::writeBookmarkFile(store.items(), store.categories(), notesPlainText);
        if (const auto error = fileio::writeWholeFile(*chosen, bytes)) {
            self->m_dialogs.showAlert(QStringLiteral("Export des favoris impossible"), *error);
            return;
        }
        self->m_dialogs.runAlert(AlertRequest{QStringLiteral("Favoris exportés"),
                                              QStringLiteral("%1 fiches écrites dans « %2 ».")
                                                  .arg(store.items().size())
                                                  .arg(QFileInfo(*chosen).fileName()),
                                              AlertStyle::informational,
                                              {QStringLiteral("OK")},
                                              std::nullopt});
    });
}

} // namespace fiva
