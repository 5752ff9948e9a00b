#include "store/FileIO.h"
#include "store/StoredNotes.h"
#include "store/Trimming.h"

#include <QLocale>
#include <QMetaProperty>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <functional>
#include <limits>

#include "StoreTestSupport.h"

namespace fiva::test {
namespace {

const QString perso = u"Perso"_s;
const QString travail = u"Travail"_s;
const QString projets = u"Travail / Projets"_s;
const QString absent = u"⚠️ Données absentes : "_s;

TEST_F(StoreTest, FirstStartWithoutDataFileKeepsInitialValuesAndWritesNothing)
{
    auto store = start();
    EXPECT_EQ(m_startOutput, absent + u"Le fichier « "_s + dataFile() +
                                 u" » n'existe pas. (No such file or directory, ENOENT)\n"_s);
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

// The rewrite happens in the constructor, or (for the window) once asked, on another thread; in both, a
// save or another writer's file since the load wins over the loaded data.
TEST_F(StoreTest, SuccessfulStartRewritesTheFileOnceInFileOrderThenSortsInMemory)
{
    // No id and no createdAt: both are made at reading and must reach the disk.
    const QByteArray original =
        QByteArrayLiteral(R"({"items":[{"title":"T","path":"/nowhere","category":"Zèbre"}],)"
                          R"("categories":["Zèbre","école","Etude","abc"]})");
    const QStringList fileOrder{u"Zèbre"_s, u"école"_s, u"Etude"_s, u"abc"_s};
    const QByteArray outside =
        json::encode(SavedData{{makeItem(u"Dehors"_s, perso)}, {perso}, std::nullopt}).value();
    using Mode = LinkStore::StartupRewrite;
    enum class Meanwhile { nothing, save, otherWriter };
    const struct
    {
        const char *name;
        Mode mode;
        Meanwhile meanwhile;
    } cases[]{{"before returning", Mode::beforeReturning, Meanwhile::nothing},
              {"when asked", Mode::whenAsked, Meanwhile::nothing},
              {"when asked, after a save", Mode::whenAsked, Meanwhile::save},
              {"when asked, after another writer", Mode::whenAsked, Meanwhile::otherWriter}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        writeBytes(dataFile(), original);
        QLocale::setDefault(QLocale(QLocale::French, QLocale::France));
        StdoutCapture capture;
        LinkStore store(m_paths, m_workspace, m_clock, realTimerPeriod, c.mode);
        QLocale::setDefault(QLocale::c());
        EXPECT_EQ(capture.finish(), QString());
        ASSERT_EQ(store.items().size(), 1);
        EXPECT_FALSE(store.items().first().id.isNull());
        EXPECT_EQ(store.items().first().createdAt, newYear2025);
        EXPECT_EQ(store.items().first().kind, LinkKind::file);
        EXPECT_EQ(store.categories(), (QStringList{fileOrder[3], fileOrder[1], fileOrder[2], fileOrder[0]}));
        const QByteArray rewritten = json::encode(SavedData{store.items(), fileOrder, std::nullopt}).value();
        EXPECT_EQ(readBytes(dataFile()), c.mode == Mode::whenAsked ? original : rewritten);

        QByteArray expected = rewritten;
        if (c.meanwhile == Meanwhile::save) {
            store.toggleFavorite(store.items().first().id);
            expected = readBytes(dataFile());
            EXPECT_NE(expected, original);
        } else if (c.meanwhile == Meanwhile::otherWriter) {
            writeBytes(dataFile(), outside);
            expected = outside;
        }
        store.finishStartup();
        // The rewrite comes back to this thread as an event; where nothing is to change, the decision
        // is waited for.
        if (c.meanwhile == Meanwhile::nothing)
            (void)QTest::qWaitFor([&] { return readBytes(dataFile()) == expected; }, 5000);
        else
            store.finishStartup(true);
        QCoreApplication::processEvents();
        EXPECT_EQ(readBytes(dataFile()), expected);
    }
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
    const QString setAside = dataFile() + u".unreadable-20250101T000000Z"_s;
    for (const auto &[content, errorPart] : cases) {
        SCOPED_TRACE(content.toStdString());
        QDir(as(u"Fiva"_s)).removeRecursively();
        writeBytes(dataFile(), content);
        auto store = start();

        const QStringList lines = m_startOutput.split(u'\n', Qt::SkipEmptyParts);
        ASSERT_EQ(lines.size(), 2) << m_startOutput.toStdString();
        EXPECT_TRUE(lines[0].startsWith(absent + dataFile()));
        EXPECT_TRUE(lines[0].contains(QLatin1String(errorPart))) << lines[0].toStdString();
        EXPECT_EQ(lines[1], u"⚠️ Fichier de données illisible mis de côté : "_s + setAside);
        EXPECT_EQ(store->startupFailure(),
                  u"Le fichier de données était illisible : il a été mis de côté sous « "_s + setAside +
                      u" » et Fiva a démarré sans fiches. Restaurez une sauvegarde pour "
                      u"les retrouver."_s);
        EXPECT_EQ(store->categories(), QStringList{sansCategorie});
        EXPECT_TRUE(store->items().isEmpty());
        EXPECT_FALSE(QFile::exists(dataFile()));
        store->addCategory(u"Nouvelle"_s);
        EXPECT_TRUE(QFile::exists(dataFile()));
        EXPECT_EQ(readBytes(setAside), content);
    }

    // A second unreadable file in the same second gets its own name.
    writeBytes(setAside, "older");
    writeBytes(dataFile(), "newer");
    start();
    EXPECT_EQ(readBytes(setAside), QByteArray("older"));
    EXPECT_EQ(readBytes(setAside + u"-2"_s), QByteArray("newer"));
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
    const QString data = deep + u"/Fiva/FivaData.json"_s;
    ASSERT_LT(data.size(), 4096);
    writeBytes(data, "corrompu");

    StdoutCapture capture;
    LinkStore store(deepPaths, m_workspace, m_clock);
    store.addCategory(u"Nouvelle"_s);
    const QStringList lines = capture.finish().split(u'\n', Qt::SkipEmptyParts);

    ASSERT_EQ(lines.size(), 3) << lines.join(u'\n').toStdString();
    EXPECT_TRUE(lines[0].startsWith(absent));
    EXPECT_TRUE(lines[1].startsWith(u"⚠️ "_s) && lines[1].endsWith(data)) << lines[1].toStdString();
    EXPECT_TRUE(lines[2].startsWith(u"❌ Erreur save: le fichier de données "_s + data))
        << lines[2].toStdString();
    EXPECT_EQ(readBytes(data), QByteArray("corrompu"));
    EXPECT_TRUE(store.categories().contains(u"Nouvelle"_s));
}

TEST_F(StoreTest, FailedSaveIsPrintedAndKeepsMemoryForTheNextTry)
{
    auto store = startWith({makeItem(u"a"_s, sansCategorie)}, {sansCategorie});
    const QByteArray before = readBytes(dataFile());
    // A folder where the file should be: root cannot write through that either.
    QFile::remove(dataFile());
    QDir().mkpath(dataFile());
    QSignalSpy failed(store.get(), &LinkStore::saveFailed);

    StdoutCapture capture;
    store->toggleFavorite(store->items().first().id);
    const QString out = capture.finish();
    EXPECT_TRUE(out.startsWith(u"❌ Erreur save: « "_s + dataFile() + u" » est un dossier, pas un fichier."_s))
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
    store.addCategory(u"x"_s);
    store.performAutoBackup();
    store.openAutoBackupsFolder();
    const QStringList lines = capture.finish().split(u'\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 4);
    EXPECT_TRUE(lines[0].startsWith(absent));
    EXPECT_TRUE(lines[1].startsWith(u"❌ Erreur save: "_s));
    EXPECT_TRUE(lines[2].startsWith(u"❌ Auto-backup error: "_s));
    EXPECT_EQ(lines[3], u"⚠️ Impossible de trouver Application Support"_s);
    EXPECT_TRUE(m_workspace.calls.empty());
}

TEST_F(StoreTest, CategoryOperationsChangeListRecordsAndFileAsExpected)
{
    // Lists are written joined by "|"; an empty one means "unchanged".
    const QString initialList = u"Perso|Sans catégorie|Travail|Travail / Projets"_s;
    const QString initialItems = u"Travail|Travail / Projets|Perso"_s;
    struct Case
    {
        std::function<void(LinkStore &)> operation;
        const char *categories;     // afterwards, in memory
        const char *itemCategories; // of the records "a", "b", "c", in order
        bool saves;                 // whether the data file is written again
    };
    const std::vector<Case> cases = {
        {[](LinkStore &s) { s.addCategory(u" \tLoisirs  "_s); },
         "Loisirs|Perso|Sans catégorie|Travail|Travail / Projets", "", true},
        {[](LinkStore &s) { s.addCategory(u"\u00A0Loisirs\u3000"_s); },
         "Loisirs|Perso|Sans catégorie|Travail|Travail / Projets", "", true},
        {[](LinkStore &s) { s.addCategory(u"Zut\n"_s); },
         "Perso|Sans catégorie|Travail|Travail / Projets|Zut\n", "", true},
        {[](LinkStore &s) { s.addCategory(u" Perso "_s); }, "", "", false},
        {[](LinkStore &s) { s.addCategory(u" \t "_s); }, "", "", false},
        {[](LinkStore &s) { s.addSubCategory(u"Perso "_s, u" Sport"_s); },
         "Perso|Perso  / Sport|Sans catégorie|Travail|Travail / Projets", "", true},
        {[](LinkStore &s) { s.addSubCategory(travail, u"Projets\t"_s); }, "", "", false},
        {[](LinkStore &s) { s.addSubCategory(travail, u" "_s); }, "", "", false},
        // Renaming a parent leaves its sub-categories alone.
        {[](LinkStore &s) { s.renameCategory(travail, u" Boulot "_s); },
         "Boulot|Perso|Sans catégorie|Travail / Projets", "Boulot|Travail / Projets|Perso", true},
        {[](LinkStore &s) { s.renameCategory(travail, u"  "_s); }, "", "", false},
        {[](LinkStore &s) { s.renameCategory(travail, perso); },
         "Perso|Perso|Sans catégorie|Travail / Projets", "Perso|Travail / Projets|Perso", true},
        // An unlisted name still relabels its records and saves.
        {[](LinkStore &s) {
             s.deleteCategory(perso);
             s.deleteCategory(sansCategorie);
             s.renameCategory(sansCategorie, u"Divers"_s);
         },
         "Travail|Travail / Projets", "Travail|Travail / Projets|Divers", true},
        {[](LinkStore &s) { s.deleteCategory(travail); }, "Perso|Sans catégorie|Travail / Projets",
         "Sans catégorie|Travail / Projets|Perso", true},
        // Records fall back to the default even when it is no longer listed.
        {[](LinkStore &s) {
             s.deleteCategory(sansCategorie);
             s.deleteCategory(perso);
         },
         "Travail|Travail / Projets", "Travail|Travail / Projets|Sans catégorie", true},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(i);
        const Case &c = cases[i];
        auto store =
            startWith({makeItem(u"a"_s, travail), makeItem(u"b"_s, projets), makeItem(u"c"_s, perso)},
                      {sansCategorie, perso, travail, projets});
        QFile::remove(dataFile());
        StdoutCapture capture;
        c.operation(*store);
        EXPECT_EQ(capture.finish(), QString());

        EXPECT_EQ(store->categories().join(u'|'),
                  *c.categories ? QString::fromUtf8(c.categories) : initialList);
        QStringList itemCategories;
        for (const LinkItem &item : store->items())
            itemCategories << item.category;
        EXPECT_EQ(itemCategories.join(u'|'),
                  *c.itemCategories ? QString::fromUtf8(c.itemCategories) : initialItems);
        ASSERT_EQ(QFile::exists(dataFile()), c.saves);
        if (c.saves) {
            EXPECT_EQ(json::decodeSavedData(readBytes(dataFile())).value(),
                      (SavedData{store->items(), store->categories(), std::nullopt}));
        }
    }
}

TEST_F(StoreTest, SortingIsStableAndFollowsTheUsersLocale)
{
    // A locale without a language still sorts accented letters with their base letters.
    for (const QLocale &locale : {QLocale(QLocale::French, QLocale::France), QLocale::c()}) {
        QLocale::setDefault(locale);
        auto store = start();
        store->setCategories({u"Zèbre"_s, u"Élan"_s, u"eau"_s});
        store->addCategory(u"école"_s);
        QLocale::setDefault(QLocale::c());
        EXPECT_EQ(store->categories(), (QStringList{u"eau"_s, u"école"_s, u"Élan"_s, u"Zèbre"_s}))
            << locale.name().toStdString();
    }
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
        QDir().mkpath(attachmentsFolder() + u"/folder"_s);
        writeBytes(attachmentsFolder() + u"/present.pdf"_s, "pdf");
        const QList<Attachment> attachments{attachment(attachmentsFolder() + u"/gone.txt"_s),
                                            attachment(attachmentsFolder() + u"/present.pdf"_s),
                                            attachment(attachmentsFolder() + u"/folder"_s)};
        const LinkItem a = makeItem(u"a"_s, sansCategorie);
        const LinkItem b = makeItem(u"b"_s, sansCategorie, attachments);
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
    LinkItem first = makeItem(u"a"_s, sansCategorie, {attachment(userFile(u"one"_s, "1"))});
    LinkItem twin = first;
    twin.attachments = {attachment(userFile(u"two"_s, "2"))};
    auto store = startWith({first, makeItem(u"b"_s, sansCategorie), twin}, {sansCategorie});
    store->deleteItem(first.id);
    ASSERT_EQ(store->items().size(), 1);
    EXPECT_EQ(store->items().first().title, u"b"_s);
    EXPECT_FALSE(QFile::exists(first.attachments[0].filePath));
    EXPECT_TRUE(QFile::exists(twin.attachments[0].filePath));

    // Several at once, in one save; an id no record has is passed over.
    const LinkItem kept = makeItem(u"d"_s, sansCategorie);
    const LinkItem gone = makeItem(u"e"_s, sansCategorie, {attachment(userFile(u"three"_s, "3"))});
    store = startWith({gone, kept, makeItem(u"f"_s, sansCategorie)}, {sansCategorie});
    QSignalSpy changes(store.get(), &LinkStore::itemsChanged);
    EXPECT_EQ(store->deleteItems({gone.id, store->items().at(2).id, QUuid::createUuid()}), 2);
    EXPECT_EQ(changes.size(), 1);
    EXPECT_EQ(json::decodeSavedData(readBytes(dataFile())).value().items, QList{kept});
    EXPECT_FALSE(QFile::exists(gone.attachments[0].filePath));
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
    const LinkItem a = makeItem(u"a"_s, sansCategorie);
    store->appendItem(a);
    EXPECT_TRUE(store->updateItem(a.id, [](LinkItem &i) { i.title = u"A"_s; }));
    EXPECT_FALSE(store->updateItem(QUuid::createUuid(), [](LinkItem &i) { i.title = u"X"_s; }));
    EXPECT_EQ(changed.count(), 2);
    EXPECT_EQ(store->items().first().title, u"A"_s);
    EXPECT_FALSE(QFile::exists(dataFile()));
}

TEST(Trimming, RemovesHorizontalSpaceOnly)
{
    const std::pair<QString, QString> cases[] = {
        {u"  a b  "_s, u"a b"_s}, {u"\ta\t"_s, u"a"_s},     {u"\u00A0\u2003a\u202F"_s, u"a"_s},
        {u"\na\n"_s, u"\na\n"_s}, {u" \r\n "_s, u"\r\n"_s}, {u" \t "_s, QString()},
        {QString(), QString()},
    };
    for (const auto &[in, out] : cases)
        EXPECT_EQ(trimHorizontalWhitespace(in), out) << in.toStdString();
}

TEST(StoredNotes, WrapsTextAndReadsItBack)
{
    const QString empty = notesHTML(QString());
    EXPECT_EQ(empty.size(), 83 + 24);
    EXPECT_TRUE(empty.startsWith(u"<html>\n    <head>\n        <meta charset=\"UTF-8\">"_s));
    EXPECT_TRUE(empty.endsWith(u"<p></p>\n    </body>\n</html>"_s));
    const std::pair<QString, QString> roundTrips[] = {
        {u"un\ndeux"_s, u"un\ndeux"_s},
        {u"a & <b>gras</b>"_s, u"a & <b>gras</b>"_s},
        {u"  bords \n"_s, u"bords"_s},
        {QString(), QString()},
    };
    for (const auto &[typed, shown] : roundTrips)
        EXPECT_EQ(notesPlainText(notesHTML(typed)), shown) << typed.toStdString();
    EXPECT_EQ(notesHTML(u"un\ndeux"_s), empty.left(83) + u"un<br>deux"_s + empty.mid(83));
    EXPECT_EQ(notesPlainText(u" plain<br>text "_s), u"plain\ntext"_s);
    EXPECT_EQ(notesPlainText(u"</p>x<p>"_s), u"</p>x<p>"_s);
}

TEST_F(StoreTest, FileWritesReplaceTheWholeFileAndFailuresNameThePath)
{
    using namespace fileio;
    const QString file = path(u"data.json"_s);
    ASSERT_FALSE(writeWholeFile(file, QByteArray(1000, 'a')).has_value());
    ASSERT_FALSE(writeWholeFile(file, "short").has_value());
    ASSERT_TRUE(readWholeFile(file).ok());
    EXPECT_EQ(readWholeFile(file).value(), QByteArray("short"));
    EXPECT_FALSE(readWholeFile(path(u"absent"_s)).ok());
    // /dev/full accepts the open and fails the write: the short-write and flush path.
    for (const QString &target : {u"/dev/full"_s, path(u"files"_s), path(u"missing/parent/file.json"_s)}) {
        const auto error = writeWholeFile(target, QByteArray(256 * 1024, 'x'));
        ASSERT_TRUE(error.has_value()) << target.toStdString();
        EXPECT_TRUE(error->startsWith(target + u": "_s)) << error->toStdString();
    }

    // The reader's own buffer: exact content whatever size the file claims, errors naming the path.
    ASSERT_TRUE(QDir().mkpath(path(u"folder"_s)));
    const QString empty = path(u"empty.json"_s);
    writeBytes(empty, QByteArray());
    QFile status(u"/proc/self/status"_s);
    ASSERT_TRUE(status.open(QIODevice::ReadOnly));
    const std::pair<QString, QByteArray> readable[] = {{file, "short"}, {empty, QByteArray()}};
    for (const auto &[name, content] : readable) {
        auto buffer = readDocument(name);
        ASSERT_TRUE(buffer.ok()) << buffer.error().toStdString();
        EXPECT_EQ(QByteArray(buffer.value().data(), qsizetype(buffer.value().size())), content);
    }
    auto reported = readDocument(u"/proc/self/status"_s);
    ASSERT_TRUE(reported.ok());
    EXPECT_TRUE(QByteArray(reported.value().data(), qsizetype(reported.value().size())).startsWith("Name:"));
    for (const QString &name : {path(u"folder"_s), path(u"absent"_s)}) {
        auto buffer = readDocument(name);
        ASSERT_FALSE(buffer.ok());
        EXPECT_TRUE(buffer.error().startsWith(name + u": "_s)) << buffer.error().toStdString();
    }
}

TEST_F(StoreTest, LargeDocumentsAreWrittenAsEncodedAndNotAtAllWhenTheyCannotBe)
{
    using namespace fileio;
    SavedData data;
    for (int i = 0; i < 12000; ++i)
        data.items.append(LinkItem{QUuid::createUuid(),
                                   u"Fiche é %1"_s.arg(i),
                                   u"https://exemple.fr/%1"_s.arg(i),
                                   travail,
                                   i % 3 ? std::optional<QString>(u"<p>n\n</p>"_s) : std::nullopt,
                                   Timestamp{double(i)},
                                   i % 2 == 0,
                                   {},
                                   LinkKind::url});
    data.categories = {travail, projets};
    data.lastBackupDate = Timestamp{1.5};
    const QString target = path(u"large.json"_s);
    writeBytes(target, QByteArray(4 * 1024 * 1024, 'o'));
    ASSERT_FALSE(writeDocument(target, data).has_value());
    const QByteArray written = readBytes(target);
    EXPECT_EQ(written, json::encode(data).value());
    EXPECT_EQ(json::decodeSavedData(written).value(), data);

    // A date with no JSON form: the existing file keeps its bytes and no new file appears.
    data.items[9000].createdAt = Timestamp{std::numeric_limits<double>::infinity()};
    const auto error = writeDocument(target, data);
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(*error, u"items[9000].createdAt: cannot write a date that is not a finite number"_s);
    EXPECT_EQ(readBytes(target), written);
    EXPECT_TRUE(writeDocument(path(u"new.json"_s), data).has_value());
    EXPECT_FALSE(QFile::exists(path(u"new.json"_s)));
    EXPECT_EQ(QDir(path(QString())).entryList({u".*.tmp-*"_s}, QDir::Files | QDir::Hidden), QStringList{});
}

} // namespace
} // namespace fiva::test
