#include "list/ListFilter.h"

#include "list/SearchText.h"

#include <algorithm>

namespace fiva {

namespace {

struct PreparedState
{
    const FilterState &state;
    QString query;
    bool allCategories;
    QString category;
};

PreparedState prepare(const FilterState &state)
{
    // Category names compare under canonical equivalence, so both sides go to NFC first.
    const QString category = state.selectedCategory.normalized(QString::NormalizationForm_C);
    return {state, searchKey(state.searchText), category == allCategoriesChoice(), category};
}

bool matchesPrepared(const LinkItem &item, const PreparedState &prepared)
{
    const QString &query = prepared.query;
    if (!query.isEmpty() && !containsWholeCharacters(searchKey(item.title), query) &&
        !containsWholeCharacters(searchKey(item.path), query) &&
        !(item.notes && containsWholeCharacters(searchKey(*item.notes), query)))
        return false;
    if (!prepared.allCategories &&
        item.category.normalized(QString::NormalizationForm_C) != prepared.category)
        return false;
    if (prepared.state.showFavoritesOnly && !item.isFavorite)
        return false;
    if (prepared.state.dateFilterEnabled &&
        !(prepared.state.dateFrom <= item.createdAt && item.createdAt <= prepared.state.dateTo))
        return false;
    if (prepared.state.showBrokenOnly && !prepared.state.brokenIds.contains(item.id))
        return false;
    return true;
}

} // namespace

bool matchesFilters(const LinkItem &item, const FilterState &state)
{
    return matchesPrepared(item, prepare(state));
}

QList<LinkItem> filteredItems(const QList<LinkItem> &items, const FilterState &state,
                              const QCollator &collator)
{
    const PreparedState prepared = prepare(state);
    QList<LinkItem> kept;
    for (const LinkItem &item : items) {
        if (matchesPrepared(item, prepared))
            kept.append(item);
    }
    switch (resolvedSortOrder(state.sortOrderRawValue)) {
    case SortOrder::recentFirst:
        std::stable_sort(kept.begin(), kept.end(),
                         [](const LinkItem &a, const LinkItem &b) { return a.createdAt > b.createdAt; });
        break;
    case SortOrder::oldFirst:
        std::stable_sort(kept.begin(), kept.end(),
                         [](const LinkItem &a, const LinkItem &b) { return a.createdAt < b.createdAt; });
        break;
    case SortOrder::alphabetical:
        std::stable_sort(kept.begin(), kept.end(), [&collator](const LinkItem &a, const LinkItem &b) {
            return collator.compare(a.title, b.title) < 0;
        });
        break;
    }
    return kept;
}

} // namespace fiva
