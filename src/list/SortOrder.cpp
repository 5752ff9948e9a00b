#include "list/SortOrder.h"

namespace fiva {

QString sortOrderRawValue(SortOrder order)
{
    switch (order) {
    case SortOrder::recentFirst:
        return QStringLiteral("Plus récent d'abord");
    case SortOrder::oldFirst:
        return QStringLiteral("Plus ancien d'abord");
    case SortOrder::alphabetical:
        return QStringLiteral("Ordre alphabétique (A → Z)");
    }
    Q_UNREACHABLE();
    return {};
}

std::optional<SortOrder> sortOrderFromRawValue(QStringView rawValue)
{
    for (SortOrder order : allSortOrders) {
        if (rawValue == sortOrderRawValue(order))
            return order;
    }
    return std::nullopt;
}

SortOrder resolvedSortOrder(QStringView rawValue)
{
    return sortOrderFromRawValue(rawValue).value_or(SortOrder::recentFirst);
}

} // namespace fiva
