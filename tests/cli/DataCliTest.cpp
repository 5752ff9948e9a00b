#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

struct CliRun
{
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

CliRun runCli(const QStringList &args, const QByteArray &stdinBytes = {})
{
    QProcess process;
    process.start(QString::fromLocal8Bit(qgetenv("FIVA_CLI")), args);
    process.write(stdinBytes);
    process.closeWriteChannel();
    EXPECT_TRUE(process.waitForFinished(30000));
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            process.readAllStandardOutput(), process.readAllStandardError()};
}

class DataCli : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_FALSE(qgetenv("FIVA_CLI").isEmpty());
        ASSERT_TRUE(m_dir.isValid());
    }

    QString file(const QString &name, const QByteArray &bytes)
    {
        const QString path = m_dir.filePath(name);
        QFile f(path);
        EXPECT_TRUE(f.open(QIODevice::WriteOnly));
        EXPECT_EQ(f.write(bytes), bytes.size());
        return path;
    }

    QTemporaryDir m_dir;
};

} // namespace

TEST_F(DataCli, DecodeDataPrintsTheCanonicalForm)
{
    // Every liberty a reader must accept: spacing, key order, lower-case ids, unescaped "/",
    // \u escapes, exponents, nulls, unknown keys.
    const QByteArray loose = R"( {
        "lastBackupDate": 7.573824e8, "unknown": {"a": [1, 2]},
        "categories": ["Sans cat\u00e9gorie", "A / B"],
        "items": [ { "kind": "file", "attachments": [], "isFavorite": false, "createdAt": -1.25,
                     "notes": null, "category": "A / B", "path": "/tmp/x", "title": "\u00c9t\u00e9\t\"1\"",
                     "id": "0a1b2c3d-4e5f-6071-8293-a4b5c6d7e8f9" } ]
    } )";
    const QByteArray canonical =
        R"({"items":[{"id":"0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9","title":"Été\t\"1\"","path":"\/tmp\/x",)"
        R"("category":"A \/ B","createdAt":-1.25,"isFavorite":false,"attachments":[],"kind":"file"}],)"
        R"("categories":["Sans catégorie","A \/ B"],"lastBackupDate":757382400})";
    const CliRun first = runCli({QStringLiteral("decode-data"), file(QStringLiteral("loose.json"), loose)});
    EXPECT_EQ(first.exitCode, 0) << first.err.toStdString();
    EXPECT_EQ(first.out, canonical);
    EXPECT_TRUE(first.err.isEmpty());

    // The canonical form is a fixed point.
    const CliRun second =
        runCli({QStringLiteral("decode-data"), file(QStringLiteral("canon.json"), canonical)});
    EXPECT_EQ(second.exitCode, 0);
    EXPECT_EQ(second.out, canonical);
}

TEST_F(DataCli, DecodeDataAgreesWithPythonsEncoder)
{
    // An independent encoder as oracle: Python's compact form with raw UTF-8, plus "/" escaped.
    const QByteArray data =
        R"({"items":[{"id":"00000000-0000-0000-0000-000000000001","title":"\u0001\u001f\b\f\n\r\u007f \u2028 \ud83d\ude00 «»",)"
        R"("path":"https:\/\/x.fr\/?a=1&b=<2>","category":"\\ \/ \\\/","notes":"<p>a<br>b<\/p>","createdAt":0.30000000000000004,)"
        R"("isFavorite":true,"attachments":[{"id":"ABCDEFAB-CDEF-ABCD-EFAB-CDEFABCDEFAB","fileName":"f","filePath":"\/f"}],"kind":"url"}],)"
        R"("categories":[],"lastBackupDate":1e-07})";
    const QString path = file(QStringLiteral("data.json"), data);
    QProcess python;
    python.start(
        QStringLiteral("python3"),
        {QStringLiteral("-c"),
         QStringLiteral("import json,sys; d=json.load(open(sys.argv[1],encoding='utf-8')); "
                        "sys.stdout.buffer.write(json.dumps(d,ensure_ascii=False,separators=(',',':'))"
                        ".replace('/','\\\\/').encode())"),
         path});
    ASSERT_TRUE(python.waitForFinished(30000)) << "python3 is needed as the reference encoder";
    ASSERT_EQ(python.exitCode(), 0) << python.readAllStandardError().toStdString();
    const QByteArray expected = python.readAllStandardOutput();

    const CliRun run = runCli({QStringLiteral("decode-data"), path});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.out, expected);
}

TEST_F(DataCli, MissingIdsAndDatesAreFilledAtEveryReading)
{
    const QString path =
        file(QStringLiteral("bare.json"),
             R"({"items":[{"title":"t","path":"http://x","category":"c"}],"categories":[]})");
    const CliRun a = runCli({QStringLiteral("decode-data"), path});
    const CliRun b = runCli({QStringLiteral("decode-data"), path});
    ASSERT_EQ(a.exitCode, 0) << a.err.toStdString();
    const QRegularExpression form(QStringLiteral(
        R"(^\{"items":\[\{"id":"[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}","title":"t",)"
        R"("path":"http:\\/\\/x","category":"c","createdAt":[0-9.e+]+,"isFavorite":false,"attachments":\[\],)"
        R"("kind":"url"\}\],"categories":\[\]\}$)"));
    EXPECT_TRUE(form.match(QString::fromUtf8(a.out)).hasMatch()) << a.out.toStdString();
    EXPECT_NE(a.out.mid(0, 60), b.out.mid(0, 60)) << "a new id at each reading";
}

TEST_F(DataCli, DecodeHistoryPrintsTheCanonicalForm)
{
    const QByteArray loose =
        R"([ {"fileSize": 10, "filePath": "/b/AutoBackup-1.5.fivabackup", "date": 2, "id": "abcdefab-cdef-abcd-efab-cdefabcdefab"} ])";
    const CliRun run = runCli({QStringLiteral("decode-history"), file(QStringLiteral("h.json"), loose)});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.out, QByteArray(R"([{"id":"ABCDEFAB-CDEF-ABCD-EFAB-CDEFABCDEFAB","date":2,)"
                                  R"("filePath":"\/b\/AutoBackup-1.5.fivabackup","fileSize":10}])"));
}

TEST_F(DataCli, FailuresAndUsage)
{
    struct Case
    {
        QStringList args;
        int exitCode;
        const char *stderrPart;
    };
    const QString badData =
        file(QStringLiteral("bad.json"),
             R"({"items":[{"title":"t","path":"p","category":"c","isFavorite":"yes"}],"categories":[]})");
    const QString badHistory =
        file(QStringLiteral("badh.json"),
             R"([{"id":"00000000-0000-0000-0000-000000000001","date":1,"filePath":"/a","fileSize":1.5}])");
    const QString truncated = file(QStringLiteral("trunc.json"), R"({"items":[)");
    const QString absent = m_dir.filePath(QStringLiteral("absent.json"));
    const Case cases[] = {
        {{QStringLiteral("decode-data"), badData}, 1, "bad.json: items[0].isFavorite: expected a boolean"},
        {{QStringLiteral("decode-data"), truncated}, 1, "trunc.json: malformed JSON: "},
        {{QStringLiteral("decode-data"), badHistory}, 1, "document: expected an object"},
        {{QStringLiteral("decode-data"), absent}, 1, "absent.json"},
        {{QStringLiteral("decode-history"), badHistory}, 1, "badh.json: [0].fileSize: expected an integer"},
        {{QStringLiteral("decode-history"), badData}, 1, "document: expected an array"},
        {{QStringLiteral("decode-history"), absent}, 1, "absent.json"},
        {{QStringLiteral("decode-data")}, 2, "usage: fiva-cli decode-data FILE"},
        {{QStringLiteral("decode-data"), badData, badData}, 2, "usage: fiva-cli decode-data FILE"},
        {{QStringLiteral("decode-history"), QStringLiteral("--bogus")},
         2,
         "usage: fiva-cli decode-history FILE"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.args.join(u' ').toStdString());
        const CliRun run = runCli(c.args);
        EXPECT_EQ(run.exitCode, c.exitCode);
        EXPECT_TRUE(run.out.isEmpty()) << "nothing half-written on stdout";
        EXPECT_TRUE(run.err.contains(c.stderrPart)) << run.err.toStdString();
    }
    for (const char *name : {"decode-data", "decode-history"}) {
        const CliRun help = runCli({QString::fromLatin1(name), QStringLiteral("--help")});
        EXPECT_EQ(help.exitCode, 0);
        EXPECT_TRUE(help.out.startsWith(QByteArray(QByteArray("usage: fiva-cli ") + name)))
            << help.out.toStdString();
    }
}
