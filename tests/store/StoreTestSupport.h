#pragma once

#include "model/JsonCodec.h"
#include "platform/Clock.h"
#include "platform/Paths.h"
#include "store/LinkStore.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QUuid>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <memory>
#include <utility>
#include <vector>

#include "support/FakeDialogs.h"
#include "support/ProcessRun.h"
#include "support/TestCommon.h"

namespace fiva {
namespace test {

using namespace Qt::StringLiterals;

inline const QString sansCategorie = u"Sans catégorie"_s;

struct ToolRun
{
    int exitCode = -1;
    QString output;
};

// Runs one of the outside tools the archives are checked against, its two outputs together.
inline ToolRun runTool(const QString &program, const QStringList &args, const QString &folder = {})
{
    const ProcessRun run =
        runProcess(program, args, {.folder = QFile::encodeName(folder).toStdString(), .mergeOutput = true});
    return {run.exitCode, QString::fromStdString(run.out)};
}

// An entry of a ZIP written by Python's zipfile: name, content, and whether it is a link.
struct ZipEntry
{
    QString name;
    QByteArray data;
    bool link = false;
};

// Each test gets its own application-support folder ("as"), temporary folder (so that staging
// folders left behind show), folder of user files, scripted dialogs and a clock that only moves
// when told.
class StoreTest : public ::testing::Test
{
public:
    StoreTest()
    {
        if (!QCoreApplication::instance()) { // timers and queued calls need one
            static int argc = 1;
            static char name[] = "store_tests";
            static char *argv[] = {name, nullptr};
            static QCoreApplication app(argc, argv);
        }
        for (const char *folder : {"as", "tmp", "files"})
            QDir(m_root.path()).mkpath(QString::fromLatin1(folder));
    }
    ~StoreTest() override { unlockAll(); }
    void unlockAll()
    {
        for (const QString &p : std::exchange(m_locked, {})) {
            if (::geteuid() == 0)
                QProcess::execute(u"chattr"_s, {u"-i"_s, p});
            ::chmod(QFile::encodeName(p).constData(), 0755);
        }
    }

    std::unique_ptr<LinkStore> start(TimerPeriod period = realTimerPeriod)
    {
        StdoutCapture capture;
        auto store = std::make_unique<LinkStore>(m_paths, m_workspace, m_clock, std::move(period));
        store->setDialogs(&m_dialogs);
        m_startOutput = capture.finish();
        return store;
    }

    // Starts a store from a data file holding these records and categories.
    std::unique_ptr<LinkStore> startWith(const QList<LinkItem> &items, const QStringList &categories,
                                         std::optional<Timestamp> date = std::nullopt)
    {
        writeBytes(dataFile(), json::encode(SavedData{items, categories, date}).value());
        return start();
    }

    QString path(const QString &relative) const { return QDir(m_root.path()).filePath(relative); }
    QString as(const QString &relative = {}) const
    {
        return path(relative.isEmpty() ? u"as"_s : u"as/"_s + relative);
    }
    QString dataFile() const { return as(u"Fiva/FivaData.json"_s); }
    QString historyFile() const { return as(u"Fiva/BackupHistory.json"_s); }
    QString autoBackups() const { return as(u"Fiva/AutoBackups"_s); }
    QString attachmentsFolder() const { return as(u"Fiva_Attachments"_s); }

    // A user's file somewhere on disk, to attach.
    QString userFile(const QString &relative, const QByteArray &bytes)
    {
        writeBytes(path(u"files/"_s + relative), bytes);
        return path(u"files/"_s + relative);
    }
    static Attachment attachment(const QString &filePath)
    {
        return {QUuid::createUuid(), QFileInfo(filePath).fileName(), filePath};
    }

    // Staging folders that outlived their operation.
    QStringList leftovers() const
    {
        return QDir(path(u"tmp"_s)).entryList({u"Fiva*"_s}, QDir::AllEntries | QDir::Hidden);
    }

    // Makes a file or folder refuse writes, also for root (which ignores permission bits).
    void lockAgainstWrites(const QString &p)
    {
        ::chmod(QFile::encodeName(p).constData(), QFileInfo(p).isDir() ? 0555 : 0444);
        if (::geteuid() == 0) {
            ASSERT_EQ(QProcess::execute(u"chattr"_s, {u"+i"_s, p}), 0)
                << "chattr is needed to make a file read-only for root";
        }
        m_locked << p;
    }

    // Writes a ZIP at `relative` with Python's zipfile, so the reader meets archives it did not make.
    // `corruptCrcOf` flips the recorded CRC-32 of that entry in both headers.
    QString zipAt(const QString &relative, const std::vector<ZipEntry> &entries,
                  const QString &corruptCrcOf = {})
    {
        static const char script[] = R"(
import base64, sys, zipfile
path, corrupt, entries = sys.argv[1], sys.argv[2].encode(), sys.argv[3:]
with zipfile.ZipFile(path, 'w', zipfile.ZIP_STORED) as z:
    for name, data, link in zip(entries[0::3], entries[1::3], entries[2::3]):
        info = zipfile.ZipInfo(name, (2024, 5, 1, 12, 0, 0))
        info.create_system = 3
        info.external_attr = (0o120777 << 16 if link == '1' else
                              (0o40755 << 16) | 0x10 if name.endswith('/') else 0o100644 << 16)
        z.writestr(info, base64.b64decode(data))
b = bytearray(open(path, 'rb').read())
for sig, crc_at, name_at in ((b'PK\x03\x04', 14, 30), (b'PK\x01\x02', 16, 46)) if corrupt else ():
    i = b.find(sig)
    while i >= 0:
        if b[i + name_at:i + name_at + len(corrupt)] == corrupt: b[i + crc_at] ^= 0xFF
        i = b.find(sig, i + 4)
open(path, 'wb').write(b)
)";
        QStringList args{u"-c"_s, QString::fromLatin1(script), path(relative), corruptCrcOf};
        for (const ZipEntry &e : entries)
            args << e.name << QString::fromLatin1(e.data.toBase64()) << QString::number(e.link);
        const ToolRun run = runTool(u"python3"_s, args);
        EXPECT_EQ(run.exitCode, 0) << run.output.toStdString();
        return path(relative);
    }

    QString exportArchive(LinkStore &store, const QString &name = u"backup.fivabackup"_s)
    {
        StdoutCapture capture;
        const auto error = store.writeBackupArchive(path(name));
        EXPECT_FALSE(error.has_value()) << error.value_or(QString()).toStdString();
        return path(name);
    }

    QTemporaryDir m_root;
    FixedPaths m_paths{path(u"as"_s), path(u"tmp"_s)};
    RecordingWorkspace m_workspace;
    ManualClock m_clock{newYear2025};
    FakeDialogs m_dialogs;
    QStringList m_locked;
    QString m_startOutput;
};

} // namespace test
} // namespace fiva
