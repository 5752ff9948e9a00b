#include <QRegularExpression>

#include "CliTestSupport.h"

namespace cli_test {
namespace {

using DataCli = CliTest;

TEST_F(DataCli, DecodeDataAndHistoryPrintTheCanonicalForm)
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
    // The canonical form is a fixed point.
    for (const QByteArray &input : {loose, canonical}) {
        const CliRun r = run({u"decode-data"_s, write(path(u"d.json"_s), input)});
        EXPECT_EQ(r.exitCode, 0) << r.err.toStdString();
        EXPECT_EQ(r.outBytes, canonical);
        EXPECT_TRUE(r.err.isEmpty());
    }

    const CliRun history = run(
        {u"decode-history"_s,
         write(
             path(u"h.json"_s),
             R"([ {"fileSize": 10, "filePath": "/b/AutoBackup-1.5.fivabackup", "date": 2, "id": "abcdefab-cdef-abcd-efab-cdefabcdefab"} ])")});
    EXPECT_EQ(history.exitCode, 0) << history.err.toStdString();
    EXPECT_EQ(history.outBytes, QByteArray(R"([{"id":"ABCDEFAB-CDEF-ABCD-EFAB-CDEFABCDEFAB","date":2,)"
                                           R"("filePath":"\/b\/AutoBackup-1.5.fivabackup","fileSize":10}])"));
}

TEST_F(DataCli, DecodeDataAgreesWithPythonsEncoder)
{
    // An independent encoder as oracle: Python's compact form with raw UTF-8, plus "/" escaped.
    const QString file = write(
        path(u"data.json"_s),
        R"({"items":[{"id":"00000000-0000-0000-0000-000000000001","title":"\u0001\u001f\b\f\n\r\u007f \u2028 \ud83d\ude00 «»",)"
        R"("path":"https:\/\/x.fr\/?a=1&b=<2>","category":"\\ \/ \\\/","notes":"<p>a<br>b<\/p>","createdAt":0.30000000000000004,)"
        R"("isFavorite":true,"attachments":[{"id":"ABCDEFAB-CDEF-ABCD-EFAB-CDEFABCDEFAB","fileName":"f","filePath":"\/f"}],"kind":"url"}],)"
        R"("categories":[],"lastBackupDate":1e-07})");
    const CliRun oracle =
        python("import json,sys; d=json.load(open(sys.argv[1],encoding='utf-8')); "
               "sys.stdout.buffer.write(json.dumps(d,ensure_ascii=False,separators=(',',':'))."
               "replace('/','\\\\/').encode())",
               {file});
    ASSERT_EQ(oracle.exitCode, 0) << oracle.err.toStdString();
    const CliRun r = run({u"decode-data"_s, file});
    EXPECT_EQ(r.exitCode, 0) << r.err.toStdString();
    EXPECT_EQ(r.outBytes, oracle.outBytes);
}

TEST_F(DataCli, MissingIdsAndDatesAreFilledAtEveryReading)
{
    const QString file =
        write(path(u"bare.json"_s),
              R"({"items":[{"title":"t","path":"http://x","category":"c"}],"categories":[]})");
    const CliRun a = run({u"decode-data"_s, file});
    const CliRun b = run({u"decode-data"_s, file});
    ASSERT_EQ(a.exitCode, 0) << a.err.toStdString();
    const QRegularExpression form(QStringLiteral(
        R"(^\{"items":\[\{"id":"[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}","title":"t",)"
        R"("path":"http:\\/\\/x","category":"c","createdAt":[0-9.e+]+,"isFavorite":false,"attachments":\[\],)"
        R"("kind":"url"\}\],"categories":\[\]\}$)"));
    EXPECT_TRUE(form.match(a.out).hasMatch()) << a.out.toStdString();
    EXPECT_NE(a.out.mid(0, 60), b.out.mid(0, 60)) << "a new id at each reading";
}

TEST_F(DataCli, FailuresAndUsage)
{
    const QString badData =
        write(path(u"bad.json"_s),
              R"({"items":[{"title":"t","path":"p","category":"c","isFavorite":"yes"}],"categories":[]})");
    const QString badHistory =
        write(path(u"badh.json"_s),
              R"([{"id":"00000000-0000-0000-0000-000000000001","date":1,"filePath":"/a","fileSize":1.5}])");
    const QString truncated = write(path(u"trunc.json"_s), R"({"items":[)");
    const QString absent = path(u"absent.json"_s);
    const QString data = u"decode-data"_s, history = u"decode-history"_s;
    const std::tuple<QStringList, int, const char *> cases[] = {
        {{data, badData}, 1, "bad.json: items[0].isFavorite: expected a boolean"},
        {{data, truncated}, 1, "trunc.json: malformed JSON: "},
        {{data, badHistory}, 1, "document: expected an object"},
        {{data, absent}, 1, "absent.json"},
        {{history, badHistory}, 1, "badh.json: [0].fileSize: expected an integer"},
        {{history, badData}, 1, "document: expected an array"},
        {{history, absent}, 1, "absent.json"},
        {{data}, 2, "usage: fiva-cli decode-data FILE"},
        {{data, badData, badData}, 2, "usage: fiva-cli decode-data FILE"},
        {{history, u"--bogus"_s}, 2, "usage: fiva-cli decode-history FILE"},
    };
    for (const auto &[args, exitCode, stderrPart] : cases) {
        SCOPED_TRACE(args.join(u' ').toStdString());
        const CliRun r = run(args);
        EXPECT_EQ(r.exitCode, exitCode);
        EXPECT_TRUE(r.out.isEmpty()) << "nothing half-written on stdout";
        EXPECT_TRUE(r.err.contains(QString::fromUtf8(stderrPart))) << r.err.toStdString();
    }
}

} // namespace
} // namespace cli_test
