#include "cli/Commands.h"
#include "cli/Session.h"
#include "model/DateTimeConversion.h"
#include "store/LinkStore.h"
#include "store/StoredNotes.h"
#include "store/Trimming.h"

#include <QDateTime>
#include <QUuid>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
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

// The listing of every record goes out through one buffer, encoded to UTF-8 and escaped in a single pass:
// building each line as a QString, escaping it and converting it took longer than reading the data file.
// The bytes are those of field() and QString::toUtf8() line by line.
class ListingWriter final
{
public:
    ListingWriter() : m_buffer(std::make_unique_for_overwrite<char[]>(capacity)) {}
    ~ListingWriter() { flush(); }
    ListingWriter(const ListingWriter &) = delete;
    ListingWriter &operator=(const ListingWriter &) = delete;

    void ascii(QByteArrayView text)
    {
        room(std::size_t(text.size()));
        std::memcpy(m_buffer.get() + m_used, text.data(), std::size_t(text.size()));
        m_used += std::size_t(text.size());
    }
    void separator() { ascii("\t"); }

    void uuid(const QUuid &id)
    {
        static constexpr char digits[] = "0123456789ABCDEF";
        const QByteArray rfc = id.toRfc4122();
        room(36);
        char *out = m_buffer.get() + m_used;
        for (qsizetype i = 0; i < rfc.size(); ++i) {
            if (i == 4 || i == 6 || i == 8 || i == 10)
                *out++ = '-';
            const auto byte = static_cast<unsigned char>(rfc.at(i));
            *out++ = digits[byte >> 4];
            *out++ = digits[byte & 15];
        }
        m_used = std::size_t(out - m_buffer.get());
    }

    // One UTF-16 unit gives at most three bytes, and an escaped one two.
    void field(QStringView text)
    {
        const char16_t *c = text.utf16();
        const char16_t *const end = c + text.size();
        while (c < end) {
            const std::size_t units = std::min<std::size_t>(std::size_t(end - c), capacity / 4);
            room(units * 3 + 1);
            char *out = m_buffer.get() + m_used;
            c = encode(c, c + units, end, out);
            m_used = std::size_t(out - m_buffer.get());
        }
    }

    void endLine()
    {
        ascii("\n");
        if (m_used >= capacity / 2)
            flush();
    }

    void flush()
    {
        if (m_used > 0)
            std::fwrite(m_buffer.get(), 1, m_used, stdout);
        m_used = 0;
    }

private:
    static constexpr std::size_t capacity = 512 * 1024;

    void room(std::size_t bytes)
    {
        if (m_used + bytes > capacity)
            flush();
    }

    // Encodes [c, stop), reading one unit past it for a surrogate pair that straddles it; returns where it
    // stopped.
    static const char16_t *encode(const char16_t *c, const char16_t *stop, const char16_t *end, char *&out)
    {
        for (; c < stop; ++c) {
            const char16_t u = *c;
            // Printable ASCII, the bulk of titles and paths, goes out as it is.
            if (u >= 0x20 && u < 0x7F && u != u'\\') {
                *out++ = static_cast<char>(u);
            } else if (u < 0x80) {
                const char escaped = u == u'\\'   ? '\\'
                                     : u == u'\t' ? 't'
                                     : u == u'\n' ? 'n'
                                     : u == u'\r' ? 'r'
                                                  : 0;
                if (escaped) {
                    *out++ = '\\';
                    *out++ = escaped;
                } else {
                    *out++ = static_cast<char>(u);
                }
            } else if (u < 0x800) {
                *out++ = static_cast<char>(0xC0 | (u >> 6));
                *out++ = static_cast<char>(0x80 | (u & 0x3F));
            } else if (u < 0xD800 || u > 0xDFFF) {
                *out++ = static_cast<char>(0xE0 | (u >> 12));
                *out++ = static_cast<char>(0x80 | ((u >> 6) & 0x3F));
                *out++ = static_cast<char>(0x80 | (u & 0x3F));
            } else if (u < 0xDC00 && c + 1 < end && c[1] >= 0xDC00 && c[1] <= 0xDFFF) {
                const char32_t code = 0x10000 + ((char32_t(u) - 0xD800) << 10) + (char32_t(c[1]) - 0xDC00);
                *out++ = static_cast<char>(0xF0 | (code >> 18));
                *out++ = static_cast<char>(0x80 | ((code >> 12) & 0x3F));
                *out++ = static_cast<char>(0x80 | ((code >> 6) & 0x3F));
                *out++ = static_cast<char>(0x80 | (code & 0x3F));
                ++c;
            } else {
                // A lone surrogate, which Qt's conversion writes as a question mark.
                *out++ = '?';
            }
        }
        return c;
    }

    std::unique_ptr<char[]> m_buffer;
    std::size_t m_used = 0;
};

int runList(const QStringList &args)
{
    const Command &self = command("list");
    if (helpRequested(self, args))
        return exitOk;
    if (!args.isEmpty())
        return usageError(self);
    Session session;
    // Whatever the store printed while it started must come first.
    std::fflush(stdout);
    ListingWriter out;
    const QByteArray kinds[] = {linkKindName(LinkKind::url).toLatin1(),
                                linkKindName(LinkKind::file).toLatin1(),
                                linkKindName(LinkKind::directory).toLatin1()};
    for (const LinkItem &item : session.store().items()) {
        out.uuid(item.id);
        out.separator();
        out.ascii(kinds[static_cast<int>(item.kind)]);
        out.separator();
        out.ascii(item.isFavorite ? "1" : "0");
        out.separator();
        out.field(item.category);
        out.separator();
        out.field(item.title);
        out.separator();
        out.field(item.path);
        out.endLine();
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
