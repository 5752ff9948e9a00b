#pragma once

#include <QAbstractListModel>
#include <QCollator>
#include <QHash>
#include <QList>
#include <QString>
#include <QUuid>

#include <memory>

namespace fiva {

// Only declared here: moc cannot parse the C++20 library headers that the record types pull in.
struct LinkItem;
struct FilterState;
class FilterEngine;

// The rows of the main window's record list: the store's records as FilterEngine filters and orders
// them. A new filter state or a new list of records rearranges the rows in one layout change, so a
// selected record that stays listed stays selected.
class LinkListModel final : public QAbstractListModel
{
    Q_OBJECT

public:
    enum Role {
        TitleRole = Qt::UserRole + 1,
        PathRole,
        NotesRole, // the stored notes as they are, or no value when the record has none or they are empty
        FavoriteRole,
        IdRole,
        // What is wrong with the record, in French, one problem per line; no value when nothing is.
        // Also the row's tooltip.
        HealthRole,
    };

    explicit LinkListModel(QObject *parent = nullptr);
    explicit LinkListModel(const QCollator &collator, QObject *parent = nullptr);
    ~LinkListModel() override;

    void setItems(const QList<LinkItem> &items);
    void setFilterState(const FilterState &state);
    const FilterState &filterState() const;
    FilterEngine &engine();
    // The problems of the broken records, by id, from the latest health pass. They also decide
    // which records the "broken only" filter keeps.
    void setProblems(const QHash<QUuid, QString> &problems);

    // The record shown at `row`, or a null id / null pointer outside the list.
    QUuid idAt(int row) const;
    const LinkItem *itemAt(int row) const;
    // The row showing the record with `id`, or -1 when the filters hide it.
    int rowOf(const QUuid &id) const;

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QHash<int, QByteArray> roleNames() const override;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace fiva
