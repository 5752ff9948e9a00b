#pragma once

#include "model/LinkItem.h"
#include "model/Timestamp.h"

#include <QList>
#include <QStringList>

#include <optional>

namespace fiva {

// The document of the data file, of each automatic backup and of the copy inside a backup archive.
struct SavedData
{
    QList<LinkItem> items;
    QStringList categories;
    std::optional<Timestamp> lastBackupDate;

    friend bool operator==(const SavedData &, const SavedData &) = default;
};

} // namespace fiva
