#include <QSet>

#include "CliTestSupport.h"

namespace cli_test {
namespace {

class ConcurrencyCli : public CliTest
{
protected:
    QStringList listedTitles()
    {
        const CliRun listed = run("list");
        EXPECT_EQ(listed.exitCode, 0) << listed.err.toStdString();
        QStringList titles;
        for (const QString &line : listed.out.split(u'\n', Qt::SkipEmptyParts)) {
            const QStringList fields = line.split(u'\t');
            if (fields.size() == 6)
                titles << fields.at(4);
        }
        return titles;
    }
};

// Two shells adding 25 records each at the same time, on a store that holds 3: every add must
// land, none may write back a list that misses the other's.
TEST_F(ConcurrencyCli, TwoLoopsOfAddsAtOnceLoseNothing)
{
    for (const char *line :
         {"add|--title|un|--path|p", "add|--title|deux|--path|p", "add|--title|trois|--path|p"})
        ASSERT_EQ(run(line).exitCode, 0) << line;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"XDG_DATA_HOME"_s, home());
    env.insert(u"TMPDIR"_s, path(u"tmp"_s));
    env.insert(u"FIVA_CLI"_s, cliPath());
    QProcess loops[2];
    for (int which = 0; which < 2; ++which) {
        loops[which].setProcessEnvironment(env);
        loops[which].start(u"sh"_s,
                           {u"-c"_s, u"i=1; while [ $i -le 25 ]; do \"$FIVA_CLI\" add --title %1-$i --path p "
                                     "> /dev/null || exit 1; i=$((i+1)); done"_s.arg(which)});
    }
    for (QProcess &loop : loops) {
        ASSERT_TRUE(loop.waitForFinished(300'000));
        EXPECT_EQ(loop.exitCode(), 0) << loop.readAllStandardError().toStdString();
    }
    const QStringList titles = listedTitles();
    EXPECT_EQ(titles.size(), 53);
    QSet<QString> expected{u"un"_s, u"deux"_s, u"trois"_s};
    for (int which = 0; which < 2; ++which) {
        for (int i = 1; i <= 25; ++i)
            expected << u"%1-%2"_s.arg(which).arg(i);
    }
    EXPECT_EQ(QSet<QString>(titles.begin(), titles.end()), expected);
}

TEST_F(ConcurrencyCli, RecoverLoadsTheNewestReadableAutomaticBackup)
{
    struct Case
    {
        const char *name;
        bool withBackup;
        QStringList args;
        int exitCode;
        int recordsAfter;
    };
    const Case cases[] = {
        {"no terminal, no --yes", true, {u"recover"_s}, 1, 0},
        {"--yes", true, {u"recover"_s, u"--yes"_s}, 0, 2},
        {"no backup", false, {u"recover"_s, u"--yes"_s}, 1, 0},
    };
    for (const Case &c : cases) {
        QDir(home()).removeRecursively();
        if (c.withBackup) {
            ASSERT_EQ(run("add|--title|gardée|--path|p").exitCode, 0);
            ASSERT_EQ(run("add|--title|aussi|--path|p").exitCode, 0);
            ASSERT_EQ(run("backup-now").exitCode, 0);
        }
        write(dataFile(), "{\"items\": [ torn");
        const CliRun r = run(c.args);
        EXPECT_EQ(r.exitCode, c.exitCode) << c.name << r.err.toStdString();
        EXPECT_EQ(r.out.contains(u"Sauvegarde automatique du "_s), c.withBackup) << c.name;
        EXPECT_EQ(r.err.contains(u"mis de côté"_s), true) << c.name;
        EXPECT_EQ(listedTitles().size(), c.recordsAfter) << c.name;
    }
}

} // namespace
} // namespace cli_test
