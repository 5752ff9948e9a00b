#include "platform/Paths.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

#include <utility>

namespace fiva {

QString DesktopPaths::applicationSupportFolder() const
{
    // The generic location, not the per-application one: Fiva builds AS/Fiva and
    // AS/Fiva_Attachments itself, side by side.
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
}

QString DesktopPaths::temporaryFolder() const
{
    return QDir::tempPath();
}

QString DesktopPaths::documentsFolder() const
{
    // Minimal systems often have no Documents folder; a panel asked to open a missing one would
    // fall back to the working folder, which is wherever Fiva happened to be launched from.
    const QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    return !documents.isEmpty() && QFileInfo(documents).isDir() ? documents : QDir::homePath();
}

FixedPaths::FixedPaths(QString applicationSupportFolder, QString temporaryFolder, QString documentsFolder)
    : m_applicationSupportFolder(std::move(applicationSupportFolder)),
      m_temporaryFolder(std::move(temporaryFolder)), m_documentsFolder(std::move(documentsFolder))
{
}

} // namespace fiva
