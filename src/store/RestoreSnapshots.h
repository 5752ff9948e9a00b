#pragma once

#include "model/Result.h"
#include "model/Timestamp.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

// Before a restore replaces the data, the data file as it was is kept beside it in AS/Fiva, so
// that the restore can be undone byte for byte. Only the newest few are kept: each is a whole copy
// of the user's data.
namespace fiva::snapshots {

inline constexpr int kept = 5;

// The snapshots in `folder`, newest first.
QStringList list(const QString &folder);
// Writes `bytes` as a new snapshot named after `time`, then removes all but the `kept` newest.
// The new snapshot's path, or a sentence saying why it could not be written.
Result<QString> keep(const QString &folder, const QByteArray &bytes, Timestamp time);

} // namespace fiva::snapshots
