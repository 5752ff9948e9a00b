#include "app/Resources.h"

#include <QDir>
#include <QFileInfo>

namespace fiva {

Resources::Resources(QStringList folders) : m_folders(std::move(folders)) {}

QStringList Resources::besideProgram(const QString &programFolder)
{
    const QDir dir(programFolder);
    return {QDir::cleanPath(dir.filePath(QStringLiteral("../share/fiva"))),
            QDir::cleanPath(dir.filePath(QStringLiteral("share/fiva")))};
}

std::optional<QString> Resources::find(const QString &fileName) const
{
    for (const QString &folder : m_folders) {
        const QFileInfo candidate(QDir(folder).filePath(fileName));
        if (candidate.isFile())
            return candidate.absoluteFilePath();
    }
    return std::nullopt;
}

} // namespace fiva
