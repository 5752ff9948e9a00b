#include "store/AttachmentIndex.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace fiva::backup {

QString attachmentIndexName()
{
    return QStringLiteral("FivaAttachments.json");
}

QByteArray encodeAttachmentIndex(const QList<ArchivedAttachment> &entries)
{
    QJsonArray files;
    for (const ArchivedAttachment &entry : entries) {
        files.append(QJsonObject{{QStringLiteral("record"), static_cast<qint64>(entry.record)},
                                 {QStringLiteral("attachment"), static_cast<qint64>(entry.attachment)},
                                 {QStringLiteral("filePath"), entry.filePath},
                                 {QStringLiteral("file"), entry.file}});
    }
    return QJsonDocument(QJsonObject{{QStringLiteral("version"), 1}, {QStringLiteral("files"), files}})
        .toJson(QJsonDocument::Compact);
}

std::optional<QList<ArchivedAttachment>> decodeAttachmentIndex(const QByteArray &bytes)
{
    const QJsonDocument document = QJsonDocument::fromJson(bytes);
    if (!document.isObject() || document.object().value(QStringLiteral("version")).toInt() != 1)
        return std::nullopt;
    const QJsonValue files = document.object().value(QStringLiteral("files"));
    if (!files.isArray())
        return std::nullopt;
    QList<ArchivedAttachment> entries;
    for (const QJsonValue &value : files.toArray()) {
        const QJsonObject object = value.toObject();
        const QJsonValue record = object.value(QStringLiteral("record"));
        const QJsonValue attachment = object.value(QStringLiteral("attachment"));
        const QJsonValue filePath = object.value(QStringLiteral("filePath"));
        const QJsonValue file = object.value(QStringLiteral("file"));
        if (!record.isDouble() || !attachment.isDouble() || !filePath.isString() || !file.isString())
            return std::nullopt;
        const QString name = file.toString();
        // The name is joined to a folder of ours: it must stay a plain name inside it.
        if (name.isEmpty() || name.contains(u'/') || name.contains(QChar(0)) || name == u"." || name == u"..")
            return std::nullopt;
        const double r = record.toDouble();
        const double a = attachment.toDouble();
        if (!(r >= 0 && r < 1e15 && a >= 0 && a < 1e15) || r != static_cast<double>(static_cast<qint64>(r)) ||
            a != static_cast<double>(static_cast<qint64>(a)))
            return std::nullopt;
        entries.append({static_cast<qsizetype>(r), static_cast<qsizetype>(a), filePath.toString(), name});
    }
    return entries;
}

} // namespace fiva::backup
