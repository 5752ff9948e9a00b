#pragma once

#include <QStringList>

#include <span>

namespace fiva::cli {

// Exit codes shared by every command.
inline constexpr int exitOk = 0;
inline constexpr int exitFailure = 1;
inline constexpr int exitUsage = 2;

// What each code means, for `fiva-cli --help` and the manual page made from it.
struct ExitCode
{
    int code;
    const char *meaning;
};
inline constexpr ExitCode exitCodes[] = {
    {exitOk, "success"},
    {exitFailure, "failure, with the reason on stderr; for check, a record with a problem"},
    {exitUsage, "a usage mistake: unknown command or option, missing or extra argument"},
};

struct Command
{
    const char *name;
    const char *usage;   // arguments after the command's name, for the usage line
    const char *summary; // one line for `fiva-cli --help`
    // `args` holds what follows the command's name. Each command answers `--help` itself.
    int (*run)(const QStringList &args);
};

// Each group lives in its own source file.
std::span<const Command> zipCommands();
std::span<const Command> dataCommands();
std::span<const Command> storeCommands();
std::span<const Command> backupCommands();
std::span<const Command> bookmarkCommands();
std::span<const Command> healthCommands();

// Prints "usage: fiva-cli NAME USAGE" on stderr and returns exitUsage.
int usageError(const Command &command);
// True when args ask for help; prints the command's usage on stdout.
bool helpRequested(const Command &command, const QStringList &args);

} // namespace fiva::cli
