#include "store/Trash.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdio>

namespace fiva {

namespace {

// When it cannot make any trash folder, Qt 6.4 still "trashes" into files/ and info/ of the
// working folder and reports success with a relative path. That would scatter the user's files
// wherever Fiva was started, so the move is undone and the file deleted as where no trash exists.
bool undoStrayTrashing(const QString &original, const QString &inTrash, bool hadFiles, bool hadInfo)
{
    const QFileInfo moved(inTrash);
    const QString infoFile = QDir::cleanPath(moved.absolutePath() + QStringLiteral("/../info/") +
                                             moved.fileName() + QStringLiteral(".trashinfo"));
    if (std::rename(QFile::encodeName(moved.absoluteFilePath()).constData(),
                    QFile::encodeName(original).constData()) != 0)
        return false;
    QFile::remove(infoFile);
    if (!hadFiles)
        QDir().rmdir(moved.absolutePath());
    if (!hadInfo)
        QDir().rmdir(QFileInfo(infoFile).absolutePath());
    return QFile::remove(original);
}

} // namespace

bool discardFile(const QString &path)
{
    const QFileInfo info(path);
    if (info.isDir() && !info.isSymLink())
        return false;
    if (!info.exists() && !info.isSymLink())
        return true;
    const bool hadFiles = QFileInfo::exists(QStringLiteral("files"));
    const bool hadInfo = QFileInfo::exists(QStringLiteral("info"));
    QString inTrash;
    if (QFile::moveToTrash(path, &inTrash)) {
        if (QFileInfo(inTrash).isAbsolute())
            return true;
        return undoStrayTrashing(path, inTrash, hadFiles, hadInfo);
    }
    // Deleting rather than trashing is a departure from recoverability, kept for when no trash exists.
    return QFile::remove(path);
}

} // namespace fiva
