#include <QRegularExpression>

#include <zlib.h>

#include "CliTestSupport.h"

namespace cli_test {
namespace {

// Hostile archives are written by Python's zipfile, then patched where zipfile refuses to go. The
// library's tests cover every kind of damage; these are the ones the command's flags lift, and one
// path that leaves the folder.
const char makeHostile[] = R"(
import sys, zipfile
kind, path = sys.argv[1], sys.argv[2]
def link(z, name, target):
    info = zipfile.ZipInfo(name)
    info.create_system = 3
    info.external_attr = (0o120777 << 16)
    z.writestr(info, target)
with zipfile.ZipFile(path, 'w') as z:
    if kind == 'dotdot':
        z.writestr('../x', 'evil')
    elif kind == 'link':
        link(z, 'sub/l', '../f')
    elif kind == 'crc':
        z.writestr('f', 'payload')
data = bytearray(open(path, 'rb').read())
if kind == 'crc':
    data[14] ^= 1; i = data.find(b'PK\x01\x02'); data[i + 16] ^= 1
open(path, 'wb').write(bytes(data))
)";

using ZipCli = CliTest;

QByteArray crcHex(const QByteArray &bytes)
{
    const auto crc =
        crc32(0, reinterpret_cast<const Bytef *>(bytes.constData()), static_cast<uInt>(bytes.size()));
    return QByteArray::number(static_cast<qulonglong>(crc), 16).rightJustified(8, '0');
}

TEST_F(ZipCli, ListShowsEveryEntryInDirectoryOrder)
{
    write(path(u"Data/a.txt"_s), "hello");
    write(path(u"Data/sub/b.txt"_s), QByteArray(20000, 'b'));
    ASSERT_TRUE(QFile::link(u"../a.txt"_s, path(u"Data/sub/l"_s)));
    for (const bool deflate : {false, true}) {
        SCOPED_TRACE(deflate ? "deflate" : "stored");
        const QString archive = path(deflate ? u"d.zip"_s : u"s.zip"_s);
        QStringList args{u"zip"_s, path(u"Data"_s), archive, u"--keep-parent"_s};
        if (deflate)
            args << u"--deflate"_s;
        const CliRun zipped = run(args);
        ASSERT_EQ(zipped.exitCode, 0) << zipped.err.toStdString();

        const CliRun listed = run({u"ls"_s, archive});
        ASSERT_EQ(listed.exitCode, 0) << listed.err.toStdString();
        const QList<QByteArray> lines = listed.outBytes.trimmed().split('\n');
        ASSERT_EQ(lines.size(), 5) << listed.out.toStdString();
        EXPECT_EQ(lines[0], "file\t" + QByteArray(deflate ? "8\t7" : "0\t5") + "\t5\t" + crcHex("hello") +
                                "\tData/a.txt");
        EXPECT_EQ(lines[1], "directory\t0\t0\t0\t00000000\tData/sub/");
        const QList<QByteArray> big = lines[2].split('\t');
        ASSERT_EQ(big.size(), 6);
        EXPECT_EQ(big[1], deflate ? "8" : "0");
        EXPECT_EQ(big[3], "20000");
        EXPECT_EQ(big[4], crcHex(QByteArray(20000, 'b')));
        EXPECT_EQ(lines[3], "symlink\t0\t8\t8\t" + crcHex("../a.txt") + "\tData/sub/l");
        EXPECT_EQ(lines[4], "directory\t0\t0\t0\t00000000\tData/");

        const QDir out(path(deflate ? u"out-d/deeper"_s : u"out-s/deeper"_s));
        const CliRun unzipped = run({u"unzip"_s, archive, out.path(), u"--allow-uncontained-symlinks"_s});
        ASSERT_EQ(unzipped.exitCode, 0) << unzipped.err.toStdString();
        EXPECT_EQ(read(out.filePath(u"Data/sub/b.txt"_s)), QByteArray(20000, 'b'));
        EXPECT_EQ(QFileInfo(out.filePath(u"Data/sub/l"_s)).symLinkTarget(), out.filePath(u"Data/a.txt"_s));
    }
}

TEST_F(ZipCli, FailuresNameTheirCaseAndPathAndBadUsageExitsTwo)
{
    write(path(u"Data/a.txt"_s), "a");
    write(path(u"exists.zip"_s), "old");
    write(path(u"not-a-zip"_s), QByteArray(100, 'n'));
    for (const QString &kind : {u"dotdot"_s, u"link"_s, u"crc"_s}) {
        const CliRun made = python(makeHostile, {kind, path(kind + u".zip"_s)});
        ASSERT_EQ(made.exitCode, 0) << made.err.toStdString();
    }
    struct Case
    {
        const char *args;
        int exitCode;
        const char *error;
        const char *path; // in the test's folder, named by the message too
    };
    const Case cases[] = {
        {"zip|@Data|@exists.zip", 1, "fileWriteFileExists", "exists.zip"},
        {"zip|@Nothing|@n.zip", 1, "fileReadNoSuchFile", "Nothing"},
        {"unzip|@none.zip|@o", 1, "fileReadNoSuchFile", "none.zip"},
        {"ls|@not-a-zip", 1, "missingEndOfCentralDirectoryRecord", nullptr},
        {"unzip|@dotdot.zip|@o1", 1, "fileReadInvalidFileName", "o1/../x"},
        {"unzip|@link.zip|@o3", 1, "uncontainedSymlink", nullptr},
        {"unzip|@crc.zip|@o4", 1, "invalidCRC32", nullptr},
        {"zip|only-one", 2, "usage: fiva-cli zip ", nullptr},
        {"zip|a|b|--bogus", 2, "usage: fiva-cli zip ", nullptr},
        {"unzip", 2, "usage: fiva-cli unzip ", nullptr},
        {"ls|a|b", 2, "usage: fiva-cli ls ", nullptr},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.args);
        const CliRun result = run(c.args);
        EXPECT_EQ(result.exitCode, c.exitCode);
        EXPECT_EQ(result.err.count(u'\n'), 1) << result.err.toStdString();
        EXPECT_TRUE(result.err.contains(QLatin1String(c.error))) << result.err.toStdString();
        if (c.exitCode == 1) {
            // A person reads a French sentence first; the identifier follows it for scripts.
            static const QRegularExpression sentence(
                u"^fiva-cli \\w+: (Le |La |L'|Ce |Les )[^(]+\\(.+\\)\n$"_s);
            EXPECT_TRUE(sentence.match(result.err).hasMatch()) << result.err.toStdString();
        }
        if (c.path) {
            EXPECT_TRUE(result.err.contains(path(QLatin1String(c.path)))) << result.err.toStdString();
        }
    }
    EXPECT_EQ(read(path(u"exists.zip"_s)), "old");
    EXPECT_FALSE(QFileInfo::exists(path(u"x"_s)));
    EXPECT_FALSE(QFileInfo::exists(path(u"f"_s)));

    // The flags lift exactly the checks they name.
    EXPECT_EQ(run("unzip|@crc.zip|@o7|--skip-crc").exitCode, 0);
    EXPECT_EQ(run("unzip|@link.zip|@o8|--allow-uncontained-symlinks").exitCode, 0);
}

} // namespace
} // namespace cli_test
