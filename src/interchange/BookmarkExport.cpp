#include "interchange/BookmarkExport.h"

#include "interchange/BookmarkImport.h"
#include "interchange/HtmlText.h"

#include <QHash>
#include <QUrl>

#include <cmath>
#include <vector>

namespace fiva::interchange {

namespace {

const QString categorySeparator = QStringLiteral(" / ");

struct FolderNode
{
    QString name;
    std::vector<int> children;
    std::vector<qsizetype> records;
};

class FolderTree final
{
public:
    FolderTree() { m_nodes.push_back({}); }

    int ensure(const QString &category)
    {
        if (category.isEmpty() || category == uncategorized)
            return 0;
        if (const auto it = m_byCategory.constFind(category); it != m_byCategory.cend())
            return *it;
        int node = 0;
        QString prefix;
        for (const QString &segment : category.split(categorySeparator)) {
            prefix = prefix.isEmpty() && node == 0 ? segment : prefix + categorySeparator + segment;
            const auto it = m_byCategory.constFind(prefix);
            if (it != m_byCategory.cend()) {
                node = *it;
                continue;
            }
            const int child = int(m_nodes.size());
            m_nodes.push_back({segment, {}, {}});
            m_nodes[std::size_t(node)].children.push_back(child);
            m_byCategory.insert(prefix, child);
            node = child;
        }
        return node;
    }

    FolderNode &node(int index) { return m_nodes[std::size_t(index)]; }

private:
    std::vector<FolderNode> m_nodes;
    QHash<QString, int> m_byCategory;
};

QString singleLine(QString text)
{
    text.replace(u'\r', u' ');
    text.replace(u'\n', u' ');
    return text.trimmed();
}

QString address(const LinkItem &item)
{
    if (item.kind == LinkKind::url)
        return singleLine(item.path);
    // A path that starts with two slashes would be read as a network share's host, and its folders
    // lost; on this system any number of leading slashes names the root.
    QString path = item.path;
    while (path.startsWith(u"//"))
        path.remove(0, 1);
    return QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded);
}

void writeLink(QString &out, const QString &indent, const LinkItem &item, NotesConversion notesToPlainText)
{
    QString description;
    QString tags;
    if (item.notes) {
        description = notesToPlainText ? notesToPlainText(*item.notes) : *item.notes;
        // The keywords line an import made goes back into TAGS, where browsers keep them.
        const qsizetype lineStart = description.lastIndexOf(u'\n') + 1;
        if (QStringView(description).sliced(lineStart).startsWith(keywordsLinePrefix)) {
            QStringList words = description.sliced(lineStart + keywordsLinePrefix.size()).split(u',');
            for (QString &word : words)
                word = singleLine(word);
            words.removeAll(QString());
            tags = words.join(u',');
            description.truncate(qMax(qsizetype(0), lineStart - 1));
            description = description.trimmed();
        }
    }

    out += indent + u"<DT><A HREF=\"" + escapeHtml(address(item)) + u'"';
    const double unixSeconds = item.createdAt.toUnix();
    if (std::isfinite(unixSeconds) && unixSeconds >= 0 && unixSeconds < 1e15)
        out += u" ADD_DATE=\"" + QString::number(qint64(std::floor(unixSeconds))) + u'"';
    if (!tags.isEmpty())
        out += u" TAGS=\"" + escapeHtml(tags) + u'"';
    const QString title = singleLine(item.title);
    out += u'>' + escapeHtml(title.isEmpty() ? singleLine(item.path) : title) + u"</A>\n";
    if (!description.isEmpty())
        out += indent + u"<DD>" + escapeHtml(description) + u'\n';
}

} // namespace

QByteArray writeBookmarkFile(const QList<LinkItem> &items, const QStringList &categories,
                             NotesConversion notesToPlainText)
{
    FolderTree tree;
    for (const QString &category : categories)
        tree.ensure(category);
    for (qsizetype i = 0; i < items.size(); ++i)
        tree.node(tree.ensure(items[i].category)).records.push_back(i);

    // Chromium reads these files line by line: every tag that matters starts its own line, as in
    // the browsers' own exports.
    QString out;
    out += u"<!DOCTYPE NETSCAPE-Bookmark-file-1>\n"
           u"<!-- Fichier écrit par Fiva : les navigateurs l’importent comme leurs propres exports. -->\n"
           u"<META HTTP-EQUIV=\"Content-Type\" CONTENT=\"text/html; charset=UTF-8\">\n"
           u"<TITLE>Marque-pages</TITLE>\n"
           u"<H1>Marque-pages</H1>\n"
           u"<DL><p>\n";

    // Depth-first without recursion: a category can have as many levels as its name has separators.
    struct Frame
    {
        int node;
        std::size_t nextChild;
    };
    std::vector<Frame> stack{{0, 0}};
    const auto indentFor = [](std::size_t depth) { return QString(qsizetype(depth) * 4, u' '); };
    for (const qsizetype record : tree.node(0).records)
        writeLink(out, indentFor(1), items[record], notesToPlainText);
    while (!stack.empty()) {
        Frame &frame = stack.back();
        const FolderNode &node = tree.node(frame.node);
        if (frame.nextChild == node.children.size()) {
            stack.pop_back();
            if (!stack.empty())
                out += indentFor(stack.size()) + u"</DL><p>\n";
            continue;
        }
        const int childIndex = node.children[frame.nextChild++];
        const QString indent = indentFor(stack.size());
        const FolderNode &child = tree.node(childIndex);
        out += indent + u"<DT><H3>" + escapeHtml(child.name) + u"</H3>\n" + indent + u"<DL><p>\n";
        stack.push_back({childIndex, 0});
        const QString inner = indentFor(stack.size());
        for (const qsizetype record : child.records)
            writeLink(out, inner, items[record], notesToPlainText);
    }
    out += u"</DL><p>\n";
    return out.toUtf8();
}

} // namespace fiva::interchange
