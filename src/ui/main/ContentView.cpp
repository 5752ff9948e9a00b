#include "ui/main/ContentView.h"

#include "list/FilterState.h"
#include "list/SortOrder.h"
#include "model/LinkItem.h"
#include "model/Timestamp.h"
#include "platform/Clock.h"
#include "platform/Dialogs.h"
#include "platform/Settings.h"
#include "store/LinkStore.h"
#include "ui/common/DateText.h"
#include "ui/common/Symbols.h"
#include "ui/editing/CategoryManagerView.h"
#include "ui/editing/EditLinkView.h"
#include "ui/main/DetailView.h"
#include "ui/main/DroppedLinks.h"
#include "ui/main/DuplicatesDialog.h"
#include "ui/main/FailureBanner.h"
#include "ui/main/HealthMonitor.h"
#include "ui/main/LinkListModel.h"
#include "ui/main/RecordRowDelegate.h"
#include "ui/settings/BackupHistoryView.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QDateEdit>
#include <QDateTime>
#include <QDialog>
#include <QDropEvent>
#include <QHBoxLayout>
#include <QItemSelectionModel>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QLocale>
#include <QMimeData>
#include <QPushButton>
#include <QShowEvent>
#include <QSplitter>
#include <QStackedWidget>
#include <QToolBar>
#include <QVBoxLayout>

#include <algorithm>

#include "health/HealthCache.h"

namespace fiva {

namespace {

// The edit sheet of a new record is always the same sheet, whatever was edited before it.
const QUuid newItemContextId{QStringLiteral("00000000-0000-0000-0000-000000000001")};

// The date pickers edit the day only: the time of day of the bound stays as it was.
Timestamp withDay(Timestamp bound, QDate day)
{
    QDateTime dateTime = toDateTime(bound).value_or(QDateTime::currentDateTime());
    dateTime.setDate(day);
    return toTimestamp(dateTime);
}

// Hands the detail what the latest health pass found for its record.
void showHealth(DetailView *detail, const HealthMonitor *monitor)
{
    if (!detail || !monitor)
        return;
    QStringList link;
    QHash<QUuid, QString> attachments;
    QHash<QUuid, qint64> sizes;
    if (const RecordHealth *health = monitor->cache().health(detail->itemId())) {
        for (const Problem &problem : health->problems) {
            if (problem.kind == ProblemKind::attachmentMissing) {
                attachments.insert(problem.attachmentId, problem.description());
                if (const auto size = monitor->cache().attachmentSize(problem.attachmentId))
                    sizes.insert(problem.attachmentId, *size);
            } else
                link << problem.description();
        }
    }
    detail->setProblems(link.join(u'\n'), attachments, sizes);
}

QWidget *labelledPicker(const QString &label, QComboBox *picker, QWidget *parent)
{
    auto *row = new QWidget(parent);
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    auto *text = new QLabel(label, row);
    text->setBuddy(picker);
    layout->addWidget(text);
    layout->addWidget(picker, 1);
    return row;
}

void makeSecondary(QLabel *label, double scale)
{
    label->setForegroundRole(QPalette::PlaceholderText);
    label->setFont(scaledFont(label->font(), scale));
}

} // namespace

ContentView::ContentView(LinkStore &store, Dialogs &dialogs, Workspace &workspace, Settings &settings,
                         const Clock &clock, QWidget *parent)
    : QWidget(parent), m_store(store), m_dialogs(dialogs), m_workspace(workspace), m_settings(settings),
      m_clock(clock)
{
    setObjectName(QStringLiteral("contentView"));
    m_model = new LinkListModel(this);
    FilterState state =
        FilterState::initial(toDateTime(m_clock.now()).value_or(QDateTime::currentDateTime()));
    state.sortOrderRawValue = m_settings.sortOrder();
    m_model->setFilterState(state);
    m_model->setItems(m_store.items());
    const QString dataFile = m_store.dataFileURL();
    auto *health = new HealthMonitor(
        m_store, dataFile.isEmpty() ? QString() : HealthCache::cacheFileFor(dataFile), this);
    health->setObjectName(QStringLiteral("healthMonitor"));
    connect(health, &HealthMonitor::healthChanged, this, [this, health] {
        m_syncingSelection = true;
        m_model->setProblems(health->problems());
        m_syncingSelection = false;
        showSelectedRow();
        showHealth(m_detail, health);
    });

    buildToolBar();
    auto *split = new QSplitter(Qt::Horizontal, this);
    split->setObjectName(QStringLiteral("split"));
    split->setChildrenCollapsible(false);
    split->addWidget(buildSidebar());
    buildRecordActions();
    for (QWidget *field : std::initializer_list<QWidget *>{m_search, m_dateFrom, m_dateTo})
        field->installEventFilter(this);

    m_detailColumn = new QStackedWidget(split);
    m_detailColumn->setObjectName(QStringLiteral("detailColumn"));
    m_noSelection = new QWidget(m_detailColumn);
    m_noSelection->setObjectName(QStringLiteral("noSelection"));
    auto *noSelectionLayout = new QVBoxLayout(m_noSelection);
    auto *noSelectionText = new QLabel(QStringLiteral("Aucune fiche sélectionnée"), m_noSelection);
    makeSecondary(noSelectionText, 1.6);
    noSelectionText->setAlignment(Qt::AlignCenter);
    noSelectionLayout->addWidget(noSelectionText, 0, Qt::AlignCenter);
    m_detailColumn->addWidget(m_noSelection);
    split->addWidget(m_detailColumn);
    split->setStretchFactor(0, 0);
    split->setStretchFactor(1, 1);
    split->setSizes({320, 700});

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_toolBar);
    layout->addWidget(new FailureBanner(m_store, this));
    layout->addWidget(split, 1);

    connect(&m_store, &LinkStore::itemsChanged, this, &ContentView::reloadItems);
    connect(&m_store, &LinkStore::categoriesChanged, this, &ContentView::reloadCategories);
    connect(&m_store, &LinkStore::lastBackupDateChanged, this, &ContentView::updateLastBackupText);
    connect(&m_settings, &Settings::changed, this, [this](Settings::Key key) {
        switch (key) {
        case Settings::Key::sortOrder:
            updateFilter([this](FilterState &s) { s.sortOrderRawValue = m_settings.sortOrder(); });
            reloadSortPicker();
            break;
        case Settings::Key::noteFontName:
        case Settings::Key::noteFontSize:
            if (m_detail)
                m_detail->refresh();
            break;
        default:
            break;
        }
    });

    reloadCategories();
    reloadSortPicker();
    updateLastBackupText();
    updateDetail();
}

ContentView::~ContentView() = default;

const FilterState &ContentView::filterState() const
{
    return m_model->filterState();
}

EditLinkView *ContentView::editSheet() const
{
    return m_editSheet;
}

QDialog *ContentView::categoriesSheet() const
{
    return m_categoriesSheet;
}

QDialog *ContentView::backupHistorySheet() const
{
    return m_historySheet;
}

DuplicatesDialog *ContentView::duplicatesSheet() const
{
    return m_duplicatesSheet;
}

DetailView *ContentView::detailView() const
{
    return m_detail;
}

void ContentView::buildToolBar()
{
    m_toolBar = new QToolBar(QStringLiteral("Fiva"), this);
    m_toolBar->setObjectName(QStringLiteral("mainToolBar"));
    m_toolBar->setMovable(false);
    m_toolBar->setFloatable(false);
    m_toolBar->setToolButtonStyle(Qt::ToolButtonIconOnly);
    // The texts only name the buttons for tooltips and screen readers; the buttons show the symbol.
    const auto button = [this](const QString &symbol, const QString &name, const QString &objectName) {
        QAction *action = m_toolBar->addAction(symbols::icon(symbol), name);
        action->setObjectName(objectName);
        return action;
    };
    m_newItem = button(QStringLiteral("plus"), QStringLiteral("Nouvelle fiche"), QStringLiteral("newItem"));
    m_categories =
        button(QStringLiteral("folder"), QStringLiteral("Catégories"), QStringLiteral("showCategories"));
    m_export = button(QStringLiteral("square.and.arrow.up"), QStringLiteral("Exporter une sauvegarde"),
                      QStringLiteral("exportBackup"));
    m_restore = button(QStringLiteral("square.and.arrow.down"), QStringLiteral("Restaurer une sauvegarde"),
                       QStringLiteral("restoreBackup"));
    m_backupHistory =
        button(QStringLiteral("clock.arrow.circlepath"), QStringLiteral("Historique des sauvegardes"),
               QStringLiteral("showBackupHistory"));
    connect(m_newItem, &QAction::triggered, this, [this] { showEditSheet(nullptr); });
    connect(m_categories, &QAction::triggered, this, &ContentView::showCategories);
    connect(m_export, &QAction::triggered, this, &ContentView::exportBackup);
    connect(m_restore, &QAction::triggered, this, &ContentView::startRestore);
    connect(m_backupHistory, &QAction::triggered, this, &ContentView::showBackupHistory);

    auto *spacer = new QWidget(m_toolBar);
    spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    m_toolBar->addWidget(spacer);
    m_lastBackup = new QLabel(m_toolBar);
    m_lastBackup->setObjectName(QStringLiteral("lastBackup"));
    m_lastBackup->setContentsMargins(8, 0, 8, 0);
    makeSecondary(m_lastBackup, 0.85);
    m_toolBar->addWidget(m_lastBackup);
}

QWidget *ContentView::buildSidebar()
{
    auto *sidebar = new QWidget(this);
    sidebar->setObjectName(QStringLiteral("sidebar"));
    sidebar->setMinimumWidth(260);
    auto *layout = new QVBoxLayout(sidebar);
    layout->setContentsMargins(0, 10, 0, 0);
    layout->setSpacing(10);
    auto *controls = new QVBoxLayout;
    controls->setContentsMargins(12, 0, 12, 0);
    controls->setSpacing(10);
    layout->addLayout(controls);

    m_search = new QLineEdit(sidebar);
    m_search->setObjectName(QStringLiteral("search"));
    m_search->setPlaceholderText(QStringLiteral("Rechercher…"));
    m_search->setClearButtonEnabled(true);
    controls->addWidget(m_search);

    m_categoryPicker = new QComboBox(sidebar);
    m_categoryPicker->setObjectName(QStringLiteral("categoryPicker"));
    controls->addWidget(labelledPicker(QStringLiteral("Catégorie"), m_categoryPicker, sidebar));

    m_sortPicker = new QComboBox(sidebar);
    m_sortPicker->setObjectName(QStringLiteral("sortPicker"));
    for (SortOrder order : allSortOrders)
        m_sortPicker->addItem(sortOrderRawValue(order));
    controls->addWidget(labelledPicker(QStringLiteral("Tri"), m_sortPicker, sidebar));

    m_favoritesOnly = new QCheckBox(QStringLiteral("Favoris uniquement"), sidebar);
    m_favoritesOnly->setObjectName(QStringLiteral("favoritesOnly"));
    controls->addWidget(m_favoritesOnly);
    m_dateFilter = new QCheckBox(QStringLiteral("Filtrer par date"), sidebar);
    m_dateFilter->setObjectName(QStringLiteral("dateFilter"));
    controls->addWidget(m_dateFilter);

    m_dateRow = new QWidget(sidebar);
    m_dateRow->setObjectName(QStringLiteral("dateRow"));
    auto *dateLayout = new QHBoxLayout(m_dateRow);
    dateLayout->setContentsMargins(0, 0, 0, 0);
    const auto datePicker = [this](const QString &label, const QString &objectName, Timestamp bound) {
        auto *picker = new QDateEdit(m_dateRow);
        picker->setObjectName(objectName);
        picker->setCalendarPopup(true);
        picker->setDisplayFormat(shortDateFormat());
        if (const auto dateTime = toDateTime(bound))
            picker->setDate(dateTime->date());
        auto *text = new QLabel(label, m_dateRow);
        text->setBuddy(picker);
        m_dateRow->layout()->addWidget(text);
        m_dateRow->layout()->addWidget(picker);
        return picker;
    };
    m_dateFrom = datePicker(QStringLiteral("Du"), QStringLiteral("dateFrom"), filterState().dateFrom);
    m_dateTo = datePicker(QStringLiteral("Au"), QStringLiteral("dateTo"), filterState().dateTo);
    dateLayout->addStretch(1);
    m_dateRow->setVisible(false);
    controls->addWidget(m_dateRow);
    auto *brokenOnly = new QCheckBox(QStringLiteral("Liens cassés uniquement"), sidebar);
    brokenOnly->setObjectName(QStringLiteral("brokenOnly"));
    controls->addWidget(brokenOnly);
    connect(brokenOnly, &QCheckBox::toggled, this,
            [this](bool on) { updateFilter([&](FilterState &s) { s.showBrokenOnly = on; }); });
    auto *movedFolders = new QPushButton(QStringLiteral("Réparer les dossiers déplacés…"), sidebar);
    movedFolders->setObjectName(QStringLiteral("repairMovedFolders"));
    controls->addWidget(movedFolders);
    connect(movedFolders, &QPushButton::clicked, this, [this] { m_movedFoldersAction->trigger(); });
    auto *webCheck = new QPushButton(QStringLiteral("Vérifier les pages web…"), sidebar);
    webCheck->setObjectName(QStringLiteral("checkWebPages"));
    controls->addWidget(webCheck);
    connect(webCheck, &QPushButton::clicked, this, &ContentView::startWebCheck);

    m_list = new QListView(sidebar);
    m_list->setObjectName(QStringLiteral("recordList"));
    // Set before the model: each of these lays out the rows again, and until the batched mode is on a
    // layout measures every row at once (1.8 s for 100,000 records, before the window could show).
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    m_list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_list->setLayoutMode(QListView::Batched);
    m_list->setBatchSize(500);
    m_list->setItemDelegate(new RecordRowDelegate(
        [this](const QModelIndex &index) { m_store.toggleFavorite(m_model->idAt(index.row())); }, m_list));
    m_list->setModel(m_model);
    m_list->setMouseTracking(true);
    m_list->installEventFilter(this);
    m_list->viewport()->installEventFilter(this);
    m_list->viewport()->setAcceptDrops(true);
    layout->addWidget(m_list, 1);

    connect(m_search, &QLineEdit::textChanged, this,
            [this](const QString &text) { updateFilter([&](FilterState &s) { s.searchText = text; }); });
    connect(m_categoryPicker, &QComboBox::activated, this, [this](int index) {
        const QString category = m_categoryPicker->itemText(index);
        updateFilter([&](FilterState &s) { s.selectedCategory = category; });
    });
    connect(m_sortPicker, &QComboBox::activated, this, [this](int index) {
        const QString rawValue = sortOrderRawValue(allSortOrders[std::size_t(index)]);
        updateFilter([&](FilterState &s) { s.sortOrderRawValue = rawValue; });
        m_settings.setSortOrder(rawValue);
    });
    connect(m_favoritesOnly, &QCheckBox::toggled, this,
            [this](bool on) { updateFilter([&](FilterState &s) { s.showFavoritesOnly = on; }); });
    connect(m_dateFilter, &QCheckBox::toggled, this, [this](bool on) {
        m_dateRow->setVisible(on);
        updateFilter([&](FilterState &s) { s.dateFilterEnabled = on; });
    });
    connect(m_dateFrom, &QDateEdit::dateChanged, this, [this](QDate day) {
        updateFilter([&](FilterState &s) { s.dateFrom = withDay(s.dateFrom, day); });
    });
    connect(m_dateTo, &QDateEdit::dateChanged, this,
            [this](QDate day) { updateFilter([&](FilterState &s) { s.dateTo = withDay(s.dateTo, day); }); });
    connect(m_list->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &ContentView::selectionChangedByUser);
    return sidebar;
}

void ContentView::reloadCategories()
{
    m_categoryPicker->clear();
    m_categoryPicker->addItem(allCategoriesChoice());
    m_categoryPicker->addItems(m_store.categories());
    // A chosen category that was renamed or deleted stays the filter; the picker then shows none.
    m_categoryPicker->setCurrentIndex(m_categoryPicker->findText(filterState().selectedCategory,
                                                                 Qt::MatchExactly | Qt::MatchCaseSensitive));
}

void ContentView::reloadSortPicker()
{
    // A value no order knows leaves the picker empty; the list is then ordered newest first.
    const std::optional<SortOrder> order = sortOrderFromRawValue(filterState().sortOrderRawValue);
    int index = -1;
    for (std::size_t i = 0; order && i < allSortOrders.size(); ++i) {
        if (allSortOrders[i] == *order)
            index = int(i);
    }
    m_sortPicker->setCurrentIndex(index);
}

void ContentView::updateFilter(const std::function<void(FilterState &)> &change)
{
    FilterState state = m_model->filterState();
    change(state);
    m_syncingSelection = true;
    m_model->setFilterState(state);
    m_syncingSelection = false;
    showSelectedRow();
}

void ContentView::reloadItems()
{
    m_syncingSelection = true;
    m_model->setItems(m_store.items());
    m_syncingSelection = false;
    showSelectedRow();
    updateDetail();
}

void ContentView::selectionChangedByUser()
{
    if (m_syncingSelection)
        return;
    const QModelIndexList rows = m_list->selectionModel()->selectedRows();
    if (rows.isEmpty())
        m_selectedItemID.reset();
    else
        m_selectedItemID = m_model->idAt(rows.first().row());
    updateDetail();
}

void ContentView::showSelectedRow()
{
    QItemSelectionModel *selection = m_list->selectionModel();
    const int row = m_selectedItemID ? m_model->rowOf(*m_selectedItemID) : -1;
    const QModelIndexList selected = selection->selectedRows();
    if (selected.size() == 1 && selected.first().row() == row)
        return;
    m_syncingSelection = true;
    if (row < 0) {
        // A record hidden by the filters stays selected: the detail keeps showing it.
        selection->clear();
    } else {
        selection->setCurrentIndex(m_model->index(row), QItemSelectionModel::ClearAndSelect);
    }
    m_syncingSelection = false;
}

void ContentView::setSelectedItemID(const std::optional<QUuid> &id)
{
    m_selectedItemID = id;
    showSelectedRow();
    updateDetail();
}

void ContentView::updateDetail()
{
    const LinkItem *item = nullptr;
    if (m_selectedItemID) {
        const QList<LinkItem> &items = m_store.items();
        const auto found = std::find_if(items.begin(), items.end(),
                                        [this](const LinkItem &i) { return i.id == *m_selectedItemID; });
        if (found != items.end())
            item = &*found;
    }
    if (m_detail && item && m_detail->itemId() == item->id)
        return;
    if (m_detail) {
        // The detail may be the one calling us, from its own button: it goes once that call returns.
        m_detailColumn->removeWidget(m_detail);
        m_detail->hide();
        m_detail->deleteLater();
        m_detail = nullptr;
    }
    if (!item) {
        m_detailColumn->setCurrentWidget(m_noSelection);
        return;
    }
    m_detail = new DetailView(m_store, m_dialogs, m_workspace, m_settings, *item, m_detailColumn);
    m_detail->setObjectName(QStringLiteral("detail"));
    m_detail->setOnClose([this] { setSelectedItemID(std::nullopt); });
    m_detail->setOnEdit([this](const LinkItem &edited) { showEditSheet(&edited); });
    m_detailColumn->addWidget(m_detail);
    m_detailColumn->setCurrentWidget(m_detail);
    showHealth(m_detail, findChild<HealthMonitor *>(QStringLiteral("healthMonitor")));
}

QString ContentView::lastBackupText(const std::optional<Timestamp> &lastBackupDate)
{
    if (!lastBackupDate)
        return QStringLiteral("Aucune sauvegarde");
    return QStringLiteral("Dernière sauvegarde : ") + dateTimeText(*lastBackupDate);
}

void ContentView::updateLastBackupText()
{
    m_lastBackup->setText(lastBackupText(m_store.lastBackupDate()));
}

void ContentView::deleteRows(std::vector<int> rows)
{
    std::sort(rows.begin(), rows.end());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    // Ids first: the list shrinks as the records go.
    QList<QUuid> ids;
    for (int row : rows) {
        if (const LinkItem *item = m_model->itemAt(row))
            ids.push_back(item->id);
    }
    if (!ids.isEmpty())
        m_store.deleteItems(ids);
    setSelectedItemID(std::nullopt);
}

void ContentView::checkOldBackup()
{
    if (!m_settings.warnOldBackup() || !m_store.isBackupOld())
        return;
    m_dialogs.runAlert(
        AlertRequest{QStringLiteral("⚠️ Sauvegarde ancienne"),
                     QStringLiteral("Votre dernière sauvegarde manuelle date de plus de 3 jours."),
                     AlertStyle::informational,
                     {QStringLiteral("OK")},
                     std::nullopt});
}

void ContentView::exportBackup()
{
    QPointer<ContentView> self(this);
    m_store.exportBackup([self] {
        if (!self)
            return;
        self->m_dialogs.runAlert(AlertRequest{QStringLiteral("Sauvegarde terminée"),
                                              QString(),
                                              AlertStyle::informational,
                                              {QStringLiteral("OK")},
                                              std::nullopt});
    });
}

void ContentView::startRestore()
{
    QPointer<ContentView> self(this);
    const OpenPanelRequest request{OpenPanelRequest::Kind::files, {QStringLiteral("fivabackup")}, false, {}};
    m_dialogs.showOpenPanel(request, [self](std::optional<QStringList> chosen) {
        if (self && chosen && !chosen->isEmpty())
            self->confirmRestore(chosen->first());
    });
}

void ContentView::confirmRestore(const QString &file)
{
    const AlertAnswer answer =
        m_dialogs.runAlert(AlertRequest{QStringLiteral("Restaurer les données ?"),
                                        LinkStore::restoreConfirmationText(file),
                                        AlertStyle::warning,
                                        {QStringLiteral("Restaurer"), QStringLiteral("Annuler")},
                                        std::nullopt});
    if (answer.button == 0)
        m_store.restoreBackup(file);
}

void ContentView::showEditSheet(const LinkItem *item)
{
    const QUuid contextId = item ? item->id : newItemContextId;
    if (m_editSheet && m_editSheetId == contextId) {
        m_editSheet->raise();
        m_editSheet->activateWindow();
        return;
    }
    if (m_editSheet) {
        // Another context: its sheet goes, unsaved, and the new one takes its place.
        EditLinkView *previous = m_editSheet;
        m_editSheet = nullptr;
        previous->reject();
    }
    auto *sheet = new EditLinkView(m_store, m_dialogs, m_clock, item, this);
    m_editSheet = sheet;
    m_editSheetId = contextId;
    connect(sheet, &QDialog::finished, this, [this, sheet] {
        if (m_editSheet == sheet)
            m_editSheet = nullptr;
        sheet->deleteLater();
    });
    sheet->open();
}

void ContentView::showCategories()
{
    if (m_categoriesSheet) {
        m_categoriesSheet->raise();
        return;
    }
    auto *sheet = new CategoryManagerView(m_store, m_dialogs, this);
    m_categoriesSheet = sheet;
    connect(sheet, &QDialog::finished, sheet, &QObject::deleteLater);
    sheet->open();
}

void ContentView::showBackupHistory()
{
    if (m_historySheet) {
        m_historySheet->raise();
        return;
    }
    auto *sheet = new QDialog(this);
    sheet->setObjectName(QStringLiteral("backupHistorySheet"));
    sheet->setWindowModality(Qt::WindowModal);
    auto *layout = new QVBoxLayout(sheet);
    layout->setContentsMargins(0, 0, 0, 0);
    auto *view = new BackupHistoryView(m_store, m_workspace, sheet);
    layout->addWidget(view);
    sheet->setWindowTitle(view->windowTitle());
    m_historySheet = sheet;
    connect(view, &BackupHistoryView::dismissRequested, sheet, &QDialog::accept);
    connect(sheet, &QDialog::finished, sheet, &QObject::deleteLater);
    sheet->open();
}

QRect ContentView::starRectOfRow(int row) const
{
    return RecordRowDelegate::starRect(m_list->visualRect(m_model->index(row)));
}

void ContentView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    // Each time the window comes up, once it is on screen rather than in the middle of showing it.
    if (!event->spontaneous())
        QMetaObject::invokeMethod(this, &ContentView::checkOldBackup, Qt::QueuedConnection);
    if (!event->spontaneous() && !m_reminderChecked) {
        m_reminderChecked = true;
        QMetaObject::invokeMethod(this, &ContentView::checkBackupReminder, Qt::QueuedConnection);
    }
}

bool ContentView::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::ShortcutOverride &&
        (watched == m_search || watched == m_dateFrom || watched == m_dateTo)) {
        // Text fields claim some control keys for their own editing before any shortcut sees them:
        // with X11's key bindings, Ctrl+E moves to the end of the line and Ctrl+D deletes a
        // character. The window's record commands win, wherever the focus is.
        const QKeySequence keys(static_cast<QKeyEvent *>(event)->keyCombination());
        for (const QAction *action : {m_newItem, m_searchAction, m_editAction, m_favoriteAction}) {
            if (action->shortcut() == keys) {
                event->ignore();
                return true;
            }
        }
        return false;
    }
    if (watched == m_list && event->type() == QEvent::KeyPress) {
        const auto *key = static_cast<QKeyEvent *>(event);
        if (key->matches(QKeySequence::Delete)) {
            deleteSelectedRows();
            return true;
        }
        if (key->matches(QKeySequence::Paste)) {
            if (const QMimeData *data = QGuiApplication::clipboard()->mimeData())
                addDroppedLinks(droppedLinks(*data));
            return true;
        }
        const bool plain = key->modifiers() == Qt::NoModifier || key->modifiers() == Qt::KeypadModifier;
        if (plain && (key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter)) {
            m_openAction->trigger();
            return true;
        }
        return false;
    }
    if (watched != m_list->viewport())
        return false;
    if (event->type() == QEvent::DragEnter || event->type() == QEvent::DragMove) {
        auto *drag = static_cast<QDragMoveEvent *>(event);
        if (!droppedLinks(*drag->mimeData()).isEmpty())
            drag->acceptProposedAction();
        return true;
    }
    if (event->type() == QEvent::Drop) {
        auto *drop = static_cast<QDropEvent *>(event);
        const QList<DroppedLink> links = droppedLinks(*drop->mimeData());
        if (!links.isEmpty()) {
            drop->acceptProposedAction();
            // After the drop returns: the form or the confirmation must not run inside the drag.
            QMetaObject::invokeMethod(
                this, [this, links] { addDroppedLinks(links); }, Qt::QueuedConnection);
        }
        return true;
    }
    return false;
}

} // namespace fiva
