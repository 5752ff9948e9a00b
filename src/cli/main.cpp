#include "cli/Commands.h"
#include "platform/AllocatorTuning.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "Version.h"

namespace fiva::cli {

int usageError(const Command &command)
{
    std::fprintf(stderr, "usage: fiva-cli %s %s\n", command.name, command.usage);
    return exitUsage;
}

bool helpRequested(const Command &command, const QStringList &args)
{
    // Only in first place: later on, "-h" may be a value, as in `add --title -h`.
    const QString first = args.value(0);
    if (first != QLatin1String("--help") && first != QLatin1String("-h"))
        return false;
    std::printf("usage: fiva-cli %s %s\n%s\n", command.name, command.usage, command.summary);
    return true;
}

namespace {

std::vector<Command> allCommands()
{
    std::vector<Command> all;
    for (auto group : {storeCommands(), backupCommands(), bookmarkCommands(), healthCommands(),
                       dataCommands(), zipCommands()})
        all.insert(all.end(), group.begin(), group.end());
    return all;
}

// The manual page and the shell completions are generated from this text at build time: its
// layout (usage lines, one-line summary, then "Title:" sections of indented entries) is what the
// generator reads.
void printOverview(std::FILE *out)
{
    std::fprintf(out, "usage: fiva-cli COMMAND [ARGS...]\n"
                      "       fiva-cli --help | --version\n\n"
                      "Command-line tool for Fiva's records, backups and ZIP archives.\n\n"
                      "fiva-cli works on the same data folder as the Fiva window, with the same messages, "
                      "and takes the same lock while it changes the data: $XDG_DATA_HOME/Fiva, by default "
                      "~/.local/share/Fiva. Each command answers --help with its usage.\n\n"
                      "Commands:\n");
    for (const Command &c : allCommands())
        std::fprintf(out, "  %s%s%s\n      %s\n", c.name, *c.usage ? " " : "", c.usage, c.summary);
    std::fprintf(out, "\nExit status:\n");
    for (const ExitCode &e : exitCodes)
        std::fprintf(out, "  %d  %s\n", e.code, e.meaning);
}

} // namespace
} // namespace fiva::cli

int main(int argc, char **argv)
{
    using namespace fiva::cli;
    // The allocator's settings pay off when the data file's records are decoded; the ZIP commands never
    // decode it, and the restart would only give them a second start-up.
    const auto zip = zipCommands();
    const bool zipCommand = argc > 1 && std::any_of(zip.begin(), zip.end(), [&](const Command &c) {
                                return std::strcmp(argv[1], c.name) == 0;
                            });
    if (!zipCommand)
        fiva::restartWithTunedAllocator(argv);
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Fiva"));
    QCoreApplication::setApplicationName(QStringLiteral("Fiva"));

    QStringList args = QCoreApplication::arguments();
    args.removeFirst();
    if (args.isEmpty()) {
        printOverview(stderr);
        return exitUsage;
    }
    const QString name = args.takeFirst();
    if (name == QLatin1String("--help") || name == QLatin1String("-h") || name == QLatin1String("help")) {
        printOverview(stdout);
        return exitOk;
    }
    if (name == QLatin1String("--version")) {
        std::printf("%s\n", fiva::versionNumber);
        return exitOk;
    }
    for (const Command &c : allCommands()) {
        if (name == QLatin1String(c.name))
            return c.run(args);
    }
    std::fprintf(stderr, "fiva-cli: unknown command '%s'\n", qPrintable(name));
    printOverview(stderr);
    return exitUsage;
}
