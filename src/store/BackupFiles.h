#pragma once

#include "model/Result.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QStringView>

#include <exception>
#include <filesystem>
#include <optional>

// File work shared by the backup export and the restore. Failures come back as French sentences
// that name the file and say what happened, ready to follow the store's message or to be shown.
namespace fiva::backup {

// A fresh folder "<prefix><UUID>" in the temporary folder, deleted with everything in it when
// this object goes away, whatever happened in between.
class StagingFolder final
{
public:
    StagingFolder() = default;
    ~StagingFolder();
    StagingFolder(const StagingFolder &) = delete;
    StagingFolder &operator=(const StagingFolder &) = delete;

    std::optional<QString> create(const QString &temporaryFolder, QStringView prefix);
    const QString &path() const { return m_path; }
    QString filePath(const QString &relative) const;

private:
    QString m_path;
};

std::filesystem::path toFsPath(const QString &path);
QString fromFsPath(const std::filesystem::path &path);

// The one place where the ZIP library's typed errors, and any other exception, become a sentence a
// person can read: what happened to which file, then the error's identifier in parentheses for
// logs and tests. `file` names the file concerned when the error itself carries no path (an
// archive that is not one says nothing of its name).
QString describe(const std::exception &error, const QString &file = {});
// The same for a system call's errno on `path`.
QString describeFileError(const QString &path, int error);
// The file layer describes a failure as "<path>: <the system's words>". When those words are the
// system's own for an errno, the same reason as describeFileError says it; otherwise nothing.
std::optional<QString> frenchReason(const QString &description);
// A file name as the sentences quote it.
QString quoted(const QString &path);

// The last component of a path, ignoring trailing slashes: "/a/b.pdf/" gives "b.pdf".
QString lastComponent(const QString &path);
// The text after the last dot of a name, empty when there is none, when the dot comes first (a
// hidden file such as ".bashrc") or when it ends the name.
QString extensionOf(const QString &name);
// The export's n-th candidate for a taken name: the name without its extension, "-n", "." and
// the extension; the dot is kept for names without extension ("notes" gives "notes-1.").
QString exportCandidate(const QString &name, int n);
// The restore's n-th candidate: the parts between dots, empty ones dropped, all but the last
// joined, then "-n", "." and the extension ("rapport.v2.pdf" gives "rapportv2-1.pdf").
QString restoreCandidate(const QString &name, int n);

// True when something, even a dangling link, holds that name.
bool isOccupied(const QString &path);
// The first path free in `folder` for a copy of a file called `name`: the name itself, then the
// export's candidates name-1.ext, name-2.ext, ... Attaching a file names its copy the same way.
QString freeCopyPath(const QString &folder, const QString &name);
// True when the path leads to a regular file (following links).
bool isRegularFile(const QString &path);

// Copies a file's bytes in bounded chunks to a new file `to`, which must not exist, keeping the
// source's permission bits and modification date as a file manager's copy does: a private 0600
// document stays private in the staging folder, in the archive and in the attachments folder.
// A failure removes the partial copy.
std::optional<QString> copyFile(const QString &from, const QString &to);
// Moves a file to `to`, which must not exist, by a rename where both are on one file system and else
// by copyFile and removing the source. The moved file keeps its bits and dates either way; a failure
// is copyFile's.
std::optional<QString> moveFile(const QString &from, const QString &to);
// Deletes a file, or a folder with its content; failures are ignored.
void removeTree(const QString &path);

// Every item below `folder`, as full paths, shallowest first and in name order within a folder.
// Links are listed but not followed.
Result<QStringList> listTree(const QString &folder);

// What the central directory of a ZIP file says of itself, read back without unpacking anything.
struct ArchiveDirectory
{
    quint64 walked = 0;    // entries the walk of the central directory could read
    quint64 declared = 0;  // entries the end record counts
    quint64 endOfData = 0; // where the end records finish: the archive's expected size
};
// Fails with a sentence when the file cannot be opened as an archive at all.
Result<ArchiveDirectory> readArchiveDirectory(const QString &archive);
// "L'archive … est endommagée : 12 éléments sur 14 sont lisibles." when the walk ends early.
std::optional<QString> checkAllEntriesReadable(const QString &archive, const ArchiveDirectory &directory);

// An automatic backup is the data file's JSON under the archive's extension: it starts with "{"
// (or "[" for the older bare list of records). Anything else is read as a ZIP archive, whose
// reader then says what is wrong with it.
bool startsLikeJson(const QString &path);

// Plain ordinal order of Unicode code points after canonical composition.
bool ordinalLess(const QString &a, const QString &b);

} // namespace fiva::backup
