#pragma once

#include "model/BackupLog.h"
#include "model/JsonInput.h"
#include "model/LinkItem.h"
#include "model/Result.h"
#include "model/SavedData.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QList>

#include <optional>

namespace fiva {

// The one JSON form of Fiva's documents. Output is compact UTF-8 with "/" escaped, upper-case
// UUIDs, dates as the shortest number that reads back as the same double, and optional keys
// omitted. Decoding is all or nothing: an error names the place and the problem,
// for example "items[3].isFavorite: expected a boolean".
namespace json {

// Where a large document is written as it is encoded.
class DocumentOutput
{
public:
    virtual ~DocumentOutput() = default;
    // The document's exact size, given once before the first write; an error stops the encoding.
    virtual std::optional<QString> reserve(qint64 size) = 0;
    // Called from several threads at once, for ranges that never overlap.
    virtual std::optional<QString> write(qint64 offset, QByteArrayView bytes) = 0;
};

Result<QByteArray> encode(const SavedData &data);
// Nothing reaches the output when the data cannot be encoded (a date that is not a finite number).
std::optional<QString> encode(const SavedData &data, DocumentOutput &output);
Result<QByteArray> encode(const QList<BackupLog> &history);

// `now` fills a missing "createdAt"; missing ids get fresh random UUIDs. The buffer's memory is
// given back while the records are made.
Result<SavedData> decodeSavedData(InputBuffer input, Timestamp now = Timestamp::now());
Result<SavedData> decodeSavedData(QByteArrayView bytes, Timestamp now = Timestamp::now());
Result<QList<BackupLog>> decodeBackupHistory(QByteArrayView bytes);
// The legacy bare array of records that only the restore accepts.
Result<QList<LinkItem>> decodeLinkItems(QByteArrayView bytes, Timestamp now = Timestamp::now());

} // namespace json
} // namespace fiva
