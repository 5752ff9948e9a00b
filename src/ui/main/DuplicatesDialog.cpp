#include "ui/main/DuplicatesDialog.h"

#include "model/LinkItem.h"
#include "platform/Dialogs.h"
#include "platform/Settings.h"
#include "store/LinkStore.h"
#include "ui/common/DateText.h"

#include <QDialogButtonBox>
#include <QHash>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QSet>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <algorithm>

#include "health/Duplicates.h"

namespace fiva {

namespace {

constexpr int idRole = Qt::UserRole;

enum Column { titleColumn, categoryColumn, dateColumn, attachmentsColumn, columnCount };

// The record of a group that is kept unless the user says otherwise: the oldest, the first in list
// order among equals.
const LinkItem *oldestOf(const QList<const LinkItem *> &group)
{
    return *std::min_element(group.cbegin(), group.cend(), [](const LinkItem *a, const LinkItem *b) {
        return a->createdAt.seconds < b->createdAt.seconds;
    });
}

} // namespace

DuplicatesDialog::DuplicatesDialog(LinkStore &store, Dialogs &dialogs, Settings &settings, QWidget *parent)
    : QDialog(parent), m_store(store), m_dialogs(dialogs), m_settings(settings)
{
    setObjectName(QStringLiteral("duplicatesSheet"));
    setWindowTitle(QStringLiteral("Doublons"));
    resize(760, 480);
    auto *layout = new QVBoxLayout(this);
    m_summary = new QLabel(this);
    m_summary->setObjectName(QStringLiteral("duplicatesSummary"));
    m_summary->setWordWrap(true);
    layout->addWidget(m_summary);
    m_tree = new QTreeWidget(this);
    m_tree->setObjectName(QStringLiteral("duplicatesTree"));
    m_tree->setColumnCount(columnCount);
    m_tree->setHeaderLabels({QStringLiteral("Fiche"), QStringLiteral("Catégorie"), QStringLiteral("Créée le"),
                             QStringLiteral("Pièces jointes")});
    m_tree->header()->setSectionResizeMode(titleColumn, QHeaderView::Stretch);
    m_tree->header()->setStretchLastSection(false);
    m_tree->setUniformRowHeights(true);
    layout->addWidget(m_tree, 1);
    auto *buttons = new QDialogButtonBox(this);
    m_delete = buttons->addButton(QString(), QDialogButtonBox::DestructiveRole);
    m_delete->setObjectName(QStringLiteral("deleteDuplicates"));
    m_delete->setAutoDefault(false);
    buttons->addButton(QStringLiteral("Fermer"), QDialogButtonBox::RejectRole);
    layout->addWidget(buttons);

    connect(m_delete, &QPushButton::clicked, this, &DuplicatesDialog::deleteChecked);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(m_tree, &QTreeWidget::itemChanged, this, &DuplicatesDialog::updateDeleteButton);
    connect(m_tree, &QTreeWidget::itemDoubleClicked, this, [this](QTreeWidgetItem *item) {
        const QUuid id = item->data(titleColumn, idRole).toUuid();
        if (!id.isNull())
            Q_EMIT recordActivated(id);
    });
    // Another window or fiva-cli may change the records while the list is open.
    connect(&m_store, &LinkStore::itemsChanged, this, &DuplicatesDialog::reload);
    reload();
}

int DuplicatesDialog::groupCount() const
{
    return m_tree->topLevelItemCount();
}

QList<QUuid> DuplicatesDialog::checkedIds() const
{
    QList<QUuid> ids;
    for (int g = 0; g < m_tree->topLevelItemCount(); ++g) {
        const QTreeWidgetItem *group = m_tree->topLevelItem(g);
        for (int r = 0; r < group->childCount(); ++r) {
            if (group->child(r)->checkState(titleColumn) == Qt::Checked)
                ids << group->child(r)->data(titleColumn, idRole).toUuid();
        }
    }
    return ids;
}

void DuplicatesDialog::reload()
{
    // The user's ticks outlive the rebuild for the records still listed.
    QHash<QUuid, Qt::CheckState> ticks;
    for (int g = 0; g < m_tree->topLevelItemCount(); ++g) {
        const QTreeWidgetItem *group = m_tree->topLevelItem(g);
        for (int r = 0; r < group->childCount(); ++r)
            ticks.insert(group->child(r)->data(titleColumn, idRole).toUuid(), group->child(r)->checkState(0));
    }

    const QList<LinkItem> &items = m_store.items();
    QHash<QUuid, const LinkItem *> byId;
    byId.reserve(items.size());
    for (const LinkItem &item : items)
        byId.insert(item.id, &item);

    const QSignalBlocker blocker(m_tree);
    m_tree->clear();
    QList<QTreeWidgetItem *> groups;
    for (const QList<QUuid> &ids : findDuplicates(items)) {
        QList<const LinkItem *> records;
        for (const QUuid &id : ids)
            records << byId.value(id);
        const LinkItem *kept = oldestOf(records);
        auto *group = new QTreeWidgetItem;
        group->setText(
            titleColumn,
            QStringLiteral("%1 — %2 fiches").arg(kept->path.trimmed(), QString::number(records.size())));
        group->setFlags(Qt::ItemIsEnabled);
        QFont bold = group->font(titleColumn);
        bold.setBold(true);
        group->setFont(titleColumn, bold);
        for (const LinkItem *record : std::as_const(records)) {
            auto *row = new QTreeWidgetItem(group);
            row->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
            row->setData(titleColumn, idRole, record->id);
            row->setText(titleColumn,
                         (record->isFavorite ? QStringLiteral("★ ") : QString()) + record->title);
            row->setToolTip(titleColumn, record->path);
            row->setText(categoryColumn, record->category);
            row->setText(dateColumn, dateTimeText(record->createdAt));
            row->setText(attachmentsColumn, record->attachments.isEmpty()
                                                ? QString()
                                                : QString::number(record->attachments.size()));
            const Qt::CheckState initial =
                record != kept && record->attachments.isEmpty() ? Qt::Checked : Qt::Unchecked;
            row->setCheckState(titleColumn, ticks.value(record->id, initial));
        }
        groups << group;
    }
    m_tree->addTopLevelItems(groups);
    m_tree->expandAll();
    for (int g = 0; g < m_tree->topLevelItemCount(); ++g)
        m_tree->setFirstColumnSpanned(g, QModelIndex(), true);
    for (int column = categoryColumn; column < columnCount; ++column)
        m_tree->resizeColumnToContents(column);

    const QString rule =
        QStringLiteral(" Les fiches cochées seront supprimées : toutes sauf la plus ancienne de "
                       "chaque groupe, et jamais d’office une fiche avec des pièces jointes.");
    if (groups.isEmpty())
        m_summary->setText(QStringLiteral(
            "Plus aucune fiche ne pointe vers la même adresse ou le même chemin qu’une autre."));
    else if (groups.size() == 1)
        m_summary->setText(QStringLiteral("Une adresse ou un chemin a plusieurs fiches.") + rule);
    else
        m_summary->setText(QStringLiteral("%1 adresses ou chemins ont plusieurs fiches.").arg(groups.size()) +
                           rule);
    updateDeleteButton();
}

void DuplicatesDialog::updateDeleteButton()
{
    const qsizetype count = checkedIds().size();
    m_delete->setText(QStringLiteral("Supprimer les fiches cochées (%1)").arg(count));
    m_delete->setEnabled(count > 0);
}

void DuplicatesDialog::deleteChecked()
{
    const QList<QUuid> ids = checkedIds();
    if (ids.isEmpty())
        return;
    if (m_settings.askDeleteConfirmation()) {
        QStringList lines{QStringLiteral("Cette action est irréversible.")};
        const QSet<QUuid> chosen(ids.cbegin(), ids.cend());
        qsizetype attachments = 0;
        for (const LinkItem &item : m_store.items()) {
            if (chosen.contains(item.id))
                attachments += item.attachments.size();
        }
        if (attachments == 1)
            lines << QStringLiteral("Une pièce jointe ira à la corbeille.");
        else if (attachments > 1)
            lines << QStringLiteral("%1 pièces jointes iront à la corbeille.").arg(attachments);
        int emptied = 0;
        for (int g = 0; g < m_tree->topLevelItemCount(); ++g) {
            const QTreeWidgetItem *group = m_tree->topLevelItem(g);
            bool all = true;
            for (int r = 0; r < group->childCount() && all; ++r)
                all = group->child(r)->checkState(titleColumn) == Qt::Checked;
            emptied += all;
        }
        if (emptied == 1)
            lines << QStringLiteral(
                "Pour une adresse, toutes les fiches sont cochées : il n’en restera aucune.");
        else if (emptied > 1)
            lines << QStringLiteral(
                         "Pour %1 adresses, toutes les fiches sont cochées : il n’en restera aucune.")
                         .arg(emptied);
        const AlertAnswer answer = m_dialogs.runAlert(
            AlertRequest{ids.size() == 1 ? QStringLiteral("Supprimer cette fiche ?")
                                         : QStringLiteral("Supprimer ces %1 fiches ?").arg(ids.size()),
                         lines.join(u'\n'),
                         AlertStyle::warning,
                         {QStringLiteral("Supprimer"), QStringLiteral("Annuler")},
                         std::nullopt});
        if (answer.button != 0)
            return;
    }
    m_store.deleteItems(ids);
}

} // namespace fiva
