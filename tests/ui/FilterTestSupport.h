#pragma once

#include "model/LinkItem.h"

#include <QString>
#include <QUuid>

#include <optional>

namespace fiva::test {

// The wrapping the edit form puts around every note.
inline QString editFormNotes(const QString &text)
{
    return QStringLiteral(
               "<html>\n    <head>\n        <meta charset=\"UTF-8\">\n    </head>\n    <body>\n        <p>") +
           text + QStringLiteral("</p>\n    </body>\n</html>");
}

struct ItemSpec
{
    QString title;
    QString path = QStringLiteral("https://example.org");
    std::optional<QString> notes = std::nullopt;
    QString category = QStringLiteral("Sans catégorie");
    double createdAt = 0;
    bool isFavorite = false;
};

inline LinkItem makeItem(const ItemSpec &spec)
{
    return {QUuid::createUuid(),       spec.title,      spec.path, spec.category, spec.notes,
            Timestamp{spec.createdAt}, spec.isFavorite, {}};
}

} // namespace fiva::test
