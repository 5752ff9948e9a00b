#include "ui/main/DetailView.h"

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileInfo>
#include <QMimeData>
#include <QUrl>

namespace fiva {

namespace {

QStringList droppedFiles(const QMimeData *data)
{
    QStringList files;
    if (!data)
        return files;
    for (const QUrl &url : data->urls()) {
        if (url.isLocalFile() && QFileInfo(url.toLocalFile()).isFile())
            files << url.toLocalFile();
    }
    return files;
}

} // namespace

void DetailView::attachFiles(const QStringList &paths)
{
    for (const QString &path : paths) {
        if (QFileInfo(path).isFile())
            copyAttachment(path);
    }
}

void DetailView::dragEnterEvent(QDragEnterEvent *event)
{
    if (!droppedFiles(event->mimeData()).isEmpty())
        event->acceptProposedAction();
}

void DetailView::dropEvent(QDropEvent *event)
{
    const QStringList files = droppedFiles(event->mimeData());
    if (files.isEmpty())
        return;
    event->acceptProposedAction();
    attachFiles(files);
}

} // namespace fiva
