#include "store/BackupFiles.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSignalSpy>

#include <functional>
#include <ostream>

#include "BackupTestSupport.h"

namespace fiva::test {
namespace {

struct NameCase
{
    const char *name;
    int n;
    const char *exported;
    const char *restored;
};

TEST(BackupNames, CandidatesFollowEachOperationsOwnRule)
{
    const NameCase cases[] = {
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
    for (const NameCase &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(backup::exportCandidate(QString::fromUtf8(c.name), c.n), QString::fromUtf8(c.exported));
        EXPECT_EQ(backup::restoreCandidate(QString::fromUtf8(c.name), c.n), QString::fromUtf8(c.restored));
    }
}

TEST(BackupNames, LastComponentIgnoresTrailingSlashes)
{
    const std::pair<const char *, const char *> cases[] = {{"/a/b/rapport.pdf", "rapport.pdf"},
                                                           {"/a/b/", "b"},
                                                           {"rapport.pdf", "rapport.pdf"},
                                                           {"", ""},
                                                           {"/", ""}};
    for (const auto &[in, out] : cases)
        EXPECT_EQ(backup::lastComponent(QString::fromUtf8(in)), QString::fromUtf8(out)) << in;
}

TEST(BackupNames, OrdinalOrderIsByCodePointAfterComposition)
{
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
    const QByteArray good =
        backup::encodeAttachmentIndex({{1, 2, QStringLiteral("/x/a.pdf"), QStringLiteral("a-1.pdf")}});
    ASSERT_TRUE(backup::decodeAttachmentIndex(good).has_value());
    EXPECT_EQ(backup::decodeAttachmentIndex(good)->at(0),
              (backup::ArchivedAttachment{1, 2, QStringLiteral("/x/a.pdf"), QStringLiteral("a-1.pdf")}));
    for (const char *bad : {"../a", "x/a", "..", ""}) {
        const QByteArray bytes =
            backup::encodeAttachmentIndex({{0, 0, QStringLiteral("/x"), QString::fromUtf8(bad)}});
        EXPECT_FALSE(backup::decodeAttachmentIndex(bytes).has_value()) << bad;
    }
    EXPECT_FALSE(backup::decodeAttachmentIndex(
                     R"({"version":1,"files":[{"record":-1,"attachment":0,"filePath":"","file":"a"}]})")
                     .has_value());
    EXPECT_FALSE(backup::decodeAttachmentIndex(R"({"version":2,"files":[]})").has_value());
    EXPECT_FALSE(backup::decodeAttachmentIndex("[]").has_value());
}

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

TEST_F(BackupTest, CancelledSavePanelDoesNothingAtAll)
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
}

TEST_F(BackupTest, ExportRunsWhenThePanelAnswersAndCallsTheCompletionAfterSuccessAndFailure)
{
    auto store =
        startWith({makeItem(QStringLiteral("a"), QStringLiteral("Travail"))}, {QStringLiteral("Travail")});
    m_dialogs.holdPanels = true;
    int completions = 0;
    store->exportBackup([&] { ++completions; });
    EXPECT_FALSE(QFileInfo::exists(path(QStringLiteral("ok.fivabackup"))));
    m_clock.advance(60);
    {
        StdoutCapture capture;
        m_dialogs.finishSavePanel(path(QStringLiteral("ok.fivabackup")));
        EXPECT_EQ(capture.finish(), QString());
    }
    EXPECT_EQ(completions, 1);
    EXPECT_TRUE(QFileInfo::exists(path(QStringLiteral("ok.fivabackup"))));
    EXPECT_EQ(store->lastBackupDate(), m_clock.now());
    EXPECT_FALSE(store->isBackupOld());
    ASSERT_EQ(store->backupHistory().size(), 1);
    EXPECT_EQ(store->backupHistory()[0].filePath, path(QStringLiteral("ok.fivabackup")));
    EXPECT_EQ(store->backupHistory()[0].fileSize, QFileInfo(path(QStringLiteral("ok.fivabackup"))).size());

    // A folder that does not exist: the zipping fails, nothing of the store moves.
    const auto date = store->lastBackupDate();
    store->exportBackup([&] { ++completions; });
    StdoutCapture capture;
    m_dialogs.finishSavePanel(path(QStringLiteral("missing/ko.fivabackup")));
    const QString printed = capture.finish();
    EXPECT_TRUE(printed.startsWith(QStringLiteral("❌ Erreur export : FileSystemError.")))
        << printed.toStdString();
    EXPECT_TRUE(printed.endsWith(u'\n'));
    EXPECT_EQ(completions, 2);
    EXPECT_EQ(store->lastBackupDate(), date);
    EXPECT_EQ(store->backupHistory().size(), 1);
    EXPECT_TRUE(leftovers().isEmpty());
}

TEST_F(BackupTest, ArchiveHoldsTheDocumentTheAttachmentsFolderAndNumberedCopies)
{
    const QString a = userFile(QStringLiteral("un/NAME.pdf"), "one");
    const QString b = userFile(QStringLiteral("deux/NAME.pdf"), "two");
    const QString c = userFile(QStringLiteral("trois/NAME.pdf"), "three");
    const QString d = userFile(QStringLiteral("un/notes"), "n1");
    const QString e = userFile(QStringLiteral("deux/notes"), "n2");
    const QString gone = path(QStringLiteral("files/gone.pdf"));
    auto store = startWith(
        {makeItem(QStringLiteral("x"), QStringLiteral("T"), {attachment(a), attachment(gone), attachment(d)}),
         makeItem(QStringLiteral("y"), QStringLiteral("T"), {attachment(b), attachment(e), attachment(c)})},
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

    // Order decides the numbers: b (second record) is NAME-1, c is NAME-2.
    const QString unpacked = path(QStringLiteral("unpacked"));
    ASSERT_EQ(
        runTool(QStringLiteral("unzip"), {QStringLiteral("-q"), archive, QStringLiteral("-d"), unpacked})
            .exitCode,
        0);
    const QDir inside(QDir(unpacked).filePath(top));
    EXPECT_EQ(readBytes(inside.filePath(QStringLiteral("attachments/NAME.pdf"))), "one");
    EXPECT_EQ(readBytes(inside.filePath(QStringLiteral("attachments/NAME-1.pdf"))), "two");
    EXPECT_EQ(readBytes(inside.filePath(QStringLiteral("attachments/NAME-2.pdf"))), "three");
    EXPECT_EQ(readBytes(inside.filePath(QStringLiteral("attachments/notes-1."))), "n2");
    const auto document = json::decodeSavedData(readBytes(inside.filePath(QStringLiteral("FivaData.json"))));
    ASSERT_TRUE(document.ok());
    EXPECT_EQ(document.value().lastBackupDate, written);
    EXPECT_EQ(document.value().items, store->items()) << "records keep their paths in the archive";
    EXPECT_TRUE(leftovers().isEmpty());
}

TEST_F(BackupTest, EmptyStoreStillGetsAnAttachmentsFolderAndReplacesAnExistingArchive)
{
    auto store = start();
    writeBytes(path(QStringLiteral("old.fivabackup")), "previous archive");
    const QString archive = exportArchive(*store, QStringLiteral("old.fivabackup"));
    QStringList names;
    for (const QString &entry : entriesOf(archive))
        names << entry.section(u' ', 0, 0).section(u'/', 1);
    names.sort();
    EXPECT_EQ(names, (QStringList{QString(), QStringLiteral("FivaAttachments.json"),
                                  QStringLiteral("FivaData.json"), QStringLiteral("attachments/")}));
    EXPECT_NE(readBytes(archive), "previous archive");
}

TEST_F(BackupTest, SameNamedAttachmentsComeBackApartEvenWhenOneWasMissingAtExport)
{
    const QString a = userFile(QStringLiteral("a/rapport.pdf"), "A");
    const QString b = userFile(QStringLiteral("b/rapport.pdf"), "B");
    const QString c = userFile(QStringLiteral("c/rapport.pdf"), "C");
    const QString missing = path(QStringLiteral("files/z/rapport.pdf"));
    const QList<LinkItem> items = {
        makeItem(QStringLiteral("1"), QStringLiteral("T"), {attachment(missing), attachment(a)}),
        makeItem(QStringLiteral("2"), QStringLiteral("T"), {attachment(b)}),
        makeItem(QStringLiteral("3"), QStringLiteral("T"), {attachment(c)})};
    auto store = startWith(items, {QStringLiteral("T")}, Timestamp{1.5});
    const QString archive = exportArchive(*store);

    auto restored = start();
    ASSERT_TRUE(restored->restoreBackup(archive));
    EXPECT_TRUE(m_dialogs.alerts.empty());
    const QList<LinkItem> &back = restored->items();
    ASSERT_EQ(back.size(), 3);
    EXPECT_EQ(back[0].attachments[0].filePath, missing) << "not in the archive: left as it was";
    const QStringList paths = {back[0].attachments[1].filePath, back[1].attachments[0].filePath,
                               back[2].attachments[0].filePath};
    EXPECT_EQ(readBytes(paths[0]), "A");
    EXPECT_EQ(readBytes(paths[1]), "B");
    EXPECT_EQ(readBytes(paths[2]), "C");
    for (const QString &p : paths)
        EXPECT_EQ(QFileInfo(p).absolutePath(), attachmentsFolder());
    EXPECT_EQ(back[1].attachments[0].fileName, QStringLiteral("rapport-1.pdf"));
    EXPECT_TRUE(leftovers().isEmpty());
}

TEST_F(BackupTest, RestoreReplacesDataSortsOrdinallySavesAndRenamesOnSecondRun)
{
    const QString a = userFile(QStringLiteral("a/rapport.v2.pdf"), "v2");
    const QString n = userFile(QStringLiteral("a/LISEZMOI"), "lisez");
    LinkItem item = makeItem(QStringLiteral("1"), QStringLiteral("été"), {attachment(a), attachment(n)});
    const QStringList categories = {QStringLiteral("été"), QStringLiteral("Zoo"), QStringLiteral("abc")};
    auto source = startWith({item}, categories, Timestamp{42.25});
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
    EXPECT_EQ(store->items().size(), 1);
    EXPECT_EQ(store->items()[0].attachments[0].fileName, QStringLiteral("rapportv2-2.pdf"));
    EXPECT_EQ(store->items()[0].attachments[1].fileName, QStringLiteral("-2."));
    EXPECT_EQ(readBytes(store->items()[0].attachments[0].filePath), "v2");
    EXPECT_EQ(readBytes(store->items()[0].attachments[1].filePath), "lisez");
    EXPECT_EQ(QDir(attachmentsFolder()).entryList(QDir::Files).size(), 6);
}

TEST_F(BackupTest, LegacyArrayAndArchiveWithoutAttachmentsFolder)
{
    LinkItem item = makeItem(QStringLiteral("1"), QStringLiteral("Perso"),
                             {attachment(QStringLiteral("/ailleurs/doc.pdf"))});
    const QByteArray saved = json::encode(SavedData{{item}, {QStringLiteral("Perso")}, std::nullopt}).value();
    // The bare array is the "items" value of the document.
    const QByteArray legacy =
        QJsonDocument(QJsonDocument::fromJson(saved).object().value(QStringLiteral("items")).toArray())
            .toJson();
    ASSERT_TRUE(json::decodeLinkItems(legacy).ok());
    const QString archive = path(QStringLiteral("legacy.fivabackup"));
    writeZipWithPython(archive,
                       {{QStringLiteral("Vieux/"), {}}, {QStringLiteral("Vieux/FivaData.json"), legacy}});

    auto store = startWith({}, {QStringLiteral("x")}, Timestamp{5});
    ASSERT_TRUE(store->restoreBackup(archive));
    EXPECT_EQ(store->items(), QList<LinkItem>{item}) << "no attachments folder: paths unchanged";
    EXPECT_EQ(store->categories(), QStringList{LinkStore::uncategorized()});
    EXPECT_FALSE(store->lastBackupDate().has_value());
    EXPECT_TRUE(store->isBackupOld());
}

TEST_F(BackupTest, HandMadeInfoZipArchiveRestoresWithReplayedNames)
{
    const QString a = userFile(QStringLiteral("a/r.pdf"), "A");
    const QString b = userFile(QStringLiteral("b/r.pdf"), "B");
    const QList<LinkItem> items = {makeItem(QStringLiteral("1"), QStringLiteral("T"), {attachment(a)}),
                                   makeItem(QStringLiteral("2"), QStringLiteral("T"), {attachment(b)})};
    const QString top =
        QStringLiteral("FivaExport-") + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    const QDir staging(path(QStringLiteral("hand/") + top));
    writeBytes(staging.filePath(QStringLiteral("FivaData.json")),
               json::encode(SavedData{items, {QStringLiteral("T")}, Timestamp{9}}).value());
    writeBytes(staging.filePath(QStringLiteral("attachments/r.pdf")), "A");
    writeBytes(staging.filePath(QStringLiteral("attachments/r-1.pdf")), "B");
    const QString archive = path(QStringLiteral("hand.fivabackup"));
    ASSERT_EQ(
        runTool(QStringLiteral("zip"), {QStringLiteral("-qr"), archive, top}, path(QStringLiteral("hand")))
            .exitCode,
        0);

    auto store = start();
    ASSERT_TRUE(store->restoreBackup(archive))
        << (m_dialogs.alerts.empty() ? "" : m_dialogs.alerts[0].informativeText.toStdString());
    EXPECT_EQ(readBytes(store->items()[0].attachments[0].filePath), "A");
    EXPECT_EQ(readBytes(store->items()[1].attachments[0].filePath), "B");
    EXPECT_EQ(store->lastBackupDate(), Timestamp{9});
}

struct RestoreFailure
{
    const char *name;
    std::function<QString(BackupTest &)> prepare; // returns the archive to restore
    const char *title;
    const char *messageStart;
};

void PrintTo(const RestoreFailure &c, std::ostream *os)
{
    *os << c.name;
}

class RestoreFailureTest : public BackupTest, public ::testing::WithParamInterface<RestoreFailure>
{
public:
    QString goodArchive(const QByteArray &document = {})
    {
        const QString top = QStringLiteral("FivaExport-1/");
        const QString archive = path(QStringLiteral("crafted.fivabackup"));
        writeZipWithPython(
            archive, {{top, {}},
                      {top + QStringLiteral("FivaData.json"),
                       document.isEmpty()
                           ? json::encode(SavedData{{makeItem(QStringLiteral("new"), QStringLiteral("N"),
                                                              {attachment(QStringLiteral("/x/doc.pdf"))})},
                                                    {QStringLiteral("N")},
                                                    Timestamp{1}})
                                 .value()
                           : document},
                      {top + QStringLiteral("attachments/"), {}},
                      {top + QStringLiteral("attachments/doc.pdf"), "pdf"}});
        return archive;
    }
};

TEST_P(RestoreFailureTest, LeavesTheStoreAndItsFileExactlyAsTheyWereAndNoStagingFolder)
{
    const RestoreFailure &c = GetParam();
    const QString kept = userFile(QStringLiteral("k/garde.txt"), "kept");
    auto store = startWith({makeItem(QStringLiteral("old"), QStringLiteral("Vieux"), {attachment(kept)})},
                           {QStringLiteral("Vieux"), QStringLiteral("Autre")}, Timestamp{123.456});
    QDir().mkpath(attachmentsFolder());
    const QString archive = c.prepare(*this);
    const StoreSnapshot before = StoreSnapshot::of(*store, dataFile());
    const QStringList attachmentsBefore = QDir(attachmentsFolder()).entryList(QDir::Files);

    StdoutCapture capture;
    EXPECT_FALSE(store->restoreBackup(archive));
    capture.finish();
    EXPECT_EQ(StoreSnapshot::of(*store, dataFile()), before);
    EXPECT_EQ(QDir(attachmentsFolder()).entryList(QDir::Files), attachmentsBefore);
    EXPECT_TRUE(leftovers().isEmpty()) << leftovers().join(u' ').toStdString();
    ASSERT_EQ(m_dialogs.alerts.size(), 1u);
    const AlertRequest &alert = m_dialogs.alerts[0];
    EXPECT_EQ(alert.message, QString::fromUtf8(c.title));
    EXPECT_TRUE(alert.informativeText.startsWith(QString::fromUtf8(c.messageStart)))
        << alert.informativeText.toStdString();
    EXPECT_EQ(alert.style, AlertStyle::warning);
    EXPECT_EQ(alert.buttons, QStringList{QStringLiteral("OK")});
}

const QByteArray undecodable = R"({"items": 3})";

INSTANTIATE_TEST_SUITE_P(
    Steps, RestoreFailureTest,
    ::testing::Values(
        RestoreFailure{"NotAZip",
                       [](BackupTest &t) {
                           writeBytes(t.path(QStringLiteral("text.fivabackup")), "{\"items\":[]}");
                           return t.path(QStringLiteral("text.fivabackup"));
                       },
                       "Erreur restauration :", "ArchiveError.missingEndOfCentralDirectoryRecord"},
        RestoreFailure{"MissingArchive",
                       [](BackupTest &t) { return t.path(QStringLiteral("nowhere.fivabackup")); },
                       "Erreur restauration :", "FileSystemError.fileReadNoSuchFile"},
        RestoreFailure{
            "NoDataDocument",
            [](BackupTest &t) {
                writeZipWithPython(t.path(QStringLiteral("z.zip")), {{QStringLiteral("a/Autre.json"), "{}"}});
                return t.path(QStringLiteral("z.zip"));
            },
            "Erreur restauration", "FivaData.json introuvable."},
        RestoreFailure{
            "UndecodableInBothForms",
            [](BackupTest &t) { return static_cast<RestoreFailureTest &>(t).goodArchive(undecodable); },
            "Erreur restauration :", json::decodeLinkItems(undecodable).error().toUtf8().constData()},
        RestoreFailure{"CrcMismatch",
                       [](BackupTest &t) {
                           writeZipWithPython(
                               t.path(QStringLiteral("crc.zip")),
                               {{QStringLiteral("FivaData.json"), R"({"items":[],"categories":[]})"}},
                               QStringLiteral("FivaData.json"));
                           return t.path(QStringLiteral("crc.zip"));
                       },
                       "Erreur restauration :", "ArchiveError.invalidCRC32"},
        RestoreFailure{"EntryEscapesStaging",
                       [](BackupTest &t) {
                           writeZipWithPython(
                               t.path(QStringLiteral("evil.zip")),
                               {{QStringLiteral("FivaData.json"), R"({"items":[],"categories":[]})"},
                                {QStringLiteral("../../as/Fiva/FivaData.json"), "[]"}});
                           return t.path(QStringLiteral("evil.zip"));
                       },
                       "Erreur restauration :", "FileSystemError.fileReadInvalidFileName"},
        RestoreFailure{"LinkEscapesStaging",
                       [](BackupTest &t) {
                           writeZipWithPython(
                               t.path(QStringLiteral("link.zip")),
                               {{QStringLiteral("attachments"), "/", true},
                                {QStringLiteral("FivaData.json"), R"({"items":[],"categories":[]})"}});
                           return t.path(QStringLiteral("link.zip"));
                       },
                       "Erreur restauration :", "ArchiveError.uncontainedSymlink"},
        RestoreFailure{"AttachmentsFolderReadOnly",
                       [](BackupTest &t) {
                           const QString archive = static_cast<RestoreFailureTest &>(t).goodArchive();
                           t.lockAgainstWrites(t.attachmentsFolder());
                           return archive;
                       },
                       "Erreur restauration :", ""},
        RestoreFailure{"AttachmentsFolderIsAFile",
                       [](BackupTest &t) {
                           const QString archive = static_cast<RestoreFailureTest &>(t).goodArchive();
                           QDir(t.attachmentsFolder()).removeRecursively();
                           writeBytes(t.attachmentsFolder(), "not a folder");
                           return archive;
                       },
                       "Erreur restauration :", ""},
        RestoreFailure{"DataFileCannotBeWritten",
                       [](BackupTest &t) {
                           const QString archive = static_cast<RestoreFailureTest &>(t).goodArchive();
                           t.lockAgainstWrites(t.dataFile());
                           return archive;
                       },
                       "Erreur restauration :", ""}),
    [](const ::testing::TestParamInfo<RestoreFailure> &info) { return std::string(info.param.name); });

TEST_F(BackupTest, WithoutDialogsTheRestorePrintsItsAlert)
{
    auto store = start();
    store->setDialogs(nullptr);
    writeZipWithPython(path(QStringLiteral("z.zip")), {{QStringLiteral("rien.txt"), "x"}});
    StdoutCapture capture;
    EXPECT_FALSE(store->restoreBackup(path(QStringLiteral("z.zip"))));
    EXPECT_EQ(capture.finish(), QStringLiteral("Erreur restauration FivaData.json introuvable.\n"));
}

} // namespace
} // namespace fiva::test
