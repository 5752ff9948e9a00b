#pragma once

#include <QString>
#include <QStringList>

namespace fiva {

// What `fiva` was started with. The file manager hands it a backup archive to open; --help and
// --version are answered on the terminal before any window exists, so they work without a display.
struct CommandLine
{
    enum class Action { run, help, version, usageError };
    Action action = Action::run;
    // Absolute, when a backup archive was given.
    QString backupFile;
    // A French sentence, for usageError.
    QString error;
};

inline constexpr int exitUsage = 2;

// `arguments` without the program's name.
CommandLine parseCommandLine(const QStringList &arguments);
// What --help prints. The manual page and the shell completions are generated from it at build
// time: its layout (usage lines, one-line summary, then "Title:" sections of indented entries) is
// what the generator reads.
QString commandLineHelp();

} // namespace fiva
