#include <QCoreApplication>
#include <QHash>
#include <QUuid>

#include "CliTestSupport.h"
#include "health/CannedServer.h"

namespace cli_test {
namespace {

// Records by name, on a folder tree where "ancien" has become "nouveau".
class HealthCli : public CliTest
{
protected:
    HealthCli()
    {
        if (!QCoreApplication::instance()) { // the server answers from this process's event loop
            static int argc = 1;
            static char name[] = "cli_health_tests";
            static char *argv[] = {name, nullptr};
            static QCoreApplication app(argc, argv);
        }
    }

    // Runs fiva-cli while this process keeps serving web requests.
    CliRun runServing(const QStringList &args)
    {
        std::vector<std::string> env{"XDG_DATA_HOME=" + QFile::encodeName(home()).toStdString()};
        for (const char *proxy :
             {"http_proxy", "HTTP_PROXY", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})
            env.push_back(proxy + std::string("="));
        const fiva::test::ProcessRun run = fiva::test::runProcess(
            cliPath(), args, {.env = env, .whileWaiting = [] { QCoreApplication::processEvents(); }});
        const QByteArray out = QByteArray::fromStdString(run.out);
        return {run.exitCode, out, QString::fromUtf8(out), QString::fromStdString(run.err)};
    }

    void writeRecords(const QList<std::tuple<QString, QString, QString, QString>> &records)
    {
        QByteArray items;
        for (const auto &[name, kind, target, attachment] : records) {
            const QUuid id = QUuid::createUuid();
            m_names.insert(id.toString(QUuid::WithoutBraces).toUpper(), name);
            QByteArray attachments;
            if (!attachment.isEmpty())
                attachments = R"({"id":")" +
                              QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper().toUtf8() +
                              R"(","fileName":"c.txt","filePath":")" + attachment.toUtf8() + R"("})";
            items += (items.isEmpty() ? "" : ",") + R"({"id":")"_ba +
                     id.toString(QUuid::WithoutBraces).toUpper().toUtf8() + R"(","title":")" + name.toUtf8() +
                     R"(","path":")" + target.toUtf8() +
                     R"(","category":"Sans catégorie","createdAt":0,"isFavorite":false,"attachments":[)" +
                     attachments + R"(],"kind":")" + kind.toUtf8() + R"("})";
        }
        write(dataFile(), R"({"items":[)" + items + R"(],"categories":["Sans catégorie"]})");
        // The first start writes the file in Fiva's own form; the steps compare against that.
        EXPECT_EQ(run("list").exitCode, 0);
    }

    // The names of the records listed by `check`, each line checked for its kind and a sentence.
    QStringList listed(const CliRun &r) const
    {
        QStringList names;
        for (const QString &line : r.out.split(u'\n', Qt::SkipEmptyParts)) {
            const QStringList fields = line.split(u'\t');
            EXPECT_EQ(fields.size(), 3) << line.toStdString();
            if (fields.size() != 3)
                continue;
            EXPECT_TRUE(QStringList({u"url"_s, u"file"_s, u"directory"_s}).contains(fields[1]));
            EXPECT_TRUE(fields[2].endsWith(u'.')) << line.toStdString();
            names << m_names.value(fields[0], fields[0]);
        }
        names.sort();
        return names;
    }

    static QStringList sorted(QStringList list)
    {
        list.sort();
        return list;
    }

    QHash<QString, QString> m_names; // id → record name
};

TEST_F(HealthCli, CheckListsBrokenRecordsAndRelocateRepairsThemInOneSave)
{
    fiva::test::CannedServer server{{{"/ok", {200}}, {"/mort", {404}}, {"/parti", {301, "/mort"}}}};
    const QString ancien = path(u"ancien"_s), nouveau = path(u"nouveau"_s);
    write(nouveau + u"/Documents/a.pdf"_s, "a");
    write(nouveau + u"/pj/c.txt"_s, "c");
    write(path(u"fichier.txt"_s), "f");
    QDir().mkpath(path(u"present"_s));
    writeRecords({
        {u"deplace"_s, u"file"_s, ancien + u"/Documents/a.pdf"_s, {}},
        {u"perdu"_s, u"file"_s, ancien + u"/Documents/perdu.pdf"_s, {}},
        {u"dossier"_s, u"directory"_s, path(u"present"_s), {}},
        {u"pasUnDossier"_s, u"directory"_s, path(u"fichier.txt"_s), {}},
        {u"piece"_s, u"url"_s, server.url(u"/ok"_s), ancien + u"/pj/c.txt"_s},
        {u"mort"_s, u"url"_s, server.url(u"/mort"_s), {}},
        {u"redirige"_s, u"url"_s, server.url(u"/parti"_s), {}},
    });

    struct Step
    {
        const char *name;
        QStringList args;
        int exitCode;
        QStringList listed;   // for check: the records reported
        QString summary = {}; // for relocate: its one line
        bool dataChanges = false;
    };
    const QStringList diskBroken{u"deplace"_s, u"pasUnDossier"_s, u"perdu"_s, u"piece"_s};
    const QStringList afterRepair{u"mort"_s, u"pasUnDossier"_s, u"perdu"_s, u"redirige"_s};
    const Step steps[] = {
        {"check without web", {u"check"_s}, 1, diskBroken},
        {"check --web adds the dead pages",
         {u"check"_s, u"--web"_s},
         1,
         diskBroken + QStringList{u"mort"_s, u"redirige"_s}},
        {"dry run",
         {u"relocate"_s, ancien, nouveau, u"--dry-run"_s},
         0,
         {},
         u"2 fiche(s) seraient réparées, 1 resteraient cassées."_s},
        {"a prefix that mends nothing",
         {u"relocate"_s, ancien, path(u"present"_s)},
         0,
         {},
         u"0 fiche(s) réparées, 3 restent cassées."_s},
        {"relocate",
         {u"relocate"_s, ancien + u'/', nouveau},
         0,
         {},
         u"2 fiche(s) réparées, 1 restent cassées."_s,
         true},
        {"check keeps the last web results", {u"check"_s}, 1, afterRepair},
        {"usage: one prefix", {u"relocate"_s, ancien}, 2, {}},
        {"usage: relative prefix", {u"relocate"_s, u"ancien"_s, nouveau}, 2, {}},
        {"usage: unknown option", {u"check"_s, u"--tout"_s}, 2, {}},
    };
    for (const Step &s : steps) {
        const QByteArray before = read(dataFile());
        const CliRun r = runServing(s.args);
        EXPECT_EQ(r.exitCode, s.exitCode) << s.name << ' ' << r.err.toStdString();
        if (s.args.first() == u"check"_s && s.exitCode != 2) {
            EXPECT_EQ(listed(r).join(u' '), sorted(s.listed).join(u' ')) << s.name;
        }
        if (!s.summary.isEmpty()) {
            EXPECT_EQ(r.out.trimmed(), s.summary) << s.name;
        }
        EXPECT_EQ(read(dataFile()) != before, s.dataChanges) << s.name;
    }
    EXPECT_FALSE(server.requests.isEmpty());
    // The repaired paths are on disk; the unrepaired record kept its old one.
    const QByteArray data = read(dataFile()).replace("\\/", "/"); // the file escapes its slashes
    for (const QString &expected : QStringList{nouveau + u"/Documents/a.pdf"_s, nouveau + u"/pj/c.txt"_s,
                                               ancien + u"/Documents/perdu.pdf"_s})
        EXPECT_TRUE(data.contains(expected.toUtf8())) << expected.toStdString();

    // Nothing broken: exit 0 and nothing listed.
    writeRecords({{u"dossier"_s, u"directory"_s, path(u"present"_s), {}}});
    const CliRun clean = runServing({u"check"_s});
    EXPECT_EQ(clean.exitCode, 0);
    EXPECT_TRUE(clean.out.isEmpty()) << clean.out.toStdString();
}

} // namespace
} // namespace cli_test
