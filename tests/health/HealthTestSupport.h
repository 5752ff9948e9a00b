#pragma once

#include "model/LinkItem.h"

#include <QDir>
#include <QFile>
#include <QString>
#include <QTemporaryDir>
#include <QUuid>

#include <ostream>

#include "support/QtPrinting.h"

namespace fiva {

namespace test {

// Makes a file of `size` bytes at `path`, with any missing folders.
inline void makeFile(const QString &path, qint64 size = 3)
{
    QDir().mkpath(path.section(u'/', 0, -2));
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(QByteArray(size, 'x'));
}

inline LinkItem record(LinkKind kind, const QString &path, QList<Attachment> attachments = {})
{
    LinkItem item;
    item.id = QUuid::createUuid();
    item.title = path.section(u'/', -1);
    item.path = path;
    item.kind = kind;
    item.attachments = std::move(attachments);
    return item;
}

inline Attachment attachment(const QString &filePath)
{
    return {QUuid::createUuid(), filePath.section(u'/', -1), filePath};
}

} // namespace test
} // namespace fiva
