#include "store/BackupFiles.h"

#include <QSet>

#include <cstring>
#include <random>

#include "BackupTestSupport.h"

namespace fiva::test {
namespace {

// Bytes that differ from one mebibyte to the next, so a copy that repeats or drops a chunk shows.
void writeLargeFile(const QString &path, qint64 mebibytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    std::mt19937 random(7);
    QByteArray block(1 << 20, Qt::Uninitialized);
    for (char &c : block)
        c = static_cast<char>(random());
    for (qint64 i = 0; i < mebibytes; ++i) {
        std::memcpy(block.data(), &i, sizeof i);
        ASSERT_EQ(file.write(block), block.size());
    }
}

TEST_F(BackupTest, TwoThousandRecordsAndFiveHundredAttachmentsComeBackByteForByte)
{
    std::mt19937 random(2024);
    QList<LinkItem> items;
    QHash<QUuid, QByteArray> digests; // attachment id -> content of the original
    for (int r = 0; r < 2000; ++r) {
        LinkItem item =
            makeItem(QStringLiteral("Fiche %1 « été »").arg(r), QStringLiteral("Catégorie %1").arg(r % 17));
        item.notes = QStringLiteral("<p>note %1</p>").arg(r);
        item.isFavorite = r % 3 == 0;
        items.append(item);
    }
    for (int k = 0; k < 500; ++k) {
        QString relative;
        switch (k % 5) {
        case 0:
            relative = QStringLiteral("dossier%1/rapport.pdf").arg(k);
            break; // same name, many folders
        case 1:
            relative = QStringLiteral("d%1/Résumé — ñ 日本 %2.odt").arg(k).arg(k % 7);
            break; // non-ASCII
        case 2:
            relative = QStringLiteral("d%1/LISEZMOI").arg(k);
            break; // no extension
        case 3:
            relative = QStringLiteral("d%1/photo.v%2.jpeg").arg(k).arg(k % 3);
            break; // inner dots
        default:
            relative = QStringLiteral("d%1/unique-%2.txt").arg(k).arg(k);
            break;
        }
        QString filePath;
        if (k == 250) {
            filePath = path(QStringLiteral("files/gros/archive.bin"));
            writeLargeFile(filePath, 200);
        } else {
            QByteArray bytes(static_cast<qsizetype>(random() % 8192), Qt::Uninitialized);
            for (char &c : bytes)
                c = static_cast<char>(random());
            filePath = userFile(relative, bytes);
        }
        Attachment a = attachment(filePath);
        digests.insert(a.id, sha256Of(filePath));
        items[(k * 7) % 2000].attachments.append(a);
    }
    const QStringList categories = {QStringLiteral("Zèbre"), QStringLiteral("abc"), QStringLiteral("Été")};
    auto store = startWith(items, categories, Timestamp{100.0});
    const QString archive = exportArchive(*store);
    EXPECT_EQ(runTool(QStringLiteral("unzip"), {QStringLiteral("-tq"), archive}).exitCode, 0);

    // A fresh machine: the originals are gone from the attachments folder's point of view.
    ASSERT_TRUE(QDir(m_root.path()).rename(QStringLiteral("as"), QStringLiteral("as-before")));
    auto restored = start();
    {
        StdoutCapture capture;
        ASSERT_TRUE(restored->restoreBackup(archive));
    }
    EXPECT_TRUE(leftovers().isEmpty());
    ASSERT_EQ(restored->items().size(), items.size());
    QSet<QString> targets;
    for (qsizetype r = 0; r < items.size(); ++r) {
        LinkItem expected = items[r];
        const LinkItem &got = restored->items()[r];
        ASSERT_EQ(got.attachments.size(), expected.attachments.size());
        for (qsizetype a = 0; a < got.attachments.size(); ++a) {
            const Attachment &back = got.attachments[a];
            EXPECT_EQ(QFileInfo(back.filePath).absolutePath(), attachmentsFolder());
            EXPECT_EQ(sha256Of(back.filePath), digests.value(back.id)) << back.filePath.toStdString();
            targets.insert(back.filePath);
            expected.attachments[a].filePath = back.filePath;
            expected.attachments[a].fileName = back.fileName;
        }
        EXPECT_EQ(got, expected);
    }
    EXPECT_EQ(targets.size(), 500) << "every attachment has a file of its own";
    std::vector<QString> sorted(categories.begin(), categories.end());
    std::stable_sort(sorted.begin(), sorted.end(), backup::ordinalLess);
    EXPECT_EQ(restored->categories(), QStringList(sorted.begin(), sorted.end()));
}

} // namespace
} // namespace fiva::test
