#include "cli/Commands.h"
#include "model/JsonCodec.h"
#include "store/FileIO.h"

#include <cstdio>

namespace fiva::cli {

namespace {

int fail(const Command &command, const QString &message)
{
    std::fprintf(stderr, "fiva-cli %s: %s\n", command.name, qPrintable(message));
    return exitFailure;
}

// Reads FILE, decodes it with `decode`, and prints the document re-encoded: exactly the bytes
// Fiva would write, with no newline added, so that the output can be compared byte for byte.
template <class Decode> int reencode(const Command &command, const QStringList &args, Decode decode)
{
    if (helpRequested(command, args))
        return exitOk;
    if (args.size() != 1 || args.front().startsWith(u'-'))
        return usageError(command);
    const QString path = args.front();
    const Result<QByteArray> bytes = fileio::readWholeFile(path);
    if (!bytes)
        return fail(command, bytes.error());
    const auto decoded = decode(bytes.value());
    if (!decoded)
        return fail(command, path + QStringLiteral(": ") + decoded.error());
    const Result<QByteArray> encoded = json::encode(decoded.value());
    if (!encoded)
        return fail(command, encoded.error());
    const QByteArray &out = encoded.value();
    if (std::fwrite(out.constData(), 1, std::size_t(out.size()), stdout) != std::size_t(out.size()) ||
        std::fflush(stdout) != 0) {
        return fail(command, QStringLiteral("impossible d'écrire sur la sortie standard"));
    }
    return exitOk;
}

int decodeData(const QStringList &args);
int decodeHistory(const QStringList &args);

const Command commands[] = {
    {"decode-data", "FILE", "decode a data file and print it re-encoded exactly as Fiva writes it",
     decodeData},
    {"decode-history", "FILE", "decode a backup history file and print it re-encoded as Fiva writes it",
     decodeHistory},
};

int decodeData(const QStringList &args)
{
    return reencode(commands[0], args, [](const QByteArray &bytes) { return json::decodeSavedData(bytes); });
}

int decodeHistory(const QStringList &args)
{
    return reencode(commands[1], args,
                    [](const QByteArray &bytes) { return json::decodeBackupHistory(bytes); });
}

} // namespace

std::span<const Command> dataCommands()
{
    return commands;
}

} // namespace fiva::cli
