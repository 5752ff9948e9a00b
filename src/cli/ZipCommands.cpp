#include "cli/Commands.h"
#include "store/BackupFiles.h"
#include "zip/Archive.h"
#include "zip/Errors.h"
#include "zip/FolderZip.h"

#include <QFile>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <system_error>

namespace fiva::cli {

namespace {

std::filesystem::path localPath(const QString &argument)
{
    return std::filesystem::path(QFile::encodeName(argument).toStdString());
}

// Splits arguments into positional ones and the allowed flags; false on an unknown option.
bool parse(const QStringList &args, QStringList &positional, QStringList &flags, const QStringList &allowed)
{
    for (const QString &arg : args) {
        if (arg.startsWith(QLatin1String("--"))) {
            if (!allowed.contains(arg))
                return false;
            flags.append(arg);
        } else {
            positional.append(arg);
        }
    }
    return true;
}

// One line on stderr: a French sentence naming the file concerned (`archive` unless the error
// names its own), with the error's identifier after it for scripts and logs.
int reportFailure(const char *command, const std::exception &error, const QString &archive)
{
    std::fprintf(stderr, "fiva-cli %s: %s\n", command, qPrintable(backup::describe(error, archive)));
    return exitFailure;
}

int runZip(const QStringList &args);
int runUnzip(const QStringList &args);
int runList(const QStringList &args);

const Command commands[] = {
    {"zip", "SOURCE ARCHIVE [--keep-parent] [--deflate]",
     "pack a folder, file or link into a new ZIP archive", runZip},
    {"unzip", "ARCHIVE DEST [--skip-crc] [--allow-uncontained-symlinks]",
     "unpack a ZIP archive into a folder, created if missing", runUnzip},
    {"ls", "ARCHIVE", "list a ZIP archive's entries: type, method, sizes, CRC-32, path", runList},
};

int runZip(const QStringList &args)
{
    const Command &self = commands[0];
    if (helpRequested(self, args))
        return exitOk;
    QStringList positional, flags;
    const QStringList allowed{QStringLiteral("--keep-parent"), QStringLiteral("--deflate")};
    if (!parse(args, positional, flags, allowed) || positional.size() != 2)
        return usageError(self);
    try {
        zip::zipItem(localPath(positional[0]), localPath(positional[1]), flags.contains(allowed[0]),
                     flags.contains(allowed[1]) ? zip::CompressionMethod::deflate
                                                : zip::CompressionMethod::none);
    } catch (const std::exception &error) {
        return reportFailure(self.name, error, positional[1]);
    }
    return exitOk;
}

int runUnzip(const QStringList &args)
{
    const Command &self = commands[1];
    if (helpRequested(self, args))
        return exitOk;
    QStringList positional, flags;
    const QStringList allowed{QStringLiteral("--skip-crc"), QStringLiteral("--allow-uncontained-symlinks")};
    if (!parse(args, positional, flags, allowed) || positional.size() != 2)
        return usageError(self);
    try {
        const std::filesystem::path destination = localPath(positional[1]);
        std::error_code error;
        std::filesystem::create_directories(destination, error);
        if (error)
            throw zip::FileSystemError::fromErrno(error.value(), destination);
        zip::unzipItem(localPath(positional[0]), destination, flags.contains(allowed[0]),
                       flags.contains(allowed[1]));
    } catch (const std::exception &error) {
        return reportFailure(self.name, error, positional[0]);
    }
    return exitOk;
}

const char *typeName(zip::EntryType type)
{
    switch (type) {
    case zip::EntryType::directory:
        return "directory";
    case zip::EntryType::symlink:
        return "symlink";
    case zip::EntryType::file:
        break;
    }
    return "file";
}

int runList(const QStringList &args)
{
    const Command &self = commands[2];
    if (helpRequested(self, args))
        return exitOk;
    if (args.size() != 1 || args[0].startsWith(QLatin1String("--")))
        return usageError(self);
    try {
        zip::Archive archive(localPath(args[0]), zip::Archive::AccessMode::read);
        for (const zip::Entry &entry : archive) {
            std::printf("%s\t%u\t%llu\t%llu\t%08x\t%s\n", typeName(entry.type()),
                        unsigned{entry.centralDirectoryStructure.compressionMethod},
                        static_cast<unsigned long long>(entry.compressedSize()),
                        static_cast<unsigned long long>(entry.uncompressedSize()), unsigned{entry.checksum()},
                        entry.path().c_str());
        }
    } catch (const std::exception &error) {
        return reportFailure(self.name, error, args[0]);
    }
    return exitOk;
}

} // namespace

std::span<const Command> zipCommands()
{
    return commands;
}

} // namespace fiva::cli
