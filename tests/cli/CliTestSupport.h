#pragma once

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include "support/ProcessRun.h"

namespace cli_test {

using namespace Qt::StringLiterals;

struct CliRun
{
    int exitCode = -1;
    QByteArray outBytes;
    QString out;
    QString err;
};

inline QString cliPath()
{
    const QByteArray path = qgetenv("FIVA_CLI");
    EXPECT_FALSE(path.isEmpty()) << "FIVA_CLI must name the fiva-cli binary";
    return QString::fromLocal8Bit(path);
}

inline CliRun runProgram(const QString &program, const QStringList &args, std::vector<std::string> env = {})
{
    const fiva::test::ProcessRun run = fiva::test::runProcess(program, args, {.env = std::move(env)});
    const QByteArray out = QByteArray::fromStdString(run.out);
    return {run.exitCode, out, QString::fromUtf8(out), QString::fromStdString(run.err)};
}

// Python builds the archives our own writer would refuse to make and serves as an independent oracle.
inline CliRun python(const char *script, const QStringList &args)
{
    return runProgram(u"python3"_s, QStringList{u"-c"_s, QString::fromUtf8(script)} + args);
}

// Each test drives the real fiva-cli in a folder of its own; `home` is the XDG data folder, so the
// store it opens is the one the application would open there.
class CliTest : public ::testing::Test
{
protected:
    QString path(const QString &relative) const { return m_root.filePath(relative); }
    QString home(int which = 1) const { return path(u"home%1"_s.arg(which)); }
    QString dataFile(int which = 1) const { return home(which) + u"/Fiva/FivaData.json"_s; }

    CliRun run(const QStringList &args, int which = 1) const
    {
        QDir().mkpath(path(u"tmp"_s));
        return runProgram(cliPath(), args,
                          {"XDG_DATA_HOME=" + QFile::encodeName(home(which)).toStdString(),
                           "TMPDIR=" + QFile::encodeName(path(u"tmp"_s)).toStdString()});
    }

    // Arguments separated by "|", so that blanks inside one can be written; one starting with "@"
    // names a file in the test's folder.
    CliRun run(const char *line, int which = 1) const
    {
        QStringList args = QString::fromUtf8(line).split(u'|', Qt::SkipEmptyParts);
        for (QString &arg : args) {
            if (arg.startsWith(u'@'))
                arg = path(arg.mid(1));
        }
        return run(args, which);
    }

    static QString write(const QString &file, const QByteArray &bytes)
    {
        QDir().mkpath(QFileInfo(file).absolutePath());
        QFile f(file);
        EXPECT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        EXPECT_EQ(f.write(bytes), bytes.size());
        return file;
    }
    static QByteArray read(const QString &file)
    {
        QFile f(file);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }

    QTemporaryDir m_root;
};

} // namespace cli_test
