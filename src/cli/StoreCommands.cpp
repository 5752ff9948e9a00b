#include "cli/Commands.h"
#include "cli/Session.h"
#include "model/DateTimeConversion.h"
#include "store/LinkStore.h"
#include "store/StoredNotes.h"
#include "store/Trimming.h"

#include <QDateTime>
#include <QUuid>

#include <cstdio>
#include <optional>

namespace fiva::cli {

namespace {

void printLine(const QString &line)
{
    std::fputs(qPrintable(line + u'\n'), stdout);
}

void printError(const Command &command, const QString &message)
{
    std::fprintf(stderr, "fiva-cli %s: %s\n", command.name, qPrintable(message));
}

// One field of a tab-separated line: tabs, line breaks and backslashes are escaped so that a
// title holding them cannot split a record over two lines.
QString field(const QString &text)
{
    QString out;
    out.reserve(text.size());
    for (const QChar c : text) {
        switch (c.unicode()) {
        case u'\\':
            out += QStringLiteral("\\\\");
            break;
        case u'\t':
            out += QStringLiteral("\\t");
            break;
        case u'\n':
            out += QStringLiteral("\\n");
            break;
        case u'\r':
            out += QStringLiteral("\\r");
            break;
        default:
            out += c;
        }
    }
    return out;
}

std::optional<QUuid> parseId(const QString &text)
{
    const QUuid id = QUuid::fromString(text);
    if (id.isNull())
        return std::nullopt;
    return id;
}

bool hasRecord(const LinkStore &store, const QUuid &id)
{
    return std::any_of(store.items().cbegin(), store.items().cend(),
                       [&](const LinkItem &item) { return item.id == id; });
}

const Command &command(const char *name);

int runAdd(const QStringList &args)
{
    const Command &self = command("add");
    if (helpRequested(self, args))
        return exitOk;
    std::optional<QString> title, path, category, notes;
    LinkKind kind = LinkKind::url;
    for (qsizetype i = 0; i < args.size(); i += 2) {
        if (i + 1 >= args.size())
            return usageError(self);
        const QString &option = args.at(i);
        const QString &value = args.at(i + 1);
        if (option == u"--title")
            title = value;
        else if (option == u"--path")
            path = value;
        else if (option == u"--category")
            category = value;
        else if (option == u"--notes")
            notes = value;
        else if (option == u"--kind") {
            const auto parsed = linkKindFromName(value);
            if (!parsed)
                return usageError(self);
            kind = *parsed;
        } else {
            return usageError(self);
        }
    }
    if (!title || !path)
        return usageError(self);
    // The same rules as the edit form: trimmed title and location, both required.
    const QString t = trimHorizontalWhitespace(*title);
    const QString p = trimHorizontalWhitespace(*path);
    if (t.isEmpty() || p.isEmpty()) {
        printError(self, QStringLiteral("Le titre et le lien ne doivent pas être vides."));
        return usageError(self);
    }

    Session session;
    LinkStore &store = session.store();
    LinkItem item;
    item.id = QUuid::createUuid();
    item.title = t;
    item.path = p;
    item.category =
        category ? *category
                 : (store.categories().isEmpty() ? LinkStore::uncategorized() : store.categories().first());
    item.notes = notesHTML(notes.value_or(QString()));
    item.createdAt = session.clock().now();
    item.kind = kind;
    // Under the data folder's lock, onto the records as they are on disk at that moment: the
    // window or another fiva-cli may have saved since this store was opened.
    store.addItem(item);
    if (session.exitCode() == exitOk)
        printLine(item.id.toString(QUuid::WithoutBraces).toUpper());
    return session.exitCode();
}

int runList(const QStringList &args)
{
    const Command &self = command("list");
    if (helpRequested(self, args))
        return exitOk;
    if (!args.isEmpty())
        return usageError(self);
    Session session;
    for (const LinkItem &item : session.store().items()) {
        printLine(item.id.toString(QUuid::WithoutBraces).toUpper() + u'\t' + linkKindName(item.kind) + u'\t' +
                  (item.isFavorite ? u'1' : u'0') + u'\t' + field(item.category) + u'\t' + field(item.title) +
                  u'\t' + field(item.path));
    }
    return session.exitCode();
}

int runFavorite(const QStringList &args)
{
    const Command &self = command("favorite");
    if (helpRequested(self, args))
        return exitOk;
    const auto id = args.size() == 1 ? parseId(args.first()) : std::nullopt;
    if (!id)
        return usageError(self);
    Session session;
    if (!hasRecord(session.store(), *id)) {
        printError(self, QStringLiteral("aucune fiche n'a l'identifiant ") + args.first());
        return exitFailure;
    }
    session.store().toggleFavorite(*id);
    return session.exitCode();
}

int runDelete(const QStringList &args)
{
    const Command &self = command("delete");
    if (helpRequested(self, args))
        return exitOk;
    const auto id = args.size() == 1 ? parseId(args.first()) : std::nullopt;
    if (!id)
        return usageError(self);
    Session session;
    const bool known = hasRecord(session.store(), *id);
    // The store saves even when nothing matched; the tool still tells the caller.
    session.store().deleteItem(*id);
    if (!known) {
        printError(self, QStringLiteral("aucune fiche n'a l'identifiant ") + args.first());
        return exitFailure;
    }
    return session.exitCode();
}

int runCategories(const QStringList &args)
{
    const Command &self = command("categories");
    if (helpRequested(self, args))
        return exitOk;
    const QString action = args.value(0);
    const qsizetype operands = args.size() - 1;
    const bool valid = args.isEmpty() || (action == u"add" && operands == 1) ||
                       (action == u"add-sub" && operands == 2) || (action == u"rename" && operands == 2) ||
                       (action == u"delete" && operands == 1);
    if (!valid)
        return usageError(self);
    Session session;
    LinkStore &store = session.store();
    if (action == u"add")
        store.addCategory(args.at(1));
    else if (action == u"add-sub")
        store.addSubCategory(args.at(1), args.at(2));
    else if (action == u"rename")
        store.renameCategory(args.at(1), args.at(2));
    else if (action == u"delete")
        store.deleteCategory(args.at(1));
    else {
        for (const QString &name : store.categories())
            printLine(field(name));
    }
    return session.exitCode();
}

int runBackupNow(const QStringList &args)
{
    const Command &self = command("backup-now");
    if (helpRequested(self, args))
        return exitOk;
    if (!args.isEmpty())
        return usageError(self);
    Session session;
    LinkStore &store = session.store();
    const qsizetype before = store.backupHistory().size();
    store.performAutoBackup();
    // A failed backup has printed its reason and added no history entry.
    if (store.backupHistory().size() == before)
        return exitFailure;
    return session.exitCode();
}

int runHistory(const QStringList &args)
{
    const Command &self = command("history");
    if (helpRequested(self, args))
        return exitOk;
    if (!args.isEmpty())
        return usageError(self);
    Session session;
    for (const BackupLog &log : session.store().backupHistory()) {
        const QDateTime date = toDateTime(log.date).value_or(QDateTime()).toUTC();
        printLine(log.id.toString(QUuid::WithoutBraces).toUpper() + u'\t' + date.toString(Qt::ISODateWithMs) +
                  u'\t' + QString::number(log.fileSize) + u'\t' + field(log.filePath));
    }
    return session.exitCode();
}

constexpr Command commands[] = {
    {"add", "--title T --path P [--category C] [--notes TEXT] [--kind url|file|directory]",
     "add a record (prints its id); notes are stored as the edit form stores them", runAdd},
    {"list", "", "list records: id, kind, favourite 0/1, category, title, path (tab-separated)", runList},
    {"favorite", "ID", "flip the favourite flag of a record", runFavorite},
    {"delete", "ID", "delete a record and its attachment files", runDelete},
    {"categories", "[add NAME | add-sub PARENT NAME | rename OLD NEW | delete NAME]",
     "list the categories, or change them", runCategories},
    {"backup-now", "", "write one automatic backup, as the timer would", runBackupNow},
    {"history", "", "the backup history, newest first: id, date (UTC), size, path", runHistory},
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

std::span<const Command> storeCommands()
{
    return commands;
}

} // namespace fiva::cli
