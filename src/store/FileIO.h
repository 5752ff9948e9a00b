#pragma once

#include "model/JsonInput.h"
#include "model/Result.h"
#include "model/SavedData.h"

#include <QByteArray>
#include <QString>

#include <optional>

// Whole-file reading and writing for the store's JSON files. Failures come back as a description
// naming the path and the cause, ready to be printed after the store's message.
namespace fiva::fileio {

Result<QByteArray> readWholeFile(const QString &path);
// The same, into memory the JSON reader can use as it is and give back while it decodes.
Result<json::InputBuffer> readDocument(const QString &path);

// Replaces the file's content in place (same file, no temporary). A failed open, a short write or
// a failed close is an error: the caller must never believe data is on disk when it is not.
std::optional<QString> writeWholeFile(const QString &path, const QByteArray &bytes);
// The same for a data document, encoded straight into the file without being held whole in memory.
// A document that cannot be encoded leaves the file untouched.
std::optional<QString> writeDocument(const QString &path, const SavedData &data);

// Creates the folder and its missing parents; no error when it already exists as a folder.
std::optional<QString> makeFolder(const QString &path);

} // namespace fiva::fileio
