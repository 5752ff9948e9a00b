#include "app/AppInfo.h"

namespace fiva {

QString siteAddress()
{
    return QStringLiteral("https://fiva.example");
}

QString authorName()
{
    return QStringLiteral("L’équipe Fiva");
}

QIcon appIcon()
{
    return QIcon(QStringLiteral(":/fiva/AppIcon.svg"));
}

} // namespace fiva
