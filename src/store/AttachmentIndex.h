#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

namespace fiva::backup {

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

} // namespace fiva::backup
