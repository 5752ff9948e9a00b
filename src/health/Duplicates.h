#pragma once

#include "model/LinkItem.h"

#include <QList>
#include <QUuid>

namespace fiva {

// Records that point at the same address or path once compared by addressKey(): one group per
// address, in the order of each group's first record, its records in list order. Only groups of
// two or more are returned; records without a path are never duplicates.
QList<QList<QUuid>> findDuplicates(const QList<LinkItem> &items);

} // namespace fiva
