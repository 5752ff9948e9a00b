#pragma once

#include "model/Timestamp.h"

#include <QList>
#include <QString>
#include <QUuid>

#include <optional>

namespace fiva {

enum class LinkKind { url, file, directory };

// The name under which a kind is written in files: "url", "file", "directory".
QString linkKindName(LinkKind kind);
std::optional<LinkKind> linkKindFromName(QStringView name);

struct Attachment
{
    QUuid id;
    QString fileName;
    QString filePath;

    friend bool operator==(const Attachment &, const Attachment &) = default;
};

struct LinkItem
{
    QUuid id;
    QString title;
    QString path;
    QString category;
    std::optional<QString> notes;
    Timestamp createdAt;
    bool isFavorite = false;
    QList<Attachment> attachments;
    LinkKind kind = LinkKind::url;

    friend bool operator==(const LinkItem &, const LinkItem &) = default;
};

} // namespace fiva
