#pragma once

#include "platform/Dialogs.h"
#include "store/LinkStore.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QProcess>

#include <sys/stat.h>
#include <unistd.h>

#include "StoreTestSupport.h"
#include "support/FakeDialogs.h"

namespace fiva::test {

struct ToolRun
{
    int exitCode = -1;
    QString output;
};

// Runs one of the outside tools the archives are checked against. A missing tool is a failure
// of the test run, never a skip.
inline ToolRun runTool(const QString &program, const QStringList &args, const QString &folder = {})
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    if (!folder.isEmpty())
        process.setWorkingDirectory(folder);
    process.start(program, args);
    if (!process.waitForStarted(10'000)) {
        ADD_FAILURE() << program.toStdString() << " could not be started; scripts/install-deps installs it";
        return {};
    }
    process.waitForFinished(300'000);
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAll())};
}

// Writes a ZIP with Python's zipfile. Entries: name, content, and whether the entry is a link.
// `corruptCrcOf` flips the recorded CRC-32 of that entry in both headers.
struct ZipSpecEntry
{
    QString name;
    QByteArray data;
    bool link = false;
};

inline void writeZipWithPython(const QString &path, const std::vector<ZipSpecEntry> &entries,
                               const QString &corruptCrcOf = {})
{
    static const char script[] = R"(
import base64, json, sys, zipfile
path, spec, corrupt = sys.argv[1], json.loads(sys.argv[2]), sys.argv[3]
with zipfile.ZipFile(path, 'w', zipfile.ZIP_STORED) as z:
    for e in spec:
        info = zipfile.ZipInfo(e['name'], (2024, 5, 1, 12, 0, 0))
        info.create_system = 3
        if e['link']:
            info.external_attr = 0o120777 << 16
        elif e['name'].endswith('/'):
            info.external_attr = (0o40755 << 16) | 0x10
        else:
            info.external_attr = 0o100644 << 16
        z.writestr(info, base64.b64decode(e['data']))
if corrupt:
    b = bytearray(open(path, 'rb').read())
    name = corrupt.encode()
    for sig, crc_at, name_at in ((b'PK\x03\x04', 14, 30), (b'PK\x01\x02', 16, 46)):
        i = b.find(sig)
        while i >= 0:
            if bytes(b[i + name_at:i + name_at + len(name)]) == name:
                b[i + crc_at] ^= 0xFF
            i = b.find(sig, i + 4)
    open(path, 'wb').write(b)
)";
    QString json = QStringLiteral("[");
    for (const ZipSpecEntry &e : entries) {
        if (json.size() > 1)
            json += u',';
        json += QStringLiteral("{\"name\":\"%1\",\"data\":\"%2\",\"link\":%3}")
                    .arg(e.name, QString::fromLatin1(e.data.toBase64()),
                         e.link ? QStringLiteral("true") : QStringLiteral("false"));
    }
    json += u']';
    const ToolRun run = runTool(QStringLiteral("python3"), {QStringLiteral("-c"), QString::fromLatin1(script),
                                                            path, json, corruptCrcOf});
    ASSERT_EQ(run.exitCode, 0) << run.output.toStdString();
}

inline QByteArray sha256Of(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(&file);
    return hash.result();
}

// What a failed restore must leave exactly as it was.
struct StoreSnapshot
{
    QList<LinkItem> items;
    QStringList categories;
    std::optional<Timestamp> lastBackupDate;
    QByteArray dataFile;
    bool dataFileExists = false;

    static StoreSnapshot of(const LinkStore &store, const QString &dataFile)
    {
        return {store.items(), store.categories(), store.lastBackupDate(), readBytes(dataFile),
                QFileInfo::exists(dataFile)};
    }
    friend bool operator==(const StoreSnapshot &, const StoreSnapshot &) = default;
};

// A store in its own application-support folder, with its own temporary folder (so that staging
// folders left behind show) and scripted dialogs.
class BackupTest : public ::testing::Test
{
public:
    BackupTest()
    {
        ensureApplication();
        QDir(m_root.path()).mkpath(QStringLiteral("as"));
        QDir(m_root.path()).mkpath(QStringLiteral("tmp"));
        QDir(m_root.path()).mkpath(QStringLiteral("files"));
    }
    ~BackupTest() override
    {
        for (const QString &path : std::as_const(m_locked)) {
            if (::geteuid() == 0)
                QProcess::execute(QStringLiteral("chattr"), {QStringLiteral("-i"), path});
            ::chmod(QFile::encodeName(path).constData(), 0755);
        }
    }

    std::unique_ptr<LinkStore> start()
    {
        StdoutCapture capture;
        auto store = std::make_unique<LinkStore>(m_paths, m_workspace, m_clock, realTimerPeriod);
        store->setDialogs(&m_dialogs);
        return store;
    }

    std::unique_ptr<LinkStore> startWith(const QList<LinkItem> &items, const QStringList &categories,
                                         std::optional<Timestamp> date = std::nullopt)
    {
        writeBytes(dataFile(), json::encode(SavedData{items, categories, date}).value());
        return start();
    }

    QString path(const QString &relative) const { return QDir(m_root.path()).filePath(relative); }
    QString dataFile() const { return path(QStringLiteral("as/Fiva/FivaData.json")); }
    QString attachmentsFolder() const { return path(QStringLiteral("as/Fiva_Attachments")); }
    QString temporaryFolder() const { return path(QStringLiteral("tmp")); }

    // A user's file somewhere on disk, to attach.
    QString userFile(const QString &relative, const QByteArray &bytes)
    {
        const QString p = path(QStringLiteral("files/") + relative);
        writeBytes(p, bytes);
        return p;
    }
    static Attachment attachment(const QString &filePath)
    {
        return {QUuid::createUuid(), QFileInfo(filePath).fileName(), filePath};
    }

    // Staging folders that outlived their operation.
    QStringList leftovers() const
    {
        return QDir(temporaryFolder()).entryList({QStringLiteral("Fiva*")}, QDir::AllEntries | QDir::Hidden);
    }

    // Makes a file or folder refuse writes, also for root (which ignores permission bits).
    void lockAgainstWrites(const QString &p)
    {
        ::chmod(QFile::encodeName(p).constData(), QFileInfo(p).isDir() ? 0555 : 0444);
        if (::geteuid() == 0) {
            ASSERT_EQ(QProcess::execute(QStringLiteral("chattr"), {QStringLiteral("+i"), p}), 0)
                << "chattr is needed to make a file read-only for root";
        }
        m_locked << p;
    }

    QString exportArchive(LinkStore &store, const QString &name = QStringLiteral("backup.fivabackup"))
    {
        const QString archive = path(name);
        StdoutCapture capture;
        const auto error = store.writeBackupArchive(archive);
        EXPECT_FALSE(error.has_value()) << error.value_or(QString()).toStdString();
        return archive;
    }

    QTemporaryDir m_root;
    FixedPaths m_paths{path(QStringLiteral("as")), path(QStringLiteral("tmp"))};
    RecordingWorkspace m_workspace;
    ManualClock m_clock{newYear2025};
    FakeDialogs m_dialogs;
    QStringList m_locked;
};

} // namespace fiva::test
