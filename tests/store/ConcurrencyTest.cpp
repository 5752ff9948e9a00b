#include "model/JsonCodec.h"
#include "store/DataLock.h"
#include "store/FileIO.h"

#include <QSet>

#include <sys/stat.h>

#include "StoreTestSupport.h"

using namespace fiva;
using namespace fiva::test;

namespace {

class StoreFollowsItsFiles : public StoreTest
{
protected:
    SavedData onDisk() const
    {
        auto decoded = json::decodeSavedData(readBytes(dataFile()));
        EXPECT_TRUE(decoded.ok()) << decoded.error().toStdString();
        return decoded.ok() ? decoded.value() : SavedData{};
    }
    // Another process's save: the whole file replaced, as our own writes and fiva-cli's do.
    void saveFromOutside(const SavedData &data)
    {
        ASSERT_FALSE(fileio::writeDocument(dataFile(), data).has_value());
    }
    static QSet<QString> titles(const QList<LinkItem> &items)
    {
        QSet<QString> set;
        for (const LinkItem &item : items)
            set << item.title;
        return set;
    }
};

// Each operation runs after another process added "Dehors" to the file behind the store's back:
// the record must survive, and the operation must still do its part, on disk and in memory alike.
TEST_F(StoreFollowsItsFiles, EveryOperationAppliesItsChangeOnTopOfAnOutsideSave)
{
    const QString attached = userFile(u"facture.pdf"_s, "%PDF");
    const Attachment first = attachment(attached);
    const LinkItem a = makeItem(u"A"_s, sansCategorie, {first});
    const LinkItem b = makeItem(u"B"_s, sansCategorie);
    const Attachment second = attachment(userFile(u"devis.pdf"_s, "%PDF"));
    const LinkItem added = makeItem(u"Ajoutée"_s, sansCategorie);

    struct Case
    {
        const char *name;
        std::function<void(LinkStore &)> operation;
        QSet<QString> titles; // besides "Dehors"
        std::function<bool(const SavedData &)> effect;
    };
    const auto recordA = [](const SavedData &d) { return d.items.at(0); };
    const Case cases[] = {
        {"toggleFavorite",
         [&](LinkStore &s) { s.toggleFavorite(a.id); },
         {u"A"_s, u"B"_s},
         [&](const SavedData &d) { return recordA(d).isFavorite; }},
        {"addItem",
         [&](LinkStore &s) { EXPECT_TRUE(s.addItem(added)); },
         {u"A"_s, u"B"_s, u"Ajoutée"_s},
         [&](const SavedData &d) { return d.items.last().id == added.id; }},
        {"editItem",
         [&](LinkStore &s) { EXPECT_TRUE(s.editItem(a.id, [](LinkItem &i) { i.path = u"/changé"_s; })); },
         {u"A"_s, u"B"_s},
         [&](const SavedData &d) { return recordA(d).path == u"/changé"_s; }},
        {"addAttachment",
         [&](LinkStore &s) { EXPECT_TRUE(s.addAttachment(a.id, second)); },
         {u"A"_s, u"B"_s},
         [&](const SavedData &d) {
             return recordA(d).attachments == QList<Attachment>{first, second};
         }},
        {"removeAttachment",
         [&](LinkStore &s) { EXPECT_TRUE(s.removeAttachment(a.id, first)); },
         {u"A"_s, u"B"_s},
         [&](const SavedData &d) {
             return recordA(d).attachments.isEmpty() && !QFileInfo::exists(attached);
         }},
        {"deleteItem",
         [&](LinkStore &s) { s.deleteItem(b.id); },
         {u"A"_s},
         [](const SavedData &) { return true; }},
        {"addCategory",
         [&](LinkStore &s) { s.addCategory(u"Loisirs"_s); },
         {u"A"_s, u"B"_s},
         [](const SavedData &d) {
             return d.categories == QStringList{u"Dehors"_s, u"Loisirs"_s, sansCategorie};
         }},
        {"repairPaths takes over only paths",
         [&](LinkStore &s) {
             const auto repaired = s.repairPaths([&](const QList<LinkItem> &fresh) {
                 LinkItem r = fresh.at(0);
                 r.title = u"Périmé"_s; // a stale field the repair must not write back
                 r.path = u"/nouveau/A"_s;
                 r.attachments[0].filePath = u"/nouveau/facture.pdf"_s;
                 return QList<LinkItem>{r, fresh.at(1)}; // B unchanged: not counted
             });
             EXPECT_EQ(repaired, std::optional<qsizetype>(1));
         },
         {u"A"_s, u"B"_s},
         [&](const SavedData &d) {
             return recordA(d).path == u"/nouveau/A"_s &&
                    recordA(d).attachments.at(0).filePath == u"/nouveau/facture.pdf"_s;
         }},
        {"relocate",
         [&](LinkStore &s) { EXPECT_TRUE(s.relocate(a.id, u"/ailleurs"_s)); },
         {u"A"_s, u"B"_s},
         [&](const SavedData &d) { return recordA(d).path == u"/ailleurs"_s; }},
        {"relocateAttachment",
         [&](LinkStore &s) { EXPECT_TRUE(s.relocateAttachment(a.id, first.id, u"/ailleurs.pdf"_s)); },
         {u"A"_s, u"B"_s},
         [&](const SavedData &d) {
             return recordA(d).attachments.at(0).filePath == u"/ailleurs.pdf"_s &&
                    recordA(d).attachments.at(0).fileName == first.fileName;
         }},
        {"setLastBackupDate",
         [&](LinkStore &s) { s.setLastBackupDate(newYear2025); },
         {u"A"_s, u"B"_s},
         [](const SavedData &d) { return d.lastBackupDate == newYear2025; }},
    };
    for (const Case &c : cases) {
        writeBytes(attached, "%PDF");
        auto store = startWith({a, b}, {sansCategorie});
        SavedData outside = onDisk();
        outside.items.append(makeItem(u"Dehors"_s, u"Dehors"_s));
        outside.categories.prepend(u"Dehors"_s);
        saveFromOutside(outside);

        printedBy([&] { c.operation(*store); });
        const SavedData saved = onDisk();
        EXPECT_EQ(titles(saved.items), c.titles + QSet<QString>{u"Dehors"_s}) << c.name;
        EXPECT_TRUE(c.effect(saved)) << c.name;
        EXPECT_EQ(store->items(), saved.items) << c.name;
        EXPECT_TRUE(store->categories().contains(u"Dehors"_s)) << c.name;
    }
}

TEST_F(StoreFollowsItsFiles, ChangesToARecordDeletedOutsideWriteNothing)
{
    const LinkItem a = makeItem(u"A"_s, sansCategorie);
    const Attachment extra = attachment(userFile(u"x.pdf"_s, "%PDF"));
    const std::pair<const char *, std::function<bool(LinkStore &)>> cases[] = {
        {"editItem", [&](LinkStore &s) { return s.editItem(a.id, [](LinkItem &i) { i.title = u"Z"_s; }); }},
        {"addAttachment", [&](LinkStore &s) { return s.addAttachment(a.id, extra); }},
        {"removeAttachment", [&](LinkStore &s) { return s.removeAttachment(a.id, extra); }},
        {"relocate", [&](LinkStore &s) { return s.relocate(a.id, u"/x"_s); }},
        {"relocateAttachment", [&](LinkStore &s) { return s.relocateAttachment(a.id, extra.id, u"/x"_s); }},
        {"repairPaths of a stale copy",
         [&](LinkStore &s) {
             LinkItem stale = a;
             stale.path = u"/x"_s;
             return s.repairPaths([&](const QList<LinkItem> &) { return QList<LinkItem>{stale}; }) != 0;
         }},
    };
    for (const auto &[name, operation] : cases) {
        auto store = startWith({a}, {sansCategorie});
        saveFromOutside(SavedData{{}, {sansCategorie}, std::nullopt});
        const QByteArray before = readBytes(dataFile());
        EXPECT_FALSE(operation(*store)) << name;
        EXPECT_EQ(readBytes(dataFile()), before) << name;
        EXPECT_TRUE(store->items().isEmpty()) << name;
    }
}

TEST_F(StoreFollowsItsFiles, OnlyOtherWritersChangesAreReloaded)
{
    auto store = startWith({makeItem(u"A"_s, sansCategorie)}, {sansCategorie});
    int reloads = 0;
    QObject::connect(store.get(), &LinkStore::reloadedFromDisk, store.get(), [&] { ++reloads; });
    store->toggleFavorite(store->items().front().id);
    printedBy([&] { store->addBackupLog(dataFile()); });
    EXPECT_FALSE(store->reloadIfChanged()) << "our own writes are not news";

    SavedData outside = onDisk();
    outside.items.append(makeItem(u"Dehors"_s, sansCategorie));
    saveFromOutside(outside);
    const QList<BackupLog> history{{QUuid::createUuid(), newYear2025, u"/x.fivabackup"_s, 7}};
    writeBytes(historyFile(), json::encode(history).value());
    EXPECT_TRUE(store->reloadIfChanged());
    EXPECT_EQ(reloads, 1);
    EXPECT_EQ(store->items().size(), 2);
    EXPECT_EQ(store->backupHistory(), history);
    EXPECT_FALSE(store->reloadIfChanged());

    // A history entry added now keeps the one written outside.
    printedBy([&] { store->addBackupLog(dataFile()); });
    auto decoded = json::decodeBackupHistory(readBytes(historyFile()));
    ASSERT_TRUE(decoded.ok());
    EXPECT_EQ(decoded.value().size(), 2);
}

TEST_F(StoreFollowsItsFiles, OneWriterAtATimeAndReplacedFilesKeepLinksAndPermissions)
{
    const QString lockFile = path(u"Fiva.lock"_s);
    {
        DataLock first(lockFile);
        ASSERT_TRUE(first.isHeld()) << first.error().toStdString();
        DataLock second(lockFile, std::chrono::milliseconds(0));
        EXPECT_FALSE(second.isHeld());
        EXPECT_TRUE(second.error().startsWith(lockFile + u": "_s));
    }
    EXPECT_TRUE(DataLock(lockFile, std::chrono::milliseconds(0)).isHeld()) << "released with its holder";
    EXPECT_FALSE(DataLock(path(u"missing/Fiva.lock"_s)).isHeld());

    // Writes go through a new file renamed over the target: a new inode, the old one's mode, a
    // link left a link, nothing left beside it.
    const QString real = path(u"files/real.json"_s);
    const QString link = path(u"link.json"_s);
    writeBytes(real, "old");
    ::chmod(QFile::encodeName(real).constData(), 0640);
    ASSERT_TRUE(QFile::link(real, link));
    const fileio::FileStamp before = fileio::stampOf(real);
    ASSERT_FALSE(fileio::writeWholeFile(link, "new content").has_value());
    EXPECT_NE(fileio::stampOf(real).inode, before.inode);
    EXPECT_EQ(readBytes(real), QByteArray("new content"));
    EXPECT_TRUE(QFileInfo(link).isSymLink());
    struct stat info
    {
    };
    ASSERT_EQ(::stat(QFile::encodeName(real).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640u);
    EXPECT_EQ(QDir(path(u"files"_s)).entryList(QDir::Files | QDir::Hidden), QStringList{u"real.json"_s});
}

TEST_F(StoreFollowsItsFiles, RecoveryOffersTheNewestAutomaticBackupThatDecodes)
{
    const auto backup = [&](double unixSeconds, const QByteArray &bytes) {
        writeBytes(autoBackups() + u"/"_s + LinkStore::autoBackupFileName(Timestamp::fromUnix(unixSeconds)),
                   bytes);
    };
    const auto document = [](int records, Timestamp date) {
        QList<LinkItem> items;
        for (int i = 0; i < records; ++i)
            items << makeItem(u"R%1"_s.arg(i), sansCategorie);
        return json::encode(SavedData{items, {sansCategorie}, date}).value();
    };
    struct Case
    {
        const char *name;
        std::vector<std::pair<double, QByteArray>> backups;
        std::optional<qsizetype> records; // of the one offered
    };
    const Timestamp older = Timestamp::fromUnix(1.7e9), newer = Timestamp::fromUnix(1.8e9);
    const Case cases[] = {
        {"none", {}, std::nullopt},
        {"newest wins", {{1.7e9, document(2, older)}, {1.8e9, document(5, newer)}}, 5},
        {"a torn newest is skipped", {{1.7e9, document(2, older)}, {1.8e9, "{\"items\":[{"}}, 2},
        {"nothing decodes", {{1.8e9, "garbage"}}, std::nullopt},
    };
    for (const Case &c : cases) {
        QDir(autoBackups()).removeRecursively();
        for (const auto &[seconds, bytes] : c.backups)
            backup(seconds, bytes);
        writeBytes(dataFile(), "{ not json");
        auto store = start();
        EXPECT_TRUE(store->setAsideDataFile().startsWith(dataFile() + u".unreadable-"_s)) << c.name;
        const auto offered = store->newestReadableAutoBackup();
        ASSERT_EQ(offered.has_value(), c.records.has_value()) << c.name;
        if (!offered)
            continue;
        EXPECT_EQ(offered->records, *c.records) << c.name;
        EXPECT_EQ(offered->date, *c.records == 5 ? newer : older) << c.name;
        EXPECT_TRUE(printedBy([&] { EXPECT_TRUE(store->recoverFromAutoBackup(offered->path)); }).isEmpty());
        EXPECT_EQ(store->items().size(), *c.records) << c.name;
        EXPECT_EQ(onDisk().items, store->items()) << c.name;
        EXPECT_TRUE(store->setAsideDataFile().isEmpty());
    }
    const QString failed =
        printedBy([&] { EXPECT_FALSE(start()->recoverFromAutoBackup(path(u"absent"_s))); });
    EXPECT_TRUE(failed.startsWith(u"❌ Erreur récupération : Le fichier « "_s + path(u"absent"_s) +
                                  u" » n'existe pas."_s))
        << failed.toStdString();
}

// The import's plan runs under the lock on what is on disk then: a link another process saved
// after the store was opened counts as already there, and everything lands in one save.
TEST_F(StoreFollowsItsFiles, ImportJudgesWhatIsOnDiskAndAddsEverythingInOneSave)
{
    const LinkItem mine = makeItem(u"Mine"_s, sansCategorie);
    const LinkItem outside = makeItem(u"Dehors"_s, u"Travail"_s);
    struct Case
    {
        const char *name;
        QStringList importTitles; // each a record "https://example.org/<title>" in category "Zèbre"
        QStringList newCategories;
        QSet<QString> titles;   // afterwards, on disk and in memory
        const char *categories; // afterwards, joined by "|"
        bool writes;
    };
    const Case cases[] = {
        {"outside link skipped, new one added",
         {u"Dehors"_s, u"Neuf"_s},
         {u"Zèbre"_s},
         {u"Mine"_s, u"Dehors"_s, u"Neuf"_s},
         "Sans catégorie|Travail|Zèbre",
         true},
        {"categories merged and sorted",
         {u"Neuf"_s},
         {u"Zèbre"_s, u"Alpha / Bêta"_s, u"Alpha"_s, u"Travail"_s},
         {u"Mine"_s, u"Dehors"_s, u"Neuf"_s},
         "Alpha|Alpha / Bêta|Sans catégorie|Travail|Zèbre",
         true},
        {"nothing new writes nothing",
         {u"Mine"_s, u"Dehors"_s},
         {},
         {u"Mine"_s, u"Dehors"_s},
         "Sans catégorie|Travail",
         false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        auto store = startWith({mine}, {sansCategorie});
        saveFromOutside(SavedData{{mine, outside}, {sansCategorie, u"Travail"_s}, std::nullopt});
        const QByteArray before = readBytes(dataFile());
        int plans = 0;
        const auto imported = store->importRecords([&](const QList<LinkItem> &items, const QStringList &) {
            ++plans;
            LinkStore::ImportBatch batch;
            for (const QString &title : c.importTitles) {
                const LinkItem item = makeItem(title, u"Zèbre"_s);
                if (std::none_of(items.cbegin(), items.cend(),
                                 [&](const LinkItem &i) { return i.path == item.path; }))
                    batch.records << item;
            }
            if (!batch.records.isEmpty())
                batch.newCategories = c.newCategories;
            return batch;
        });
        EXPECT_EQ(plans, 1);
        EXPECT_EQ(imported.has_value(), c.writes);
        EXPECT_EQ(titles(store->items()), c.titles);
        EXPECT_EQ(store->categories().join(u'|'), QString::fromUtf8(c.categories));
        if (c.writes) {
            EXPECT_EQ(onDisk(), (SavedData{store->items(), store->categories(), std::nullopt}));
        } else {
            EXPECT_EQ(readBytes(dataFile()), before);
        }
    }
}

} // namespace
