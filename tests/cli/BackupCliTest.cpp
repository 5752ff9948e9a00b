#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <gtest/gtest.h>
#include <random>

namespace {

struct CliRun
{
    int exitCode = -1;
    QString out;
    QString err;
};

QString cli()
{
    const char *path = std::getenv("FIVA_CLI");
    EXPECT_NE(path, nullptr) << "FIVA_CLI must name the fiva-cli binary";
    return QString::fromLocal8Bit(path ? path : "");
}

// Two homes: the one exported from and a fresh one restored into, each its own XDG data folder.
class BackupCli : public ::testing::Test
{
protected:
    BackupCli()
    {
        if (!QCoreApplication::instance()) {
            static int argc = 1;
            static char name[] = "cli_backup_tests";
            static char *argv[] = {name, nullptr};
            static QCoreApplication app(argc, argv);
        }
        QDir(m_root.path()).mkpath(QStringLiteral("tmp"));
    }

    QString home(int which) const { return m_root.filePath(QStringLiteral("home%1").arg(which)); }
    QString dataFile(int which) const { return home(which) + QStringLiteral("/Fiva/FivaData.json"); }
    QString path(const QString &name) const { return m_root.filePath(name); }

    CliRun run(int which, const QStringList &args) const
    {
        QProcess process;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("XDG_DATA_HOME"), home(which));
        env.insert(QStringLiteral("TMPDIR"), path(QStringLiteral("tmp")));
        process.setProcessEnvironment(env);
        process.start(cli(), args);
        process.closeWriteChannel();
        if (!process.waitForFinished(120'000))
            return {};
        return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
                QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError())};
    }

    static void write(const QString &file, const QByteArray &bytes)
    {
        QDir().mkpath(QFileInfo(file).absolutePath());
        QFile f(file);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        ASSERT_EQ(f.write(bytes), bytes.size());
    }

    // A store of one record with one attachment of the given size.
    void storeWithAttachment(int which, qint64 size)
    {
        const QString attached = path(QStringLiteral("files/dossier été/rapport.pdf"));
        QDir().mkpath(QFileInfo(attached).absolutePath());
        QFile f(attached);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        std::mt19937 random(size);
        QByteArray block(1 << 20, Qt::Uninitialized);
        for (char &c : block)
            c = static_cast<char>(random());
        for (qint64 done = 0; done < size; done += block.size())
            ASSERT_EQ(f.write(block.constData(), std::min<qint64>(block.size(), size - done)),
                      std::min<qint64>(block.size(), size - done));
        f.close();
        write(
            dataFile(which),
            QStringLiteral(
                R"({"items":[{"id":"6F2C3B2A-1111-4222-8333-944455556666","title":"Fiche","path":"https://example.org","category":"Travail","createdAt":700000000,"isFavorite":true,"kind":"url","attachments":[{"id":"6F2C3B2A-1111-4222-8333-944455556667","fileName":"rapport.pdf","filePath":"%1"}]}],"categories":["Travail"]})")
                .arg(attached)
                .toUtf8());
    }

    QTemporaryDir m_root;
};

QByteArray digest(const QString &file)
{
    QFile f(file);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(&f);
    return hash.result();
}

TEST_F(BackupCli, ExportPrintsPathAndSizeAndRestoreWithYesBringsEverythingBack)
{
    storeWithAttachment(1, 5000);
    const QString archive = path(QStringLiteral("sauvegarde.fivabackup"));
    write(archive, "an older archive is replaced");
    const CliRun exported = run(1, {QStringLiteral("export"), archive});
    ASSERT_EQ(exported.exitCode, 0) << exported.err.toStdString();
    EXPECT_EQ(exported.out.split(u'\n', Qt::SkipEmptyParts).last(),
              archive + u'\t' + QString::number(QFileInfo(archive).size()));
    EXPECT_EQ(run(1, {QStringLiteral("history")}).out.count(archive), 1);

    const CliRun restored = run(2, {QStringLiteral("restore"), archive, QStringLiteral("--yes")});
    ASSERT_EQ(restored.exitCode, 0) << restored.err.toStdString();
    EXPECT_EQ(run(2, {QStringLiteral("list")}).out, run(1, {QStringLiteral("list")}).out);
    const QString copy = home(2) + QStringLiteral("/Fiva_Attachments/rapport.pdf");
    EXPECT_EQ(digest(copy), digest(path(QStringLiteral("files/dossier été/rapport.pdf"))));
    EXPECT_TRUE(QDir(path(QStringLiteral("tmp"))).entryList({QStringLiteral("Fiva*")}).isEmpty());
}

TEST_F(BackupCli, RestoreWithoutYesRefusesWhenNoTerminalCanAsk)
{
    storeWithAttachment(1, 10);
    const QString archive = path(QStringLiteral("a.fivabackup"));
    ASSERT_EQ(run(1, {QStringLiteral("export"), archive}).exitCode, 0);
    write(dataFile(2), R"({"items":[],"categories":["Garder"]})");
    QFile data(dataFile(2));
    ASSERT_TRUE(data.open(QIODevice::ReadOnly));
    const QByteArray kept = data.readAll();
    data.close();
    const CliRun refused = run(2, {QStringLiteral("restore"), archive});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_TRUE(refused.err.contains(QStringLiteral("--yes"))) << refused.err.toStdString();
    ASSERT_TRUE(data.open(QIODevice::ReadOnly));
    EXPECT_EQ(data.readAll(), kept);
}

struct TerminalAnswer
{
    const char *typed;
    int exitCode;
    bool restored;
};

TEST_F(BackupCli, OnATerminalOnlyOuiRestores)
{
    storeWithAttachment(1, 10);
    const QString archive = path(QStringLiteral("t.fivabackup"));
    ASSERT_EQ(run(1, {QStringLiteral("export"), archive}).exitCode, 0);
    // Python's pty gives the command a real terminal; the answer is typed once the question shows.
    static const char script[] = R"(
import os, pty, sys
pid, fd = pty.fork()
if pid == 0:
    os.environ['XDG_DATA_HOME'] = sys.argv[2]
    os.execv(sys.argv[1], [sys.argv[1], 'restore', sys.argv[3]])
seen = b''
while b'[o/N]' not in seen:
    chunk = os.read(fd, 1024)
    if not chunk: break
    seen += chunk
os.write(fd, sys.argv[4].encode())
try:
    while os.read(fd, 1024): pass
except OSError:
    pass
sys.stdout.write(seen.decode('utf-8', 'replace'))
sys.exit(os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]))
)";
    const TerminalAnswer answers[] = {{"n\n", 1, false}, {"\n", 1, false}, {"o\n", 0, true}};
    for (const TerminalAnswer &answer : answers) {
        SCOPED_TRACE(answer.typed);
        QProcess python;
        python.start(QStringLiteral("python3"), {QStringLiteral("-c"), QString::fromLatin1(script), cli(),
                                                 home(2), archive, QString::fromLatin1(answer.typed)});
        ASSERT_TRUE(python.waitForFinished(60'000));
        const QString shown = QString::fromUtf8(python.readAllStandardOutput());
        EXPECT_TRUE(shown.contains(QStringLiteral(
            "Restaurer les données ? Cette opération écrasera toutes les données actuelles. [o/N]")))
            << shown.toStdString();
        EXPECT_EQ(python.exitCode(), answer.exitCode);
        EXPECT_EQ(QFile::exists(dataFile(2)), answer.restored);
    }
}

TEST_F(BackupCli, FailedRestorePrintsTheAlertOnStderrAndExitsOne)
{
    write(path(QStringLiteral("texte.fivabackup")), "pas une archive");
    const CliRun notZip = run(
        2, {QStringLiteral("restore"), path(QStringLiteral("texte.fivabackup")), QStringLiteral("--yes")});
    EXPECT_EQ(notZip.exitCode, 1);
    EXPECT_TRUE(notZip.err.endsWith(
        QStringLiteral("Erreur restauration :\nArchiveError.missingEndOfCentralDirectoryRecord\n")))
        << notZip.err.toStdString();

    ASSERT_EQ(QProcess::execute(
                  QStringLiteral("python3"),
                  {QStringLiteral("-c"),
                   QStringLiteral(
                       "import sys, zipfile\nzipfile.ZipFile(sys.argv[1], 'w').writestr('x/y.txt', 'y')"),
                   path(QStringLiteral("vide.fivabackup"))}),
              0);
    const CliRun noData =
        run(2, {QStringLiteral("restore"), path(QStringLiteral("vide.fivabackup")), QStringLiteral("--yes")});
    EXPECT_EQ(noData.exitCode, 1);
    EXPECT_TRUE(noData.err.endsWith(QStringLiteral("Erreur restauration\nFivaData.json introuvable.\n")))
        << noData.err.toStdString();
    EXPECT_FALSE(QFile::exists(dataFile(2)));

    const CliRun badExport = run(2, {QStringLiteral("export"), path(QStringLiteral("absent/x.fivabackup"))});
    EXPECT_EQ(badExport.exitCode, 1);
    EXPECT_TRUE(badExport.err.startsWith(QStringLiteral("❌ Erreur export : ")))
        << badExport.err.toStdString();
}

// Peak resident memory of one fiva-cli run, in KiB, measured on that child alone.
long peakKiB(const QString &home, const QStringList &args)
{
    std::vector<QByteArray> storage{QFile::encodeName(cli())};
    for (const QString &a : args)
        storage.push_back(a.toUtf8());
    std::vector<char *> argv;
    for (QByteArray &a : storage)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    const QByteArray xdg = QFile::encodeName(home);
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::setenv("XDG_DATA_HOME", xdg.constData(), 1);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    int status = 0;
    rusage usage{};
    if (pid < 0 || ::wait4(pid, &status, 0, &usage) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return -1;
    return usage.ru_maxrss;
}

// Export and restore stream attachments in bounded chunks: a file 25 times larger must not
// raise the peak by more than a small fraction of its own size.
TEST_F(BackupCli, PeakMemoryStaysFlatAsAttachmentsGrow)
{
    long peaks[2][2] = {};
    const qint64 sizes[2] = {8ll << 20, 200ll << 20};
    for (int i = 0; i < 2; ++i) {
        QDir(home(1)).removeRecursively();
        QDir(home(2)).removeRecursively();
        storeWithAttachment(1, sizes[i]);
        const QString archive = path(QStringLiteral("m%1.fivabackup").arg(i));
        peaks[i][0] = peakKiB(home(1), {QStringLiteral("export"), archive});
        peaks[i][1] = peakKiB(home(2), {QStringLiteral("restore"), archive, QStringLiteral("--yes")});
        ASSERT_GT(peaks[i][0], 0);
        ASSERT_GT(peaks[i][1], 0);
        QFile::remove(archive);
    }
    for (int op = 0; op < 2; ++op) {
        SCOPED_TRACE(op == 0 ? "export" : "restore");
        EXPECT_LT(peaks[1][op], peaks[0][op] + 16 * 1024)
            << peaks[0][op] << " KiB then " << peaks[1][op] << " KiB";
    }
}

} // namespace
