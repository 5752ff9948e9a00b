#include "cli/Commands.h"
#include "cli/Session.h"
#include "store/LinkStore.h"
#include "store/Recovery.h"

#include <QFileInfo>

#include <cstdio>
#include <string_view>

namespace fiva::cli {

namespace {

void printErr(const QString &text)
{
    std::fputs(qPrintable(text + u'\n'), stderr);
}

const Command &command(const char *name);

int runExport(const QStringList &args)
{
    const Command &self = command("export");
    if (helpRequested(self, args))
        return exitOk;
    QStringList rest = args;
    const bool force = rest.removeAll(QStringLiteral("--force")) > 0;
    if (rest.size() != 1 || rest[0].startsWith(u'-'))
        return usageError(self);
    // The history keeps the full path, whatever directory the command ran in.
    const QString archive = QFileInfo(rest[0]).absoluteFilePath();
    Session session;
    // A mistyped path must not silently destroy the file that happens to be there. A folder is
    // left to the export, which refuses it.
    const QFileInfo existing(archive);
    if (!force && (existing.isSymLink() || (existing.exists() && !existing.isDir()))) {
        const AlertAnswer answer = session.dialogs().runAlert(
            {QStringLiteral("Remplacer « ") + archive + QStringLiteral(" » ?"),
             QStringLiteral("Ce fichier existe déjà : l'export le remplacera par la nouvelle archive."),
             AlertStyle::warning,
             {QStringLiteral("Remplacer"), QStringLiteral("Annuler")},
             std::nullopt});
        if (answer.button != 0) {
            printErr(session.dialogs().lastConfirmationHadNoTerminal()
                         ? QStringLiteral("fiva-cli export : « ") + archive +
                               QStringLiteral(" » existe déjà et aucun terminal ne permet de confirmer ; "
                                              "ajoutez --force pour le remplacer.")
                         : QStringLiteral("fiva-cli export : annulé, « ") + archive +
                               QStringLiteral(" » n'a pas changé."));
            return exitFailure;
        }
    }
    if (const auto error = session.store().writeBackupArchive(archive)) {
        printErr(QStringLiteral("❌ Erreur export : ") + *error);
        return exitFailure;
    }
    std::printf("%s\t%lld\n", qPrintable(archive), static_cast<long long>(QFileInfo(archive).size()));
    return exitOk;
}

int runRestore(const QStringList &args)
{
    const Command &self = command("restore");
    if (helpRequested(self, args))
        return exitOk;
    QStringList rest = args;
    const bool yes = rest.removeAll(QStringLiteral("--yes")) > 0;
    const bool undo = rest.removeAll(QStringLiteral("--undo")) > 0;
    if (undo) {
        // Going back to the data as it was needs no confirmation: nothing is lost, the restored
        // data is still in the archive it came from.
        if (!rest.isEmpty() || yes)
            return usageError(self);
        Session session;
        return session.store().undoRestore() ? exitOk : exitFailure;
    }
    if (rest.size() != 1 || rest[0].startsWith(u'-'))
        return usageError(self);
    const QString archive = QFileInfo(rest[0]).absoluteFilePath();
    Session session;
    if (!yes) {
        const AlertAnswer answer =
            session.dialogs().runAlert({QStringLiteral("Restaurer les données ?"),
                                        LinkStore::restoreConfirmationText(archive),
                                        AlertStyle::warning,
                                        {QStringLiteral("Restaurer"), QStringLiteral("Annuler")},
                                        std::nullopt});
        if (answer.button != 0) {
            printErr(
                session.dialogs().lastConfirmationHadNoTerminal()
                    ? QStringLiteral("fiva-cli restore : aucun terminal pour confirmer ; ajoutez --yes pour "
                                     "restaurer sans question.")
                    : QStringLiteral("fiva-cli restore : annulé, rien n'a changé."));
            return exitFailure;
        }
    }
    return session.store().restoreBackup(archive) ? exitOk : exitFailure;
}

int runRecover(const QStringList &args)
{
    const Command &self = command("recover");
    if (helpRequested(self, args))
        return exitOk;
    QStringList rest = args;
    const bool yes = rest.removeAll(QStringLiteral("--yes")) > 0;
    if (!rest.isEmpty())
        return usageError(self);
    Session session;
    LinkStore &store = session.store();
    if (!store.setAsideDataFile().isEmpty())
        printErr(QStringLiteral("Le fichier de données était illisible ; il a été mis de côté : ") +
                 store.setAsideDataFile());
    const auto candidate = store.newestReadableAutoBackup();
    if (!candidate) {
        printErr(QStringLiteral("fiva-cli recover : aucune sauvegarde automatique lisible dans ") +
                 store.autoBackupsFolderURL());
        return exitFailure;
    }
    const QString offer = recoveryOffer(*candidate);
    std::printf("%s\n", qPrintable(offer));
    std::fflush(stdout);
    if (!yes) {
        const AlertAnswer answer = session.dialogs().runAlert(
            {QStringLiteral("Charger cette sauvegarde automatique ?"),
             QStringLiteral("Elle remplacera les %1 fiches actuelles.").arg(store.items().size()),
             AlertStyle::warning,
             {QStringLiteral("Charger"), QStringLiteral("Annuler")},
             std::nullopt});
        if (answer.button != 0) {
            printErr(
                session.dialogs().lastConfirmationHadNoTerminal()
                    ? QStringLiteral("fiva-cli recover : aucun terminal pour confirmer ; ajoutez --yes pour "
                                     "charger sans confirmation")
                    : QStringLiteral("fiva-cli recover : annulé, rien n'a changé"));
            return exitFailure;
        }
    }
    return store.recoverFromAutoBackup(candidate->path) ? exitOk : exitFailure;
}

constexpr Command commands[] = {
    {"export", "ARCHIVE [--force]",
     "write a backup archive (data and attachment copies); prints its path and size; an existing file is "
     "replaced only after a yes on a terminal, or with --force",
     runExport},
    {"restore", "ARCHIVE [--yes] | --undo",
     "replace the data by a backup archive's or an automatic backup's; asks first on a terminal unless "
     "--yes; --undo brings back the data from before the latest restore",
     runRestore},
    {"recover", "[--yes]",
     "load the newest readable automatic backup as the data file; asks first on a terminal unless --yes",
     runRecover},
};

const Command &command(const char *name)
{
    for (const Command &c : commands) {
        if (std::string_view(c.name) == name)
            return c;
    }
    return commands[0];
}

} // namespace

std::span<const Command> backupCommands()
{
    return commands;
}

} // namespace fiva::cli
