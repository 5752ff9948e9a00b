#include "store/LinkStore.h"

#include <QHash>

#include <algorithm>

namespace fiva {

namespace {

// Takes over the repaired path and attachment copies; true when the record changed.
bool takeOverPaths(LinkItem &item, const LinkItem &repaired)
{
    bool changed = false;
    if (item.path != repaired.path) {
        item.path = repaired.path;
        changed = true;
    }
    for (Attachment &attachment : item.attachments) {
        const auto it = std::find_if(repaired.attachments.cbegin(), repaired.attachments.cend(),
                                     [&](const Attachment &a) { return a.id == attachment.id; });
        if (it != repaired.attachments.cend() && it->filePath != attachment.filePath) {
            attachment.filePath = it->filePath;
            changed = true;
        }
    }
    return changed;
}

} // namespace

std::optional<qsizetype> LinkStore::repairPaths(const PathRepair &repair)
{
    bool applied = false;
    qsizetype changed = 0;
    const bool saved = change([&] {
        applied = true;
        QHash<QUuid, LinkItem> byId;
        for (LinkItem &item : repair(m_items))
            byId.insert(item.id, std::move(item));
        for (LinkItem &item : m_items) {
            const auto it = byId.constFind(item.id);
            if (it != byId.cend() && takeOverPaths(item, *it))
                ++changed;
        }
        if (changed > 0)
            Q_EMIT itemsChanged();
        return changed > 0;
    });
    // Without the lock nothing was tried; with changes, only a written file counts.
    if (!applied || (changed > 0 && !saved))
        return std::nullopt;
    return changed;
}

bool LinkStore::relocate(const QUuid &id, const QString &newPath)
{
    return change([&] { return updateItem(id, [&](LinkItem &item) { item.path = newPath; }); });
}

bool LinkStore::relocateAttachment(const QUuid &id, const QUuid &attachmentId, const QString &newFilePath)
{
    return change([&] {
        const auto item =
            std::find_if(m_items.cbegin(), m_items.cend(), [&](const LinkItem &i) { return i.id == id; });
        if (item == m_items.cend() || std::none_of(item->attachments.cbegin(), item->attachments.cend(),
                                                   [&](const Attachment &a) { return a.id == attachmentId; }))
            return false;
        return updateItem(id, [&](LinkItem &record) {
            for (Attachment &a : record.attachments) {
                if (a.id == attachmentId)
                    a.filePath = newFilePath;
            }
        });
    });
}

} // namespace fiva
