#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <zlib.h>

#include <gtest/gtest.h>

namespace {

struct CliRun
{
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

CliRun runProgram(const QString &program, const QStringList &args)
{
    QProcess process;
    process.start(program, args);
    EXPECT_TRUE(process.waitForFinished(60000)) << qPrintable(program);
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            process.readAllStandardOutput(), process.readAllStandardError()};
}

CliRun runCli(const QStringList &args)
{
    return runProgram(QString::fromLocal8Bit(qgetenv("FIVA_CLI")), args);
}

// Hostile archives are written by Python's zipfile, then patched where zipfile refuses to go.
const char *const makeHostile = R"(
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
    elif kind == 'deepdotdot':
        z.writestr('a/../../x', 'evil')
    elif kind == 'link':
        link(z, 'sub/l', '../f')
    elif kind in ('crc', 'method'):
        z.writestr('f', 'payload')
    elif kind == 'corrupt':
        z.writestr('f', 'payload' * 100, compress_type=zipfile.ZIP_DEFLATED)
data = bytearray(open(path, 'rb').read())
if kind == 'crc':
    data[14] ^= 1; i = data.find(b'PK\x01\x02'); data[i + 16] ^= 1
if kind == 'method':
    data[8] = 99; i = data.find(b'PK\x01\x02'); data[i + 10] = 99
if kind == 'corrupt':
    data[30 + 1] = 0xFF
open(path, 'wb').write(bytes(data))
)";

class ZipCli : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_FALSE(qgetenv("FIVA_CLI").isEmpty());
        ASSERT_TRUE(m_dir.isValid());
    }

    QString path(const QString &name) const { return m_dir.filePath(name); }

    void write(const QString &name, const QByteArray &bytes)
    {
        QDir().mkpath(QFileInfo(path(name)).absolutePath());
        QFile f(path(name));
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(bytes);
    }

    QByteArray read(const QString &name) const
    {
        QFile f(QDir(m_dir.path()).absoluteFilePath(name));
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }

    QString hostile(const QString &kind)
    {
        const QString archive = path(kind + QStringLiteral(".zip"));
        const CliRun made = runProgram(QStringLiteral("python3"),
                                       {QStringLiteral("-c"), QString::fromUtf8(makeHostile), kind, archive});
        EXPECT_EQ(made.exitCode, 0) << made.err.constData();
        return archive;
    }

    QTemporaryDir m_dir;
};

QByteArray crcHex(const QByteArray &bytes)
{
    const auto crc =
        crc32(0, reinterpret_cast<const Bytef *>(bytes.constData()), static_cast<uInt>(bytes.size()));
    return QByteArray::number(static_cast<qulonglong>(crc), 16).rightJustified(8, '0');
}

TEST_F(ZipCli, ListShowsEveryEntryInDirectoryOrder)
{
    write(QStringLiteral("Data/a.txt"), "hello");
    write(QStringLiteral("Data/sub/b.txt"), QByteArray(20000, 'b'));
    ASSERT_TRUE(QFile::link(QStringLiteral("../a.txt"), path(QStringLiteral("Data/sub/l"))));
    for (bool deflate : {false, true}) {
        const QString archive = path(deflate ? QStringLiteral("d.zip") : QStringLiteral("s.zip"));
        QStringList args{QStringLiteral("zip"), path(QStringLiteral("Data")), archive,
                         QStringLiteral("--keep-parent")};
        if (deflate)
            args << QStringLiteral("--deflate");
        const CliRun zipped = runCli(args);
        ASSERT_EQ(zipped.exitCode, 0) << zipped.err.constData();

        const CliRun listed = runCli({QStringLiteral("ls"), archive});
        ASSERT_EQ(listed.exitCode, 0) << listed.err.constData();
        const QList<QByteArray> lines = listed.out.trimmed().split('\n');
        ASSERT_EQ(lines.size(), 5) << listed.out.constData();
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

        const QString out = path(deflate ? QStringLiteral("out-d/deeper") : QStringLiteral("out-s/deeper"));
        const CliRun unzipped =
            runCli({QStringLiteral("unzip"), archive, out, QStringLiteral("--allow-uncontained-symlinks")});
        ASSERT_EQ(unzipped.exitCode, 0) << unzipped.err.constData();
        EXPECT_EQ(read(QDir(out).filePath(QStringLiteral("Data/sub/b.txt"))), QByteArray(20000, 'b'));
        EXPECT_EQ(QFileInfo(QDir(out).filePath(QStringLiteral("Data/sub/l"))).symLinkTarget(),
                  QDir(out).filePath(QStringLiteral("Data/a.txt")));
    }
}

TEST_F(ZipCli, FailuresNameTheirCaseAndPath)
{
    write(QStringLiteral("Data/a.txt"), "a");
    write(QStringLiteral("exists.zip"), "old");
    write(QStringLiteral("not-a-zip"), QByteArray(100, 'n'));
    struct Case
    {
        QStringList args;
        QByteArray expected;
        QString expectedPath;
    };
    const Case cases[] = {
        {{QStringLiteral("zip"), path(QStringLiteral("Data")), path(QStringLiteral("exists.zip"))},
         "fileWriteFileExists",
         path(QStringLiteral("exists.zip"))},
        {{QStringLiteral("zip"), path(QStringLiteral("Nothing")), path(QStringLiteral("n.zip"))},
         "fileReadNoSuchFile",
         path(QStringLiteral("Nothing"))},
        {{QStringLiteral("unzip"), path(QStringLiteral("none.zip")), path(QStringLiteral("o"))},
         "fileReadNoSuchFile",
         path(QStringLiteral("none.zip"))},
        {{QStringLiteral("ls"), path(QStringLiteral("not-a-zip"))}, "missingEndOfCentralDirectoryRecord", {}},
        {{QStringLiteral("unzip"), hostile(QStringLiteral("dotdot")), path(QStringLiteral("o1"))},
         "fileReadInvalidFileName",
         path(QStringLiteral("o1/../x"))},
        {{QStringLiteral("unzip"), hostile(QStringLiteral("deepdotdot")), path(QStringLiteral("o2"))},
         "fileReadInvalidFileName",
         path(QStringLiteral("o2/a/../../x"))},
        {{QStringLiteral("unzip"), hostile(QStringLiteral("link")), path(QStringLiteral("o3"))},
         "uncontainedSymlink",
         {}},
        {{QStringLiteral("unzip"), hostile(QStringLiteral("crc")), path(QStringLiteral("o4"))},
         "invalidCRC32",
         {}},
        {{QStringLiteral("unzip"), hostile(QStringLiteral("method")), path(QStringLiteral("o5"))},
         "invalidCompressionMethod",
         {}},
        {{QStringLiteral("unzip"), hostile(QStringLiteral("corrupt")), path(QStringLiteral("o6"))},
         "corruptedData",
         {}},
    };
    for (const Case &c : cases) {
        const CliRun result = runCli(c.args);
        EXPECT_EQ(result.exitCode, 1) << qPrintable(c.args.join(u' '));
        EXPECT_EQ(result.err.count('\n'), 1) << result.err.constData();
        EXPECT_TRUE(result.err.contains(c.expected)) << result.err.constData();
        if (!c.expectedPath.isEmpty()) {
            EXPECT_TRUE(result.err.contains(c.expectedPath.toUtf8())) << result.err.constData();
        }
    }
    EXPECT_EQ(read(QStringLiteral("exists.zip")), "old");
    EXPECT_FALSE(QFileInfo::exists(path(QStringLiteral("x"))));
    EXPECT_FALSE(QFileInfo::exists(path(QStringLiteral("f"))));

    // The flags lift exactly the checks they name.
    EXPECT_EQ(runCli({QStringLiteral("unzip"), hostile(QStringLiteral("crc")), path(QStringLiteral("o7")),
                      QStringLiteral("--skip-crc")})
                  .exitCode,
              0);
    EXPECT_EQ(runCli({QStringLiteral("unzip"), hostile(QStringLiteral("link")), path(QStringLiteral("o8")),
                      QStringLiteral("--allow-uncontained-symlinks")})
                  .exitCode,
              0);
}

TEST_F(ZipCli, UsageErrors)
{
    const QStringList cases[] = {
        {QStringLiteral("zip"), QStringLiteral("only-one")},
        {QStringLiteral("zip"), QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("--bogus")},
        {QStringLiteral("unzip")},
        {QStringLiteral("ls"), QStringLiteral("a"), QStringLiteral("b")},
    };
    for (const QStringList &args : cases)
        EXPECT_EQ(runCli(args).exitCode, 2) << qPrintable(args.join(u' '));
}

} // namespace
