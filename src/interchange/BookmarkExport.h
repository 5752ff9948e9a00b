#pragma once

#include "interchange/NotesConversion.h"
#include "model/LinkItem.h"

#include <QByteArray>
#include <QList>
#include <QStringList>

namespace fiva::interchange {

// Writes the records as a NETSCAPE-Bookmark-file-1 document that browsers import with its folder
// tree: each category becomes nested folders split at " / ", records of "Sans catégorie" stay at the
// top, file and folder records become file:// addresses. Categories without records are written as
// empty folders so that the tree stays whole. notesToPlainText turns stored notes back into text;
// when null the notes are written as they are stored.
QByteArray writeBookmarkFile(const QList<LinkItem> &items, const QStringList &categories,
                             NotesConversion notesToPlainText);

} // namespace fiva::interchange
