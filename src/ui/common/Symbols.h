#pragma once

#include <QIcon>
#include <QString>
#include <QStringList>

namespace fiva::symbols {

// Icons by the symbol names the screens use ("star.fill", "pencil", "trash", "paperclip", "plus",
// "folder", ...). The desktop's icon theme draws the symbol when it has a matching icon; our own
// small drawings fill in for the rest, so a symbol is never blank on a bare desktop.
QIcon icon(const QString &name);

// Our own drawing of the symbol, ignoring the theme; a null icon for an unknown name.
QIcon ownIcon(const QString &name);
// The freedesktop icon name tried first, or empty when the symbol is always drawn by us (the
// stars keep their yellow whatever the theme says).
QString themeIconName(const QString &name);
// Every symbol name we can draw.
QStringList knownSymbols();

} // namespace fiva::symbols
