#include "store/FileIO.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace fiva::fileio {
namespace {

TEST(FileIO, WritesThatDoNotReachTheDiskAreErrors)
{
    QTemporaryDir dir;
    QDir().mkpath(dir.filePath(QStringLiteral("folder")));
    const QByteArray payload(256 * 1024, 'x');
    // /dev/full accepts the open and fails the write: the short-write and flush path.
    const std::vector<QString> failing = {QStringLiteral("/dev/full"), dir.filePath(QStringLiteral("folder")),
                                          dir.filePath(QStringLiteral("missing/parent/file.json"))};
    for (const QString &path : failing) {
        const auto error = writeWholeFile(path, payload);
        ASSERT_TRUE(error.has_value()) << path.toStdString();
        EXPECT_TRUE(error->startsWith(path + QStringLiteral(": "))) << error->toStdString();
    }
}

TEST(FileIO, WriteReplacesContentInPlaceAndReadsBack)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("data.json"));
    ASSERT_FALSE(writeWholeFile(path, QByteArray(1000, 'a')).has_value());
    ASSERT_FALSE(writeWholeFile(path, "short").has_value());
    const auto read = readWholeFile(path);
    ASSERT_TRUE(read.ok());
    EXPECT_EQ(read.value(), QByteArray("short"));
    EXPECT_FALSE(readWholeFile(dir.filePath(QStringLiteral("absent"))).ok());
}

} // namespace
} // namespace fiva::fileio
