#pragma once

#include "list/SortOrder.h"
#include "model/Timestamp.h"

#include <QDateTime>
#include <QSet>
#include <QString>
#include <QUuid>

namespace fiva {

// The choice of the category picker that is not a category: every record passes.
inline QString allCategoriesChoice()
{
    return QStringLiteral("Toutes");
}

// Everything the record list is filtered and ordered by. The sort order is kept as the raw text of
// the stored setting so that an unknown value stays as it was stored.
struct FilterState
{
    QString sortOrderRawValue = fiva::sortOrderRawValue(SortOrder::recentFirst);
    QString searchText;
    QString selectedCategory = allCategoriesChoice();
    bool showFavoritesOnly = false;
    bool dateFilterEnabled = false;
    Timestamp dateFrom;
    Timestamp dateTo;
    // "Liens cassés uniquement": only the records the latest health pass found broken. Tested after
    // the four others, so that turning it on never changes what they let through.
    bool showBrokenOnly = false;
    QSet<QUuid> brokenIds;

    // The state of a main window opened at `now`: the date range runs from one calendar month
    // earlier, same time of day, to `now`.
    static FilterState initial(const QDateTime &now = QDateTime::currentDateTime());

    friend bool operator==(const FilterState &, const FilterState &) = default;
};

} // namespace fiva
