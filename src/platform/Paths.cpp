#include "platform/Paths.h"

#include <QDir>
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

FixedPaths::FixedPaths(QString applicationSupportFolder, QString temporaryFolder)
    : m_applicationSupportFolder(std::move(applicationSupportFolder)),
      m_temporaryFolder(std::move(temporaryFolder))
{
}

} // namespace fiva
