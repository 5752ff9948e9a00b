#include "health/Relocation.h"

#include <QFile>

#include <algorithm>
#include <gtest/gtest.h>

#include "HealthTestSupport.h"

namespace fiva {
namespace {

using namespace Qt::StringLiterals;
using test::attachment;
using test::makeFile;
using test::record;

class Relocation : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(m_dir.isValid()); }
    QString path(const QString &name) const { return m_dir.filePath(name); }
    QStringList relative(QStringList paths) const
    {
        for (QString &p : paths)
            p = QDir(m_dir.path()).relativeFilePath(p);
        std::sort(paths.begin(), paths.end());
        return paths;
    }

    QTemporaryDir m_dir;
};

TEST_F(Relocation, SearchFindsSameNameKindAndSizeBelowTheFolder)
{
    makeFile(path(u"r/a/rapport.pdf"_s), 10);
    makeFile(path(u"r/b/c/rapport.pdf"_s), 20);
    makeFile(path(u"r/.cache/rapport.pdf"_s), 10);
    makeFile(path(u"r/d/rapport.pdf/x"_s)); // a folder of that name
    makeFile(path(u"r/d/Rapport.pdf"_s), 10);
    makeFile(path(u"ailleurs/rapport.pdf"_s), 10);
    QFile::link(path(u"r"_s), path(u"r/b/boucle"_s)); // a loop must not hold the search

    struct Case
    {
        RelocationTarget target;
        QString root;
        QStringList expected;
    };
    const Case cases[] = {
        {{u"rapport.pdf"_s, false, {}},
         u"r"_s,
         {u"r/.cache/rapport.pdf"_s, u"r/a/rapport.pdf"_s, u"r/b/c/rapport.pdf"_s}},
        {{u"rapport.pdf"_s, false, 10}, u"r"_s, {u"r/.cache/rapport.pdf"_s, u"r/a/rapport.pdf"_s}},
        {{u"rapport.pdf"_s, true, {}}, u"r"_s, {u"r/d/rapport.pdf"_s}},
        {{u"rapport.pdf"_s, false, 30}, u"r"_s, {}},
        {{u"rapport.pdf"_s, false, {}}, u"r/a/rapport.pdf"_s, {}},
        {{u"rapport.pdf"_s, false, {}}, u"nulle-part"_s, {}},
        {{u""_s, false, {}}, u"r"_s, {}},
    };
    for (const Case &c : cases) {
        qsizetype lastVisited = 0;
        const auto found = findRelocationCandidates(c.target, path(c.root), {}, [&](const SearchProgress &p) {
            EXPECT_EQ(p.foldersVisited, lastVisited + 1);
            EXPECT_TRUE(p.currentFolder.startsWith(path(c.root)));
            lastVisited = p.foldersVisited;
        });
        ASSERT_TRUE(found.has_value());
        EXPECT_EQ(relative(*found), c.expected) << c.target.name.toStdString();
    }

    std::stop_source stop;
    stop.request_stop();
    EXPECT_FALSE(findRelocationCandidates({u"rapport.pdf"_s, false, {}}, path(u"r"_s), stop.get_token()));
}

TEST(PathPrefix, ReplacesWholeComponentsOnly)
{
    struct Case
    {
        QString path, oldPrefix, newPrefix, expected;
    };
    const Case cases[] = {
        {u"/home/ancien/Documents/a.pdf"_s, u"/home/ancien"_s, u"/home/nouveau"_s,
         u"/home/nouveau/Documents/a.pdf"_s},
        {u"/home/ancien"_s, u"/home/ancien/"_s, u"/home/nouveau/"_s, u"/home/nouveau"_s},
        {u"/home/ancienne/a.pdf"_s, u"/home/ancien"_s, u"/home/nouveau"_s, u"/home/ancienne/a.pdf"_s},
        {u"/home/anc/a.pdf"_s, u"/home/ancien"_s, u"/x"_s, u"/home/anc/a.pdf"_s},
        {u"/a/b"_s, u"/"_s, u"/mnt"_s, u"/mnt/a/b"_s},
        {u"/old/b"_s, u"/old"_s, u"/"_s, u"/b"_s},
        {u"relatif/a"_s, u"/relatif"_s, u"/x"_s, u"relatif/a"_s},
        {u"/a/b"_s, u""_s, u"/x"_s, u"/a/b"_s},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(replacePathPrefix(c.path, c.oldPrefix, c.newPrefix), c.expected) << c.path.toStdString();
        EXPECT_EQ(pathHasPrefix(c.path, c.oldPrefix), c.path != c.expected);
    }
}

TEST(PathPrefix, ApplyingChangesOnlyRecordsBelowThePrefix)
{
    const QList<LinkItem> items{
        record(LinkKind::file, u"/old/a.pdf"_s),
        record(LinkKind::url, u"/old/pas-un-chemin"_s, {attachment(u"/old/pj/x.txt"_s)}),
        record(LinkKind::directory, u"/ailleurs"_s, {attachment(u"/autre/y.txt"_s)}),
        record(LinkKind::directory, u"/old"_s),
    };
    const QList<LinkItem> changed = applyPrefixReplacement(items, u"/old"_s, u"/new"_s);
    ASSERT_EQ(changed.size(), 3);
    EXPECT_EQ(changed[0].id, items[0].id);
    EXPECT_EQ(changed[0].path, u"/new/a.pdf"_s);
    EXPECT_EQ(changed[1].path, items[1].path); // a web address is not a path
    EXPECT_EQ(changed[1].attachments[0].filePath, u"/new/pj/x.txt"_s);
    EXPECT_EQ(changed[1].attachments[0].id, items[1].attachments[0].id);
    EXPECT_EQ(changed[2].path, u"/new"_s);
    EXPECT_EQ(changed[2].title, items[3].title);
    EXPECT_TRUE(applyPrefixReplacement(items, u"/old"_s, u""_s).isEmpty());
}

TEST_F(Relocation, ProposesPrefixesThatRepairMost)
{
    makeFile(path(u"home/nouveau/Documents/a.pdf"_s));
    makeFile(path(u"home/nouveau/Documents/b.pdf"_s));
    makeFile(path(u"home/autre/Documents/a.pdf"_s)); // finds fewer: not proposed
    makeFile(path(u"home/nouveau/pj/c.txt"_s));
    makeFile(path(u"data/present.pdf"_s));
    const QList<LinkItem> items{
        record(LinkKind::file, path(u"home/ancien/Documents/a.pdf"_s)),
        record(LinkKind::file, path(u"home/ancien/Documents/b.pdf"_s),
               {attachment(path(u"home/ancien/pj/c.txt"_s))}),
        record(LinkKind::file, path(u"home/ancien/Documents/perdu.pdf"_s)),
        record(LinkKind::url, u"https://example.org"_s, {attachment(path(u"home/ancien/pj/c.txt"_s))}),
        record(LinkKind::file, path(u"data/efface.pdf"_s)), // its folder is there: no prefix to change
        record(LinkKind::file, path(u"data/present.pdf"_s)),
        record(LinkKind::file, path(u"projets/x/y.pdf"_s)), // nowhere nearby; moved below archive/
    };
    makeFile(path(u"archive/2023/projets/autre.pdf"_s));
    makeFile(path(u"archive/2024/projets/x/y.pdf"_s));
    const auto health = checkRecords(items);
    ASSERT_TRUE(health);

    const auto proposals = proposePrefixReplacements(items, *health);
    ASSERT_TRUE(proposals);
    ASSERT_EQ(proposals->size(), 2);
    EXPECT_EQ(proposals->at(0).oldPrefix, path(u"home/ancien"_s));
    EXPECT_EQ(proposals->at(0).newPrefix, path(u"home/nouveau"_s));
    EXPECT_EQ(proposals->at(0).affected, 4);
    EXPECT_EQ(proposals->at(0).repaired, 3);
    EXPECT_EQ(proposals->at(0).stillBroken(), 1);
    EXPECT_EQ(proposals->at(1).oldPrefix, path(u"projets"_s));
    EXPECT_TRUE(proposals->at(1).newPrefix.isEmpty());
    EXPECT_EQ(proposals->at(1).repaired, 0);

    // What the caller would save repairs exactly what was announced.
    const QList<LinkItem> changed =
        applyPrefixReplacement(items, proposals->at(0).oldPrefix, proposals->at(0).newPrefix);
    const auto after = checkRecords(changed);
    EXPECT_EQ(
        std::count_if(after->cbegin(), after->cend(), [](const RecordHealth &h) { return !h.isBroken(); }),
        3);

    // Only the records it makes whole are handed to the store: "perdu.pdf" keeps its old path.
    QList<QUuid> repaired;
    for (const LinkItem &item : prefixRepairs(items, proposals->at(0).oldPrefix, proposals->at(0).newPrefix))
        repaired << item.id;
    EXPECT_EQ(repaired, (QList<QUuid>{items[0].id, items[1].id, items[3].id}));

    const PrefixReplacement given =
        evaluatePrefixReplacement(items, *health, path(u"home/ancien"_s), path(u"home/autre"_s));
    EXPECT_EQ(given.affected, 4);
    EXPECT_EQ(given.repaired, 1);

    const auto moved = proposeMovedPrefix(items, *health, path(u"projets"_s), path(u"archive"_s));
    ASSERT_TRUE(moved);
    EXPECT_EQ(moved->newPrefix, path(u"archive/2024/projets"_s));
    EXPECT_EQ(moved->affected, 1);
    EXPECT_EQ(moved->repaired, 1);
    EXPECT_TRUE(proposeMovedPrefix(items, *health, path(u"projets"_s), path(u"home"_s))->newPrefix.isEmpty());
}

} // namespace
} // namespace fiva
