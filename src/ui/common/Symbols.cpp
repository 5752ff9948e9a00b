#include "ui/common/Symbols.h"

#include <QCoreApplication>
#include <QHash>
#include <QPainter>
#include <QPixmap>
#include <QSvgRenderer>

#include <array>

namespace fiva::symbols {

namespace {

struct SymbolEntry
{
    const char16_t *name;
    const char16_t *themeName; // empty: always ours
};

constexpr std::array<SymbolEntry, 12> symbolTable{{
    {u"star", u""},
    {u"star.fill", u""},
    {u"pencil", u"document-edit"},
    {u"trash", u"edit-delete"},
    {u"paperclip", u"mail-attachment"},
    {u"plus", u"list-add"},
    {u"folder", u"folder"},
    {u"square.and.arrow.up", u"document-send"},
    {u"square.and.arrow.down", u"document-open"},
    {u"clock.arrow.circlepath", u"document-open-recent"},
    {u"xmark.circle.fill", u"window-close"},
    {u"doc", u"text-x-generic"},
}};

const SymbolEntry *entryOf(const QString &name)
{
    for (const SymbolEntry &entry : symbolTable) {
        if (name == QStringView(entry.name))
            return &entry;
    }
    return nullptr;
}

// Rendering the drawings ourselves rather than through QIcon's file loading keeps them working
// without the SVG icon-engine plugin being deployed next to the program.
QIcon renderOwn(const QString &name)
{
    QSvgRenderer renderer(QStringLiteral(":/icons/") + name + QStringLiteral(".svg"));
    if (!renderer.isValid())
        return {};
    QIcon result;
    for (int size : {16, 20, 24, 32, 48, 64}) {
        QPixmap pixmap(size, size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        renderer.render(&painter);
        painter.end();
        result.addPixmap(pixmap);
    }
    return result;
}

// The rendered drawings, kept by the application object: pixmaps must not outlive it, as a plain
// static would at exit.
class IconCache final : public QObject
{
public:
    using QObject::QObject;
    QHash<QString, QIcon> icons;
};

QIcon cachedOwnIcon(const QString &name)
{
    QCoreApplication *application = QCoreApplication::instance();
    if (!application)
        return renderOwn(name);
    auto *cache =
        application->findChild<IconCache *>(QStringLiteral("fivaSymbolCache"), Qt::FindDirectChildrenOnly);
    if (!cache) {
        cache = new IconCache(application);
        cache->setObjectName(QStringLiteral("fivaSymbolCache"));
    }
    auto it = cache->icons.constFind(name);
    if (it == cache->icons.constEnd())
        it = cache->icons.insert(name, renderOwn(name));
    return *it;
}

} // namespace

QIcon ownIcon(const QString &name)
{
    if (!entryOf(name))
        return {};
    return cachedOwnIcon(name);
}

QString themeIconName(const QString &name)
{
    const SymbolEntry *entry = entryOf(name);
    return entry ? QString::fromUtf16(entry->themeName) : QString();
}

QIcon icon(const QString &name)
{
    const QString themeName = themeIconName(name);
    if (!themeName.isEmpty() && QIcon::hasThemeIcon(themeName))
        return QIcon::fromTheme(themeName);
    return ownIcon(name);
}

QStringList knownSymbols()
{
    QStringList names;
    for (const SymbolEntry &entry : symbolTable)
        names.append(QString::fromUtf16(entry.name));
    return names;
}

} // namespace fiva::symbols
