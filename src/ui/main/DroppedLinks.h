#pragma once

#include "model/LinkItem.h"

#include <QList>
#include <QString>

class QMimeData;

namespace fiva {

// A web address, a file or a folder dragged onto the window or pasted into the list.
struct DroppedLink
{
    QString title; // the page title the drag carries, or the file's name, or the address itself
    QString path;  // the address, or the local path
    LinkKind kind = LinkKind::url;

    friend bool operator==(const DroppedLink &, const DroppedLink &) = default;
};

// What the data holds that can become records: its URLs (local ones as files or folders, by what
// exists there), else its text when that is an address with a scheme or an absolute path that
// exists. Browsers put the page title beside the address in "text/x-moz-url"; it is used when
// present. Scripts (javascript:) and anything without a usable address give nothing.
QList<DroppedLink> droppedLinks(const QMimeData &data);

} // namespace fiva
