#include "cli/Commands.h"
#include "cli/Session.h"
#include "interchange/BookmarkExport.h"
#include "interchange/BookmarkImport.h"
#include "store/FileIO.h"
#include "store/LinkStore.h"
#include "store/StoredNotes.h"

#include <cstdio>

namespace fiva::cli {

namespace {

namespace ic = interchange;

void printLine(std::FILE *out, const QString &line)
{
    std::fputs(qPrintable(line + u'\n'), out);
}

int fail(const Command &command, const QString &message)
{
    std::fprintf(stderr, "fiva-cli %s: %s\n", command.name, qPrintable(message));
    return exitFailure;
}

int runImport(const QStringList &args);
int runExport(const QStringList &args);

const Command commands[] = {
    {"import-bookmarks", "FILE [--keep-roots] [--allow-duplicates]",
     "import a browser bookmark file (HTML) as records and categories, and print the counts", runImport},
    {"export-bookmarks", "FILE", "write every record to a browser bookmark file (HTML), replacing FILE",
     runExport},
};

void printCounts(const ic::ImportPlan &plan)
{
    printLine(stdout, QStringLiteral("Fiches importées : %1").arg(plan.records.size()));
    printLine(stdout, QStringLiteral("Nouvelles catégories : %1").arg(plan.newCategories.size()));
    printLine(stdout, QStringLiteral("Doublons ignorés : %1").arg(plan.duplicatesSkipped));
    printLine(stdout, plan.skippedSummary());
}

int runImport(const QStringList &args)
{
    const Command &self = commands[0];
    if (helpRequested(self, args))
        return exitOk;
    ic::ImportOptions options;
    QString file;
    for (const QString &arg : args) {
        if (arg == u"--keep-roots")
            options.keepRoots = true;
        else if (arg == u"--allow-duplicates")
            options.allowDuplicates = true;
        else if (arg.startsWith(u'-') || !file.isEmpty())
            return usageError(self);
        else
            file = arg;
    }
    if (file.isEmpty())
        return usageError(self);
    const Result<QByteArray> bytes = fileio::readWholeFile(file);
    if (!bytes)
        return fail(self, bytes.error());

    Session session;
    ic::ImportPlan plan;
    const auto saved =
        session.store().importRecords([&](const QList<LinkItem> &items, const QStringList &categories) {
            ic::ImportContext context = ic::importContextFor(items, categories);
            context.importTime = session.clock().now();
            context.notesFromPlainText = notesHTML;
            plan = ic::planBookmarkImport(bytes.value(), context, options);
            // A file that is not a bookmark file adds nothing, not even the categories it may name.
            if (!plan.recognized)
                return LinkStore::ImportBatch{};
            return LinkStore::ImportBatch{plan.records, plan.newCategories};
        });
    if (!plan.recognized)
        return fail(self, file + QStringLiteral(" : ") + plan.problems().join(u' '));
    if (session.saveFailed() || (!saved && (!plan.records.isEmpty() || !plan.newCategories.isEmpty())))
        return fail(
            self, QStringLiteral("rien n’a été importé : le fichier de données n’a pas pu être enregistré."));
    for (const QString &problem : plan.problems())
        printLine(stderr, QStringLiteral("⚠️ ") + problem);
    printCounts(plan);
    return exitOk;
}

int runExport(const QStringList &args)
{
    const Command &self = commands[1];
    if (helpRequested(self, args))
        return exitOk;
    if (args.size() != 1 || args.front().startsWith(u'-'))
        return usageError(self);
    Session session;
    const LinkStore &store = session.store();
    const QByteArray bytes = ic::writeBookmarkFile(store.items(), store.categories(), notesPlainText);
    if (const auto error = fileio::writeWholeFile(args.front(), bytes))
        return fail(self, *error);
    printLine(stdout, QStringLiteral("Fiches exportées : %1").arg(store.items().size()));
    return exitOk;
}

} // namespace

std::span<const Command> bookmarkCommands()
{
    return commands;
}

} // namespace fiva::cli
