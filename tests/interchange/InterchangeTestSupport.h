#pragma once

#include "interchange/BookmarkImport.h"
#include "store/StoredNotes.h"

#include <QFile>
#include <QSet>
#include <QString>

#include <gtest/gtest.h>
#include <ostream>

#include "support/QtPrinting.h"

namespace fiva {

inline void PrintTo(const LinkItem &item, std::ostream *os)
{
    *os << item.title.toStdString() << " <" << item.path.toStdString() << "> [" << item.category.toStdString()
        << "] " << linkKindName(item.kind).toStdString() << ' ' << qint64(item.createdAt.toUnix());
}

namespace test {

using namespace Qt::StringLiterals;

// Later than every date in the samples, so that their ADD_DATE values are all plausible.
inline constexpr double importUnixTime = 1732000000.0;

// The folders the samples point at; everything else counts as a file.
inline const QSet<QString> sampleDirectories = {u"/home/marie/Projets"_s,
                                                u"/srv/partage/photos de vacances"_s};

inline QByteArray readSample(const char *name)
{
    QFile file(qEnvironmentVariable("FIVA_TEST_DATA") + u"/bookmarks/"_s + QString::fromUtf8(name));
    if (!file.open(QIODevice::ReadOnly))
        ADD_FAILURE() << "sample missing: " << name;
    return file.readAll();
}

inline interchange::ImportContext sampleContext(QStringList existingPaths = {},
                                                QStringList existingCategories = {u"Sans catégorie"_s})
{
    interchange::ImportContext context;
    context.existingPaths = std::move(existingPaths);
    context.existingCategories = std::move(existingCategories);
    context.importTime = Timestamp::fromUnix(importUnixTime);
    context.notesFromPlainText = &notesHTML;
    context.isDirectory = [](const QString &path) { return sampleDirectories.contains(path); };
    return context;
}

} // namespace test
} // namespace fiva
