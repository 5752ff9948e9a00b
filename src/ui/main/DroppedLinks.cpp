#include "ui/main/DroppedLinks.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QMimeData>
#include <QUrl>

namespace fiva {

namespace {

// Schemes a record can open; the others (javascript:, data:, the browser's own) are not links.
bool usableScheme(const QString &scheme)
{
    static const QStringList schemes{
        QStringLiteral("http"), QStringLiteral("https"), QStringLiteral("ftp"),
        QStringLiteral("ftps"), QStringLiteral("sftp"),  QStringLiteral("mailto"),
        QStringLiteral("file"), QStringLiteral("smb"),   QStringLiteral("afp")};
    return schemes.contains(scheme.toLower());
}

// Lines alternating address and title: UTF-16 in "text/x-moz-url" (Firefox, Chromium), UTF-8 in
// "_NETSCAPE_URL" (older X11 browsers).
QHash<QString, QString> carriedTitles(const QMimeData &data)
{
    QHash<QString, QString> titles;
    const QByteArray raw = data.data(QStringLiteral("text/x-moz-url"));
    const QString text =
        raw.size() >= 2
            ? QString::fromUtf16(reinterpret_cast<const char16_t *>(raw.constData()), raw.size() / 2)
            : QString::fromUtf8(data.data(QStringLiteral("_NETSCAPE_URL")));
    const QStringList lines = text.split(u'\n');
    for (qsizetype i = 0; i + 1 < lines.size(); i += 2) {
        const QString title = lines.at(i + 1).trimmed().remove(QChar(0));
        if (!title.isEmpty())
            titles.insert(lines.at(i).trimmed().remove(QChar(0)), title);
    }
    return titles;
}

std::optional<DroppedLink> linkFor(const QUrl &url, const QHash<QString, QString> &titles)
{
    if (!url.isValid() || !usableScheme(url.scheme()))
        return std::nullopt;
    if (url.isLocalFile()) {
        const QString path = QDir::cleanPath(url.toLocalFile());
        const QFileInfo info(path);
        if (path.isEmpty() || !info.exists())
            return std::nullopt;
        const QString name = info.fileName().isEmpty() ? path : info.fileName();
        return DroppedLink{name, path, info.isDir() ? LinkKind::directory : LinkKind::file};
    }
    const QString address = url.toString();
    const QString title = titles.value(address);
    return DroppedLink{title.isEmpty() ? address : title, address, LinkKind::url};
}

} // namespace

QList<DroppedLink> droppedLinks(const QMimeData &data)
{
    const QHash<QString, QString> titles = carriedTitles(data);
    QList<DroppedLink> links;
    const auto add = [&](const QUrl &url) {
        if (const auto link = linkFor(url, titles)) {
            const bool seen = std::any_of(links.cbegin(), links.cend(),
                                          [&](const DroppedLink &l) { return l.path == link->path; });
            if (!seen)
                links << *link;
        }
    };
    if (data.hasUrls()) {
        for (const QUrl &url : data.urls())
            add(url);
        return links;
    }
    // Text: one address or path a line, as a copied list of links comes.
    for (const QString &line : data.text().split(u'\n', Qt::SkipEmptyParts)) {
        const QString text = line.trimmed();
        if (text.startsWith(u'/'))
            add(QUrl::fromLocalFile(text));
        else if (const QUrl url(text, QUrl::StrictMode); !url.scheme().isEmpty() && !url.host().isEmpty())
            add(url);
        else if (url.scheme() == u"mailto")
            add(url);
    }
    return links;
}

} // namespace fiva
