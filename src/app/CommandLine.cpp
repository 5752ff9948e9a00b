#include "app/CommandLine.h"

#include <QFileInfo>

namespace fiva {

CommandLine parseCommandLine(const QStringList &arguments)
{
    CommandLine parsed;
    bool optionsEnded = false;
    for (const QString &argument : arguments) {
        if (!optionsEnded && argument == QLatin1String("--")) {
            optionsEnded = true;
        } else if (!optionsEnded && argument == QLatin1String("--help")) {
            return {CommandLine::Action::help, {}, {}};
        } else if (!optionsEnded && argument == QLatin1String("--version")) {
            return {CommandLine::Action::version, {}, {}};
        } else if (!optionsEnded && argument.startsWith(u'-') && argument.size() > 1) {
            return {CommandLine::Action::usageError,
                    {},
                    QStringLiteral("fiva : l’option « %1 » est inconnue.").arg(argument)};
        } else if (!parsed.backupFile.isEmpty()) {
            return {CommandLine::Action::usageError,
                    {},
                    QStringLiteral("fiva : un seul fichier de sauvegarde à la fois, « %1 » est en trop.")
                        .arg(argument)};
        } else if (argument.isEmpty()) {
            return {CommandLine::Action::usageError,
                    {},
                    QStringLiteral("fiva : le nom du fichier de sauvegarde est vide.")};
        } else {
            parsed.backupFile = QFileInfo(argument).absoluteFilePath();
        }
    }
    return parsed;
}

QString commandLineHelp()
{
    return QStringLiteral(
        "usage: fiva [BACKUP.fivabackup]\n"
        "       fiva --help | --version\n"
        "\n"
        "Manager of links and documents.\n"
        "\n"
        "Fiva keeps web addresses, files and folders as records with a category, notes, a "
        "favourite flag and attached files, and protects them with backup archives and automatic "
        "backups. Its interface is in French. The data lives in $XDG_DATA_HOME/Fiva, by default "
        "~/.local/share/Fiva.\n"
        "\n"
        "Given a backup archive, as the file manager does when one is opened, Fiva shows its "
        "window and then asks whether to restore the data of that archive; nothing changes "
        "unless the answer is \"Restaurer\". When Fiva already runs on the same data folder, the "
        "running window comes forward and asks instead.\n"
        "\n"
        "Options:\n"
        "  --help\n"
        "      print this help and exit\n"
        "  --version\n"
        "      print the version and exit\n"
        "\n"
        "Exit status:\n"
        "  0  the window was closed, the running window was asked to come forward, or the help or the "
        "version was printed\n"
        "  2  a usage mistake: an unknown option, or more than one file\n");
}

} // namespace fiva
