#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>

#include <cstdlib>
#include <gtest/gtest.h>
#include <vector>

namespace {

struct CliRun
{
    int exitCode = -1;
    QString out;
    QString err;
};

// Each test drives the real fiva-cli with its own XDG data folder, so the store it opens is the
// one the application would open there.
class StoreCli : public ::testing::Test
{
protected:
    StoreCli()
    {
        if (!QCoreApplication::instance()) {
            static int argc = 1;
            static char name[] = "cli_store_tests";
            static char *argv[] = {name, nullptr};
            static QCoreApplication app(argc, argv);
        }
    }

    CliRun run(const QStringList &args) const
    {
        const char *cli = std::getenv("FIVA_CLI");
        EXPECT_NE(cli, nullptr) << "FIVA_CLI must name the fiva-cli binary";
        QProcess process;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("XDG_DATA_HOME"), m_data.path());
        process.setProcessEnvironment(env);
        process.start(QString::fromLocal8Bit(cli ? cli : ""), args);
        if (!process.waitForFinished(30'000))
            return {};
        return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
                QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError())};
    }

    // Arguments separated by "|", so that blanks inside one can be written.
    CliRun run(const char *line) const
    {
        return run(QString::fromUtf8(line).split(u'|', Qt::SkipEmptyParts));
    }

    // Lines printed on stdout that are not the store's own messages.
    static QStringList payload(const CliRun &r)
    {
        QStringList lines;
        for (const QString &line : r.out.split(u'\n', Qt::SkipEmptyParts)) {
            if (!line.startsWith(QStringLiteral("⚠️")) && !line.startsWith(QStringLiteral("❌")))
                lines << line;
        }
        return lines;
    }

    QString path(const QString &relative) const { return m_data.filePath(relative); }
    QString dataFile() const { return path(QStringLiteral("Fiva/FivaData.json")); }

    QTemporaryDir m_data;
};

TEST_F(StoreCli, BadInvocationsPrintUsageAndExitWithTwo)
{
    const char *cases[] = {
        "",
        "no-such-command",
        "add",
        "add|--title|T",
        "add|--title|T|--path",
        "add|--title|T|--path|p|--kind|ftp",
        "add|--title| \t|--path|p",
        "add|--title|T|--path|p|--colour|red",
        "list|extra",
        "favorite",
        "favorite|not-a-uuid",
        "delete|a|b",
        "categories|rename|only-one",
        "categories|add-sub|parent",
        "categories|sort",
        "backup-now|now",
        "history|all",
    };
    for (const char *line : cases) {
        const CliRun r = run(line);
        EXPECT_EQ(r.exitCode, 2) << line;
        EXPECT_TRUE(r.err.contains(QStringLiteral("usage: fiva-cli"))) << line;
    }
    EXPECT_FALSE(QFile::exists(dataFile())) << "a rejected command must not touch the data";
}

TEST_F(StoreCli, EveryStoreCommandAnswersHelp)
{
    for (const char *name : {"add", "list", "favorite", "delete", "categories", "backup-now", "history"}) {
        const CliRun r = run({QLatin1String(name), QStringLiteral("--help")});
        EXPECT_EQ(r.exitCode, 0) << name;
        EXPECT_TRUE(r.out.startsWith(QStringLiteral("usage: fiva-cli ") + QLatin1String(name))) << name;
    }
}

TEST_F(StoreCli, RecordsCanBeAddedListedFlaggedAndDeleted)
{
    const CliRun first =
        run({QStringLiteral("add"), QStringLiteral("--title"), QStringLiteral("  Été\tà Paris "),
             QStringLiteral("--path"), QStringLiteral("https://example.org/a"), QStringLiteral("--notes"),
             QStringLiteral("ligne 1\nligne 2")});
    ASSERT_EQ(first.exitCode, 0) << first.err.toStdString();
    EXPECT_TRUE(first.out.startsWith(QStringLiteral("⚠️ Données absentes : ") + dataFile()));
    const QString id = payload(first).value(0);
    ASSERT_EQ(id.size(), 36);
    const CliRun second = run("add|--title|Dossier|--path|/tmp|--kind|directory|--category|Perso");
    ASSERT_EQ(second.exitCode, 0);
    const QString id2 = payload(second).value(0);

    QFile stored(dataFile());
    ASSERT_TRUE(stored.open(QIODevice::ReadOnly));
    EXPECT_TRUE(stored.readAll().contains("<p>ligne 1<br>ligne 2<\\/p>"));
    EXPECT_EQ(
        payload(run("list")),
        (QStringList{id + QStringLiteral("\turl\t0\tSans catégorie\tÉté\\tà Paris\thttps://example.org/a"),
                     id2 + QStringLiteral("\tdirectory\t0\tPerso\tDossier\t/tmp")}));

    EXPECT_EQ(run({QStringLiteral("favorite"), id.toLower()}).exitCode, 0);
    EXPECT_TRUE(payload(run("list")).value(0).startsWith(id + QStringLiteral("\turl\t1\t")));
    EXPECT_EQ(run("favorite|00000000-0000-0000-0000-000000000009").exitCode, 1);
    EXPECT_EQ(run({QStringLiteral("delete"), id}).exitCode, 0);
    EXPECT_EQ(run({QStringLiteral("delete"), id}).exitCode, 1);
    const QStringList left = payload(run("list"));
    ASSERT_EQ(left.size(), 1);
    EXPECT_TRUE(left.first().startsWith(id2));
}

TEST_F(StoreCli, CategoriesFollowTheStoreRules)
{
    for (const char *change : {"categories|add|  Travail ", "categories|add-sub|Travail| Projets",
                               "categories|rename|Travail|Boulot", "categories|delete|Sans catégorie"})
        EXPECT_EQ(run(change).exitCode, 0) << change;
    EXPECT_EQ(payload(run("categories")),
              (QStringList{QStringLiteral("Boulot"), QStringLiteral("Travail / Projets")}));
}

TEST_F(StoreCli, BackupNowWritesABackupAndRecordsItInTheHistory)
{
    ASSERT_EQ(run("categories|add|X").exitCode, 0);
    const CliRun backup = run("backup-now");
    ASSERT_EQ(backup.exitCode, 0) << backup.out.toStdString();
    const QStringList files = QDir(path(QStringLiteral("Fiva/AutoBackups"))).entryList(QDir::Files);
    ASSERT_EQ(files.size(), 1);
    EXPECT_TRUE(files.first().startsWith(QStringLiteral("AutoBackup-")));

    const QStringList history = payload(run("history"));
    ASSERT_EQ(history.size(), 1);
    const QStringList fields = history.first().split(u'\t');
    ASSERT_EQ(fields.size(), 4);
    EXPECT_EQ(fields[3], path(QStringLiteral("Fiva/AutoBackups/")) + files.first());
    EXPECT_EQ(fields[2].toLongLong(), QFileInfo(fields[3]).size());
}

TEST_F(StoreCli, BackupNowFailsWhenTheFolderCannotBeMade)
{
    QDir().mkpath(path(QStringLiteral("Fiva")));
    QFile blocker(path(QStringLiteral("Fiva/AutoBackups")));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    const CliRun r = run("backup-now");
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(
        r.out.contains(QStringLiteral("❌ Auto-backup error: ") + path(QStringLiteral("Fiva/AutoBackups"))))
        << r.out.toStdString();
    EXPECT_TRUE(payload(run("history")).isEmpty());
}

} // namespace
