#pragma once

#include "model/LinkItem.h"

#include <QList>
#include <QString>
#include <QUuid>

#include <functional>
#include <optional>
#include <stop_token>

#include "health/HealthCheck.h"

namespace fiva {

// What a lost item looked like, to find it again below a folder.
struct RelocationTarget
{
    QString name;                    // the last component of the lost path
    bool isFolder = false;           // a `directory` record looks for folders, the rest for files
    std::optional<qint64> size = {}; // for an attachment copy, when its size is known

    static RelocationTarget forRecord(const LinkItem &item);
    static RelocationTarget forAttachment(const Attachment &attachment, std::optional<qint64> size);
};

struct SearchProgress
{
    qsizetype foldersVisited = 0;
    QString currentFolder;
};

// Looks below `root`, recursively, for items of the target's name and kind (and size, when
// given), without following links to folders so that a loop cannot hold the search. `progress`
// is called once per folder entered. Returns the candidates in the order found, or nothing when
// stopped; a root that is not a folder gives no candidates.
std::optional<QStringList>
findRelocationCandidates(const RelocationTarget &target, const QString &root, std::stop_token stop = {},
                         const std::function<void(const SearchProgress &)> &progress = {});

// Whether `path` is `prefix` or lies below it, comparing whole path components.
bool pathHasPrefix(QStringView path, QStringView prefix);
// `path` with `oldPrefix` replaced by `newPrefix`; `path` itself when it does not lie below it.
QString replacePathPrefix(const QString &path, QStringView oldPrefix, const QString &newPrefix);

// The records a prefix replacement changes, with their new paths (the record's path and its
// attachments' copies), in list order; each carries its id. Pure: the disk is not looked at, and
// the caller saves the result in one store operation.
QList<LinkItem> applyPrefixReplacement(const QList<LinkItem> &items, const QString &oldPrefix,
                                       const QString &newPrefix);

// Of the records a prefix replacement changes, only those it makes whole again: a record with a
// path missing below `oldPrefix` that has no problem left on disk once moved. Records that work,
// or that the replacement would not mend, are left as they are so that another prefix can be tried.
// Looks at the disk; meant to run on the fresh records inside the store's repair.
QList<LinkItem> prefixRepairs(const QList<LinkItem> &items, const QString &oldPrefix,
                              const QString &newPrefix);

struct PrefixReplacement
{
    QString oldPrefix;      // a folder that no longer exists
    QString newPrefix;      // empty when no replacement was found
    qsizetype affected = 0; // broken records below the old prefix
    qsizetype repaired = 0; // of those, records the replacement would leave with no problem
    qsizetype stillBroken() const { return affected - repaired; }
};

// How many of the broken records below `oldPrefix` would be whole again with `newPrefix`.
PrefixReplacement evaluatePrefixReplacement(const QList<LinkItem> &items, const QList<RecordHealth> &health,
                                            const QString &oldPrefix, const QString &newPrefix);

// From the records whose path or attachment copies are missing, the vanished folders they share
// (the first folder of each path that no longer exists), each with a proposed new prefix: the
// sibling folder of the same parent under which most of the lost items are found again, as after
// a renamed home folder (/home/ancien/… → /home/nouveau/…). The most affected records first.
// `health` is the result of a pass over `items`, in any order.
std::optional<QList<PrefixReplacement>> proposePrefixReplacements(const QList<LinkItem> &items,
                                                                  const QList<RecordHealth> &health,
                                                                  std::stop_token stop = {});

// For a vanished folder moved elsewhere: looks below `searchRoot` for folders named like the last
// component of `oldPrefix` and proposes the one under which most of the lost items are found again
// (the first found among equals). The new prefix is empty when none restores anything.
std::optional<PrefixReplacement>
proposeMovedPrefix(const QList<LinkItem> &items, const QList<RecordHealth> &health, const QString &oldPrefix,
                   const QString &searchRoot, std::stop_token stop = {},
                   const std::function<void(const SearchProgress &)> &progress = {});

} // namespace fiva
