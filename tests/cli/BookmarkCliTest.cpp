#include "interchange/BookmarkImport.h"

#include "CliTestSupport.h"

namespace cli_test {
namespace {

using BookmarkCli = CliTest;

QString sample(const char *name)
{
    return qEnvironmentVariable("FIVA_TEST_DATA") + u"/bookmarks/"_s + QString::fromUtf8(name);
}

// The records as `list` prints them, without their ids, in order.
QStringList listed(const CliRun &list)
{
    QStringList rows;
    // Records only: a store without a data file says so on the same output.
    for (const QString &row : list.out.split(u'\n', Qt::SkipEmptyParts)) {
        if (row.contains(u'\t'))
            rows << row.section(u'\t', 1);
    }
    return rows;
}

TEST_F(BookmarkCli, ImportPrintsCountsSavesOnceAndExportImportsBack)
{
    // The library's own plan for an empty store tells how many records the sample holds.
    const QByteArray firefox = read(sample("firefox-export.html"));
    fiva::interchange::ImportContext empty;
    empty.existingCategories = {u"Sans catégorie"_s};
    const fiva::interchange::ImportPlan plan = fiva::interchange::planBookmarkImport(firefox, empty);
    const qsizetype n = plan.records.size();
    ASSERT_GT(n, 3);
    write(path(u"notes.txt"_s), "<html>pas de marque-pages</html>");

    struct Case
    {
        const char *name;
        QStringList before; // commands run first, "|"-separated arguments
        const char *command;
        int exitCode;
        QString outHas;
        QString errHas;
        qsizetype records; // listed afterwards
    };
    const QString ff = u"import-bookmarks|"_s + sample("firefox-export.html");
    const QString counts = u"Fiches importées : %1\nNouvelles catégories : %2\nDoublons ignorés : %3\n"_s;
    const Case cases[] = {
        {"first import",
         {},
         "",
         0,
         counts.arg(n).arg(plan.newCategories.size()).arg(plan.duplicatesSkipped),
         {},
         n},
        {"again: all duplicates", {ff}, "", 0, counts.arg(0).arg(0).arg(n + plan.duplicatesSkipped), {}, n},
        {"again, duplicates allowed",
         {ff},
         "|--allow-duplicates",
         0,
         u"Fiches importées : %1"_s.arg(n + plan.duplicatesSkipped),
         {},
         2 * n + plan.duplicatesSkipped},
        {"not a bookmark file",
         {},
         "!import-bookmarks|@notes.txt",
         1,
         {},
         u"n’est pas un fichier de marque-pages"_s,
         0},
        {"missing file", {}, "!import-bookmarks|@absent.html", 1, {}, u"absent.html"_s, 0},
        {"unknown option", {}, "|--flatten", 2, {}, u"usage: fiva-cli import-bookmarks"_s, 0},
        {"export without a file", {}, "!export-bookmarks", 2, {}, u"usage: fiva-cli export-bookmarks"_s, 0},
    };
    int home = 0;
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        ++home;
        for (const QString &line : c.before)
            ASSERT_EQ(run(line.toUtf8().constData(), home).exitCode, 0);
        // "!" starts a whole command; otherwise the arguments follow the Firefox import.
        const QString command = QString::fromUtf8(c.command);
        const QString line = command.startsWith(u'!') ? command.mid(1) : ff + command;
        const CliRun r = run(line.toUtf8().constData(), home);
        EXPECT_EQ(r.exitCode, c.exitCode) << r.err.toStdString();
        EXPECT_TRUE(r.out.contains(c.outHas)) << r.out.toStdString();
        EXPECT_TRUE(r.err.contains(c.errHas)) << r.err.toStdString();
        EXPECT_EQ(listed(run("list", home)).size(), c.records);
        if (c.exitCode != 0 && c.before.isEmpty()) {
            EXPECT_FALSE(QFile::exists(dataFile(home))) << "a refused import writes nothing";
        }
    }

    // Export: the count on stdout and a bookmark file; that it reads back whole is the library's test.
    const CliRun exported = run({u"export-bookmarks"_s, path(u"out.html"_s)}, 1);
    ASSERT_EQ(exported.exitCode, 0) << exported.err.toStdString();
    EXPECT_EQ(exported.out, u"Fiches exportées : %1\n"_s.arg(n));
    EXPECT_TRUE(read(path(u"out.html"_s)).startsWith("<!DOCTYPE NETSCAPE-Bookmark-file-1>"));
}

} // namespace
} // namespace cli_test
