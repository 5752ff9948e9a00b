#pragma once

#include "list/FilterState.h"
#include "model/LinkItem.h"

#include <QCollator>
#include <QList>

namespace fiva {

// The tests of one record, in their order: search text (title, path, then notes when the record
// has some), exact category unless "Toutes", favourites only, inclusive date range, broken only.
bool matchesFilters(const LinkItem &item, const FilterState &state);

// The records that pass `matchesFilters`, stably ordered by the state's sort order; alphabetical order
// compares titles with `collator` (the user's locale by default). Recomputes everything on every
// call: FilterEngine gives the same list faster for repeated evaluations.
QList<LinkItem> filteredItems(const QList<LinkItem> &items, const FilterState &state,
                              const QCollator &collator = QCollator());

} // namespace fiva
