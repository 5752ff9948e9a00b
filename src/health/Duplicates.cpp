#include "health/Duplicates.h"

#include "model/AddressKey.h"

#include <QHash>

namespace fiva {

QList<QList<QUuid>> findDuplicates(const QList<LinkItem> &items)
{
    QHash<QString, qsizetype> groupOfKey;
    QList<QList<QUuid>> groups;
    for (const LinkItem &item : items) {
        const QString key = addressKey(item.path);
        if (key.isEmpty())
            continue;
        auto found = groupOfKey.find(key);
        if (found == groupOfKey.end()) {
            found = groupOfKey.insert(key, groups.size());
            groups.append(QList<QUuid>());
        }
        groups[*found].append(item.id);
    }
    groups.removeIf([](const QList<QUuid> &group) { return group.size() < 2; });
    return groups;
}

} // namespace fiva
