#include "CliTestSupport.h"

namespace cli_test {
namespace {

class StoreCli : public CliTest
{
protected:
    // Lines printed on stdout that are not the store's own messages.
    static QStringList payload(const CliRun &r)
    {
        QStringList lines;
        for (const QString &line : r.out.split(u'\n', Qt::SkipEmptyParts)) {
            if (!line.startsWith(u"⚠️"_s) && !line.startsWith(u"❌"_s))
                lines << line;
        }
        return lines;
    }
};

TEST_F(StoreCli, BadInvocationsPrintUsageAndExitWithTwoAndHelpAnswers)
{
    for (const char *line :
         {"", "no-such-command", "add", "add|--title|T", "add|--title|T|--path",
          "add|--title|T|--path|p|--kind|ftp", "add|--title| \t|--path|p",
          "add|--title|T|--path|p|--colour|red", "list|extra", "favorite", "favorite|not-a-uuid",
          "delete|a|b", "categories|rename|only-one", "categories|add-sub|parent", "categories|sort",
          "backup-now|now", "history|all"}) {
        const CliRun r = run(line);
        EXPECT_EQ(r.exitCode, 2) << line;
        EXPECT_TRUE(r.err.contains(u"usage: fiva-cli"_s)) << line;
    }
    EXPECT_FALSE(QFile::exists(dataFile())) << "a rejected command must not touch the data";
    // Every command of the tool answers --help, whatever its group.
    for (const char *name :
         {"add", "list", "favorite", "delete", "categories", "backup-now", "history", "recover", "export",
          "restore", "decode-data", "decode-history", "zip", "unzip", "ls"}) {
        const CliRun r = run({QLatin1String(name), u"--help"_s});
        EXPECT_EQ(r.exitCode, 0) << name;
        EXPECT_TRUE(r.out.startsWith(u"usage: fiva-cli "_s + QLatin1String(name))) << name;
    }
}

TEST_F(StoreCli, RecordsCanBeAddedListedFlaggedAndDeleted)
{
    const CliRun first = run({u"add"_s, u"--title"_s, u"  Été\tà Paris "_s, u"--path"_s,
                              u"https://example.org/a"_s, u"--notes"_s, u"ligne 1\nligne 2"_s});
    ASSERT_EQ(first.exitCode, 0) << first.err.toStdString();
    EXPECT_TRUE(first.out.startsWith(u"⚠️ Données absentes : Le fichier « "_s + dataFile() +
                                     u" » n'existe pas."_s));
    const QString id = payload(first).value(0);
    ASSERT_EQ(id.size(), 36);
    const CliRun second =
        run("add|--title|-h|--path|/tmp|--kind|directory|--category|Perso"); // a value, not --help
    ASSERT_EQ(second.exitCode, 0);
    const QString id2 = payload(second).value(0);

    EXPECT_TRUE(read(dataFile()).contains("<p>ligne 1<br>ligne 2<\\/p>"));
    EXPECT_EQ(payload(run("list")),
              (QStringList{id + u"\turl\t0\tSans catégorie\tÉté\\tà Paris\thttps://example.org/a"_s,
                           id2 + u"\tdirectory\t0\tPerso\t-h\t/tmp"_s}));

    EXPECT_EQ(run({u"favorite"_s, id.toLower()}).exitCode, 0);
    EXPECT_TRUE(payload(run("list")).value(0).startsWith(id + u"\turl\t1\t"_s));
    EXPECT_EQ(run("favorite|00000000-0000-0000-0000-000000000009").exitCode, 1);
    EXPECT_EQ(run({u"delete"_s, id}).exitCode, 0);
    EXPECT_EQ(run({u"delete"_s, id}).exitCode, 1);
    const QStringList left = payload(run("list"));
    ASSERT_EQ(left.size(), 1);
    EXPECT_TRUE(left.first().startsWith(id2));
}

TEST_F(StoreCli, ListWritesEachTitleAsEscapedUtf8)
{
    // JSON text of a title, and the bytes the listing shows for it.
    const struct
    {
        const char *json;
        QByteArray shown;
    } cases[] = {
        {R"(Été)", "\xC3\x89t\xC3\xA9"},
        {R"(a\tb\nc\rd\\e)", R"(a\tb\nc\rd\\e)"},
        {R"(\u07ff\u0800\u20ac\uffff)", "\xDF\xBF\xE0\xA0\x80\xE2\x82\xAC\xEF\xBF\xBF"},
        {R"(\ud83d\ude00!)", "\xF0\x9F\x98\x80!"},
        {"", ""},
    };
    QByteArray json = R"({"categories":["C\\at"],"items":[)";
    QByteArray expected;
    for (qsizetype i = 0; i < qsizetype(std::size(cases)); ++i) {
        const QByteArray id = "6F2C3B2A-1111-4222-8333-9444555566" + QByteArray::number(10 + i);
        const QByteArray favorite = i % 2 ? "1" : "0";
        json += QByteArray(i ? "," : "") + R"({"id":")" + id + R"(","title":")" + cases[i].json +
                R"(","path":"p","category":"C\\at","createdAt":1,"isFavorite":)" +
                (i % 2 ? "true" : "false") + R"(,"kind":"file","attachments":[]})";
        expected += id + "\tfile\t" + favorite + "\tC\\\\at\t" + cases[i].shown + "\tp\n";
    }
    write(dataFile(), json + "]}");
    const CliRun r = run("list");
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    // The store's own warnings (no history yet) come first, on lines of their own.
    const qsizetype listing = r.outBytes.indexOf("6F2C3B2A-");
    EXPECT_TRUE(r.outBytes.first(std::max<qsizetype>(listing, 0)).startsWith("\xE2\x9A\xA0") || listing == 0);
    EXPECT_EQ(r.outBytes.sliced(std::max<qsizetype>(listing, 0)), expected);
}

TEST_F(StoreCli, CategoriesFollowTheStoreRules)
{
    for (const char *change : {"categories|add|  Travail ", "categories|add-sub|Travail| Projets",
                               "categories|rename|Travail|Boulot", "categories|delete|Sans catégorie"})
        EXPECT_EQ(run(change).exitCode, 0) << change;
    EXPECT_EQ(payload(run("categories")), (QStringList{u"Boulot"_s, u"Travail / Projets"_s}));
}

TEST_F(StoreCli, BackupNowWritesABackupAndRecordsItInTheHistoryOrFailsWithOne)
{
    ASSERT_EQ(run("categories|add|X").exitCode, 0);
    const QString folder = home() + u"/Fiva/AutoBackups"_s;
    write(folder, {});
    const CliRun blocked = run("backup-now");
    EXPECT_EQ(blocked.exitCode, 1);
    EXPECT_TRUE(blocked.out.contains(u"❌ Auto-backup error: Un élément du chemin « "_s + folder + u" »"_s))
        << blocked.out.toStdString();
    EXPECT_TRUE(payload(run("history")).isEmpty());

    QFile::remove(folder);
    const CliRun backup = run("backup-now");
    ASSERT_EQ(backup.exitCode, 0) << backup.out.toStdString();
    const QStringList files = QDir(folder).entryList(QDir::Files);
    ASSERT_EQ(files.size(), 1);
    EXPECT_TRUE(files.first().startsWith(u"AutoBackup-"_s));
    const QStringList history = payload(run("history"));
    ASSERT_EQ(history.size(), 1);
    const QStringList fields = history.first().split(u'\t');
    ASSERT_EQ(fields.size(), 4);
    EXPECT_EQ(fields[3], folder + u'/' + files.first());
    EXPECT_EQ(fields[2].toLongLong(), QFileInfo(fields[3]).size());
}

} // namespace
} // namespace cli_test
