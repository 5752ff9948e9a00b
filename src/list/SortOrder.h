#pragma once

#include <QString>
#include <QStringView>

#include <array>
#include <optional>

namespace fiva {

// The orders of the record list. The raw value is at once the stored "sortOrder" setting and the text
// of the choice in the sort picker.
enum class SortOrder { recentFirst, oldFirst, alphabetical };

inline constexpr std::array allSortOrders{SortOrder::recentFirst, SortOrder::oldFirst,
                                          SortOrder::alphabetical};

QString sortOrderRawValue(SortOrder order);
// The case whose raw value equals `rawValue` as a whole, if any.
std::optional<SortOrder> sortOrderFromRawValue(QStringView rawValue);
// What the list uses: a value left by another version, or anything unknown, orders newest first.
SortOrder resolvedSortOrder(QStringView rawValue);

} // namespace fiva
