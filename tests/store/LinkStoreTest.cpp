#include "store/StoredNotes.h"
#include "store/Trimming.h"

#include <QLocale>
#include <QMetaProperty>
#include <QSignalSpy>
#include <QTimer>

#include <functional>

#include "StoreTestSupport.h"

namespace fiva::test {
namespace {

const QString sansCategorie = QStringLiteral("Sans catégorie");

TEST_F(StoreTest, FirstStartWithoutDataFileKeepsInitialValuesAndWritesNothing)
{
    auto store = start();
    EXPECT_EQ(m_startOutput, QStringLiteral("⚠️ Données absentes : ") + dataFile() +
                                 QStringLiteral(": No such file or directory\n"));
    EXPECT_TRUE(store->autoBackupEnabled());
    EXPECT_EQ(store->autoBackupIntervalOption(), AutoBackupInterval::fifteenMinutes);
    EXPECT_TRUE(store->items().isEmpty());
    EXPECT_EQ(store->categories(), QStringList{sansCategorie});
    EXPECT_TRUE(store->backupHistory().isEmpty());
    EXPECT_FALSE(store->lastBackupDate().has_value());
    EXPECT_FALSE(QFile::exists(dataFile()));
    ASSERT_NE(store->autoBackupTimer(), nullptr);
    EXPECT_TRUE(store->autoBackupTimer()->isActive());
    EXPECT_EQ(store->autoBackupTimer()->interval(), 900 * 1000);
}

TEST_F(StoreTest, PublishedPropertiesComeInOrderEachWithItsSignal)
{
    auto store = start();
    const QMetaObject *meta = store->metaObject();
    const std::vector<std::pair<const char *, const char *>> expected = {
        {"autoBackupEnabled", "autoBackupEnabledChanged"},
        {"autoBackupIntervalOption", "autoBackupIntervalOptionChanged"},
        {"items", "itemsChanged"},
        {"categories", "categoriesChanged"},
        {"backupHistory", "backupHistoryChanged"},
        {"lastBackupDate", "lastBackupDateChanged"},
    };
    ASSERT_EQ(meta->propertyCount() - meta->propertyOffset(), static_cast<int>(expected.size()));
    for (size_t i = 0; i < expected.size(); ++i) {
        const QMetaProperty p = meta->property(meta->propertyOffset() + static_cast<int>(i));
        EXPECT_STREQ(p.name(), expected[i].first);
        EXPECT_EQ(p.notifySignal().name(), QByteArray(expected[i].second));
    }
}

TEST_F(StoreTest, SuccessfulStartRewritesTheFileOnceInFileOrderThenSortsInMemory)
{
    QLocale::setDefault(QLocale(QLocale::French, QLocale::France));
    // No id and no createdAt: both are made at reading and must reach the disk.
    writeBytes(dataFile(),
               QByteArrayLiteral(R"({"items":[{"title":"T","path":"/nowhere","category":"Zèbre"}],)"
                                 R"("categories":["Zèbre","école","Etude","abc"]})"));
    auto store = start();
    QLocale::setDefault(QLocale::c());

    EXPECT_EQ(m_startOutput, QString());
    ASSERT_EQ(store->items().size(), 1);
    const LinkItem &item = store->items().first();
    EXPECT_FALSE(item.id.isNull());
    EXPECT_EQ(item.createdAt, newYear2025);
    EXPECT_EQ(item.kind, LinkKind::file);
    EXPECT_EQ(store->categories(), (QStringList{QStringLiteral("abc"), QStringLiteral("école"),
                                                QStringLiteral("Etude"), QStringLiteral("Zèbre")}));
    const QByteArray onDisk = readBytes(dataFile());
    const auto expected = json::encode(SavedData{
        store->items(),
        {QStringLiteral("Zèbre"), QStringLiteral("école"), QStringLiteral("Etude"), QStringLiteral("abc")},
        std::nullopt});
    EXPECT_EQ(onDisk, expected.value());
}

struct UnreadableCase
{
    const char *name;
    QByteArray content;
    const char *errorPart; // what the printed error must mention
};

class UnreadableDataFile : public StoreTest, public ::testing::WithParamInterface<UnreadableCase>
{
};

TEST_P(UnreadableDataFile, IsMovedAsideBeforeAnySaveAndTheStoreStartsEmpty)
{
    const UnreadableCase &c = GetParam();
    writeBytes(dataFile(), c.content);
    auto store = start();

    const QStringList lines = m_startOutput.split(u'\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 2) << m_startOutput.toStdString();
    EXPECT_TRUE(lines[0].startsWith(QStringLiteral("⚠️ Données absentes : ") + dataFile()));
    EXPECT_TRUE(lines[0].contains(QLatin1String(c.errorPart))) << lines[0].toStdString();
    const QString setAside = dataFile() + QStringLiteral(".unreadable-20250101T000000Z");
    EXPECT_EQ(lines[1], QStringLiteral("⚠️ Fichier de données illisible mis de côté : ") + setAside);
    EXPECT_EQ(store->categories(), QStringList{sansCategorie});
    EXPECT_TRUE(store->items().isEmpty());
    EXPECT_FALSE(QFile::exists(dataFile()));

    store->addCategory(QStringLiteral("Nouvelle"));
    EXPECT_TRUE(QFile::exists(dataFile()));
    EXPECT_EQ(readBytes(setAside), c.content);
}

INSTANTIATE_TEST_SUITE_P(
    Store, UnreadableDataFile,
    ::testing::Values(UnreadableCase{"NotJson", QByteArrayLiteral("{\"items\": [tronqué"), ""},
                      UnreadableCase{"WrongTypeDeepInside",
                                     QByteArrayLiteral(R"({"items":[{"title":"a","path":"b","category":"c",)"
                                                       R"("isFavorite":"oui"}],"categories":[]})"),
                                     "isFavorite"},
                      UnreadableCase{"MissingCategories", QByteArrayLiteral(R"({"items":[]})"), "categories"},
                      UnreadableCase{"Empty", QByteArray(), ""}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(StoreTest, SecondUnreadableFileInTheSameSecondGetsItsOwnName)
{
    const QString first = dataFile() + QStringLiteral(".unreadable-20250101T000000Z");
    writeBytes(first, "older");
    writeBytes(dataFile(), "newer");
    auto store = start();
    EXPECT_EQ(readBytes(first), QByteArray("older"));
    EXPECT_EQ(readBytes(first + QStringLiteral("-2")), QByteArray("newer"));
}

TEST_F(StoreTest, FailedSaveIsPrintedAndKeepsMemoryForTheNextTry)
{
    auto store = startWith({makeItem(QStringLiteral("a"), sansCategorie)}, {sansCategorie});
    const QByteArray before = readBytes(dataFile());
    // A folder where the file should be: root cannot write through that either.
    QFile::remove(dataFile());
    QDir().mkpath(dataFile());
    QSignalSpy failed(store.get(), &LinkStore::saveFailed);

    StdoutCapture capture;
    store->toggleFavorite(store->items().first().id);
    const QString out = capture.finish();

    EXPECT_TRUE(out.startsWith(QStringLiteral("❌ Erreur save: ") + dataFile() + QStringLiteral(": ")))
        << out.toStdString();
    EXPECT_TRUE(out.endsWith(u'\n'));
    EXPECT_EQ(out.count(u'\n'), 1);
    EXPECT_EQ(failed.count(), 1);
    EXPECT_TRUE(store->items().first().isFavorite);

    QDir(dataFile()).removeRecursively();
    EXPECT_TRUE(store->save());
    const SavedData reread = json::decodeSavedData(readBytes(dataFile())).value();
    EXPECT_TRUE(reread.items.first().isFavorite);
    EXPECT_NE(readBytes(dataFile()), before);
}

TEST_F(StoreTest, WithoutApplicationSupportFolderNothingIsWrittenAnywhere)
{
    FixedPaths nowhere{QString(), QString()};
    StdoutCapture capture;
    LinkStore store(nowhere, m_workspace, m_clock);
    store.addCategory(QStringLiteral("x"));
    store.performAutoBackup();
    store.openAutoBackupsFolder();
    const QStringList lines = capture.finish().split(u'\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 4);
    EXPECT_TRUE(lines[0].startsWith(QStringLiteral("⚠️ Données absentes : ")));
    EXPECT_TRUE(lines[1].startsWith(QStringLiteral("❌ Erreur save: ")));
    EXPECT_TRUE(lines[2].startsWith(QStringLiteral("❌ Auto-backup error: ")));
    EXPECT_EQ(lines[3], QStringLiteral("⚠️ Impossible de trouver Application Support"));
    EXPECT_TRUE(m_workspace.calls.empty());
}

// Category operations, each from the same starting point. `saves` tells whether the data file
// must be written again.
struct CategoryCase
{
    const char *name;
    std::function<void(LinkStore &)> operation;
    QStringList categories;     // afterwards, in memory
    QStringList itemCategories; // of the records "a", "b", "c", in order
    bool saves;
};

class CategoryOperation : public StoreTest, public ::testing::WithParamInterface<CategoryCase>
{
};

TEST_P(CategoryOperation, ChangesListRecordsAndFileAsExpected)
{
    const CategoryCase &c = GetParam();
    auto store = startWith({makeItem(QStringLiteral("a"), QStringLiteral("Travail")),
                            makeItem(QStringLiteral("b"), QStringLiteral("Travail / Projets")),
                            makeItem(QStringLiteral("c"), QStringLiteral("Perso"))},
                           {sansCategorie, QStringLiteral("Perso"), QStringLiteral("Travail"),
                            QStringLiteral("Travail / Projets")});
    QFile::remove(dataFile());

    StdoutCapture capture;
    c.operation(*store);
    EXPECT_EQ(capture.finish(), QString());

    EXPECT_EQ(store->categories(), c.categories);
    QStringList itemCategories;
    for (const LinkItem &item : store->items())
        itemCategories << item.category;
    EXPECT_EQ(itemCategories, c.itemCategories);
    EXPECT_EQ(QFile::exists(dataFile()), c.saves);
    if (c.saves) {
        const SavedData onDisk = json::decodeSavedData(readBytes(dataFile())).value();
        EXPECT_EQ(onDisk.categories, store->categories());
        EXPECT_EQ(onDisk.items, store->items());
    }
}

const QString perso = QStringLiteral("Perso");
const QString travail = QStringLiteral("Travail");
const QString projets = QStringLiteral("Travail / Projets");
const QStringList initialList{perso, sansCategorie, travail, projets};
const QStringList initialItems{travail, projets, perso};

INSTANTIATE_TEST_SUITE_P(
    Store, CategoryOperation,
    ::testing::Values(
        CategoryCase{"AddTrimsSpacesAndTabs",
                     [](LinkStore &s) { s.addCategory(QStringLiteral(" \tLoisirs  ")); },
                     {QStringLiteral("Loisirs"), perso, sansCategorie, travail, projets},
                     initialItems,
                     true},
        CategoryCase{"AddTrimsOtherHorizontalSpace",
                     [](LinkStore &s) { s.addCategory(QStringLiteral("\u00A0Loisirs\u3000")); },
                     {QStringLiteral("Loisirs"), perso, sansCategorie, travail, projets},
                     initialItems,
                     true},
        CategoryCase{"AddKeepsLineBreaks",
                     [](LinkStore &s) { s.addCategory(QStringLiteral("Zut\n")); },
                     {perso, sansCategorie, travail, projets, QStringLiteral("Zut\n")},
                     initialItems,
                     true},
        CategoryCase{"AddExistingDoesNotSave", [](LinkStore &s) { s.addCategory(QStringLiteral(" Perso ")); },
                     initialList, initialItems, false},
        CategoryCase{"AddBlankDoesNotSave", [](LinkStore &s) { s.addCategory(QStringLiteral(" \t ")); },
                     initialList, initialItems, false},
        CategoryCase{
            "AddSubTrimsChildOnly",
            [](LinkStore &s) { s.addSubCategory(QStringLiteral("Perso "), QStringLiteral(" Sport")); },
            {perso, QStringLiteral("Perso  / Sport"), sansCategorie, travail, projets},
            initialItems,
            true},
        CategoryCase{"AddSubExistingDoesNotSave",
                     [](LinkStore &s) { s.addSubCategory(travail, QStringLiteral("Projets\t")); },
                     initialList, initialItems, false},
        CategoryCase{"AddSubBlankDoesNotSave",
                     [](LinkStore &s) { s.addSubCategory(travail, QStringLiteral(" ")); }, initialList,
                     initialItems, false},
        CategoryCase{"RenameParentLeavesSubCategories",
                     [](LinkStore &s) { s.renameCategory(travail, QStringLiteral(" Boulot ")); },
                     {QStringLiteral("Boulot"), perso, sansCategorie, projets},
                     {QStringLiteral("Boulot"), projets, perso},
                     true},
        CategoryCase{"RenameToBlankChangesNothing",
                     [](LinkStore &s) { s.renameCategory(travail, QStringLiteral("  ")); }, initialList,
                     initialItems, false},
        CategoryCase{"RenameToExistingNameMakesDuplicates",
                     [](LinkStore &s) { s.renameCategory(travail, perso); },
                     {perso, perso, sansCategorie, projets},
                     {perso, projets, perso},
                     true},
        CategoryCase{"RenameUnlistedNameStillRelabelsAndSaves",
                     [](LinkStore &s) {
                         s.deleteCategory(perso);
                         s.deleteCategory(sansCategorie);
                         s.renameCategory(sansCategorie, QStringLiteral("Divers"));
                     },
                     {travail, projets},
                     {travail, projets, QStringLiteral("Divers")},
                     true},
        CategoryCase{"DeleteKeepsSubCategoriesAndFallsBack",
                     [](LinkStore &s) { s.deleteCategory(travail); },
                     {perso, sansCategorie, projets},
                     {sansCategorie, projets, perso},
                     true},
        CategoryCase{"DeleteFallsBackEvenWhenFallbackIsGone",
                     [](LinkStore &s) {
                         s.deleteCategory(sansCategorie);
                         s.deleteCategory(perso);
                     },
                     {travail, projets},
                     {travail, projets, sansCategorie},
                     true}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(StoreTest, SortingIsStableAndFollowsTheUsersLocale)
{
    QLocale::setDefault(QLocale(QLocale::French, QLocale::France));
    auto store = start();
    store->setCategories({QStringLiteral("Zèbre"), QStringLiteral("Élan"), QStringLiteral("eau")});
    store->addCategory(QStringLiteral("école"));
    QLocale::setDefault(QLocale::c());
    EXPECT_EQ(store->categories(), (QStringList{QStringLiteral("eau"), QStringLiteral("école"),
                                                QStringLiteral("Élan"), QStringLiteral("Zèbre")}));
}

struct RecordCase
{
    const char *name;
    bool toggle;  // toggleFavorite, else deleteItem
    bool knownId; // the id of record "b", else one that nobody has
    bool saves;
};

class RecordOperation : public StoreTest, public ::testing::WithParamInterface<RecordCase>
{
};

TEST_P(RecordOperation, WritesOnlyWhenItShould)
{
    const RecordCase &c = GetParam();
    QDir().mkpath(as(QStringLiteral("Fiva_Attachments/folder")));
    writeBytes(as(QStringLiteral("Fiva_Attachments/present.pdf")), "pdf");
    const QList<Attachment> attachments{
        {QUuid::createUuid(), QStringLiteral("gone.txt"), as(QStringLiteral("Fiva_Attachments/gone.txt"))},
        {QUuid::createUuid(), QStringLiteral("present.pdf"),
         as(QStringLiteral("Fiva_Attachments/present.pdf"))},
        {QUuid::createUuid(), QStringLiteral("folder"), as(QStringLiteral("Fiva_Attachments/folder"))}};
    const LinkItem a = makeItem(QStringLiteral("a"), sansCategorie);
    const LinkItem b = makeItem(QStringLiteral("b"), sansCategorie, attachments);
    auto store = startWith({a, b, a}, {sansCategorie});
    QFile::remove(dataFile());
    const QUuid id = c.knownId ? b.id : QUuid::createUuid();

    StdoutCapture capture;
    if (c.toggle)
        store->toggleFavorite(id);
    else
        store->deleteItem(id);
    EXPECT_EQ(capture.finish(), QString());

    EXPECT_EQ(QFile::exists(dataFile()), c.saves);
    QList<LinkItem> expected{a, b, a};
    if (c.knownId && c.toggle)
        expected[1].isFavorite = true;
    if (c.knownId && !c.toggle)
        expected.removeAt(1);
    EXPECT_EQ(store->items(), expected);
    const bool attachmentsDeleted = c.knownId && !c.toggle;
    EXPECT_EQ(QFile::exists(attachments[1].filePath), !attachmentsDeleted);
    EXPECT_TRUE(QFileInfo(attachments[2].filePath).isDir()) << "a folder is never deleted as an attachment";
}

INSTANTIATE_TEST_SUITE_P(Store, RecordOperation,
                         ::testing::Values(RecordCase{"ToggleKnown", true, true, true},
                                           RecordCase{"ToggleUnknownDoesNotWrite", true, false, false},
                                           RecordCase{"DeleteKnownRemovesAttachments", false, true, true},
                                           RecordCase{"DeleteUnknownStillWrites", false, false, true}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST_F(StoreTest, DeleteRemovesEveryRecordWithTheIdButOnlyTheFirstOnesAttachments)
{
    writeBytes(as(QStringLiteral("one")), "1");
    writeBytes(as(QStringLiteral("two")), "2");
    LinkItem first = makeItem(QStringLiteral("a"), sansCategorie,
                              {{QUuid::createUuid(), QStringLiteral("one"), as(QStringLiteral("one"))}});
    LinkItem twin = first;
    twin.attachments = {{QUuid::createUuid(), QStringLiteral("two"), as(QStringLiteral("two"))}};
    auto store = startWith({first, makeItem(QStringLiteral("b"), sansCategorie), twin}, {sansCategorie});
    store->deleteItem(first.id);
    ASSERT_EQ(store->items().size(), 1);
    EXPECT_EQ(store->items().first().title, QStringLiteral("b"));
    EXPECT_FALSE(QFile::exists(as(QStringLiteral("one"))));
    EXPECT_TRUE(QFile::exists(as(QStringLiteral("two"))));
}

struct AgeCase
{
    const char *name;
    std::optional<double> secondsAgo;
    bool old;
};

class BackupAge : public StoreTest, public ::testing::WithParamInterface<AgeCase>
{
};

TEST_P(BackupAge, IsOldOnlyBeyondThreeDays)
{
    auto store = start();
    const AgeCase &c = GetParam();
    store->setLastBackupDate(c.secondsAgo ? std::optional(Timestamp{newYear2025.seconds - *c.secondsAgo})
                                          : std::nullopt);
    EXPECT_EQ(store->isBackupOld(), c.old);
}

INSTANTIATE_TEST_SUITE_P(
    Store, BackupAge,
    ::testing::Values(AgeCase{"None", std::nullopt, true}, AgeCase{"JustNow", 0.0, false},
                      AgeCase{"ExactlyThreeDays", 259200.0, false}, AgeCase{"OneSecondMore", 259201.0, true},
                      AgeCase{"AFractionMore", 259200.001, true}, AgeCase{"InTheFuture", -3600.0, false}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(StoreTest, ItemMutatorsSignalButLeaveSavingToTheCaller)
{
    auto store = start();
    QSignalSpy changed(store.get(), &LinkStore::itemsChanged);
    const LinkItem a = makeItem(QStringLiteral("a"), sansCategorie);
    store->appendItem(a);
    EXPECT_TRUE(store->updateItem(a.id, [](LinkItem &i) { i.title = QStringLiteral("A"); }));
    EXPECT_FALSE(store->updateItem(QUuid::createUuid(), [](LinkItem &i) { i.title = QStringLiteral("X"); }));
    EXPECT_EQ(changed.count(), 2);
    EXPECT_EQ(store->items().first().title, QStringLiteral("A"));
    EXPECT_FALSE(QFile::exists(dataFile()));
}

TEST(Trimming, RemovesHorizontalSpaceOnly)
{
    const std::vector<std::pair<QString, QString>> cases = {
        {QStringLiteral("  a b  "), QStringLiteral("a b")},
        {QStringLiteral("\ta\t"), QStringLiteral("a")},
        {QStringLiteral("\u00A0\u2003a\u202F"), QStringLiteral("a")},
        {QStringLiteral("\na\n"), QStringLiteral("\na\n")},
        {QStringLiteral(" \r\n "), QStringLiteral("\r\n")},
        {QStringLiteral(" \t "), QString()},
        {QString(), QString()},
    };
    for (const auto &[in, out] : cases)
        EXPECT_EQ(trimHorizontalWhitespace(in), out) << in.toStdString();
}

TEST(StoredNotes, WrapsTextAndReadsItBack)
{
    const QString empty = notesHTML(QString());
    EXPECT_EQ(empty.size(), 83 + 24);
    EXPECT_TRUE(empty.startsWith(QStringLiteral("<html>\n    <head>\n        <meta charset=\"UTF-8\">")));
    EXPECT_TRUE(empty.endsWith(QStringLiteral("<p></p>\n    </body>\n</html>")));
    const std::vector<std::pair<QString, QString>> roundTrips = {
        {QStringLiteral("un\ndeux"), QStringLiteral("un\ndeux")},
        {QStringLiteral("a & <b>gras</b>"), QStringLiteral("a & <b>gras</b>")},
        {QStringLiteral("  bords \n"), QStringLiteral("bords")},
        {QString(), QString()},
    };
    for (const auto &[typed, shown] : roundTrips)
        EXPECT_EQ(notesPlainText(notesHTML(typed)), shown) << typed.toStdString();
    EXPECT_EQ(notesHTML(QStringLiteral("un\ndeux")),
              empty.left(83) + QStringLiteral("un<br>deux") + empty.mid(83));
    EXPECT_EQ(notesPlainText(QStringLiteral(" plain<br>text ")), QStringLiteral("plain\ntext"));
    EXPECT_EQ(notesPlainText(QStringLiteral("</p>x<p>")), QStringLiteral("</p>x<p>"));
}

} // namespace
} // namespace fiva::test

namespace fiva::test {
namespace {

TEST_F(StoreTest, UnreadableFileThatCannotBeMovedAsideIsNeverOverwritten)
{
    // A folder so deep that the data file's path still fits the system's limit but the set-aside
    // name does not: the move fails even for root.
    QString deep = as();
    const qsizetype depth = 4095 - qsizetype(sizeof "/Fiva/FivaData.json") - 8;
    while (deep.size() < depth)
        deep += QLatin1Char('/') + QString(qMin<qsizetype>(200, depth - deep.size()), u'd');
    const FixedPaths deepPaths{deep, deep};
    const QString data = deep + QStringLiteral("/Fiva/FivaData.json");
    ASSERT_LT(data.size(), 4096);
    writeBytes(data, "corrompu");

    StdoutCapture capture;
    LinkStore store(deepPaths, m_workspace, m_clock);
    store.addCategory(QStringLiteral("Nouvelle"));
    const QStringList lines = capture.finish().split(u'\n', Qt::SkipEmptyParts);

    ASSERT_EQ(lines.size(), 3) << lines.join(u'\n').toStdString();
    EXPECT_TRUE(lines[0].startsWith(QStringLiteral("⚠️ Données absentes : ")));
    EXPECT_TRUE(lines[1].startsWith(QStringLiteral("⚠️ ")));
    EXPECT_TRUE(lines[1].endsWith(data));
    EXPECT_TRUE(lines[2].startsWith(QStringLiteral("❌ Erreur save: ") + data));
    EXPECT_EQ(readBytes(data), QByteArray("corrompu"));
    EXPECT_TRUE(store.categories().contains(QStringLiteral("Nouvelle")));
}

} // namespace
} // namespace fiva::test
