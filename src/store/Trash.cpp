#include "store/Trash.h"

#include <QFile>
#include <QFileInfo>

namespace fiva {

bool discardFile(const QString &path)
{
    const QFileInfo info(path);
    if (info.isDir() && !info.isSymLink())
        return false;
    if (!info.exists() && !info.isSymLink())
        return true;
    // Deleting rather than trashing is a departure from recoverability, kept for when no trash exists.
    if (QFile::moveToTrash(path))
        return true;
    return QFile::remove(path);
}

} // namespace fiva
