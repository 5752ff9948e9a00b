#include "store/AttachmentIndex.h"
#include "store/BackupFiles.h"
#include "store/FileIO.h"
#include "store/Trash.h"
#include "zip/Archive.h"
#include "zip/FolderZip.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSet>
#include <QSignalSpy>
#include <QTimeZone>

#include <fcntl.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <ostream>
#include <random>
#include <tuple>

#include "StoreTestSupport.h"

namespace fiva::test {
namespace {

TEST(BackupNames, CandidatesLastComponentAndOrdinalOrder)
{
    struct Case
    {
        const char *name;
        int n;
        const char *exported;
        const char *restored;
    };
    const Case cases[] = {
        {"rapport.pdf", 1, "rapport-1.pdf", "rapport-1.pdf"},
        {"rapport.pdf", 12, "rapport-12.pdf", "rapport-12.pdf"},
        {"rapport.v2.pdf", 1, "rapport.v2-1.pdf", "rapportv2-1.pdf"},
        {"archive.tar.gz", 2, "archive.tar-2.gz", "archivetar-2.gz"},
        {"notes", 1, "notes-1.", "-1."},
        {".bashrc", 1, ".bashrc-1.", "-1."},
        {"fin.", 3, "fin.-3.", "-3."},
        {"a..b", 1, "a.-1.b", "a-1.b"},
        {"été 2024.jpeg", 1, "été 2024-1.jpeg", "été 2024-1.jpeg"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(backup::exportCandidate(QString::fromUtf8(c.name), c.n), QString::fromUtf8(c.exported));
        EXPECT_EQ(backup::restoreCandidate(QString::fromUtf8(c.name), c.n), QString::fromUtf8(c.restored));
    }

    const std::pair<const char *, const char *> components[] = {{"/a/b/rapport.pdf", "rapport.pdf"},
                                                                {"/a/b/", "b"},
                                                                {"rapport.pdf", "rapport.pdf"},
                                                                {"", ""},
                                                                {"/", ""}};
    for (const auto &[in, out] : components)
        EXPECT_EQ(backup::lastComponent(QString::fromUtf8(in)), QString::fromUtf8(out)) << in;

    QStringList names = {u"été"_s,        u"Zoo"_s,    u"abc"_s, u"Été"_s, u"e\u0301t\u00e9 b"_s,
                         u"\U0001F600"_s, u"\uFB01n"_s};
    std::stable_sort(names.begin(), names.end(), backup::ordinalLess);
    // The decomposed "été b" composes to "été b", so it follows "été"; the emoji (a surrogate
    // pair in UTF-16) sorts after U+FB01 by code point although its first unit is smaller.
    EXPECT_EQ(names, (QStringList{u"Zoo"_s, u"abc"_s, u"Été"_s, u"été"_s, u"e\u0301t\u00e9 b"_s, u"\uFB01n"_s,
                                  u"\U0001F600"_s}));
}

// The export and an attached file's copy both take the first free name; a dangling link holds one.
TEST(BackupNames, FreeCopyPathSkipsTakenNamesOnly)
{
    // Names already there (a trailing "@" makes a dangling link), the file's name, the free path.
    const std::tuple<QStringList, QString, QString> cases[]{
        {{}, u"rapport.pdf"_s, u"rapport.pdf"_s},
        {{u"rapport.pdf"_s, u"rapport-1.pdf"_s}, u"rapport.pdf"_s, u"rapport-2.pdf"_s},
        {{u"rapport.pdf"_s, u"rapport-2.pdf"_s}, u"rapport.pdf"_s, u"rapport-1.pdf"_s},
        {{u"notes@"_s}, u"notes"_s, u"notes-1."_s},
        {{u"été.txt"_s}, u"été.txt"_s, u"été-1.txt"_s}};
    for (const auto &[existing, name, expected] : cases) {
        QTemporaryDir dir;
        for (const QString &taken : existing) {
            if (taken.endsWith(u'@'))
                QFile::link(dir.filePath(u"nowhere"_s), dir.filePath(taken.chopped(1)));
            else
                writeBytes(dir.filePath(taken), "x");
        }
        EXPECT_EQ(backup::freeCopyPath(dir.path(), name), dir.filePath(expected))
            << existing.join(u',').toStdString();
    }
}

TEST(BackupNames, IndexRejectsNamesThatLeaveTheFolder)
{
    const backup::ArchivedAttachment entry{1, 2, u"/x/a.pdf"_s, u"a-1.pdf"_s};
    const auto good = backup::decodeAttachmentIndex(backup::encodeAttachmentIndex({entry}));
    ASSERT_TRUE(good.has_value());
    EXPECT_EQ(good->value(0), entry);
    for (const char *bad : {"../a", "x/a", "..", ""}) {
        const QByteArray bytes = backup::encodeAttachmentIndex({{0, 0, u"/x"_s, QString::fromUtf8(bad)}});
        EXPECT_FALSE(backup::decodeAttachmentIndex(bytes).has_value()) << bad;
    }
    for (const char *bad :
         {R"({"version":1,"files":[{"record":-1,"attachment":0,"filePath":"","file":"a"}]})",
          R"({"version":2,"files":[]})", "[]"})
        EXPECT_FALSE(backup::decodeAttachmentIndex(bad).has_value()) << bad;
}

// Spoils the signature of the central-directory record after the first `readable` ones, as a
// damaged disk would: a reader that walks the directory stops there without an error of its own.
QString breakCentralRecord(const QString &archive, int readable)
{
    const ToolRun run =
        runTool(u"python3"_s,
                {u"-c"_s,
                 QStringLiteral("import sys\n"
                                "b = bytearray(open(sys.argv[1], 'rb').read())\n"
                                "i = -1\n"
                                "for _ in range(int(sys.argv[2]) + 1): i = b.find(b'PK\\x01\\x02', i + 1)\n"
                                "b[i + 3] = 0\n"
                                "open(sys.argv[1], 'wb').write(b)"),
                 archive, QString::number(readable)});
    EXPECT_EQ(run.exitCode, 0) << run.output.toStdString();
    return archive;
}

// The entries of an archive as Python's zipfile reads them, named from inside the top folder and
// sorted. That folder is FivaExport-<UUID>/, listed last as our writer puts it, and holds every
// entry, all stored without compression.
QStringList entriesOf(const QString &archive)
{
    const ToolRun run =
        runTool(u"python3"_s, {u"-c"_s,
                               QStringLiteral("import sys, zipfile\n"
                                              "z = zipfile.ZipFile(sys.argv[1])\n"
                                              "assert z.testzip() is None\n"
                                              "for i in z.infolist(): print(i.filename, i.compress_type)"),
                               archive});
    EXPECT_EQ(run.exitCode, 0) << run.output.toStdString();
    const QStringList entries = run.output.split(u'\n', Qt::SkipEmptyParts);
    const QString top = entries.value(entries.size() - 1).section(u' ', 0, 0);
    EXPECT_TRUE(QRegularExpression(u"^FivaExport-[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}/$"_s)
                    .match(top)
                    .hasMatch())
        << top.toStdString();
    QStringList names;
    for (const QString &entry : entries) {
        EXPECT_TRUE(entry.startsWith(top) && entry.endsWith(u" 0"_s)) << entry.toStdString();
        names << entry.section(u' ', 0, 0).mid(top.size());
    }
    names.sort();
    return names;
}

TEST_F(StoreTest, ExportWaitsForThePanelAndCallsTheCompletionAfterSuccessAndFailureButNotCancel)
{
    auto store = startWith({makeItem(u"a"_s, u"Travail"_s)}, {u"Travail"_s});
    const QByteArray before = readBytes(dataFile());
    m_dialogs.holdPanels = true;
    int completions = 0;
    StdoutCapture capture;
    store->exportBackup([&] { ++completions; });
    ASSERT_EQ(m_dialogs.savePanels.size(), 1u);
    EXPECT_EQ(m_dialogs.savePanels[0],
              (SavePanelRequest{u"Sauvegarde-Fiva.fivabackup"_s, {u"fivabackup"_s}}));
    EXPECT_TRUE(m_dialogs.savePanelPending());
    m_dialogs.finishSavePanel(std::nullopt);
    EXPECT_EQ(capture.finish(), QString());
    EXPECT_EQ(completions, 0);
    EXPECT_TRUE(leftovers().isEmpty());
    EXPECT_EQ(readBytes(dataFile()), before);
    EXPECT_TRUE(store->backupHistory().isEmpty());

    const QString ok = path(u"ok.fivabackup"_s);
    store->exportBackup([&] { ++completions; });
    EXPECT_FALSE(QFileInfo::exists(ok));
    m_clock.advance(60);
    {
        StdoutCapture quiet;
        m_dialogs.finishSavePanel(ok);
        EXPECT_EQ(quiet.finish(), QString());
    }
    EXPECT_EQ(completions, 1);
    EXPECT_EQ(store->lastBackupDate(), m_clock.now());
    ASSERT_EQ(store->backupHistory().size(), 1);
    EXPECT_EQ(store->backupHistory()[0].filePath, ok);
    EXPECT_EQ(store->backupHistory()[0].fileSize, QFileInfo(ok).size());
    EXPECT_GT(QFileInfo(ok).size(), 0);

    // A folder that does not exist: the zipping fails, nothing of the store moves.
    const auto date = store->lastBackupDate();
    m_clock.advance(60);
    store->exportBackup([&] { ++completions; });
    QSignalSpy reported(store.get(), &LinkStore::failureReported);
    StdoutCapture failing;
    m_dialogs.finishSavePanel(path(u"missing/ko.fivabackup"_s));
    const QString printed = failing.finish();
    const QString sentence = u"Le dossier « "_s + path(u"missing"_s) + u" » n'existe pas. ("_s;
    EXPECT_TRUE(printed.startsWith(u"❌ Erreur export : "_s + sentence) && printed.endsWith(u'\n'))
        << printed.toStdString();
    ASSERT_EQ(reported.count(), 1);
    EXPECT_TRUE(reported[0][0].toString().startsWith(u"L'export de la sauvegarde a échoué. "_s + sentence));
    EXPECT_EQ(completions, 2);
    EXPECT_EQ(store->lastBackupDate(), date);
    EXPECT_EQ(store->backupHistory().size(), 1);
    EXPECT_TRUE(leftovers().isEmpty());
}

TEST_F(StoreTest, ArchiveHoldsTheDocumentTheAttachmentsFolderAndNumberedCopies)
{
    // The first attachment is missing at export: it takes no name.
    const QString gone = path(u"files/gone/NAME.pdf"_s);
    auto store = startWith({makeItem(u"x"_s, u"T"_s,
                                     {attachment(gone), attachment(userFile(u"un/NAME.pdf"_s, "one")),
                                      attachment(userFile(u"un/notes"_s, "n1"))}),
                            makeItem(u"y"_s, u"T"_s,
                                     {attachment(userFile(u"deux/NAME.pdf"_s, "two")),
                                      attachment(userFile(u"deux/notes"_s, "n2")),
                                      attachment(userFile(u"trois/NAME.pdf"_s, "three"))})},
                           {u"T"_s});
    const Timestamp written = m_clock.now();
    const QString archive = exportArchive(*store);

    EXPECT_EQ(entriesOf(archive),
              (QStringList{QString(), u"FivaAttachments.json"_s, u"FivaData.json"_s, u"attachments/"_s,
                           u"attachments/NAME-1.pdf"_s, u"attachments/NAME-2.pdf"_s,
                           u"attachments/NAME.pdf"_s, u"attachments/notes"_s, u"attachments/notes-1."_s}));
    EXPECT_EQ(runTool(u"unzip"_s, {u"-tq"_s, archive}).exitCode, 0);
    EXPECT_EQ(runTool(u"bsdtar"_s, {u"-tf"_s, archive}).exitCode, 0);

    // Order decides the numbers: "two" (second record) is NAME-1, "three" is NAME-2.
    const QString unpacked = path(u"unpacked"_s);
    ASSERT_EQ(runTool(u"unzip"_s, {u"-q"_s, archive, u"-d"_s, unpacked}).exitCode, 0);
    const QDir inside(
        QDir(unpacked).filePath(QDir(unpacked).entryList(QDir::Dirs | QDir::NoDotAndDotDot).value(0)));
    const std::pair<const char *, QByteArray> contents[] = {
        {"NAME.pdf", "one"}, {"NAME-1.pdf", "two"}, {"NAME-2.pdf", "three"}, {"notes-1.", "n2"}};
    for (const auto &[name, bytes] : contents)
        EXPECT_EQ(readBytes(inside.filePath(u"attachments/"_s + QLatin1String(name))), bytes) << name;
    const auto document = json::decodeSavedData(readBytes(inside.filePath(u"FivaData.json"_s)));
    ASSERT_TRUE(document.ok());
    EXPECT_EQ(document.value().lastBackupDate, written);
    EXPECT_EQ(document.value().items, store->items()) << "records keep their paths in the archive";

    // Restored, the same-named files come back apart; the missing one is left as it was.
    auto restored = start();
    ASSERT_TRUE(restored->restoreBackup(archive));
    EXPECT_TRUE(m_dialogs.alerts.empty());
    const QList<LinkItem> &back = restored->items();
    ASSERT_EQ(back.size(), 2);
    EXPECT_EQ(back[0].attachments[0].filePath, gone);
    const std::pair<Attachment, QByteArray> copies[] = {
        {back[0].attachments[1], "one"}, {back[1].attachments[0], "two"}, {back[1].attachments[2], "three"}};
    for (const auto &[copy, bytes] : copies)
        EXPECT_EQ(readBytes(copy.filePath), bytes);
    EXPECT_EQ(back[1].attachments[0].fileName, u"NAME-1.pdf"_s);

    // An empty store still gets an attachments folder, and an existing archive is replaced.
    auto empty = startWith({}, {});
    writeBytes(path(u"old.fivabackup"_s), "previous archive");
    EXPECT_EQ(entriesOf(exportArchive(*empty, u"old.fivabackup"_s)),
              (QStringList{QString(), u"FivaAttachments.json"_s, u"FivaData.json"_s, u"attachments/"_s}));
}

// The export packs no staging folder: it writes the archive from the attachments and the encoded data.
// Its bytes must still be those of packing the folder it once staged. That folder is made here the old way,
// with the dates of the entries the export made itself (the document, the index and the two folders), and
// packed with zipItem.
TEST_F(StoreTest, ExportGivesTheBytesOfPackingTheStagedFolder)
{
    QByteArray large(3 * 1024 * 1024 + 7, 'L'); // beyond one chunk: the copy goes another way
    const std::pair<const char *, mode_t> files[] = {{"un/NAME.pdf", 0600},    {"deux/NAME.pdf", 0644},
                                                     {"un/notes", 0755},       {"été/Zèbre.txt", 0640},
                                                     {"gros/vidéo.bin", 0644}, {"un/a", 0644}};
    QList<Attachment> attachments{attachment(path(u"files/absent.pdf"_s))};
    for (const auto &[name, mode] : files) {
        const QString file = userFile(QString::fromUtf8(name),
                                      name == std::string_view("gros/vidéo.bin") ? large : QByteArray(name));
        ASSERT_EQ(::chmod(QFile::encodeName(file).constData(), mode), 0);
        attachments.append(attachment(file));
    }
    const QString link = path(u"files/lien.pdf"_s);
    ASSERT_TRUE(QFile::link(path(u"files/un/a"_s), link));
    attachments.append(attachment(link));
    auto store = startWith(
        {makeItem(u"x"_s, u"T"_s, attachments.mid(0, 4)), makeItem(u"y"_s, u"T"_s, attachments.mid(4))},
        {u"T"_s});
    const QString archive = exportArchive(*store);

    std::string top;
    QHash<QString, QByteArray> generated;
    QHash<QString, zip::Date> dates;
    {
        zip::Archive reading(backup::toFsPath(archive), zip::Archive::AccessMode::read);
        for (const zip::Entry &entry : reading) {
            const QString name = QString::fromStdString(entry.path());
            dates.insert(name.section(u'/', 1), entry.fileAttributes().modificationDate);
            top = entry.path();
            QByteArray &bytes = generated[name.section(u'/', 1)];
            reading.extract(entry, [&](zip::ByteView chunk) {
                bytes.append(reinterpret_cast<const char *>(chunk.data()), qsizetype(chunk.size()));
            });
        }
    }
    ASSERT_TRUE(top.ends_with('/'));
    const QString staging = path(u"staged/"_s + QString::fromStdString(top).chopped(1));
    ASSERT_TRUE(QDir().mkpath(path(u"staged"_s)));
    ASSERT_EQ(::mkdir(QFile::encodeName(staging).constData(), 0700), 0);
    for (const QString &name : {u"FivaData.json"_s, backup::attachmentIndexName()})
        ASSERT_FALSE(fileio::writeWholeFile(staging + u'/' + name, generated.value(name)));
    const QDir copies(staging + u"/attachments"_s);
    ASSERT_FALSE(fileio::makeFolder(copies.path()));
    for (const LinkItem &item : store->items()) {
        for (const Attachment &a : item.attachments) {
            if (!backup::isRegularFile(a.filePath))
                continue;
            const QString name = backup::lastComponent(a.filePath);
            QString target = copies.filePath(name);
            for (int n = 1; backup::isOccupied(target); ++n)
                target = copies.filePath(backup::exportCandidate(name, n));
            ASSERT_FALSE(backup::copyFile(a.filePath, target));
        }
    }
    for (const QString &name :
         {u"FivaData.json"_s, backup::attachmentIndexName(), u"attachments/"_s, QString()}) {
        const auto since = dates.value(name).time_since_epoch();
        const timespec times[2] = {{0, UTIME_OMIT},
                                   {std::chrono::duration_cast<std::chrono::seconds>(since).count(), 0}};
        ASSERT_EQ(::utimensat(AT_FDCWD, QFile::encodeName(staging + u'/' + name).constData(), times, 0), 0)
            << name.toStdString();
    }
    const QString packed = path(u"packed.zip"_s);
    zip::zipItem(backup::toFsPath(staging), backup::toFsPath(packed), true, zip::CompressionMethod::none);
    EXPECT_EQ(generated.size(), 11);
    EXPECT_TRUE(readBytes(archive) == readBytes(packed)) << "the archive differs from the staged folder's";
}

TEST_F(StoreTest, RestoreReplacesDataSortsOrdinallySavesAndRenamesOnSecondRun)
{
    LinkItem item = makeItem(
        u"1"_s, u"été"_s,
        {attachment(userFile(u"a/rapport.v2.pdf"_s, "v2")), attachment(userFile(u"a/LISEZMOI"_s, "lisez"))});
    auto source = startWith({item}, {u"été"_s, u"Zoo"_s, u"abc"_s}, Timestamp{42.25});
    m_clock.set(Timestamp{777.0});
    const QString archive = exportArchive(*source);

    QDir(m_root.path()).rename(u"as"_s, u"as-source"_s);
    auto store = startWith({makeItem(u"old"_s, u"x"_s)}, {u"x"_s}, Timestamp{5});
    QSignalSpy items(store.get(), &LinkStore::itemsChanged);
    ASSERT_TRUE(store->restoreBackup(archive));
    EXPECT_EQ(items.count(), 1);
    EXPECT_EQ(store->categories(), (QStringList{u"Zoo"_s, u"abc"_s, u"été"_s}));
    EXPECT_EQ(store->lastBackupDate(), Timestamp{777.0}) << "the date written in the archive";
    ASSERT_EQ(store->items().size(), 1);
    const auto onDisk = json::decodeSavedData(readBytes(dataFile()));
    ASSERT_TRUE(onDisk.ok());
    EXPECT_EQ(onDisk.value(), (SavedData{store->items(), store->categories(), store->lastBackupDate()}));
    EXPECT_EQ(store->items()[0].attachments[0].fileName, u"rapport.v2.pdf"_s);

    ASSERT_TRUE(store->restoreBackup(archive));
    ASSERT_TRUE(store->restoreBackup(archive));
    ASSERT_EQ(store->items().size(), 1);
    const QList<Attachment> &third = store->items()[0].attachments;
    EXPECT_EQ(third[0].fileName, u"rapportv2-2.pdf"_s);
    EXPECT_EQ(third[1].fileName, u"-2."_s);
    EXPECT_EQ(readBytes(third[0].filePath), "v2");
    EXPECT_EQ(readBytes(third[1].filePath), "lisez");
    EXPECT_EQ(QDir(attachmentsFolder()).entryList(QDir::Files).size(), 6);
}

TEST_F(StoreTest, ArchivesMadeElsewhereRestore)
{
    // A bare list of records (the "items" value of the document) and no attachments folder: paths
    // stay unchanged.
    LinkItem item = makeItem(u"1"_s, u"Perso"_s, {attachment(u"/ailleurs/doc.pdf"_s)});
    const QByteArray saved = json::encode(SavedData{{item}, {u"Perso"_s}, std::nullopt}).value();
    const QByteArray legacy =
        QJsonDocument(QJsonDocument::fromJson(saved).object().value(u"items"_s).toArray()).toJson();
    ASSERT_TRUE(json::decodeLinkItems(legacy).ok());
    const QString archive =
        zipAt(u"legacy.fivabackup"_s, {{u"Vieux/"_s, {}}, {u"Vieux/FivaData.json"_s, legacy}});
    auto store = startWith({}, {u"x"_s}, Timestamp{5});
    ASSERT_TRUE(store->restoreBackup(archive));
    EXPECT_EQ(store->items(), QList<LinkItem>{item});
    EXPECT_EQ(store->categories(), QStringList{LinkStore::uncategorized()});
    EXPECT_FALSE(store->lastBackupDate().has_value());
    EXPECT_TRUE(store->isBackupOld());

    // Made by Info-ZIP from a folder, without an index: the numbering is replayed.
    const QList<LinkItem> items = {makeItem(u"1"_s, u"T"_s, {attachment(userFile(u"a/r.pdf"_s, "A"))}),
                                   makeItem(u"2"_s, u"T"_s, {attachment(userFile(u"b/r.pdf"_s, "B"))})};
    const QString top = u"FivaExport-"_s + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    const QDir staging(path(u"hand/"_s + top));
    writeBytes(staging.filePath(u"FivaData.json"_s),
               json::encode(SavedData{items, {u"T"_s}, Timestamp{9}}).value());
    writeBytes(staging.filePath(u"attachments/r.pdf"_s), "A");
    writeBytes(staging.filePath(u"attachments/r-1.pdf"_s), "B");
    const QString zipped = path(u"hand.fivabackup"_s);
    ASSERT_EQ(runTool(u"zip"_s, {u"-qr"_s, zipped, top}, path(u"hand"_s)).exitCode, 0);
    ASSERT_TRUE(store->restoreBackup(zipped))
        << (m_dialogs.alerts.empty() ? "" : m_dialogs.alerts[0].informativeText.toStdString());
    EXPECT_EQ(readBytes(store->items()[0].attachments[0].filePath), "A");
    EXPECT_EQ(readBytes(store->items()[1].attachments[0].filePath), "B");
    EXPECT_EQ(store->lastBackupDate(), Timestamp{9});
}

// Links inside the archive may stay inside the staging folder, but nothing is copied through one: only
// regular files reached without a link become attachments.
TEST_F(StoreTest, RestoreCopiesNoAttachmentThroughALink)
{
    const QList<LinkItem> items = {makeItem(u"1"_s, u"T"_s, {attachment(u"/ailleurs/r.pdf"_s)}),
                                   makeItem(u"2"_s, u"T"_s, {attachment(u"/ailleurs/s.pdf"_s)})};
    const QByteArray document = json::encode(SavedData{items, {u"T"_s}, std::nullopt}).value();
    struct Case
    {
        const char *label;
        std::vector<ZipEntry> entries;
    } cases[] = {
        {"folder is a link",
         {{u"E/FivaData.json"_s, document},
          {u"E/other/r.pdf"_s, "R"},
          {u"E/other/s.pdf"_s, "S"},
          {u"E/attachments"_s, "other", true}}},
        {"files are links",
         {{u"E/FivaData.json"_s, document},
          {u"E/attachments/real"_s, "R"},
          {u"E/attachments/r.pdf"_s, "real", true},
          {u"E/attachments/s.pdf"_s, "real", true}}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.label);
        auto store = startWith({}, {u"x"_s}, Timestamp{5});
        ASSERT_TRUE(store->restoreBackup(zipAt(QString::fromLatin1(c.label) + u".fivabackup"_s, c.entries)));
        EXPECT_EQ(store->items(), items) << "paths left as they were";
        EXPECT_TRUE(QDir(attachmentsFolder()).entryList(QDir::Files).isEmpty());
    }
}

TEST_F(StoreTest, FailedRestoreLeavesTheStoreAndItsFilesExactlyAsTheyWereAndNoStagingFolder)
{
    const QByteArray undecodable = R"({"items": 3})", emptyDocument = R"({"items":[],"categories":[]})";
    // A well-formed archive, or one whose data document is `document`.
    const auto goodArchive = [&](const QString &name, const QByteArray &document) {
        const LinkItem item = makeItem(u"new"_s, u"N"_s, {attachment(u"/x/doc.pdf"_s)});
        return zipAt(name,
                     {{u"FivaExport-1/"_s, {}},
                      {u"FivaExport-1/FivaData.json"_s,
                       document.isEmpty() ? json::encode(SavedData{{item}, {u"N"_s}, Timestamp{1}}).value()
                                          : document},
                      {u"FivaExport-1/attachments/"_s, {}},
                      {u"FivaExport-1/attachments/doc.pdf"_s, "pdf"}});
    };
    const QString crafted = goodArchive(u"crafted.fivabackup"_s, {});
    const QString failed = u"Erreur restauration :\n"_s;
    const QString text = userFile(u"text.fivabackup"_s, "pas une archive");
    const QString json = userFile(u"auto.fivabackup"_s, undecodable);
    const QString missing = path(u"nowhere.fivabackup"_s);
    const QString crc = zipAt(u"crc.zip"_s, {{u"FivaData.json"_s, emptyDocument}}, u"FivaData.json"_s);
    const QString link =
        zipAt(u"link.zip"_s, {{u"attachments"_s, "/", true}, {u"FivaData.json"_s, emptyDocument}});
    const QString undecodableArchive = goodArchive(u"undecodable.fivabackup"_s, undecodable);
    struct Case
    {
        const char *name;
        QString alert; // title, a new line, then the start of the message
        QString archive;
        std::function<void()> damage = {}; // done to the store's folder before the restore
    };
    const std::vector<Case> cases = {
        {"not a zip",
         failed + u"Ce fichier n'est pas une archive ZIP : « "_s + text +
             u" ». (ArchiveError.missingEndOfCentralDirectoryRecord)"_s,
         text},
        {"JSON that is no data document",
         failed + u"Ce fichier n'est pas une archive ZIP, ni une sauvegarde automatique lisible : « "_s +
             json + u" » ("_s + json::decodeLinkItems(undecodable).error() + u')',
         json},
        {"missing archive",
         failed + u"Le fichier « "_s + missing +
             u" » n'existe pas. (FileSystemError.fileReadNoSuchFile, ENOENT)"_s,
         missing},
        {"no data document", u"Erreur restauration\nFivaData.json introuvable."_s,
         zipAt(u"z.zip"_s, {{u"a/Autre.json"_s, "{}"}})},
        {"undecodable in both forms",
         failed + u"Le fichier FivaData.json de l'archive « "_s + undecodableArchive +
             u" » est illisible ("_s + json::decodeLinkItems(undecodable).error() + u')',
         undecodableArchive},
        {"CRC mismatch",
         failed + u"L'archive « "_s + crc +
             u" » est endommagée : le contenu d'un élément ne correspond pas à sa somme de contrôle. "
             u"(ArchiveError.invalidCRC32)"_s,
         crc},
        {"central directory broken after two entries",
         failed + u"L'archive « "_s + path(u"short.fivabackup"_s) +
             u" » est endommagée : 2 éléments sur 4 sont lisibles."_s,
         breakCentralRecord(goodArchive(u"short.fivabackup"_s, {}), 2)},
        {"entry escapes the staging folder",
         failed + u"L'archive contient un élément dont le chemin sort du dossier où elle est dépliée : « "_s,
         zipAt(u"evil.zip"_s,
               {{u"FivaData.json"_s, emptyDocument}, {u"../../as/Fiva/FivaData.json"_s, "[]"}})},
        {"link escapes the staging folder",
         failed + u"L'archive « "_s + link +
             u" » contient un lien qui mène hors de son dossier : elle est refusée. (ArchiveError.uncontainedSymlink)"_s,
         link},
        {"attachments folder read-only",
         failed + u"Fiva n'a pas le droit d'accéder à « "_s + attachmentsFolder() + u"/doc.pdf »."_s, crafted,
         [&] { lockAgainstWrites(attachmentsFolder()); }},
        {"attachments folder is a file",
         failed + u"Un élément du chemin « "_s + attachmentsFolder() + u"/doc.pdf » n'est pas un dossier."_s,
         crafted,
         [&] {
             QDir(attachmentsFolder()).removeRecursively();
             writeBytes(attachmentsFolder(), "not a folder");
         }},
        {"lock file is a folder, in the system's words put in French",
         failed + u"« "_s + as(u"Fiva/Fiva.lock"_s) + u" » est un dossier, pas un fichier. ("_s +
             QString::fromLocal8Bit(std::strerror(EISDIR)) + u", EISDIR)"_s,
         crafted,
         [&] {
             QFile::remove(as(u"Fiva/Fiva.lock"_s));
             QDir().mkpath(as(u"Fiva/Fiva.lock"_s));
         }},
        {"data file cannot be written",
         failed + u"Les données restaurées n'ont pas pu être enregistrées dans « "_s + dataFile() +
             u" » : rien n'a changé."_s,
         crafted, [&] { lockAgainstWrites(dataFile()); }},
    };
    // What a failed restore must leave exactly as it was.
    using Snapshot = std::tuple<QList<LinkItem>, QStringList, std::optional<Timestamp>, QByteArray, bool,
                                QStringList, QStringList>;
    const auto snapshot = [&](const LinkStore &s) {
        return Snapshot{s.items(),
                        s.categories(),
                        s.lastBackupDate(),
                        readBytes(dataFile()),
                        QFileInfo::exists(dataFile()),
                        QDir(attachmentsFolder()).entryList(QDir::Files),
                        QDir(as(u"Fiva"_s)).entryList(QDir::Files | QDir::Hidden)};
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        unlockAll();
        QDir(as()).removeRecursively();
        m_dialogs.alerts.clear();
        const QString kept = userFile(u"k/garde.txt"_s, "kept");
        auto store = startWith({makeItem(u"old"_s, u"Vieux"_s, {attachment(kept)})}, {u"Vieux"_s, u"Autre"_s},
                               Timestamp{123.456});
        QDir().mkpath(attachmentsFolder());
        if (c.damage)
            c.damage();
        const Snapshot before = snapshot(*store);

        StdoutCapture capture;
        EXPECT_FALSE(store->restoreBackup(c.archive));
        capture.finish();
        EXPECT_TRUE(snapshot(*store) == before);
        EXPECT_FALSE(store->canUndoRestore());
        EXPECT_TRUE(leftovers().isEmpty()) << leftovers().join(u' ').toStdString();
        ASSERT_EQ(m_dialogs.alerts.size(), 1u);
        const AlertRequest &alert = m_dialogs.alerts[0];
        EXPECT_TRUE(QString(alert.message + u'\n' + alert.informativeText).startsWith(c.alert))
            << alert.message.toStdString() << '\n'
            << alert.informativeText.toStdString();
        EXPECT_EQ(alert.style, AlertStyle::warning);
        EXPECT_EQ(alert.buttons, QStringList{u"OK"_s});
    }
}

TEST_F(StoreTest, WithoutDialogsTheRestorePrintsItsAlert)
{
    auto store = start();
    store->setDialogs(nullptr);
    const QString archive = zipAt(u"z.zip"_s, {{u"rien.txt"_s, "x"}});
    StdoutCapture capture;
    EXPECT_FALSE(store->restoreBackup(archive));
    EXPECT_EQ(capture.finish(), u"Erreur restauration FivaData.json introuvable.\n"_s);
}

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

TEST_F(StoreTest, TwoThousandRecordsAndFiveHundredAttachmentsComeBackByteForByte)
{
    std::mt19937 random(2024);
    QList<LinkItem> items;
    QHash<QUuid, QByteArray> digests; // attachment id -> content of the original
    for (int r = 0; r < 2000; ++r) {
        items.append(makeItem(u"Fiche %1 « été »"_s.arg(r), u"Catégorie %1"_s.arg(r % 17)));
        items.last().notes = u"<p>note %1</p>"_s.arg(r);
        items.last().isFavorite = r % 3 == 0;
    }
    // The same name in many folders, non-ASCII, no extension, inner dots, unique names.
    const char *const shapes[] = {"dossier%1/rapport.pdf", "d%1/Résumé — ñ 日本 %2.odt", "d%1/LISEZMOI",
                                  "d%1/photo.v%2.jpeg", "d%1/unique-%1.txt"};
    for (int k = 0; k < 500; ++k) {
        QString filePath = path(u"files/gros/archive.bin"_s);
        if (k == 250) {
            writeLargeFile(filePath, 3);
        } else {
            QByteArray bytes(static_cast<qsizetype>(random() % 8192), Qt::Uninitialized);
            for (char &c : bytes)
                c = static_cast<char>(random());
            const QString shape = QString::fromUtf8(shapes[k % 5]);
            filePath =
                userFile(shape.contains(QLatin1String("%2")) ? shape.arg(k).arg(k % (k % 5 == 1 ? 7 : 3))
                                                             : shape.arg(k),
                         bytes);
        }
        Attachment a = attachment(filePath);
        digests.insert(a.id, sha256Of(filePath));
        items[(k * 7) % 2000].attachments.append(a);
    }
    const QStringList categories = {u"Zèbre"_s, u"abc"_s, u"Été"_s};
    auto store = startWith(items, categories, Timestamp{100.0});
    const QString archive = exportArchive(*store);
    EXPECT_EQ(runTool(u"unzip"_s, {u"-tq"_s, archive}).exitCode, 0);

    // A fresh machine: the originals are gone from the attachments folder's point of view.
    ASSERT_TRUE(QDir(m_root.path()).rename(u"as"_s, u"as-before"_s));
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
}

// What the export reads back before it renames its archive into place, and the restore before it
// unpacks: the end of the file and the entries the walk reaches, against what the end record says.
TEST_F(StoreTest, ArchiveDirectoryShowsTruncatedWalksAndTrailingBytes)
{
    auto store =
        startWith({makeItem(u"a"_s, u"T"_s, {attachment(userFile(u"a/doc.pdf"_s, "pdf"))})}, {u"T"_s});
    const QString good = exportArchive(*store, u"good.fivabackup"_s);
    const qint64 size = QFileInfo(good).size();
    QFile::copy(good, path(u"tail.fivabackup"_s));
    QFile::copy(good, path(u"broken.fivabackup"_s));
    QFile tail(path(u"tail.fivabackup"_s));
    ASSERT_TRUE(tail.open(QIODevice::Append) && tail.write("0123456789") == 10);
    tail.close();
    breakCentralRecord(path(u"broken.fivabackup"_s), 3);
    struct Case
    {
        const char *name;
        quint64 walked, declared, endOfData;
    };
    const Case cases[] = {
        {"good", 5, 5, quint64(size)}, {"tail", 5, 5, quint64(size)}, {"broken", 3, 5, quint64(size)}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const QString archive = path(QString::fromLatin1(c.name) + u".fivabackup"_s);
        const auto directory = backup::readArchiveDirectory(archive);
        ASSERT_TRUE(directory.ok()) << directory.error().toStdString();
        EXPECT_EQ(directory.value().walked, c.walked);
        EXPECT_EQ(directory.value().declared, c.declared);
        EXPECT_EQ(directory.value().endOfData, c.endOfData);
        EXPECT_EQ(backup::checkAllEntriesReadable(archive, directory.value()).has_value(),
                  c.walked != c.declared);
    }
}

// A restore keeps the data file as it was; undoing brings it back byte for byte, whether the
// restore came from an archive or from an automatic backup, and leaves the copies it added.
TEST_F(StoreTest, RestoreThenUndoGivesBackTheDataFileByteForByte)
{
    struct Case
    {
        const char *name;
        bool automatic;
        int copies; // attachment copies the restore adds
    };
    const Case cases[] = {{"archive", false, 1}, {"automatic backup", true, 0}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        QDir(as()).removeRecursively();
        auto source =
            startWith({makeItem(u"Restaurée"_s, u"Neuve"_s, {attachment(userFile(u"s/doc.pdf"_s, "d"))})},
                      {u"Neuve"_s}, Timestamp{555.5});
        QString file;
        if (c.automatic) {
            StdoutCapture quiet;
            source->performAutoBackup();
            file = QDir(autoBackups()).filePath(QDir(autoBackups()).entryList(QDir::Files).value(0));
        } else {
            file = exportArchive(*source);
        }
        const QString kept = path(u"sources/"_s + QFileInfo(file).fileName());
        QDir().mkpath(path(u"sources"_s));
        QFile::remove(kept);
        ASSERT_TRUE(QFile::rename(file, kept));
        source.reset();
        QDir(as()).removeRecursively();

        EXPECT_EQ(LinkStore::restoreConfirmationText(kept).contains(u"aucune copie de pièce jointe"_s),
                  c.automatic);
        auto store =
            startWith({makeItem(u"Ancienne"_s, u"Vieux"_s)}, {u"Vieux"_s, u"Autre"_s}, Timestamp{123.456});
        const QByteArray before = readBytes(dataFile());
        const auto items = store->items();
        const auto categories = store->categories();
        {
            StdoutCapture quiet;
            ASSERT_TRUE(store->restoreBackup(kept))
                << (m_dialogs.alerts.empty() ? "" : m_dialogs.alerts[0].informativeText.toStdString());
        }
        ASSERT_EQ(store->items().size(), 1);
        EXPECT_EQ(store->items()[0].title, u"Restaurée"_s);
        EXPECT_EQ(store->lastBackupDate(), m_clock.now()) << "the date the backup was made";
        EXPECT_NE(readBytes(dataFile()), before);
        EXPECT_EQ(readBytes(as(u"Fiva/FivaData-avant-restauration-2025-01-01T00-00-00Z.json"_s)), before);
        const QStringList copies = QDir(attachmentsFolder()).entryList(QDir::Files);
        EXPECT_EQ(copies.size(), c.copies);

        ASSERT_TRUE(store->canUndoRestore());
        ASSERT_TRUE(store->undoRestore());
        EXPECT_EQ(readBytes(dataFile()), before);
        EXPECT_EQ(store->items(), items);
        EXPECT_EQ(store->categories(), categories);
        EXPECT_EQ(store->lastBackupDate(), Timestamp{123.456});
        EXPECT_EQ(QDir(attachmentsFolder()).entryList(QDir::Files), copies) << "nothing is deleted";
        EXPECT_FALSE(store->canUndoRestore());
    }
}

// Each restore keeps its own snapshot, also within one second; only the five newest stay, and each
// undo goes one restore further back.
TEST_F(StoreTest, FiveSnapshotsAreKeptAndEachUndoGoesOneRestoreBack)
{
    auto store = startWith({}, {u"c0"_s});
    for (int i = 1; i <= 6; ++i) {
        const QString backup = path(u"auto%1.fivabackup"_s.arg(i));
        writeBytes(backup, json::encode(SavedData{{}, {u"c%1"_s.arg(i)}, Timestamp{double(i)}}).value());
        if (i % 2 == 0)
            m_clock.advance(1);
        StdoutCapture quiet;
        ASSERT_TRUE(store->restoreBackup(backup));
        EXPECT_EQ(store->categories(), QStringList{u"c%1"_s.arg(i)});
    }
    EXPECT_EQ(QDir(as(u"Fiva"_s)).entryList({u"FivaData-avant-restauration-*"_s}).size(), 5);
    for (int i = 5; i >= 1; --i) {
        ASSERT_TRUE(store->undoRestore());
        EXPECT_EQ(store->categories(), QStringList{u"c%1"_s.arg(i)});
        EXPECT_EQ(json::decodeSavedData(readBytes(dataFile())).value().categories, store->categories());
    }
    EXPECT_FALSE(store->undoRestore()) << "the oldest snapshot went when the sixth was made";
}

// A private document stays private: its permission bits, and its date to the archive's two-second
// precision, go into the staging copy, the archive's entry and the restored copy.
TEST_F(StoreTest, PermissionBitsAndDatesSurviveExportAndRestore)
{
    const std::pair<const char *, mode_t> files[] = {
        {"prive.pdf", 0600}, {"groupe.txt", 0640}, {"outil.sh", 0755}};
    const QDateTime when(QDate(2024, 3, 1), QTime(10, 20, 30), Qt::UTC);
    QList<Attachment> attachments;
    for (const auto &[name, mode] : files) {
        const QString file = userFile(u"p/"_s + QLatin1String(name), "x");
        ASSERT_EQ(::chmod(QFile::encodeName(file).constData(), mode), 0);
        QFile f(file);
        ASSERT_TRUE(f.open(QIODevice::ReadWrite) && f.setFileTime(when, QFileDevice::FileModificationTime));
        attachments.append(attachment(file));
    }
    auto store = startWith({makeItem(u"x"_s, u"T"_s, attachments)}, {u"T"_s});
    const QString archive = exportArchive(*store);

    const ToolRun listed = runTool(
        u"python3"_s,
        {u"-c"_s,
         QStringLiteral("import sys, zipfile\n"
                        "for i in zipfile.ZipFile(sys.argv[1]).infolist():\n"
                        "    if '/attachments/' in i.filename and not i.is_dir():\n"
                        "        print(i.filename.split('/')[-1], oct(i.external_attr >> 16 & 0o7777), "
                        "'%04d-%02d-%02dT%02d:%02d:%02d' % i.date_time)"),
         archive});
    QStringList expected;
    for (const auto &[name, mode] : files)
        expected << u"%1 0o%2 2024-03-01T10:20:30"_s.arg(QLatin1String(name)).arg(mode, 0, 8);
    QStringList got = listed.output.split(u'\n', Qt::SkipEmptyParts);
    got.sort();
    expected.sort();
    EXPECT_EQ(got, expected);

    ASSERT_TRUE(QDir(m_root.path()).rename(u"as"_s, u"as-before"_s));
    auto restored = start();
    {
        StdoutCapture quiet;
        ASSERT_TRUE(restored->restoreBackup(archive));
    }
    const QList<Attachment> &back = restored->items().at(0).attachments;
    ASSERT_EQ(back.size(), 3);
    for (qsizetype i = 0; i < back.size(); ++i) {
        struct stat info
        {
        };
        ASSERT_EQ(::stat(QFile::encodeName(back[i].filePath).constData(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, files[i].second) << files[i].first;
        EXPECT_EQ(QFileInfo(back[i].filePath).lastModified().toUTC(), when) << files[i].first;
    }
}

// The archive is written beside its place and renamed over it only once read back: a failure
// keeps the archive that was there, leaves no temporary file, and records nothing.
TEST_F(StoreTest, FailedExportKeepsTheArchiveThatWasThere)
{
    auto store = startWith({makeItem(u"a"_s, u"T"_s)}, {u"T"_s});
    const QString previous = userFile(u"dest/backup.fivabackup"_s, "the archive of last week");
    ASSERT_EQ(::chmod(QFile::encodeName(previous).constData(), 0640), 0);
    lockAgainstWrites(path(u"files/dest"_s));
    const auto error = store->writeBackupArchive(previous);
    ASSERT_TRUE(error.has_value());
    EXPECT_TRUE(error->contains(u"« "_s + path(u"files/dest"_s)) || error->contains(previous))
        << error->toStdString();
    EXPECT_FALSE(error->contains(u".tmp-"_s)) << "the temporary name means nothing to the user";
    EXPECT_EQ(readBytes(previous), "the archive of last week");
    EXPECT_TRUE(store->backupHistory().isEmpty());
    EXPECT_FALSE(store->lastBackupDate().has_value());
    unlockAll();
    EXPECT_EQ(QDir(path(u"files/dest"_s)).entryList(QDir::Files | QDir::Hidden),
              QStringList{u"backup.fivabackup"_s});

    // Replaced, the archive keeps the permission bits the user gave the old one.
    exportArchive(*store, u"files/dest/backup.fivabackup"_s);
    struct stat info
    {
    };
    ASSERT_EQ(::stat(QFile::encodeName(previous).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0640u);
    EXPECT_EQ(entriesOf(previous).size(), 4);
    EXPECT_EQ(QDir(path(u"files/dest"_s)).entryList(QDir::Files | QDir::Hidden),
              QStringList{u"backup.fivabackup"_s});
}

// Deleted files go to the trash of the user's data folder, from where they can be brought back.
// The test has a home and a data folder of its own: the real trash is never touched.
TEST_F(StoreTest, DiscardedFilesGoToTheTrash)
{
    const QByteArray home = qgetenv("HOME"), data = qgetenv("XDG_DATA_HOME");
    qputenv("HOME", QFile::encodeName(path(u"home"_s)));
    qputenv("XDG_DATA_HOME", QFile::encodeName(path(u"home/data"_s)));
    QDir().mkpath(path(u"home/data"_s));
    const QString trash = path(u"home/data/Trash"_s);
    struct Case
    {
        const char *name;
        QString path;
        bool gone;
        const char *trashed; // name in the trash, or nothing
    };
    const QString folder = path(u"files/dossier"_s);
    QDir().mkpath(folder);
    const Case cases[] = {
        {"attachment", userFile(u"a/rapport.pdf"_s, "1"), true, "rapport.pdf"},
        {"another of the same name", userFile(u"b/rapport.pdf"_s, "2"), true, "rapport.pdf-0001"},
        {"a folder is never discarded", folder, false, nullptr},
        {"already gone", path(u"files/absent.pdf"_s), true, nullptr},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(discardFile(c.path), c.gone);
        EXPECT_EQ(QFileInfo::exists(c.path), !c.gone) << "gone from where it was";
        if (c.trashed) {
            const QString name = QString::fromUtf8(c.trashed);
            EXPECT_TRUE(QFileInfo::exists(trash + u"/files/"_s + name))
                << QDir(trash + u"/files"_s).entryList().join(u' ').toStdString();
            EXPECT_TRUE(
                readBytes(trash + u"/info/"_s + name + u".trashinfo"_s).contains(QFile::encodeName(c.path)));
        }
    }
    EXPECT_TRUE(QFileInfo(folder).isDir());

    // The store's deletions go the same way: a deleted record's copies and a removed attachment.
    const Attachment kept = attachment(userFile(u"c/devis.pdf"_s, "3"));
    const Attachment removed = attachment(userFile(u"c/facture.pdf"_s, "4"));
    const LinkItem record = makeItem(u"r"_s, LinkStore::uncategorized(), {kept, removed});
    auto store = startWith({record}, {LinkStore::uncategorized()});
    EXPECT_TRUE(store->removeAttachment(record.id, removed));
    store->deleteItem(record.id);
    for (const Attachment &a : {removed, kept}) {
        EXPECT_FALSE(QFileInfo::exists(a.filePath)) << a.fileName.toStdString();
        EXPECT_TRUE(QFileInfo::exists(trash + u"/files/"_s + QFileInfo(a.filePath).fileName()))
            << QDir(trash + u"/files"_s).entryList().join(u' ').toStdString();
    }

    // Where no trash can be made, the file is deleted, and nothing lands in the working folder.
    QDir().mkpath(path(u"blocked"_s));
    writeBytes(path(u"blocked/Trash"_s), "not a folder");
    QFile::setPermissions(path(u"blocked/Trash"_s), {});
    qputenv("XDG_DATA_HOME", QFile::encodeName(path(u"blocked"_s)));
    qputenv("HOME", QFile::encodeName(path(u"blocked"_s)));
    const QString workingFolder = QDir::currentPath();
    QDir().mkpath(path(u"cwd"_s));
    QDir::setCurrent(path(u"cwd"_s));
    const QString stray = userFile(u"d/perdu.pdf"_s, "5");
    EXPECT_TRUE(discardFile(stray));
    EXPECT_FALSE(QFileInfo::exists(stray));
    EXPECT_EQ(QDir(path(u"cwd"_s)).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
    QDir::setCurrent(workingFolder);

    qputenv("HOME", home);
    if (data.isNull())
        qunsetenv("XDG_DATA_HOME");
    else
        qputenv("XDG_DATA_HOME", data);
}

} // namespace
} // namespace fiva::test
