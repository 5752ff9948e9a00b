#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>

#include "CliTestSupport.h"

namespace cli_test {
namespace {

// Two homes: the one exported from (1) and a fresh one restored into (2).
class BackupCli : public CliTest
{
protected:
    QString attached() const { return path(u"files/dossier été/rapport.pdf"_s); }

    // Home 1 holds one record with one attachment of the given size.
    void storeWithAttachment(qint64 size)
    {
        QDir().mkpath(QFileInfo(attached()).absolutePath());
        QFile f(attached());
        ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        std::mt19937 random(size);
        QByteArray block(1 << 20, Qt::Uninitialized);
        for (char &c : block)
            c = static_cast<char>(random());
        for (qint64 done = 0; done < size; done += block.size()) {
            const qint64 n = std::min<qint64>(block.size(), size - done);
            ASSERT_EQ(f.write(block.constData(), n), n);
        }
        write(
            dataFile(1),
            QStringLiteral(
                R"({"items":[{"id":"6F2C3B2A-1111-4222-8333-944455556666","title":"Fiche","path":"https://example.org","category":"Travail","createdAt":700000000,"isFavorite":true,"kind":"url","attachments":[{"id":"6F2C3B2A-1111-4222-8333-944455556667","fileName":"rapport.pdf","filePath":"%1"}]}],"categories":["Travail"]})")
                .arg(attached())
                .toUtf8());
    }

    // An archive exported from home 1.
    QString exported(const QString &name)
    {
        storeWithAttachment(10);
        EXPECT_EQ(run({u"export"_s, path(name)}).exitCode, 0);
        return path(name);
    }
};

TEST_F(BackupCli, ExportPrintsPathAndSizeAndRestoreWithYesBringsEverythingBack)
{
    storeWithAttachment(5000);
    const QString archive = write(path(u"sauvegarde.fivabackup"_s), "an older archive is replaced");
    const CliRun out = run({u"export"_s, archive, u"--force"_s});
    ASSERT_EQ(out.exitCode, 0) << out.err.toStdString();
    EXPECT_EQ(out.out.split(u'\n', Qt::SkipEmptyParts).last(),
              archive + u'\t' + QString::number(QFileInfo(archive).size()));
    EXPECT_EQ(run({u"history"_s}).out.count(archive), 1);

    const CliRun restored = run({u"restore"_s, archive, u"--yes"_s}, 2);
    ASSERT_EQ(restored.exitCode, 0) << restored.err.toStdString();
    EXPECT_EQ(run({u"list"_s}, 2).out, run({u"list"_s}, 1).out);
    EXPECT_EQ(read(home(2) + u"/Fiva_Attachments/rapport.pdf"_s), read(attached()));
    EXPECT_TRUE(QDir(path(u"tmp"_s)).entryList({u"Fiva*"_s}).isEmpty());
}

// Restoring over the data and exporting over an existing file both destroy something: each asks
// first, and goes on only on a yes typed on a terminal, or with its flag.
TEST_F(BackupCli, RestoreAndExportOverAFileAskFirstAndOnlyOuiOnATerminalGoesOn)
{
    const QString archive = exported(u"t.fivabackup"_s);
    const QByteArray kept = R"({"items":[],"categories":["Garder"]})";
    const QString existing = path(u"existant.fivabackup"_s);
    struct Case
    {
        const char *name;
        int home;
        QStringList args;
        QString file; // what must stay as it was unless the answer is yes
        QString question;
        QString withoutTerminal; // the flag stderr names when nobody can be asked
    };
    const Case cases[] = {
        {"restore",
         2,
         {u"restore"_s, archive},
         dataFile(2),
         u"Restaurer les données ? Cette opération écrasera toutes les données actuelles. [o/N]"_s,
         u"--yes"_s},
        {"export over a file",
         1,
         {u"export"_s, existing},
         existing,
         u"Remplacer « "_s + existing + u" » ? Ce fichier existe déjà"_s,
         u"--force"_s},
    };
    // Python's pty gives the command a real terminal; the answer is typed once the question shows.
    const char script[] = R"(
import os, pty, sys
pid, fd = pty.fork()
if pid == 0:
    os.environ['XDG_DATA_HOME'] = sys.argv[2]
    os.execv(sys.argv[1], [sys.argv[1]] + sys.argv[4:])
seen = b''
while b'[o/N]' not in seen:
    chunk = os.read(fd, 1024)
    if not chunk: break
    seen += chunk
os.write(fd, sys.argv[3].encode())
try:
    while os.read(fd, 1024): pass
except OSError:
    pass
sys.stdout.write(seen.decode('utf-8', 'replace'))
sys.exit(os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]))
)";
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        write(c.file, kept);
        const CliRun refused = run(c.args, c.home);
        EXPECT_EQ(refused.exitCode, 1);
        EXPECT_TRUE(refused.err.contains(c.withoutTerminal)) << refused.err.toStdString();
        EXPECT_EQ(read(c.file), kept);

        const std::tuple<const char *, int, bool> answers[] = {
            {"n\n", 1, false}, {"\n", 1, false}, {"o\n", 0, true}};
        for (const auto &[typed, exitCode, done] : answers) {
            SCOPED_TRACE(typed);
            const CliRun asked =
                python(script, QStringList{cliPath(), home(c.home), QString::fromLatin1(typed)} + c.args);
            EXPECT_TRUE(asked.out.contains(c.question)) << asked.out.toStdString();
            EXPECT_EQ(asked.exitCode, exitCode);
            EXPECT_EQ(read(c.file) != kept, done);
        }
    }
    // Asking is for an existing file only; the flag answers yes without a terminal.
    EXPECT_EQ(run({u"export"_s, path(u"neuve.fivabackup"_s)}).exitCode, 0);
    write(existing, kept);
    EXPECT_EQ(run({u"export"_s, existing, u"--force"_s}).exitCode, 0);
    EXPECT_TRUE(read(existing).startsWith("PK")) << "replaced by an archive";
}

// The data from before a restore comes back byte for byte, once; a second undo has nothing left.
TEST_F(BackupCli, RestoreUndoBringsBackTheDataFileByteForByte)
{
    const QString archive = exported(u"u.fivabackup"_s);
    write(dataFile(2), R"({"items":[],"categories":["Garder"]})");
    // The data file as the store keeps it: every start writes it back in its own form.
    ASSERT_EQ(run({u"list"_s}, 2).exitCode, 0);
    const QByteArray kept = read(dataFile(2));
    ASSERT_EQ(run({u"restore"_s, archive, u"--yes"_s}, 2).exitCode, 0);
    EXPECT_NE(read(dataFile(2)), kept);
    const struct
    {
        int exitCode;
        const char *err;
    } undos[] = {{0, ""}, {1, "Annulation impossible\nAucune restauration à annuler"}};
    for (const auto &undo : undos) {
        const CliRun r = run({u"restore"_s, u"--undo"_s}, 2);
        EXPECT_EQ(r.exitCode, undo.exitCode);
        const QString err = QString::fromUtf8(undo.err);
        EXPECT_EQ(r.err.left(err.size()), err);
        EXPECT_EQ(read(dataFile(2)), kept);
    }
    EXPECT_EQ(read(home(2) + u"/Fiva_Attachments/rapport.pdf"_s), read(attached())) << "copies stay";
    EXPECT_EQ(run({u"restore"_s, u"--undo"_s, archive}, 2).exitCode, 2);
}

TEST_F(BackupCli, FailedRestorePrintsTheAlertOnStderrAndExitsOne)
{
    ASSERT_EQ(python("import sys, zipfile\nzipfile.ZipFile(sys.argv[1], 'w').writestr('x/y.txt', 'y')",
                     {path(u"vide.fivabackup"_s)})
                  .exitCode,
              0);
    const QString text = write(path(u"texte.fivabackup"_s), "pas une archive");
    const std::pair<QStringList, QString> cases[] = {
        {{u"restore"_s, text, u"--yes"_s},
         u"Erreur restauration :\nCe fichier n'est pas une archive ZIP : « "_s + text +
             u" ». (ArchiveError.missingEndOfCentralDirectoryRecord)\n"_s},
        {{u"restore"_s, path(u"vide.fivabackup"_s), u"--yes"_s},
         u"Erreur restauration\nFivaData.json introuvable.\n"_s},
        {{u"export"_s, path(u"absent/x.fivabackup"_s)},
         u"❌ Erreur export : Le dossier « "_s + path(u"absent"_s) + u" » n'existe pas. ("_s},
    };
    for (const auto &[args, err] : cases) {
        const CliRun r = run(args, 2);
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_TRUE(r.err.contains(err)) << r.err.toStdString();
        EXPECT_FALSE(QFile::exists(dataFile(2)));
    }
}

// Peak resident memory of one fiva-cli run, in KiB, measured on that child alone.
long peakKiB(const QString &home, const QStringList &args)
{
    std::vector<QByteArray> storage{QFile::encodeName(cliPath())};
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
        storeWithAttachment(sizes[i]);
        const QString archive = path(u"m%1.fivabackup"_s.arg(i));
        peaks[i][0] = peakKiB(home(1), {u"export"_s, archive});
        peaks[i][1] = peakKiB(home(2), {u"restore"_s, archive, u"--yes"_s});
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
} // namespace cli_test
