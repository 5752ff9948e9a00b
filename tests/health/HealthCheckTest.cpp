#include "health/HealthCheck.h"

#include <QFile>

#include <gtest/gtest.h>

#include "HealthTestSupport.h"
#include "health/HealthCache.h"

namespace fiva {
namespace {

using namespace Qt::StringLiterals;
using test::attachment;
using test::makeFile;
using test::record;

class HealthCheck : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        makeFile(path(u"doc.pdf"_s), 5);
        QDir().mkpath(path(u"dossier"_s));
        makeFile(path(u"copies/a.txt"_s), 7);
    }
    QString path(const QString &name) const { return m_dir.filePath(name); }

    QTemporaryDir m_dir;
};

QList<ProblemKind> kindsOf(const RecordHealth &health)
{
    QList<ProblemKind> kinds;
    for (const Problem &problem : health.problems)
        kinds.append(problem.kind);
    return kinds;
}

TEST_F(HealthCheck, FindsWhatIsWrongWithEachRecord)
{
    using enum ProblemKind;
    const QString page = u"https://example.org/page"_s;
    struct Case
    {
        LinkKind kind;
        QString path;
        QStringList attachments;
        QList<ProblemKind> expected;
        std::optional<WebOutcome> web = {};
        QString checkedAddress = {}; // the record's own when empty
    };
    const Case cases[] = {
        {LinkKind::file, u"doc.pdf"_s, {u"copies/a.txt"_s}, {}},
        {LinkKind::directory, u"dossier"_s, {}, {}},
        {LinkKind::file, u"absent.pdf"_s, {}, {pathMissing}},
        {LinkKind::file, u"doc.pdf/sous"_s, {}, {pathMissing}},
        {LinkKind::file, u"doc.pdf"_s + QChar(0) + u"x"_s, {}, {pathMissing}},
        {LinkKind::file, u"dossier"_s, {}, {notAFile}},
        {LinkKind::directory, u"doc.pdf"_s, {}, {notAFolder}},
        {LinkKind::directory,
         u"parti"_s,
         {u"copies/a.txt"_s, u"copies/c.txt"_s},
         {pathMissing, attachmentMissing}},
        {LinkKind::url, page, {u"copies/b.txt"_s}, {attachmentMissing}},
        {LinkKind::url, page, {}, {webBroken}, WebOutcome::notFound},
        {LinkKind::url, page, {}, {webBroken}, WebOutcome::timedOut},
        {LinkKind::url, page, {}, {}, WebOutcome::reachable},
        {LinkKind::url, page, {}, {}, WebOutcome::cancelled},
        {LinkKind::url, page, {}, {}, WebOutcome::gone, u"https://example.org/ancienne"_s},
    };
    for (const Case &c : cases) {
        QList<Attachment> attachments;
        for (const QString &name : c.attachments)
            attachments.append(attachment(path(name)));
        const LinkItem item = record(c.kind, c.kind == LinkKind::url ? c.path : path(c.path), attachments);
        WebResults web;
        if (c.web)
            web.insert(
                item.id,
                {item.id, c.checkedAddress.isEmpty() ? item.path : c.checkedAddress, {}, *c.web, 0, {}, {}});
        const RecordHealth health = checkRecord(item, web);
        EXPECT_EQ(health.id, item.id);
        EXPECT_EQ(kindsOf(health), c.expected) << c.path.toStdString();
        for (const Problem &problem : health.problems)
            EXPECT_FALSE(problem.description().isEmpty());
        // Copies that are there have their size remembered, the others none.
        for (const Attachment &a : attachments)
            EXPECT_EQ(health.attachmentSizes.value(a.id, -1), QFile::exists(a.filePath) ? 7 : -1);
    }
}

TEST_F(HealthCheck, WholePassMatchesRecordByRecordAndStops)
{
    QList<LinkItem> items;
    for (int i = 0; i < 10000; ++i) // enough to be split over the cores
        items.append(record(i % 3 ? LinkKind::file : LinkKind::directory,
                            path(i % 2 ? u"doc.pdf"_s : u"dossier"_s),
                            i % 5 ? QList<Attachment>{} : QList{attachment(path(u"copies/a.txt"_s))}));
    qsizetype lastProgress = 0;
    const auto results = checkRecords(items, {}, {}, [&](qsizetype done) {
        EXPECT_GE(done, lastProgress);
        lastProgress = done;
    });
    ASSERT_TRUE(results.has_value());
    ASSERT_EQ(results->size(), items.size());
    EXPECT_EQ(lastProgress, items.size());
    for (qsizetype i = 0; i < items.size(); ++i) {
        const RecordHealth alone = checkRecord(items[i]);
        ASSERT_EQ(results->at(i).id, alone.id);
        ASSERT_EQ(results->at(i).problems, alone.problems);
        ASSERT_EQ(results->at(i).attachmentSizes, alone.attachmentSizes);
    }
    std::stop_source stop;
    stop.request_stop();
    EXPECT_FALSE(checkRecords(items, {}, stop.get_token()).has_value());
}

TEST_F(HealthCheck, CacheLooksAgainOnlyAtChangedRecordsUntilAskedForAll)
{
    makeFile(path(u"bientot-parti.pdf"_s));
    QList<LinkItem> items{record(LinkKind::file, path(u"bientot-parti.pdf"_s)),
                          record(LinkKind::file, path(u"doc.pdf"_s)),
                          record(LinkKind::file, path(u"absent.pdf"_s))};
    HealthCache cache;
    ASSERT_TRUE(cache.refreshChanged(items));
    EXPECT_EQ(cache.brokenIds(), QList{items[2].id});

    QFile::remove(path(u"bientot-parti.pdf"_s));
    items[1].path = path(u"absent-aussi.pdf"_s);
    const LinkItem removed = items.takeLast();
    ASSERT_TRUE(cache.refreshChanged(items));
    EXPECT_FALSE(cache.isBroken(items[0].id)); // unchanged record: not looked at again
    EXPECT_TRUE(cache.isBroken(items[1].id));
    EXPECT_EQ(cache.health(removed.id), nullptr);
    EXPECT_EQ(cache.size(), 2);

    HealthCache copy = cache; // what a worker thread refreshes
    std::stop_source stop;
    stop.request_stop();
    EXPECT_FALSE(copy.refreshAll(items, stop.get_token()));
    EXPECT_FALSE(copy.isBroken(items[0].id));
    ASSERT_TRUE(copy.refreshAll(items));
    EXPECT_TRUE(copy.isBroken(items[0].id));
    EXPECT_FALSE(cache.isBroken(items[0].id));
}

TEST_F(HealthCheck, CacheFileKeepsWebResultsAndSizesAndNothingElse)
{
    const Attachment copy = attachment(path(u"copies/a.txt"_s));
    const QList<LinkItem> items{record(LinkKind::url, u"https://example.org/x"_s, {copy}),
                                record(LinkKind::url, u"https://example.org/y"_s)};
    const WebCheckResult dead{
        items[0].id, items[0].path,          u"https://example.org/z"_s, WebOutcome::gone, 410,
        {},          Timestamp{757382400.25}};
    const WebCheckResult stranger{
        QUuid::createUuid(), u"https://example.org/w"_s, {}, WebOutcome::notFound, 404, {}, {}};
    const WebCheckResult stopped{items[1].id, items[1].path, {}, WebOutcome::cancelled, 0, {}, {}};
    HealthCache cache;
    cache.recordWebResults({dead, stranger, stopped});
    ASSERT_TRUE(cache.refreshChanged(items));
    EXPECT_EQ(cache.brokenIds(), QList{items[0].id});

    const QString dataFile = path(u"FivaData.json"_s);
    const QString cacheFile = HealthCache::cacheFileFor(dataFile);
    EXPECT_NE(cacheFile, dataFile);
    EXPECT_EQ(QFileInfo(cacheFile).absolutePath(), QFileInfo(dataFile).absolutePath());
    ASSERT_TRUE(cache.save(cacheFile));

    QFile::remove(copy.filePath);
    HealthCache loaded;
    ASSERT_TRUE(loaded.load(cacheFile));
    EXPECT_EQ(loaded.webResults(), WebResults({{dead.id, dead}})); // the stranger's record is gone
    ASSERT_TRUE(loaded.refreshChanged(items));
    EXPECT_EQ(kindsOf(*loaded.health(items[0].id)),
              (QList{ProblemKind::webBroken, ProblemKind::attachmentMissing}));
    EXPECT_EQ(loaded.attachmentSize(copy.id), 7); // still known though the copy is gone

    // Damaged files, and the first files' sizes keyed by attachment id.
    const QByteArray id = copy.id.toString(QUuid::WithoutBraces).toUpper().toLatin1();
    const std::pair<QByteArray, std::optional<qint64>> files[]{
        {"{\"web\":[{\"id\":3}],\"attachmentSizes\":[]}", std::nullopt},
        {"pas du JSON", std::nullopt},
        {"[1,2]", std::nullopt},
        {"{\"attachmentSizes\":[[\"" + id + "\",-1],[\"pas un id\",3],[\"" + id + "\"],5]}", std::nullopt},
        {"{\"attachmentSizes\":{\"" + id + "\":9}}", 9},
    };
    for (const auto &[bytes, size] : files) {
        SCOPED_TRACE(bytes.toStdString());
        QFile file(cacheFile);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(bytes);
        file.close();
        HealthCache damaged = loaded;
        damaged.load(cacheFile);
        EXPECT_TRUE(damaged.webResults().isEmpty());
        EXPECT_EQ(damaged.attachmentSize(copy.id), size);
    }
    EXPECT_FALSE(HealthCache().save(path(u"pas-de-dossier/cache.json"_s)));
}

} // namespace
} // namespace fiva
