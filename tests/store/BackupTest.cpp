#include "store/BackupFiles.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSet>
#include <QSignalSpy>

#include <cstring>
#include <functional>
#include <ostream>
#include <random>

#include "StoreTestSupport.h"

namespace fiva::test {
namespace {

const QString restoreError = QStringLiteral("Erreur restauration :");

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

    QStringList names = {QStringLiteral("été"),
                         QStringLiteral("Zoo"),
                         QStringLiteral("abc"),
                         QStringLiteral("Été"),
                         QStringLiteral("e\u0301t\u00e9 b"),
                         QStringLiteral("\U0001F600"),
                         QStringLiteral("\uFB01n")};
    std::stable_sort(names.begin(), names.end(), backup::ordinalLess);
    // The decomposed "été b" composes to "été b", so it follows "été"; the emoji (a surrogate
    // pair in UTF-16) sorts after U+FB01 by code point although its first unit is smaller.
    EXPECT_EQ(names, (QStringList{QStringLiteral("Zoo"), QStringLiteral("abc"), QStringLiteral("Été"),
                                  QStringLiteral("été"), QStringLiteral("e\u0301t\u00e9 b"),
                                  QStringLiteral("\uFB01n"), QStringLiteral("\U0001F600")}));
}

TEST(BackupNames, IndexRejectsNamesThatLeaveTheFolder)
{
    const backup::ArchivedAttachment entry{1, 2, QStringLiteral("/x/a.pdf"), QStringLiteral("a-1.pdf")};
    const auto good = backup::decodeAttachmentIndex(backup::encodeAttachmentIndex({entry}));
    ASSERT_TRUE(good.has_value());
    EXPECT_EQ(good->value(0), entry);
    for (const char *bad : {"../a", "x/a", "..", ""}) {
        const QByteArray bytes =
            backup::encodeAttachmentIndex({{0, 0, QStringLiteral("/x"), QString::fromUtf8(bad)}});
        EXPECT_FALSE(backup::decodeAttachmentIndex(bytes).has_value()) << bad;
    }
    for (const char *bad :
         {R"({"version":1,"files":[{"record":-1,"attachment":0,"filePath":"","file":"a"}]})",
          R"({"version":2,"files":[]})", "[]"})
        EXPECT_FALSE(backup::decodeAttachmentIndex(bad).has_value()) << bad;
}

// The entries of an archive as Python's zipfile reads them: name and compression method.
QStringList entriesOf(const QString &archive)
{
    const ToolRun run = runTool(QStringLiteral("python3"),
                                {QStringLiteral("-c"),
                                 QStringLiteral("import sys, zipfile\n"
                                                "z = zipfile.ZipFile(sys.argv[1])\n"
                                                "assert z.testzip() is None\n"
                                                "for i in z.infolist(): print(i.filename, i.compress_type)"),
                                 archive});
    EXPECT_EQ(run.exitCode, 0) << run.output.toStdString();
    return run.output.split(u'\n', Qt::SkipEmptyParts);
}

TEST_F(StoreTest, ExportWaitsForThePanelAndCallsTheCompletionAfterSuccessAndFailureButNotCancel)
{
    auto store =
        startWith({makeItem(QStringLiteral("a"), QStringLiteral("Travail"))}, {QStringLiteral("Travail")});
    const QByteArray before = readBytes(dataFile());
    m_dialogs.holdPanels = true;
    int completions = 0;
    StdoutCapture capture;
    store->exportBackup([&] { ++completions; });
    ASSERT_EQ(m_dialogs.savePanels.size(), 1u);
    EXPECT_EQ(m_dialogs.savePanels[0], (SavePanelRequest{QStringLiteral("Sauvegarde-Fiva.fivabackup"),
                                                         {QStringLiteral("fivabackup")}}));
    EXPECT_TRUE(m_dialogs.savePanelPending());
    m_dialogs.finishSavePanel(std::nullopt);
    EXPECT_EQ(capture.finish(), QString());
    EXPECT_EQ(completions, 0);
    EXPECT_TRUE(leftovers().isEmpty());
    EXPECT_EQ(readBytes(dataFile()), before);
    EXPECT_TRUE(store->backupHistory().isEmpty());

    const QString ok = path(QStringLiteral("ok.fivabackup"));
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
    EXPECT_FALSE(store->isBackupOld());
    ASSERT_EQ(store->backupHistory().size(), 1);
    EXPECT_EQ(store->backupHistory()[0].filePath, ok);
    EXPECT_EQ(store->backupHistory()[0].fileSize, QFileInfo(ok).size());
    EXPECT_GT(QFileInfo(ok).size(), 0);

    // A folder that does not exist: the zipping fails, nothing of the store moves.
    const auto date = store->lastBackupDate();
    m_clock.advance(60);
    store->exportBackup([&] { ++completions; });
    StdoutCapture failing;
    m_dialogs.finishSavePanel(path(QStringLiteral("missing/ko.fivabackup")));
    const QString printed = failing.finish();
    EXPECT_TRUE(printed.startsWith(QStringLiteral("❌ Erreur export : FileSystemError.")) &&
                printed.endsWith(u'\n'))
        << printed.toStdString();
    EXPECT_EQ(completions, 2);
    EXPECT_EQ(store->lastBackupDate(), date);
    EXPECT_EQ(store->backupHistory().size(), 1);
    EXPECT_TRUE(leftovers().isEmpty());
}

TEST_F(StoreTest, ArchiveHoldsTheDocumentTheAttachmentsFolderAndNumberedCopies)
{
    const QString gone = path(QStringLiteral("files/gone.pdf"));
    auto store =
        startWith({makeItem(QStringLiteral("x"), QStringLiteral("T"),
                            {attachment(userFile(QStringLiteral("un/NAME.pdf"), "one")), attachment(gone),
                             attachment(userFile(QStringLiteral("un/notes"), "n1"))}),
                   makeItem(QStringLiteral("y"), QStringLiteral("T"),
                            {attachment(userFile(QStringLiteral("deux/NAME.pdf"), "two")),
                             attachment(userFile(QStringLiteral("deux/notes"), "n2")),
                             attachment(userFile(QStringLiteral("trois/NAME.pdf"), "three"))})},
                  {QStringLiteral("T")});
    const Timestamp written = m_clock.now();
    const QString archive = exportArchive(*store);

    const QStringList entries = entriesOf(archive);
    ASSERT_FALSE(entries.isEmpty());
    const QString top = entries.last().section(u' ', 0, 0);
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^FivaExport-[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}/$"))
                    .match(top)
                    .hasMatch())
        << top.toStdString();
    QStringList names;
    for (const QString &entry : entries) {
        EXPECT_TRUE(entry.endsWith(QStringLiteral(" 0")))
            << "stored, not compressed: " << entry.toStdString();
        names << entry.section(u' ', 0, 0).mid(top.size());
    }
    names.sort();
    EXPECT_EQ(names,
              (QStringList{QString(), QStringLiteral("FivaAttachments.json"), QStringLiteral("FivaData.json"),
                           QStringLiteral("attachments/"), QStringLiteral("attachments/NAME-1.pdf"),
                           QStringLiteral("attachments/NAME-2.pdf"), QStringLiteral("attachments/NAME.pdf"),
                           QStringLiteral("attachments/notes"), QStringLiteral("attachments/notes-1.")}));
    EXPECT_EQ(runTool(QStringLiteral("unzip"), {QStringLiteral("-tq"), archive}).exitCode, 0);
    EXPECT_EQ(runTool(QStringLiteral("bsdtar"), {QStringLiteral("-tf"), archive}).exitCode, 0);

    // Order decides the numbers: "two" (second record) is NAME-1, "three" is NAME-2.
    const QString unpacked = path(QStringLiteral("unpacked"));
    ASSERT_EQ(
        runTool(QStringLiteral("unzip"), {QStringLiteral("-q"), archive, QStringLiteral("-d"), unpacked})
            .exitCode,
        0);
    const QDir inside(QDir(unpacked).filePath(top));
    const std::pair<const char *, QByteArray> contents[] = {
        {"NAME.pdf", "one"}, {"NAME-1.pdf", "two"}, {"NAME-2.pdf", "three"}, {"notes-1.", "n2"}};
    for (const auto &[name, bytes] : contents)
        EXPECT_EQ(readBytes(inside.filePath(QStringLiteral("attachments/") + QLatin1String(name))), bytes)
            << name;
    const auto document = json::decodeSavedData(readBytes(inside.filePath(QStringLiteral("FivaData.json"))));
    ASSERT_TRUE(document.ok());
    EXPECT_EQ(document.value().lastBackupDate, written);
    EXPECT_EQ(document.value().items, store->items()) << "records keep their paths in the archive";
    EXPECT_TRUE(leftovers().isEmpty());

    // An empty store still gets an attachments folder, and an existing archive is replaced.
    auto empty = startWith({}, {});
    writeBytes(path(QStringLiteral("old.fivabackup")), "previous archive");
    const QString replaced = exportArchive(*empty, QStringLiteral("old.fivabackup"));
    names.clear();
    for (const QString &entry : entriesOf(replaced))
        names << entry.section(u' ', 0, 0).section(u'/', 1);
    names.sort();
    EXPECT_EQ(names, (QStringList{QString(), QStringLiteral("FivaAttachments.json"),
                                  QStringLiteral("FivaData.json"), QStringLiteral("attachments/")}));
}

TEST_F(StoreTest, SameNamedAttachmentsComeBackApartEvenWhenOneWasMissingAtExport)
{
    const QString missing = path(QStringLiteral("files/z/rapport.pdf"));
    auto store = startWith(
        {makeItem(QStringLiteral("1"), QStringLiteral("T"),
                  {attachment(missing), attachment(userFile(QStringLiteral("a/rapport.pdf"), "A"))}),
         makeItem(QStringLiteral("2"), QStringLiteral("T"),
                  {attachment(userFile(QStringLiteral("b/rapport.pdf"), "B"))}),
         makeItem(QStringLiteral("3"), QStringLiteral("T"),
                  {attachment(userFile(QStringLiteral("c/rapport.pdf"), "C"))})},
        {QStringLiteral("T")}, Timestamp{1.5});
    const QString archive = exportArchive(*store);

    auto restored = start();
    ASSERT_TRUE(restored->restoreBackup(archive));
    EXPECT_TRUE(m_dialogs.alerts.empty());
    const QList<LinkItem> &back = restored->items();
    ASSERT_EQ(back.size(), 3);
    EXPECT_EQ(back[0].attachments[0].filePath, missing) << "not in the archive: left as it was";
    const std::pair<QString, QByteArray> copies[] = {{back[0].attachments[1].filePath, "A"},
                                                     {back[1].attachments[0].filePath, "B"},
                                                     {back[2].attachments[0].filePath, "C"}};
    for (const auto &[file, bytes] : copies) {
        EXPECT_EQ(readBytes(file), bytes);
        EXPECT_EQ(QFileInfo(file).absolutePath(), attachmentsFolder());
    }
    EXPECT_EQ(back[1].attachments[0].fileName, QStringLiteral("rapport-1.pdf"));
    EXPECT_TRUE(leftovers().isEmpty());
}

TEST_F(StoreTest, RestoreReplacesDataSortsOrdinallySavesAndRenamesOnSecondRun)
{
    LinkItem item = makeItem(QStringLiteral("1"), QStringLiteral("été"),
                             {attachment(userFile(QStringLiteral("a/rapport.v2.pdf"), "v2")),
                              attachment(userFile(QStringLiteral("a/LISEZMOI"), "lisez"))});
    auto source = startWith({item}, {QStringLiteral("été"), QStringLiteral("Zoo"), QStringLiteral("abc")},
                            Timestamp{42.25});
    m_clock.set(Timestamp{777.0});
    const QString archive = exportArchive(*source);

    QDir(m_root.path()).rename(QStringLiteral("as"), QStringLiteral("as-source"));
    auto store = startWith({makeItem(QStringLiteral("old"), QStringLiteral("x"))}, {QStringLiteral("x")},
                           Timestamp{5});
    QSignalSpy items(store.get(), &LinkStore::itemsChanged);
    ASSERT_TRUE(store->restoreBackup(archive));
    EXPECT_EQ(items.count(), 1);
    EXPECT_EQ(store->categories(),
              (QStringList{QStringLiteral("Zoo"), QStringLiteral("abc"), QStringLiteral("été")}));
    EXPECT_EQ(store->lastBackupDate(), Timestamp{777.0}) << "the date written in the archive";
    ASSERT_EQ(store->items().size(), 1);
    const auto onDisk = json::decodeSavedData(readBytes(dataFile()));
    ASSERT_TRUE(onDisk.ok());
    EXPECT_EQ(onDisk.value(), (SavedData{store->items(), store->categories(), store->lastBackupDate()}));
    EXPECT_EQ(store->items()[0].attachments[0].fileName, QStringLiteral("rapport.v2.pdf"));

    ASSERT_TRUE(store->restoreBackup(archive));
    ASSERT_TRUE(store->restoreBackup(archive));
    ASSERT_EQ(store->items().size(), 1);
    const QList<Attachment> &third = store->items()[0].attachments;
    EXPECT_EQ(third[0].fileName, QStringLiteral("rapportv2-2.pdf"));
    EXPECT_EQ(third[1].fileName, QStringLiteral("-2."));
    EXPECT_EQ(readBytes(third[0].filePath), "v2");
    EXPECT_EQ(readBytes(third[1].filePath), "lisez");
    EXPECT_EQ(QDir(attachmentsFolder()).entryList(QDir::Files).size(), 6);
}

TEST_F(StoreTest, ArchivesMadeElsewhereRestore)
{
    // A bare list of records (the "items" value of the document) and no attachments folder: paths
    // stay unchanged.
    LinkItem item = makeItem(QStringLiteral("1"), QStringLiteral("Perso"),
                             {attachment(QStringLiteral("/ailleurs/doc.pdf"))});
    const QByteArray saved = json::encode(SavedData{{item}, {QStringLiteral("Perso")}, std::nullopt}).value();
    const QByteArray legacy =
        QJsonDocument(QJsonDocument::fromJson(saved).object().value(QStringLiteral("items")).toArray())
            .toJson();
    ASSERT_TRUE(json::decodeLinkItems(legacy).ok());
    const QString archive = path(QStringLiteral("legacy.fivabackup"));
    writeZipWithPython(archive,
                       {{QStringLiteral("Vieux/"), {}}, {QStringLiteral("Vieux/FivaData.json"), legacy}});
    auto store = startWith({}, {QStringLiteral("x")}, Timestamp{5});
    ASSERT_TRUE(store->restoreBackup(archive));
    EXPECT_EQ(store->items(), QList<LinkItem>{item});
    EXPECT_EQ(store->categories(), QStringList{LinkStore::uncategorized()});
    EXPECT_FALSE(store->lastBackupDate().has_value());
    EXPECT_TRUE(store->isBackupOld());

    // Made by Info-ZIP from a folder, without an index: the numbering is replayed.
    const QList<LinkItem> items = {makeItem(QStringLiteral("1"), QStringLiteral("T"),
                                            {attachment(userFile(QStringLiteral("a/r.pdf"), "A"))}),
                                   makeItem(QStringLiteral("2"), QStringLiteral("T"),
                                            {attachment(userFile(QStringLiteral("b/r.pdf"), "B"))})};
    const QString top =
        QStringLiteral("FivaExport-") + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    const QDir staging(path(QStringLiteral("hand/") + top));
    writeBytes(staging.filePath(QStringLiteral("FivaData.json")),
               json::encode(SavedData{items, {QStringLiteral("T")}, Timestamp{9}}).value());
    writeBytes(staging.filePath(QStringLiteral("attachments/r.pdf")), "A");
    writeBytes(staging.filePath(QStringLiteral("attachments/r-1.pdf")), "B");
    const QString zipped = path(QStringLiteral("hand.fivabackup"));
    ASSERT_EQ(
        runTool(QStringLiteral("zip"), {QStringLiteral("-qr"), zipped, top}, path(QStringLiteral("hand")))
            .exitCode,
        0);
    ASSERT_TRUE(store->restoreBackup(zipped))
        << (m_dialogs.alerts.empty() ? "" : m_dialogs.alerts[0].informativeText.toStdString());
    EXPECT_EQ(readBytes(store->items()[0].attachments[0].filePath), "A");
    EXPECT_EQ(readBytes(store->items()[1].attachments[0].filePath), "B");
    EXPECT_EQ(store->lastBackupDate(), Timestamp{9});
}

// What a failed restore must leave exactly as it was.
struct StoreSnapshot
{
    QList<LinkItem> items;
    QStringList categories;
    std::optional<Timestamp> lastBackupDate;
    QByteArray dataFile;
    bool dataFileExists = false;
    QStringList attachments;

    friend bool operator==(const StoreSnapshot &, const StoreSnapshot &) = default;
};

struct RestoreFailure
{
    const char *name;
    std::function<QString(StoreTest &)> prepare; // returns the archive to restore
    const char *title;
    const char *messageStart;
};

void PrintTo(const RestoreFailure &c, std::ostream *os)
{
    *os << c.name;
}

class RestoreFailureTest : public StoreTest, public ::testing::WithParamInterface<RestoreFailure>
{
public:
    StoreSnapshot snapshot(const LinkStore &store) const
    {
        return {store.items(),
                store.categories(),
                store.lastBackupDate(),
                readBytes(dataFile()),
                QFileInfo::exists(dataFile()),
                QDir(attachmentsFolder()).entryList(QDir::Files)};
    }
};

// A ZIP written by Python's zipfile in the test's folder.
QString zipAt(StoreTest &t, const char *name, const std::vector<ZipSpecEntry> &entries,
              const QString &corrupt = {})
{
    const QString archive = t.path(QString::fromLatin1(name));
    writeZipWithPython(archive, entries, corrupt);
    return archive;
}

// A well-formed archive, or one whose data document is `document`.
QString goodArchive(StoreTest &t, const QByteArray &document = {})
{
    const QString top = QStringLiteral("FivaExport-1/");
    const LinkItem item =
        makeItem(QStringLiteral("new"), QStringLiteral("N"),
                 {{QUuid::createUuid(), QStringLiteral("doc.pdf"), QStringLiteral("/x/doc.pdf")}});
    return zipAt(
        t, "crafted.fivabackup",
        {{top, {}},
         {top + QStringLiteral("FivaData.json"),
          document.isEmpty() ? json::encode(SavedData{{item}, {QStringLiteral("N")}, Timestamp{1}}).value()
                             : document},
         {top + QStringLiteral("attachments/"), {}},
         {top + QStringLiteral("attachments/doc.pdf"), "pdf"}});
}

const QByteArray undecodable = R"({"items": 3})";
const QByteArray emptyDocument = R"({"items":[],"categories":[]})";

TEST_P(RestoreFailureTest, LeavesTheStoreAndItsFileExactlyAsTheyWereAndNoStagingFolder)
{
    const RestoreFailure &c = GetParam();
    const QString kept = userFile(QStringLiteral("k/garde.txt"), "kept");
    auto store = startWith({makeItem(QStringLiteral("old"), QStringLiteral("Vieux"), {attachment(kept)})},
                           {QStringLiteral("Vieux"), QStringLiteral("Autre")}, Timestamp{123.456});
    QDir().mkpath(attachmentsFolder());
    const QString archive = c.prepare(*this);
    const StoreSnapshot before = snapshot(*store);

    StdoutCapture capture;
    EXPECT_FALSE(store->restoreBackup(archive));
    capture.finish();
    EXPECT_EQ(snapshot(*store), before);
    EXPECT_TRUE(leftovers().isEmpty()) << leftovers().join(u' ').toStdString();
    ASSERT_EQ(m_dialogs.alerts.size(), 1u);
    const AlertRequest &alert = m_dialogs.alerts[0];
    EXPECT_EQ(alert.message, QString::fromUtf8(c.title));
    EXPECT_TRUE(alert.informativeText.startsWith(QString::fromUtf8(c.messageStart)))
        << alert.informativeText.toStdString();
    EXPECT_EQ(alert.style, AlertStyle::warning);
    EXPECT_EQ(alert.buttons, QStringList{QStringLiteral("OK")});
}

INSTANTIATE_TEST_SUITE_P(
    Steps, RestoreFailureTest,
    ::testing::Values(
        RestoreFailure{"NotAZip",
                       [](StoreTest &t) {
                           writeBytes(t.path(QStringLiteral("text.fivabackup")), "{\"items\":[]}");
                           return t.path(QStringLiteral("text.fivabackup"));
                       },
                       "Erreur restauration :", "ArchiveError.missingEndOfCentralDirectoryRecord"},
        RestoreFailure{"MissingArchive",
                       [](StoreTest &t) { return t.path(QStringLiteral("nowhere.fivabackup")); },
                       "Erreur restauration :", "FileSystemError.fileReadNoSuchFile"},
        RestoreFailure{"NoDataDocument",
                       [](StoreTest &t) {
                           return zipAt(t, "z.zip", {{QStringLiteral("a/Autre.json"), "{}"}});
                       },
                       "Erreur restauration", "FivaData.json introuvable."},
        RestoreFailure{
            "UndecodableInBothForms", [](StoreTest &t) { return goodArchive(t, undecodable); },
            "Erreur restauration :", json::decodeLinkItems(undecodable).error().toUtf8().constData()},
        RestoreFailure{"CrcMismatch",
                       [](StoreTest &t) {
                           return zipAt(t, "crc.zip", {{QStringLiteral("FivaData.json"), emptyDocument}},
                                        QStringLiteral("FivaData.json"));
                       },
                       "Erreur restauration :", "ArchiveError.invalidCRC32"},
        RestoreFailure{"EntryEscapesStaging",
                       [](StoreTest &t) {
                           return zipAt(t, "evil.zip",
                                        {{QStringLiteral("FivaData.json"), emptyDocument},
                                         {QStringLiteral("../../as/Fiva/FivaData.json"), "[]"}});
                       },
                       "Erreur restauration :", "FileSystemError.fileReadInvalidFileName"},
        RestoreFailure{"LinkEscapesStaging",
                       [](StoreTest &t) {
                           return zipAt(t, "link.zip",
                                        {{QStringLiteral("attachments"), "/", true},
                                         {QStringLiteral("FivaData.json"), emptyDocument}});
                       },
                       "Erreur restauration :", "ArchiveError.uncontainedSymlink"},
        RestoreFailure{"AttachmentsFolderReadOnly",
                       [](StoreTest &t) {
                           const QString archive = goodArchive(t);
                           t.lockAgainstWrites(t.attachmentsFolder());
                           return archive;
                       },
                       "Erreur restauration :", ""},
        RestoreFailure{"AttachmentsFolderIsAFile",
                       [](StoreTest &t) {
                           QDir(t.attachmentsFolder()).removeRecursively();
                           writeBytes(t.attachmentsFolder(), "not a folder");
                           return goodArchive(t);
                       },
                       "Erreur restauration :", ""},
        RestoreFailure{"DataFileCannotBeWritten",
                       [](StoreTest &t) {
                           const QString archive = goodArchive(t);
                           t.lockAgainstWrites(t.dataFile());
                           return archive;
                       },
                       "Erreur restauration :", ""}),
    [](const ::testing::TestParamInfo<RestoreFailure> &info) { return std::string(info.param.name); });

TEST_F(StoreTest, WithoutDialogsTheRestorePrintsItsAlert)
{
    auto store = start();
    store->setDialogs(nullptr);
    const QString archive = zipAt(*this, "z.zip", {{QStringLiteral("rien.txt"), "x"}});
    StdoutCapture capture;
    EXPECT_FALSE(store->restoreBackup(archive));
    EXPECT_EQ(capture.finish(), QStringLiteral("Erreur restauration FivaData.json introuvable.\n"));
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
        items.append(
            makeItem(QStringLiteral("Fiche %1 « été »").arg(r), QStringLiteral("Catégorie %1").arg(r % 17)));
        items.last().notes = QStringLiteral("<p>note %1</p>").arg(r);
        items.last().isFavorite = r % 3 == 0;
    }
    // The same name in many folders, non-ASCII, no extension, inner dots, unique names.
    const char *const shapes[] = {"dossier%1/rapport.pdf", "d%1/Résumé — ñ 日本 %2.odt", "d%1/LISEZMOI",
                                  "d%1/photo.v%2.jpeg", "d%1/unique-%1.txt"};
    for (int k = 0; k < 500; ++k) {
        QString filePath = path(QStringLiteral("files/gros/archive.bin"));
        if (k == 250) {
            writeLargeFile(filePath, 200);
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
    QStringList sorted = categories;
    std::stable_sort(sorted.begin(), sorted.end(), backup::ordinalLess);
    EXPECT_EQ(restored->categories(), sorted);
}

} // namespace
} // namespace fiva::test
