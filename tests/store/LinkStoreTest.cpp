#include "store/FileIO.h"
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

const QString perso = QStringLiteral("Perso");
const QString travail = QStringLiteral("Travail");
const QString projets = QStringLiteral("Travail / Projets");
const QString absent = QStringLiteral("⚠️ Données absentes : ");

TEST_F(StoreTest, FirstStartWithoutDataFileKeepsInitialValuesAndWritesNothing)
{
    auto store = start();
    EXPECT_EQ(m_startOutput, absent + dataFile() + QStringLiteral(": No such file or directory\n"));
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

    // The published properties, in order, each with its change signal.
    const QMetaObject *meta = store->metaObject();
    QStringList properties;
    for (int i = meta->propertyOffset(); i < meta->propertyCount(); ++i)
        properties << QString::fromLatin1(meta->property(i).name()) + u' ' +
                          QString::fromLatin1(meta->property(i).notifySignal().name());
    EXPECT_EQ(
        properties.join(u','),
        QStringLiteral("autoBackupEnabled autoBackupEnabledChanged,autoBackupIntervalOption "
                       "autoBackupIntervalOptionChanged,items itemsChanged,categories categoriesChanged,"
                       "backupHistory backupHistoryChanged,lastBackupDate lastBackupDateChanged"));
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
    EXPECT_FALSE(store->items().first().id.isNull());
    EXPECT_EQ(store->items().first().createdAt, newYear2025);
    EXPECT_EQ(store->items().first().kind, LinkKind::file);
    const QStringList fileOrder{QStringLiteral("Zèbre"), QStringLiteral("école"), QStringLiteral("Etude"),
                                QStringLiteral("abc")};
    EXPECT_EQ(store->categories(), (QStringList{fileOrder[3], fileOrder[1], fileOrder[2], fileOrder[0]}));
    EXPECT_EQ(readBytes(dataFile()),
              json::encode(SavedData{store->items(), fileOrder, std::nullopt}).value());
}

TEST_F(StoreTest, UnreadableDataFileIsMovedAsideBeforeAnySaveAndTheStoreStartsEmpty)
{
    const std::pair<QByteArray, const char *> cases[] = {
        {QByteArrayLiteral("{\"items\": [tronqué"), ""},
        {R"({"items":[{"title":"a","path":"b","category":"c","isFavorite":"oui"}],"categories":[]})",
         "isFavorite"},
        {R"({"items":[]})", "categories"},
        {QByteArray(), ""},
    };
    const QString setAside = dataFile() + QStringLiteral(".unreadable-20250101T000000Z");
    for (const auto &[content, errorPart] : cases) {
        SCOPED_TRACE(content.toStdString());
        QDir(as(QStringLiteral("Fiva"))).removeRecursively();
        writeBytes(dataFile(), content);
        auto store = start();

        const QStringList lines = m_startOutput.split(u'\n', Qt::SkipEmptyParts);
        ASSERT_EQ(lines.size(), 2) << m_startOutput.toStdString();
        EXPECT_TRUE(lines[0].startsWith(absent + dataFile()));
        EXPECT_TRUE(lines[0].contains(QLatin1String(errorPart))) << lines[0].toStdString();
        EXPECT_EQ(lines[1],
                  QStringLiteral("⚠️ Fichier de données illisible mis de côté : ") + setAside);
        EXPECT_EQ(store->categories(), QStringList{sansCategorie});
        EXPECT_TRUE(store->items().isEmpty());
        EXPECT_FALSE(QFile::exists(dataFile()));
        store->addCategory(QStringLiteral("Nouvelle"));
        EXPECT_TRUE(QFile::exists(dataFile()));
        EXPECT_EQ(readBytes(setAside), content);
    }

    // A second unreadable file in the same second gets its own name.
    writeBytes(setAside, "older");
    writeBytes(dataFile(), "newer");
    start();
    EXPECT_EQ(readBytes(setAside), QByteArray("older"));
    EXPECT_EQ(readBytes(setAside + QStringLiteral("-2")), QByteArray("newer"));
}

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
    EXPECT_TRUE(lines[0].startsWith(absent));
    EXPECT_TRUE(lines[1].startsWith(QStringLiteral("⚠️ ")) && lines[1].endsWith(data))
        << lines[1].toStdString();
    EXPECT_TRUE(lines[2].startsWith(QStringLiteral("❌ Erreur save: ") + data));
    EXPECT_EQ(readBytes(data), QByteArray("corrompu"));
    EXPECT_TRUE(store.categories().contains(QStringLiteral("Nouvelle")));
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
    EXPECT_TRUE(out.endsWith(u'\n') && out.count(u'\n') == 1) << out.toStdString();
    EXPECT_EQ(failed.count(), 1);
    EXPECT_TRUE(store->items().first().isFavorite);

    QDir(dataFile()).removeRecursively();
    EXPECT_TRUE(store->save());
    EXPECT_TRUE(json::decodeSavedData(readBytes(dataFile())).value().items.first().isFavorite);
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
    EXPECT_TRUE(lines[0].startsWith(absent));
    EXPECT_TRUE(lines[1].startsWith(QStringLiteral("❌ Erreur save: ")));
    EXPECT_TRUE(lines[2].startsWith(QStringLiteral("❌ Auto-backup error: ")));
    EXPECT_EQ(lines[3], QStringLiteral("⚠️ Impossible de trouver Application Support"));
    EXPECT_TRUE(m_workspace.calls.empty());
}

TEST_F(StoreTest, CategoryOperationsChangeListRecordsAndFileAsExpected)
{
    const QStringList initialList{perso, sansCategorie, travail, projets};
    const QStringList initialItems{travail, projets, perso};
    const QString loisirs = QStringLiteral("Loisirs");
    struct Case
    {
        std::function<void(LinkStore &)> operation;
        QStringList categories;     // afterwards, in memory
        QStringList itemCategories; // of the records "a", "b", "c", in order
        bool saves;                 // whether the data file is written again
    };
    const std::vector<Case> cases = {
        {[](LinkStore &s) { s.addCategory(QStringLiteral(" \tLoisirs  ")); },
         {loisirs, perso, sansCategorie, travail, projets},
         initialItems,
         true},
        {[](LinkStore &s) { s.addCategory(QStringLiteral("\u00A0Loisirs\u3000")); },
         {loisirs, perso, sansCategorie, travail, projets},
         initialItems,
         true},
        {[](LinkStore &s) { s.addCategory(QStringLiteral("Zut\n")); },
         {perso, sansCategorie, travail, projets, QStringLiteral("Zut\n")},
         initialItems,
         true},
        {[](LinkStore &s) { s.addCategory(QStringLiteral(" Perso ")); }, initialList, initialItems, false},
        {[](LinkStore &s) { s.addCategory(QStringLiteral(" \t ")); }, initialList, initialItems, false},
        {[](LinkStore &s) { s.addSubCategory(QStringLiteral("Perso "), QStringLiteral(" Sport")); },
         {perso, QStringLiteral("Perso  / Sport"), sansCategorie, travail, projets},
         initialItems,
         true},
        {[](LinkStore &s) { s.addSubCategory(travail, QStringLiteral("Projets\t")); }, initialList,
         initialItems, false},
        {[](LinkStore &s) { s.addSubCategory(travail, QStringLiteral(" ")); }, initialList, initialItems,
         false},
        // Renaming a parent leaves its sub-categories alone.
        {[](LinkStore &s) { s.renameCategory(travail, QStringLiteral(" Boulot ")); },
         {QStringLiteral("Boulot"), perso, sansCategorie, projets},
         {QStringLiteral("Boulot"), projets, perso},
         true},
        {[](LinkStore &s) { s.renameCategory(travail, QStringLiteral("  ")); }, initialList, initialItems,
         false},
        {[](LinkStore &s) { s.renameCategory(travail, perso); },
         {perso, perso, sansCategorie, projets},
         {perso, projets, perso},
         true},
        // An unlisted name still relabels its records and saves.
        {[](LinkStore &s) {
             s.deleteCategory(perso);
             s.deleteCategory(sansCategorie);
             s.renameCategory(sansCategorie, QStringLiteral("Divers"));
         },
         {travail, projets},
         {travail, projets, QStringLiteral("Divers")},
         true},
        {[](LinkStore &s) { s.deleteCategory(travail); },
         {perso, sansCategorie, projets},
         {sansCategorie, projets, perso},
         true},
        // Records fall back to the default even when it is no longer listed.
        {[](LinkStore &s) {
             s.deleteCategory(sansCategorie);
             s.deleteCategory(perso);
         },
         {travail, projets},
         {travail, projets, sansCategorie},
         true},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(i);
        const Case &c = cases[i];
        auto store = startWith({makeItem(QStringLiteral("a"), travail),
                                makeItem(QStringLiteral("b"), projets), makeItem(QStringLiteral("c"), perso)},
                               {sansCategorie, perso, travail, projets});
        QFile::remove(dataFile());
        StdoutCapture capture;
        c.operation(*store);
        EXPECT_EQ(capture.finish(), QString());

        EXPECT_EQ(store->categories(), c.categories);
        QStringList itemCategories;
        for (const LinkItem &item : store->items())
            itemCategories << item.category;
        EXPECT_EQ(itemCategories, c.itemCategories);
        ASSERT_EQ(QFile::exists(dataFile()), c.saves);
        if (c.saves) {
            EXPECT_EQ(json::decodeSavedData(readBytes(dataFile())).value(),
                      (SavedData{store->items(), store->categories(), std::nullopt}));
        }
    }
}

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

TEST_F(StoreTest, RecordOperationsWriteOnlyWhenTheyShould)
{
    struct Case
    {
        bool toggle;  // toggleFavorite, else deleteItem
        bool knownId; // the id of record "b", else one that nobody has
        bool saves;
    };
    // Toggling an unknown id writes nothing; deleting one still writes.
    for (const Case c : {Case{true, true, true}, Case{true, false, false}, Case{false, true, true},
                         Case{false, false, true}}) {
        SCOPED_TRACE(testing::Message() << "toggle " << c.toggle << ", known " << c.knownId);
        QDir().mkpath(attachmentsFolder() + QStringLiteral("/folder"));
        writeBytes(attachmentsFolder() + QStringLiteral("/present.pdf"), "pdf");
        const QList<Attachment> attachments{attachment(attachmentsFolder() + QStringLiteral("/gone.txt")),
                                            attachment(attachmentsFolder() + QStringLiteral("/present.pdf")),
                                            attachment(attachmentsFolder() + QStringLiteral("/folder"))};
        const LinkItem a = makeItem(QStringLiteral("a"), sansCategorie);
        const LinkItem b = makeItem(QStringLiteral("b"), sansCategorie, attachments);
        auto store = startWith({a, b, a}, {sansCategorie});
        QFile::remove(dataFile());
        const QUuid id = c.knownId ? b.id : QUuid::createUuid();

        StdoutCapture capture;
        c.toggle ? store->toggleFavorite(id) : store->deleteItem(id);
        EXPECT_EQ(capture.finish(), QString());

        EXPECT_EQ(QFile::exists(dataFile()), c.saves);
        QList<LinkItem> expected{a, b, a};
        if (c.knownId && c.toggle)
            expected[1].isFavorite = true;
        if (c.knownId && !c.toggle)
            expected.removeAt(1);
        EXPECT_EQ(store->items(), expected);
        EXPECT_EQ(QFile::exists(attachments[1].filePath), !(c.knownId && !c.toggle));
        EXPECT_TRUE(QFileInfo(attachments[2].filePath).isDir())
            << "a folder is never deleted as an attachment";
    }

    // Delete removes every record with the id, but only the first one's attachments.
    LinkItem first =
        makeItem(QStringLiteral("a"), sansCategorie, {attachment(userFile(QStringLiteral("one"), "1"))});
    LinkItem twin = first;
    twin.attachments = {attachment(userFile(QStringLiteral("two"), "2"))};
    auto store = startWith({first, makeItem(QStringLiteral("b"), sansCategorie), twin}, {sansCategorie});
    store->deleteItem(first.id);
    ASSERT_EQ(store->items().size(), 1);
    EXPECT_EQ(store->items().first().title, QStringLiteral("b"));
    EXPECT_FALSE(QFile::exists(first.attachments[0].filePath));
    EXPECT_TRUE(QFile::exists(twin.attachments[0].filePath));
}

TEST_F(StoreTest, BackupIsOldOnlyBeyondThreeDays)
{
    auto store = start();
    const std::pair<std::optional<double>, bool> cases[] = {{std::nullopt, true}, {0.0, false},
                                                            {259200.0, false},    {259201.0, true},
                                                            {259200.001, true},   {-3600.0, false}};
    for (const auto &[secondsAgo, old] : cases) {
        store->setLastBackupDate(secondsAgo ? std::optional(Timestamp{newYear2025.seconds - *secondsAgo})
                                            : std::nullopt);
        EXPECT_EQ(store->isBackupOld(), old) << secondsAgo.value_or(-1);
    }
}

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
    const std::pair<QString, QString> cases[] = {
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
    const std::pair<QString, QString> roundTrips[] = {
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

TEST_F(StoreTest, FileWritesReplaceInPlaceAndFailuresNameThePath)
{
    using namespace fileio;
    const QString file = path(QStringLiteral("data.json"));
    ASSERT_FALSE(writeWholeFile(file, QByteArray(1000, 'a')).has_value());
    ASSERT_FALSE(writeWholeFile(file, "short").has_value());
    ASSERT_TRUE(readWholeFile(file).ok());
    EXPECT_EQ(readWholeFile(file).value(), QByteArray("short"));
    EXPECT_FALSE(readWholeFile(path(QStringLiteral("absent"))).ok());
    // /dev/full accepts the open and fails the write: the short-write and flush path.
    for (const QString &target : {QStringLiteral("/dev/full"), path(QStringLiteral("files")),
                                  path(QStringLiteral("missing/parent/file.json"))}) {
        const auto error = writeWholeFile(target, QByteArray(256 * 1024, 'x'));
        ASSERT_TRUE(error.has_value()) << target.toStdString();
        EXPECT_TRUE(error->startsWith(target + QStringLiteral(": "))) << error->toStdString();
    }
}

} // namespace
} // namespace fiva::test
