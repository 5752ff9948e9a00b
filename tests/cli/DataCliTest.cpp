#include "CliTestSupport.h"

namespace cli_test {
namespace {

using DataCli = CliTest;

// The codec has its own tests; here only what the commands add: the file named on the line, the
// stored form on stdout with nothing after it, failures on stderr naming the file, and exit codes.
TEST_F(DataCli, DecodePrintsTheStoredFormOrAFailureNamingTheFile)
{
    const std::tuple<QString, QByteArray, QByteArray> decoded[] = {
        {u"decode-data"_s, R"( {"categories": [], "items": [], "lastBackupDate": 7.573824e8} )",
         R"({"items":[],"categories":[],"lastBackupDate":757382400})"},
        {u"decode-history"_s,
         R"([ {"fileSize": 10, "filePath": "/b", "date": 2, "id": "abcdefab-cdef-abcd-efab-cdefabcdefab"} ])",
         R"([{"id":"ABCDEFAB-CDEF-ABCD-EFAB-CDEFABCDEFAB","date":2,"filePath":"\/b","fileSize":10}])"},
    };
    for (const auto &[command, input, output] : decoded) {
        const CliRun r = run({command, write(path(u"in.json"_s), input)});
        EXPECT_EQ(r.exitCode, 0) << r.err.toStdString();
        EXPECT_EQ(r.outBytes, output);
        EXPECT_TRUE(r.err.isEmpty());
    }

    const QString badData = write(path(u"bad.json"_s), R"({"items":[{"title":"t"}],"categories":[]})");
    const QString badHistory = write(path(u"badh.json"_s), R"({})");
    const QString data = u"decode-data"_s, history = u"decode-history"_s;
    const std::tuple<QStringList, int, const char *> failures[] = {
        {{data, badData}, 1, "bad.json: items[0].path: missing"},
        {{history, badHistory}, 1, "badh.json: document: expected an array"},
        {{data, path(u"absent.json"_s)}, 1, "absent.json"},
        {{data}, 2, "usage: fiva-cli decode-data FILE"},
        {{data, badData, badData}, 2, "usage: fiva-cli decode-data FILE"},
        {{history, u"--bogus"_s}, 2, "usage: fiva-cli decode-history FILE"},
    };
    for (const auto &[args, exitCode, stderrPart] : failures) {
        SCOPED_TRACE(args.join(u' ').toStdString());
        const CliRun r = run(args);
        EXPECT_EQ(r.exitCode, exitCode);
        EXPECT_TRUE(r.out.isEmpty()) << "nothing half-written on stdout";
        EXPECT_TRUE(r.err.contains(QString::fromUtf8(stderrPart))) << r.err.toStdString();
    }
}

} // namespace
} // namespace cli_test
