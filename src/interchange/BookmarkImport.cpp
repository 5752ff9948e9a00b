#include "interchange/BookmarkImport.h"

#include "interchange/HtmlText.h"
#include "model/AddressKey.h"

#include <QCollator>
#include <QFileInfo>
#include <QHash>
#include <QLocale>
#include <QSet>
#include <QUrl>

#include <algorithm>
#include <cstring>
#include <optional>
#include <vector>

namespace fiva::interchange {

namespace {

// ADD_DATE values outside this range are not seconds: some tools write milliseconds or
// microseconds, others 0 for "unknown". Bookmark files did not exist before 1994.
constexpr double earliestPlausibleDate = 757382400.0; // 1994-01-01 UTC
constexpr double clockSkewAllowance = 86400.0;

const QString untitledFolder = QStringLiteral("Sans nom");
const QString categorySeparator = QStringLiteral(" / ");

// Top folders of the browsers, by the name they give them in a few languages. Files from Firefox
// mark the bar and the other bookmarks with attributes too; this list catches the rest.
constexpr std::u16string_view rootFolderNames[] = {
    u"barre personnelle",     u"barre de favoris",         u"barre des favoris",  u"barre des marque-pages",
    u"autres favoris",        u"autres marque-pages",      u"favoris mobiles",    u"marque-pages mobiles",
    u"menu des marque-pages", u"menu des favoris",         u"bookmarks bar",      u"bookmarks toolbar",
    u"other bookmarks",       u"mobile bookmarks",         u"bookmarks menu",     u"favorites bar",
    u"other favorites",       u"mobile favorites",         u"favoris sur mobile", u"lesezeichenleiste",
    u"weitere lesezeichen",   u"lesezeichen-symbolleiste", u"lesezeichen-menü",   u"barra de marcadores",
    u"otros marcadores",      u"barra dei preferiti",      u"altri preferiti",    u"barre des signets",
    u"menu des signets",      u"autres signets",
};
// Firefox names its menu in the file's H1 and writes the menu's own links straight into the top list.
constexpr std::u16string_view menuRootNames[] = {
    u"menu des marque-pages", u"menu des favoris", u"bookmarks menu",
    u"lesezeichen-menü",      u"menu des signets",
};

template <std::size_t N> bool isKnownName(const QString &name, const std::u16string_view (&names)[N])
{
    const QString lower = name.toLower();
    const std::u16string_view view(reinterpret_cast<const char16_t *>(lower.utf16()),
                                   std::size_t(lower.size()));
    return std::find(std::begin(names), std::end(names), view) != std::end(names);
}

char lowerAscii(char c)
{
    return (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c;
}

bool equalsIgnoringCase(QByteArrayView a, QByteArrayView b)
{
    if (a.size() != b.size())
        return false;
    for (qsizetype i = 0; i < a.size(); ++i) {
        if (lowerAscii(a[i]) != lowerAscii(b[i]))
            return false;
    }
    return true;
}

bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

bool isNameChar(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
}

enum class Tag { other, a, h1, h3, dl, endDl, dd, hr, meta };

// The few attributes the import uses; all others, ICON included, are stepped over without a copy.
struct Attributes
{
    QByteArrayView href, addDate, tags, content, charset;
    bool toolbarFolder = false; // PERSONAL_TOOLBAR_FOLDER
    bool unfiledFolder = false; // UNFILED_BOOKMARKS_FOLDER
};

struct Folder
{
    QString category;    // of the links directly inside
    QString childPrefix; // of the folders directly inside
    bool ownsCategory = false;
    bool marked = false; // its category, and those of its ancestors, are already counted as used
    bool named = false;
    int links = 0;
};

struct PendingFolder
{
    QString name;
    bool rootByAttribute = false;
};

enum class HrefClass { url, file, bookmarklet, placeQuery, unsupported };

HrefClass classify(QStringView href)
{
    if (href.isEmpty())
        return HrefClass::unsupported;
    qsizetype colon = -1;
    for (qsizetype i = 0; i < href.size(); ++i) {
        const QChar c = href[i];
        if (c == u':') {
            colon = i;
            break;
        }
        if (!(c.isLetterOrNumber() || c == u'+' || c == u'-' || c == u'.'))
            break;
    }
    if (colon <= 0)
        return HrefClass::url;
    const QString scheme = href.first(colon).toString().toLower();
    if (scheme == u"javascript")
        return HrefClass::bookmarklet;
    if (scheme == u"place")
        return HrefClass::placeQuery;
    if (scheme == u"file")
        return HrefClass::file;
    static const QSet<QString> browserOnly = {
        QStringLiteral("about"),
        QStringLiteral("chrome"),
        QStringLiteral("edge"),
        QStringLiteral("opera"),
        QStringLiteral("vivaldi"),
        QStringLiteral("brave"),
        QStringLiteral("data"),
        QStringLiteral("blob"),
        QStringLiteral("view-source"),
        QStringLiteral("resource"),
        QStringLiteral("chrome-extension"),
        QStringLiteral("moz-extension"),
        QStringLiteral("moz-icon"),
        QStringLiteral("moz-extension"),
        QStringLiteral("extension"),
    };
    return browserOnly.contains(scheme) ? HrefClass::unsupported : HrefClass::url;
}

std::optional<double> parseSeconds(QByteArrayView value)
{
    while (!value.isEmpty() && isSpace(value.front()))
        value = value.sliced(1);
    while (!value.isEmpty() && isSpace(value.back()))
        value.chop(1);
    if (value.isEmpty() || value.size() > 18)
        return std::nullopt;
    double seconds = 0;
    for (const char c : value) {
        if (c < '0' || c > '9')
            return std::nullopt;
        seconds = seconds * 10 + (c - '0');
    }
    return seconds;
}

class Scanner final
{
public:
    Scanner(QByteArrayView file, const ImportContext &context, const ImportOptions &options)
        : m_p(file.data()), m_end(file.data() + file.size()), m_context(context), m_options(options)
    {
        if (file.startsWith("\xEF\xBB\xBF"))
            m_p += 3;
        m_existingKeys.reserve(context.existingPaths.size());
        for (const QString &path : context.existingPaths)
            m_existingKeys.insert(addressKey(path));
    }

    ImportPlan run();

private:
    Tag readTag(Attributes &attributes);
    void skipPast(const char *terminator);
    QByteArrayView textUntilTag();
    QByteArray descriptionText();
    QString text(QByteArrayView bytes, Whitespace whitespace) const
    {
        return decodeHtmlText(bytes, m_encoding, whitespace);
    }

    void openList();
    void closeList();
    void folderHeading(const Attributes &attributes);
    void link(const Attributes &attributes);
    void description();
    void dropPendingFolder();
    void useCategory(const QString &category);
    QString finishNotes(const QString &description, const QString &tags) const;

    const char *m_p;
    const char *m_end;
    const ImportContext &m_context;
    const ImportOptions &m_options;
    TextEncoding m_encoding = TextEncoding::utf8;

    ImportPlan m_plan;
    std::vector<Folder> m_folders;
    int m_overflow = 0;
    std::optional<PendingFolder> m_pending;
    QString m_heading;
    bool m_doctype = false;
    bool m_sawList = false;
    bool m_cutShort = false;
    qsizetype m_lastRecord = -1;

    QSet<QString> m_existingKeys;
    QSet<QString> m_usedCategorySet;
    QStringList m_usedCategories;
    std::vector<QString> m_descriptions;
    std::vector<QString> m_tags;
};

void Scanner::skipPast(const char *terminator)
{
    const std::size_t length = std::strlen(terminator);
    const QByteArrayView rest(m_p, m_end - m_p);
    const qsizetype at = rest.indexOf(QByteArrayView(terminator, qsizetype(length)));
    m_p = at < 0 ? m_end : m_p + at + qsizetype(length);
}

// Reads the tag that starts at m_p == '<' and leaves m_p after its '>'.
Tag Scanner::readTag(Attributes &attributes)
{
    const char *start = m_p;
    ++m_p;
    if (m_end - start >= 4 && std::memcmp(start, "<!--", 4) == 0) {
        m_p = start + 4;
        skipPast("-->");
        return Tag::other;
    }
    if (m_p < m_end && (*m_p == '!' || *m_p == '?')) {
        const char *close = static_cast<const char *>(std::memchr(m_p, '>', std::size_t(m_end - m_p)));
        const QByteArrayView declaration(m_p, (close ? close : m_end) - m_p);
        if (declaration.size() < 512 &&
            declaration.toByteArray().toLower().contains("netscape-bookmark-file"))
            m_doctype = true;
        m_p = close ? close + 1 : m_end;
        return Tag::other;
    }
    const bool closing = m_p < m_end && *m_p == '/';
    if (closing)
        ++m_p;
    const char *nameStart = m_p;
    while (m_p < m_end && isNameChar(*m_p))
        ++m_p;
    const QByteArrayView name(nameStart, m_p - nameStart);
    if (name.isEmpty()) {
        // A lone "<" in text, not a tag.
        m_p = start + 1;
        return Tag::other;
    }

    // Attributes: name, optional "=" and a value, quoted or not, in any case and order.
    while (m_p < m_end && *m_p != '>') {
        if (isSpace(*m_p) || *m_p == '/') {
            ++m_p;
            continue;
        }
        const char *attrStart = m_p;
        while (m_p < m_end && !isSpace(*m_p) && *m_p != '=' && *m_p != '>')
            ++m_p;
        const QByteArrayView attrName(attrStart, m_p - attrStart);
        if (attrName.isEmpty()) { // a stray "=": step over it
            ++m_p;
            continue;
        }
        while (m_p < m_end && isSpace(*m_p))
            ++m_p;
        QByteArrayView value;
        if (m_p < m_end && *m_p == '=') {
            ++m_p;
            while (m_p < m_end && isSpace(*m_p))
                ++m_p;
            if (m_p < m_end && (*m_p == '"' || *m_p == '\'')) {
                const char quote = *m_p++;
                const char *close =
                    static_cast<const char *>(std::memchr(m_p, quote, std::size_t(m_end - m_p)));
                const char *valueEnd = close ? close : m_end;
                value = QByteArrayView(m_p, valueEnd - m_p);
                m_p = close ? close + 1 : m_end;
            } else {
                const char *valueStart = m_p;
                while (m_p < m_end && !isSpace(*m_p) && *m_p != '>')
                    ++m_p;
                value = QByteArrayView(valueStart, m_p - valueStart);
            }
        }
        if (equalsIgnoringCase(attrName, "href"))
            attributes.href = value;
        else if (equalsIgnoringCase(attrName, "add_date"))
            attributes.addDate = value;
        else if (equalsIgnoringCase(attrName, "tags"))
            attributes.tags = value;
        else if (equalsIgnoringCase(attrName, "content"))
            attributes.content = value;
        else if (equalsIgnoringCase(attrName, "charset"))
            attributes.charset = value;
        else if (equalsIgnoringCase(attrName, "personal_toolbar_folder"))
            attributes.toolbarFolder = equalsIgnoringCase(value, "true");
        else if (equalsIgnoringCase(attrName, "unfiled_bookmarks_folder"))
            attributes.unfiledFolder = equalsIgnoringCase(value, "true");
    }
    if (m_p >= m_end) {
        // Cut off inside the tag: its attributes may be cut too, so it counts for nothing.
        m_cutShort = true;
        return Tag::other;
    }
    ++m_p;

    if (closing)
        return equalsIgnoringCase(name, "dl") ? Tag::endDl : Tag::other;
    if (equalsIgnoringCase(name, "a"))
        return Tag::a;
    if (equalsIgnoringCase(name, "h3"))
        return Tag::h3;
    if (equalsIgnoringCase(name, "h1"))
        return Tag::h1;
    if (equalsIgnoringCase(name, "dl"))
        return Tag::dl;
    if (equalsIgnoringCase(name, "dd"))
        return Tag::dd;
    if (equalsIgnoringCase(name, "hr"))
        return Tag::hr;
    if (equalsIgnoringCase(name, "meta"))
        return Tag::meta;
    return Tag::other;
}

// Titles and names end at the next tag: browsers escape "<" in them, so none is literal.
QByteArrayView Scanner::textUntilTag()
{
    const char *next = static_cast<const char *>(std::memchr(m_p, '<', std::size_t(m_end - m_p)));
    const char *textEnd = next ? next : m_end;
    const QByteArrayView text(m_p, textEnd - m_p);
    m_p = textEnd;
    return text;
}

// A description runs to the next tag other than a line break, which hand-made files sometimes use.
QByteArray Scanner::descriptionText()
{
    QByteArray text;
    for (;;) {
        text.append(textUntilTag());
        if (m_end - m_p < 4 || !equalsIgnoringCase(QByteArrayView(m_p + 1, 2), "br"))
            return text;
        const char after = m_p[3];
        if (after != '>' && after != '/' && !isSpace(after))
            return text;
        const char *close = static_cast<const char *>(std::memchr(m_p, '>', std::size_t(m_end - m_p)));
        m_p = close ? close + 1 : m_end;
        text.append('\n');
    }
}

void Scanner::dropPendingFolder()
{
    if (!m_pending)
        return;
    ++m_plan.skipped[std::size_t(SkippedKind::emptyFolder)];
    m_pending.reset();
}

void Scanner::openList()
{
    m_sawList = true;
    m_lastRecord = -1;
    // Inside a list already merged into its ancestor, every list is merged too.
    if (m_overflow > 0 || int(m_folders.size()) >= maxFolderDepth) {
        ++m_overflow;
        m_plan.depthLimited = true;
        m_pending.reset();
        return;
    }
    const Folder *parent = m_folders.empty() ? nullptr : &m_folders.back();
    Folder folder;
    if (!m_pending) {
        if (parent) {
            folder.category = parent->category;
            folder.childPrefix = parent->childPrefix;
            folder.named = parent->named;
        } else if (m_options.keepRoots && isKnownName(m_heading, menuRootNames)) {
            folder.category = m_heading;
        }
        m_folders.push_back(std::move(folder));
        return;
    }
    const PendingFolder pending = std::move(*m_pending);
    m_pending.reset();
    const bool atTop = !parent || !parent->named;
    const bool root = atTop && (pending.rootByAttribute || isKnownName(pending.name, rootFolderNames));
    folder.named = true;
    if (!root || m_options.keepRoots) {
        const QString prefix = parent ? parent->childPrefix : QString();
        folder.category = prefix.isEmpty() ? pending.name : prefix + categorySeparator + pending.name;
        // An export writes each level of a category as a folder inside the file's own top list: a
        // category of more levels than that leaves room for would not come back whole.
        if (folder.category.count(categorySeparator) + 1 >= maxFolderDepth) {
            ++m_overflow;
            m_plan.depthLimited = true;
            return;
        }
        folder.childPrefix = folder.category;
        folder.ownsCategory = true;
    }
    m_folders.push_back(std::move(folder));
}

void Scanner::closeList()
{
    m_lastRecord = -1;
    dropPendingFolder();
    if (m_overflow > 0) {
        --m_overflow;
        return;
    }
    if (m_folders.empty())
        return;
    const Folder closed = std::move(m_folders.back());
    m_folders.pop_back();
    if (closed.named && closed.links == 0)
        ++m_plan.skipped[std::size_t(SkippedKind::emptyFolder)];
    if (!m_folders.empty())
        m_folders.back().links += closed.links;
}

void Scanner::folderHeading(const Attributes &attributes)
{
    m_lastRecord = -1;
    dropPendingFolder();
    QString name = text(textUntilTag(), Whitespace::collapse);
    if (name.isEmpty())
        name = untitledFolder;
    // " / " separates the levels of a category; kept inside one folder's name it would make up levels
    // that are not folders, which the category tree and the next export would split apart.
    while (name.contains(categorySeparator))
        name.replace(categorySeparator, QStringLiteral("/"));
    m_pending = PendingFolder{std::move(name), attributes.toolbarFolder || attributes.unfiledFolder};
}

void Scanner::useCategory(const QString &category)
{
    if (!m_usedCategorySet.contains(category)) {
        m_usedCategorySet.insert(category);
        m_usedCategories.append(category);
    }
    // Ancestors come in once each: the walk stops at the first folder already counted.
    for (auto it = m_folders.rbegin(); it != m_folders.rend() && !it->marked; ++it) {
        it->marked = true;
        if (it->ownsCategory && !m_usedCategorySet.contains(it->category)) {
            m_usedCategorySet.insert(it->category);
            m_usedCategories.append(it->category);
        }
    }
}

void Scanner::link(const Attributes &attributes)
{
    m_lastRecord = -1;
    dropPendingFolder();
    if (!m_folders.empty())
        ++m_folders.back().links;
    const QString title = text(textUntilTag(), Whitespace::collapse);
    const QString href = text(attributes.href, Whitespace::keep);

    LinkItem item;
    switch (classify(href)) {
    case HrefClass::bookmarklet:
        ++m_plan.skipped[std::size_t(SkippedKind::bookmarklet)];
        return;
    case HrefClass::placeQuery:
        ++m_plan.skipped[std::size_t(SkippedKind::placeQuery)];
        return;
    case HrefClass::unsupported:
        ++m_plan.skipped[std::size_t(SkippedKind::unsupported)];
        return;
    case HrefClass::url:
        item.kind = LinkKind::url;
        item.path = href;
        break;
    case HrefClass::file: {
        const QUrl url(href, QUrl::TolerantMode);
        item.path = url.isValid() ? url.toLocalFile() : QString();
        if (item.path.size() > 1 && item.path.endsWith(u'/'))
            item.path.chop(1);
        if (item.path.isEmpty()) {
            ++m_plan.skipped[std::size_t(SkippedKind::unsupported)];
            return;
        }
        const bool directory =
            m_context.isDirectory ? m_context.isDirectory(item.path) : QFileInfo(item.path).isDir();
        item.kind = directory ? LinkKind::directory : LinkKind::file;
        break;
    }
    }

    if (!m_options.allowDuplicates) {
        QString key = addressKey(item.path);
        if (m_existingKeys.contains(key)) {
            ++m_plan.duplicatesSkipped;
            return;
        }
        m_existingKeys.insert(std::move(key));
    }

    item.id = QUuid::createUuid();
    item.title = title.isEmpty() ? item.path : title;
    const QString &category = m_folders.empty() ? QString() : m_folders.back().category;
    item.category = category.isEmpty() ? uncategorized : category;
    useCategory(item.category);

    const std::optional<double> seconds = parseSeconds(attributes.addDate);
    const double latest = m_context.importTime.toUnix() + clockSkewAllowance;
    item.createdAt = seconds && *seconds >= earliestPlausibleDate && *seconds <= latest
                         ? Timestamp::fromUnix(*seconds)
                         : m_context.importTime;

    m_lastRecord = m_plan.records.size();
    m_plan.records.append(std::move(item));
    m_descriptions.emplace_back();
    m_tags.push_back(attributes.tags.isEmpty() ? QString() : text(attributes.tags, Whitespace::collapse));
}

void Scanner::description()
{
    const QByteArray bytes = descriptionText();
    // A description after a folder's heading describes the folder, which has nowhere to go.
    if (m_lastRecord < 0)
        return;
    m_descriptions[std::size_t(m_lastRecord)] = text(bytes, Whitespace::keepLineBreaks);
    m_lastRecord = -1;
}

QString Scanner::finishNotes(const QString &description, const QString &tags) const
{
    QString plain = description;
    if (!tags.isEmpty()) {
        QStringList words = tags.split(u',', Qt::SkipEmptyParts);
        for (QString &word : words)
            word = word.trimmed();
        words.removeAll(QString());
        if (!words.isEmpty()) {
            if (!plain.isEmpty())
                plain += u'\n';
            plain += keywordsLinePrefix + words.join(u", ");
        }
    }
    return plain;
}

ImportPlan Scanner::run()
{
    const char *const begin = m_p;
    const qint64 total = m_end - begin;
    qint64 nextReport = progressStep;
    while (m_p < m_end) {
        if (m_context.progress && m_p - begin >= nextReport) {
            m_context.progress(m_p - begin, total);
            nextReport = (m_p - begin) + progressStep;
        }
        const char *next = static_cast<const char *>(std::memchr(m_p, '<', std::size_t(m_end - m_p)));
        if (!next)
            break;
        m_p = next;
        Attributes attributes;
        switch (readTag(attributes)) {
        case Tag::a:
            link(attributes);
            break;
        case Tag::h3:
            folderHeading(attributes);
            break;
        case Tag::h1:
            m_heading = text(textUntilTag(), Whitespace::collapse);
            break;
        case Tag::dl:
            openList();
            break;
        case Tag::endDl:
            closeList();
            break;
        case Tag::dd:
            description();
            break;
        case Tag::hr:
            m_lastRecord = -1;
            dropPendingFolder();
            ++m_plan.skipped[std::size_t(SkippedKind::separator)];
            break;
        case Tag::meta: {
            QByteArray charset = attributes.charset.toByteArray().toLower();
            const QByteArray content = attributes.content.toByteArray().toLower();
            if (const qsizetype at = content.indexOf("charset="); at >= 0)
                charset = content.mid(at + 8).trimmed();
            if (charset == "iso-8859-1" || charset == "windows-1252" || charset == "latin1" ||
                charset == "cp1252")
                m_encoding = TextEncoding::latin1;
            break;
        }
        case Tag::other:
            break;
        }
    }
    dropPendingFolder();
    if (m_context.progress)
        m_context.progress(total, total);

    m_plan.recognized = m_doctype || m_sawList;
    if (!m_plan.recognized) {
        // Links in some other page are not bookmarks; importing them would surprise.
        ImportPlan empty;
        return empty;
    }
    m_plan.truncated = m_cutShort || !m_folders.empty() || m_overflow > 0;

    for (qsizetype i = 0; i < m_plan.records.size(); ++i) {
        const QString plain = finishNotes(m_descriptions[std::size_t(i)], m_tags[std::size_t(i)]);
        if (plain.isEmpty())
            continue;
        LinkItem &item = m_plan.records[i];
        item.notes = m_context.notesFromPlainText ? m_context.notesFromPlainText(plain) : plain;
    }

    const QSet<QString> existing(m_context.existingCategories.cbegin(), m_context.existingCategories.cend());
    for (const QString &category : std::as_const(m_usedCategories)) {
        if (!existing.contains(category))
            m_plan.newCategories.append(category);
    }
    QCollator collator{QLocale()};
    std::stable_sort(m_plan.newCategories.begin(), m_plan.newCategories.end(),
                     [&](const QString &a, const QString &b) { return collator.compare(a, b) < 0; });
    return std::move(m_plan);
}

} // namespace

QString skippedKindLabel(SkippedKind kind)
{
    switch (kind) {
    case SkippedKind::bookmarklet:
        return QStringLiteral("bookmarklets (javascript:)");
    case SkippedKind::placeQuery:
        return QStringLiteral("requêtes du navigateur (place:)");
    case SkippedKind::separator:
        return QStringLiteral("séparateurs");
    case SkippedKind::emptyFolder:
        return QStringLiteral("dossiers vides");
    case SkippedKind::unsupported:
        return QStringLiteral("liens sans adresse utilisable");
    }
    return {};
}

int ImportPlan::skippedTotal() const
{
    int total = 0;
    for (const int count : skipped)
        total += count;
    return total;
}

QString ImportPlan::skippedSummary() const
{
    QStringList details;
    for (int k = 0; k < skippedKindCount; ++k) {
        const auto kind = SkippedKind(k);
        if (skippedCount(kind) > 0)
            details << skippedKindLabel(kind) + QStringLiteral(" : ") + QString::number(skippedCount(kind));
    }
    return QStringLiteral("Éléments ignorés : %1").arg(skippedTotal()) +
           (details.isEmpty() ? QString() : QStringLiteral(" (") + details.join(QStringLiteral(", ")) + u')');
}

ImportContext importContextFor(const QList<LinkItem> &items, const QStringList &categories)
{
    ImportContext context;
    context.existingPaths.reserve(items.size());
    for (const LinkItem &item : items)
        context.existingPaths << item.path;
    context.existingCategories = categories;
    return context;
}

QStringList ImportPlan::problems() const
{
    QStringList sentences;
    if (!recognized)
        sentences << QStringLiteral(
            "Ce fichier n’est pas un fichier de marque-pages exporté par un navigateur.");
    if (truncated)
        sentences << QStringLiteral(
            "Le fichier se termine au milieu d’un dossier : il est peut-être incomplet.");
    if (depthLimited)
        sentences << QStringLiteral("Des dossiers imbriqués sur plus de %1 niveaux ont été réunis avec leur "
                                    "dossier parent au %1ᵉ niveau.")
                         .arg(maxFolderDepth);
    return sentences;
}

ImportPlan planBookmarkImport(QByteArrayView file, const ImportContext &context, const ImportOptions &options)
{
    return Scanner(file, context, options).run();
}

} // namespace fiva::interchange
