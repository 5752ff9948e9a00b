#include "model/LinkItem.h"

namespace fiva {

QString linkKindName(LinkKind kind)
{
    switch (kind) {
    case LinkKind::url:
        return QStringLiteral("url");
    case LinkKind::file:
        return QStringLiteral("file");
    case LinkKind::directory:
        return QStringLiteral("directory");
    }
    return {};
}

std::optional<LinkKind> linkKindFromName(QStringView name)
{
    for (LinkKind kind : {LinkKind::url, LinkKind::file, LinkKind::directory}) {
        if (name == linkKindName(kind))
            return kind;
    }
    return std::nullopt;
}

} // namespace fiva
