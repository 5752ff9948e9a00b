#pragma once

#include "model/BackupLog.h"
#include "model/LinkItem.h"
#include "model/Result.h"
#include "model/SavedData.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QList>

namespace fiva {

// The one JSON form of Fiva's documents. Output is compact UTF-8 with "/" escaped, upper-case
// UUIDs, dates as the shortest number that reads back as the same double, and optional keys
// omitted. Decoding is all or nothing: an error names the place and the problem,
// for example "items[3].isFavorite: expected a boolean".
namespace json {

Result<QByteArray> encode(const SavedData &data);
Result<QByteArray> encode(const QList<BackupLog> &history);

// `now` fills a missing "createdAt"; missing ids get fresh random UUIDs.
Result<SavedData> decodeSavedData(QByteArrayView bytes, Timestamp now = Timestamp::now());
Result<QList<BackupLog>> decodeBackupHistory(QByteArrayView bytes);
// The legacy bare array of records that only the restore accepts.
Result<QList<LinkItem>> decodeLinkItems(QByteArrayView bytes, Timestamp now = Timestamp::now());

} // namespace json
} // namespace fiva
