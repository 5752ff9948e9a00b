#include "ui/main/LinkListModel.h"

#include "list/FilterEngine.h"
#include "list/FilterState.h"
#include "model/LinkItem.h"
#include "platform/Collation.h"

#include <QHash>
#include <QSet>

#include <vector>

namespace fiva {

struct LinkListModel::Private
{
    explicit Private(const QCollator &collator) : engine(collator) {}

    FilterEngine engine;
    FilterState state = FilterState::initial();
    QList<LinkItem> items; // what the rows show, switched only inside a layout change
    std::vector<int> rows;
    QHash<QUuid, QString> problems;
    QSet<QUuid> brokenIds; // shared with every filter state, so a keystroke copies no set
};

LinkListModel::LinkListModel(QObject *parent) : LinkListModel(userCollator(), parent) {}

LinkListModel::LinkListModel(const QCollator &collator, QObject *parent)
    : QAbstractListModel(parent), d(std::make_unique<Private>(collator))
{
}

LinkListModel::~LinkListModel() = default;

const FilterState &LinkListModel::filterState() const
{
    return d->state;
}

FilterEngine &LinkListModel::engine()
{
    return d->engine;
}

void LinkListModel::setItems(const QList<LinkItem> &items)
{
    d->engine.setItems(items);
    std::vector<int> rows = d->engine.rows(d->state);
    if (rows == d->rows && persistentIndexList().isEmpty()) {
        // Same records in the same rows; only what they show may differ.
        d->items = items;
        if (!d->rows.empty())
            Q_EMIT dataChanged(index(0), index(int(d->rows.size()) - 1));
        return;
    }

    // Views still read the old records until the layout change is announced.
    Q_EMIT layoutAboutToBeChanged();
    const QModelIndexList persistent = persistentIndexList();
    QModelIndexList moved;
    if (!persistent.isEmpty()) {
        QHash<QUuid, int> rowById;
        for (int row = int(rows.size()) - 1; row >= 0; --row)
            rowById.insert(items[rows[std::size_t(row)]].id, row);
        moved.reserve(persistent.size());
        for (const QModelIndex &old : persistent) {
            const int row = rowById.value(idAt(old.row()), -1);
            moved.append(row < 0 ? QModelIndex() : createIndex(row, 0));
        }
    }
    d->items = items;
    d->rows = std::move(rows);
    changePersistentIndexList(persistent, moved);
    Q_EMIT layoutChanged();
    if (!d->rows.empty())
        Q_EMIT dataChanged(index(0), index(int(d->rows.size()) - 1));
}

void LinkListModel::setProblems(const QHash<QUuid, QString> &problems)
{
    d->problems = problems;
    d->brokenIds.clear();
    for (auto it = problems.cbegin(); it != problems.cend(); ++it)
        d->brokenIds.insert(it.key());
    setFilterState(d->state);
    if (!d->rows.empty())
        Q_EMIT dataChanged(index(0), index(int(d->rows.size()) - 1), {HealthRole, Qt::ToolTipRole});
}

void LinkListModel::setFilterState(const FilterState &state)
{
    d->state = state;
    // The broken records are the latest health pass's, whatever state the caller kept.
    d->state.brokenIds = d->brokenIds;
    std::vector<int> rows = d->engine.rows(d->state);
    if (rows == d->rows)
        return;

    Q_EMIT layoutAboutToBeChanged();
    const QModelIndexList persistent = persistentIndexList();
    QModelIndexList moved;
    if (!persistent.isEmpty()) {
        // Records keep their positions in the engine's list, so old row → record → new row.
        std::vector<int> newRowOfItem(std::size_t(d->items.size()), -1);
        for (std::size_t row = 0; row < rows.size(); ++row)
            newRowOfItem[std::size_t(rows[row])] = int(row);
        moved.reserve(persistent.size());
        for (const QModelIndex &old : persistent) {
            const int row = newRowOfItem[std::size_t(d->rows[std::size_t(old.row())])];
            moved.append(row < 0 ? QModelIndex() : createIndex(row, 0));
        }
    }
    d->rows = std::move(rows);
    changePersistentIndexList(persistent, moved);
    Q_EMIT layoutChanged();
}

QUuid LinkListModel::idAt(int row) const
{
    const LinkItem *item = itemAt(row);
    return item ? item->id : QUuid();
}

const LinkItem *LinkListModel::itemAt(int row) const
{
    if (row < 0 || std::size_t(row) >= d->rows.size())
        return nullptr;
    return &d->items[d->rows[std::size_t(row)]];
}

int LinkListModel::rowOf(const QUuid &id) const
{
    for (std::size_t row = 0; row < d->rows.size(); ++row) {
        if (d->items[d->rows[row]].id == id)
            return int(row);
    }
    return -1;
}

int LinkListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(d->rows.size());
}

QVariant LinkListModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const LinkItem &item = *itemAt(index.row());
    switch (role) {
    case Qt::DisplayRole:
    case TitleRole:
        return item.title;
    case PathRole:
        return item.path;
    case NotesRole:
        if (item.notes && !item.notes->isEmpty())
            return *item.notes;
        return {};
    case FavoriteRole:
        return item.isFavorite;
    case IdRole:
        return item.id;
    case HealthRole:
    case Qt::ToolTipRole: {
        const auto problem = d->problems.constFind(item.id);
        return problem == d->problems.cend() ? QVariant() : QVariant(*problem);
    }
    default:
        return {};
    }
}

QHash<int, QByteArray> LinkListModel::roleNames() const
{
    QHash<int, QByteArray> names = QAbstractListModel::roleNames();
    names.insert(TitleRole, QByteArrayLiteral("title"));
    names.insert(PathRole, QByteArrayLiteral("path"));
    names.insert(NotesRole, QByteArrayLiteral("notes"));
    names.insert(FavoriteRole, QByteArrayLiteral("favorite"));
    names.insert(IdRole, QByteArrayLiteral("id"));
    names.insert(HealthRole, QByteArrayLiteral("health"));
    return names;
}

} // namespace fiva
