#include "cli/Commands.h"
#include "cli/Session.h"
#include "store/LinkStore.h"

#include <QUuid>

#include <cstdio>

#include "health/HealthCache.h"
#include "health/HealthCheck.h"
#include "health/Relocation.h"
#include "health/WebCheck.h"

namespace fiva::cli {

namespace {

void printTo(std::FILE *out, const QString &line)
{
    std::fputs((line + u'\n').toUtf8().constData(), out);
}

int runCheck(const QStringList &args);
int runRelocate(const QStringList &args);

const Command commands[] = {
    {"check", "[--web]",
     "list the records whose file, folder or attachment copy is missing (and, with --web, dead pages)",
     runCheck},
    {"relocate", "OLD_PREFIX NEW_PREFIX [--dry-run]",
     "repair the broken paths below a folder that moved, in one save", runRelocate},
};

int runCheck(const QStringList &args)
{
    const Command &command = commands[0];
    if (helpRequested(command, args))
        return exitOk;
    if (args.size() > 1 || (args.size() == 1 && args.first() != QLatin1String("--web")))
        return usageError(command);
    const bool web = !args.isEmpty();

    Session session;
    const QList<LinkItem> &items = session.store().items();
    // The last web results live in the cache beside the data file, so that a check without --web
    // still reports the pages found dead last time, as the window does.
    const QString dataFile = session.store().dataFileURL();
    const QString cacheFile = dataFile.isEmpty() ? QString() : HealthCache::cacheFileFor(dataFile);
    HealthCache cache;
    if (!cacheFile.isEmpty())
        cache.load(cacheFile);
    if (web) {
        QList<WebCheckRequest> requests;
        for (const LinkItem &item : items) {
            if (item.kind == LinkKind::url)
                requests.append({item.id, item.path});
        }
        cache.recordWebResults(checkAddresses(requests));
        QString error;
        if (!cacheFile.isEmpty() && !cache.save(cacheFile, &error))
            printTo(stderr,
                    QStringLiteral("fiva-cli check: les résultats web n’ont pas pu être gardés : ") + error);
    }

    const auto health = checkRecords(items, cache.webResults());
    if (!health)
        return exitFailure;
    qsizetype broken = 0;
    for (qsizetype i = 0; i < items.size(); ++i) {
        const RecordHealth &record = health->at(i);
        if (!record.isBroken())
            continue;
        ++broken;
        QStringList what;
        for (const Problem &problem : record.problems)
            what << problem.description();
        printTo(stdout, record.id.toString(QUuid::WithoutBraces).toUpper() + u'\t' +
                            linkKindName(items.at(i).kind) + u'\t' + what.join(u' '));
    }
    return broken == 0 ? exitOk : exitFailure;
}

int runRelocate(const QStringList &args)
{
    const Command &command = commands[1];
    if (helpRequested(command, args))
        return exitOk;
    QStringList positional = args;
    const bool dryRun = positional.removeAll(QStringLiteral("--dry-run")) > 0;
    if (positional.size() != 2 || positional.at(0).isEmpty() || positional.at(1).isEmpty())
        return usageError(command);
    const QString oldPrefix = positional.at(0);
    const QString newPrefix = positional.at(1);
    if (!oldPrefix.startsWith(u'/') || !newPrefix.startsWith(u'/')) {
        printTo(stderr,
                QStringLiteral("fiva-cli relocate : les deux dossiers doivent être des chemins absolus."));
        return exitUsage;
    }

    Session session;
    LinkStore &store = session.store();
    const auto health = checkRecords(store.items());
    if (!health)
        return exitFailure;
    const PrefixReplacement plan = evaluatePrefixReplacement(store.items(), *health, oldPrefix, newPrefix);
    qsizetype repaired = plan.repaired;
    if (!dryRun && plan.repaired > 0) {
        const auto changed = store.repairPaths(
            [&](const QList<LinkItem> &fresh) { return prefixRepairs(fresh, oldPrefix, newPrefix); });
        if (!changed || session.saveFailed()) {
            printTo(stderr,
                    QStringLiteral("fiva-cli relocate : rien n’a été réparé, le fichier de données n’a pas "
                                   "pu être enregistré."));
            return exitFailure;
        }
        repaired = *changed;
    }
    const qsizetype stillBroken = plan.affected - repaired;
    printTo(stdout, (dryRun ? QStringLiteral("%1 fiche(s) seraient réparées, %2 resteraient cassées.")
                            : QStringLiteral("%1 fiche(s) réparées, %2 restent cassées."))
                        .arg(repaired)
                        .arg(stillBroken));
    return exitOk;
}

} // namespace

std::span<const Command> healthCommands()
{
    return commands;
}

} // namespace fiva::cli
