#pragma once

#include "model/Result.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QStringView>

#include <exception>
#include <filesystem>
#include <optional>

// File work shared by the backup export and the restore. Failures come back as descriptions that
// name the path and the cause, ready to follow the store's message.
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

// The ZIP library's typed errors give their own description; anything else its what().
QString describe(const std::exception &error);

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
// True when the path leads to a regular file (following links).
bool isRegularFile(const QString &path);

// Copies a file's bytes in bounded chunks to a new file `to`, which must not exist. A failure
// removes the partial copy.
std::optional<QString> copyFile(const QString &from, const QString &to);
// Deletes a file, or a folder with its content; failures are ignored.
void removeTree(const QString &path);

// Every item below `folder`, as full paths, shallowest first and in name order within a folder.
// Links are listed but not followed.
Result<QStringList> listTree(const QString &folder);

// The list, written beside FivaData.json, of which archived file belongs to which attachment.
// Readers that do not know it ignore it; it lets ours tell same-named files apart.
QString attachmentIndexName();

struct ArchivedAttachment
{
    qsizetype record = 0;     // position in the document's items
    qsizetype attachment = 0; // position in that record's attachments
    QString filePath;         // the attachment's filePath when it was archived, as a check
    QString file;             // name of the copy inside the archive's attachments folder

    friend bool operator==(const ArchivedAttachment &, const ArchivedAttachment &) = default;
};

QByteArray encodeAttachmentIndex(const QList<ArchivedAttachment> &entries);
// Nothing when the bytes are not an index this program wrote, or name a file outside the folder.
std::optional<QList<ArchivedAttachment>> decodeAttachmentIndex(const QByteArray &bytes);

// Plain ordinal order of Unicode code points after canonical composition.
bool ordinalLess(const QString &a, const QString &b);

} // namespace fiva::backup
