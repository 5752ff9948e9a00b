#pragma once

#include "model/JsonInput.h"
#include "model/Result.h"
#include "model/SavedData.h"

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <sys/types.h>

#include <optional>

// Whole-file reading and writing for the store's JSON files. Failures come back as a description
// naming the path and the cause, ready to be printed after the store's message.
namespace fiva::fileio {

Result<QByteArray> readWholeFile(const QString &path);
// The same, into memory the JSON reader can use as it is and give back while it decodes.
Result<json::InputBuffer> readDocument(const QString &path);

// Replaces the file's content whole. A regular file (or a missing one) is replaced through a
// Replacement, so that a crash leaves the old or the new content; a device or a pipe gets the
// bytes in order. A failed open, a short write or a failed close is an error: the caller must
// never believe data is on disk when it is not, and the old file then stays as it was.
std::optional<QString> writeWholeFile(const QString &path, const QByteArray &bytes);
// The same for a data document, encoded straight into the file without being held whole in memory.
// A document that cannot be encoded leaves the file untouched.
std::optional<QString> writeDocument(const QString &path, const SavedData &data);
// Whether the file at `path` already holds exactly the bytes `data` encodes to. Compared a piece at
// a time as the encoding goes, so no second copy of a large file is read into memory.
bool holdsDocument(const QString &path, const SavedData &data);

// What tells one version of a file from another without reading it: a rename over the file gives
// it a new inode, a rewrite a new size or modification time (kept to the nanosecond).
struct FileStamp
{
    bool exists = false;
    quint64 device = 0;
    quint64 inode = 0;
    qint64 size = 0;
    qint64 modifiedSeconds = 0;
    qint64 modifiedNanoseconds = 0;

    friend bool operator==(const FileStamp &, const FileStamp &) = default;
};
// The stamp of the file a path leads to, after links; a missing file has an empty stamp.
FileStamp stampOf(const QString &path);

// A new version of a file is written under a temporary name beside it and only then renamed over
// it, so that a crash or a power cut at any instant leaves either the old complete file or the new
// complete one. Writing in place, as a plain rewrite would, can leave half of each.
//
// The target is followed through symbolic links: a data file linked into a synchronised folder
// stays a link, and the file it points at is the one replaced. Nothing is created until the
// caller writes temporaryPath(); a replacement that is not committed removes what was written there.
class Replacement final
{
public:
    explicit Replacement(const QString &target);
    ~Replacement();
    Replacement(const Replacement &) = delete;
    Replacement &operator=(const Replacement &) = delete;

    // The file that will be replaced, after links.
    const QString &targetPath() const { return m_target; }
    // A name in the target's folder that did not exist when asked for.
    const QString &temporaryPath() const { return m_temporary; }
    // The permission bits of the file to replace; none when there is no regular file yet.
    std::optional<mode_t> targetMode() const;
    // Flushes the temporary file to disk, gives it the permission bits of the file it replaces
    // (when there is one), renames it over the target and flushes the folder.
    std::optional<QString> commit();

private:
    QString m_target;
    QString m_temporary;
    bool m_committed = false;
};

// Creates the folder and its missing parents; no error when it already exists as a folder.
std::optional<QString> makeFolder(const QString &path);

} // namespace fiva::fileio
