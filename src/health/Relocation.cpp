#include "health/Relocation.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QHash>
#include <QSet>

#include <algorithm>

namespace fiva {

namespace {

QString lastComponent(const QString &path)
{
    QString trimmed = path;
    while (trimmed.size() > 1 && trimmed.endsWith(u'/'))
        trimmed.chop(1);
    return trimmed.section(u'/', -1);
}

QString parentOf(const QString &path)
{
    const qsizetype slash = path.lastIndexOf(u'/');
    return slash <= 0 ? QStringLiteral("/") : path.left(slash);
}

// The paths of a record that a pass found missing: its own and its attachments' copies.
QStringList missingPaths(const RecordHealth &health)
{
    QStringList paths;
    for (const Problem &problem : health.problems)
        if (problem.kind == ProblemKind::pathMissing || problem.kind == ProblemKind::attachmentMissing)
            paths.append(problem.subject);
    return paths;
}

QHash<QUuid, const RecordHealth *> healthById(const QList<RecordHealth> &health)
{
    QHash<QUuid, const RecordHealth *> byId;
    byId.reserve(health.size());
    for (const RecordHealth &record : health)
        byId.insert(record.id, &record);
    return byId;
}

// The first folder of an absolute path that does not exist, when it is not the path itself:
// a missing file in a folder that is still there is not a vanished prefix. `folders` remembers
// what has been looked at, so records sharing folders cost one stat per folder.
QString vanishedPrefix(const QString &path, QHash<QString, bool> &folders)
{
    if (!path.startsWith(u'/'))
        return {};
    qsizetype end = 0;
    while ((end = path.indexOf(u'/', end + 1)) > 0) {
        const QString folder = path.left(end);
        auto known = folders.constFind(folder);
        if (known == folders.cend())
            known = folders.insert(folder, inspectPath(folder).state == PathState::folder);
        if (!*known)
            return folder;
    }
    return {};
}

qsizetype countFound(const QStringList &lostPaths, const QString &oldPrefix, const QString &newPrefix)
{
    return std::count_if(lostPaths.cbegin(), lostPaths.cend(), [&](const QString &path) {
        return inspectPath(replacePathPrefix(path, oldPrefix, newPrefix)).state != PathState::missing;
    });
}

// Enough lost paths to tell candidate folders apart without a stat per record and candidate.
constexpr qsizetype sampleSize = 16;

QStringList lostPathsBelow(const QList<RecordHealth> &health, const QString &prefix, qsizetype limit)
{
    QStringList paths;
    for (const RecordHealth &record : health)
        for (const QString &path : missingPaths(record))
            if (paths.size() < limit && pathHasPrefix(path, prefix))
                paths.append(path);
    return paths;
}

} // namespace

RelocationTarget RelocationTarget::forRecord(const LinkItem &item)
{
    return {lastComponent(item.path), item.kind == LinkKind::directory, std::nullopt};
}

RelocationTarget RelocationTarget::forAttachment(const Attachment &attachment, std::optional<qint64> size)
{
    // The copy keeps the name it was given in the attachments folder, which may differ from the
    // name shown when two files of the same name were attached.
    return {lastComponent(attachment.filePath), false, size};
}

std::optional<QStringList>
findRelocationCandidates(const RelocationTarget &target, const QString &root, std::stop_token stop,
                         const std::function<void(const SearchProgress &)> &progress)
{
    QStringList found;
    if (target.name.isEmpty() || inspectPath(root).state != PathState::folder)
        return found;
    SearchProgress state;
    QStringList pending{root};
    while (!pending.isEmpty()) {
        if (stop.stop_requested())
            return std::nullopt;
        state.currentFolder = pending.takeLast();
        ++state.foldersVisited;
        if (progress)
            progress(state);
        QStringList subfolders;
        QDirIterator entries(state.currentFolder,
                             QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
        while (entries.hasNext()) {
            entries.next();
            const QFileInfo info = entries.fileInfo();
            const bool isFolder = info.isDir() && !info.isSymLink();
            if (isFolder)
                subfolders.append(info.filePath());
            if (info.fileName() != target.name || info.isDir() != target.isFolder)
                continue;
            if (target.size && info.size() != *target.size)
                continue;
            found.append(info.filePath());
        }
        // Depth first, in name order, so that the nearest and first-named candidates come first.
        std::sort(subfolders.begin(), subfolders.end(), std::greater<>());
        pending.append(subfolders);
    }
    return found;
}

bool pathHasPrefix(QStringView path, QStringView prefix)
{
    while (prefix.size() > 1 && prefix.endsWith(u'/'))
        prefix.chop(1);
    if (prefix.isEmpty() || !path.startsWith(prefix))
        return false;
    return path.size() == prefix.size() || prefix == u"/" || path.at(prefix.size()) == u'/';
}

QString replacePathPrefix(const QString &path, QStringView oldPrefix, const QString &newPrefix)
{
    while (oldPrefix.size() > 1 && oldPrefix.endsWith(u'/'))
        oldPrefix.chop(1);
    if (!pathHasPrefix(path, oldPrefix))
        return path;
    QString replacement = newPrefix;
    while (replacement.size() > 1 && replacement.endsWith(u'/'))
        replacement.chop(1);
    QString rest = path.mid(oldPrefix.size());
    if (replacement.endsWith(u'/') && rest.startsWith(u'/'))
        rest.remove(0, 1);
    else if (oldPrefix == u"/" && !replacement.endsWith(u'/') && !rest.isEmpty())
        rest.prepend(u'/');
    return replacement + rest;
}

QList<LinkItem> applyPrefixReplacement(const QList<LinkItem> &items, const QString &oldPrefix,
                                       const QString &newPrefix)
{
    QList<LinkItem> changed;
    if (oldPrefix.isEmpty() || newPrefix.isEmpty())
        return changed;
    for (const LinkItem &item : items) {
        LinkItem moved = item;
        if (item.kind != LinkKind::url)
            moved.path = replacePathPrefix(item.path, oldPrefix, newPrefix);
        for (Attachment &attachment : moved.attachments)
            attachment.filePath = replacePathPrefix(attachment.filePath, oldPrefix, newPrefix);
        if (moved != item)
            changed.append(std::move(moved));
    }
    return changed;
}

QList<LinkItem> prefixRepairs(const QList<LinkItem> &items, const QString &oldPrefix,
                              const QString &newPrefix)
{
    QList<LinkItem> repairs;
    for (const LinkItem &item : items) {
        const QList<LinkItem> moved = applyPrefixReplacement({item}, oldPrefix, newPrefix);
        if (moved.isEmpty())
            continue;
        const QStringList lost = missingPaths(checkRecord(item));
        if (std::any_of(lost.cbegin(), lost.cend(),
                        [&](const QString &path) { return pathHasPrefix(path, oldPrefix); }) &&
            !checkRecord(moved.first()).isBroken())
            repairs.append(moved.first());
    }
    return repairs;
}

PrefixReplacement evaluatePrefixReplacement(const QList<LinkItem> &items, const QList<RecordHealth> &health,
                                            const QString &oldPrefix, const QString &newPrefix)
{
    PrefixReplacement result{oldPrefix, newPrefix, 0, 0};
    const auto byId = healthById(health);
    for (const LinkItem &item : items) {
        const RecordHealth *record = byId.value(item.id);
        if (!record)
            continue;
        const QStringList lost = missingPaths(*record);
        if (std::none_of(lost.cbegin(), lost.cend(),
                         [&](const QString &path) { return pathHasPrefix(path, oldPrefix); }))
            continue;
        ++result.affected;
        const QList<LinkItem> moved = applyPrefixReplacement({item}, oldPrefix, newPrefix);
        // Web problems are not the disk's business; a prefix cannot mend them, nor count against it.
        if (!moved.isEmpty() && !checkRecord(moved.first()).isBroken())
            ++result.repaired;
    }
    return result;
}

std::optional<QList<PrefixReplacement>> proposePrefixReplacements(const QList<LinkItem> &items,
                                                                  const QList<RecordHealth> &health,
                                                                  std::stop_token stop)
{
    const auto byId = healthById(health);
    QHash<QString, bool> folders;
    QHash<QString, QStringList> lostByPrefix;
    QStringList prefixes;
    for (const LinkItem &item : items) {
        if (stop.stop_requested())
            return std::nullopt;
        const RecordHealth *record = byId.value(item.id);
        if (!record || !record->isBroken())
            continue;
        for (const QString &path : missingPaths(*record)) {
            const QString prefix = vanishedPrefix(path, folders);
            if (prefix.isEmpty())
                continue;
            auto lost = lostByPrefix.find(prefix);
            if (lost == lostByPrefix.end()) {
                lost = lostByPrefix.insert(prefix, {});
                prefixes.append(prefix);
            }
            if (lost->size() < sampleSize)
                lost->append(path);
        }
    }

    QList<PrefixReplacement> proposals;
    for (const QString &prefix : prefixes) {
        if (stop.stop_requested())
            return std::nullopt;
        const QStringList &lost = lostByPrefix[prefix];
        QString best;
        qsizetype bestFound = 0;
        const QDir parent(parentOf(prefix));
        const QStringList siblings =
            parent.entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden, QDir::Name);
        for (const QString &sibling : siblings) {
            const QString candidate = parent.filePath(sibling);
            const qsizetype found = countFound(lost, prefix, candidate);
            if (found > bestFound) {
                best = candidate;
                bestFound = found;
            }
        }
        proposals.append(evaluatePrefixReplacement(items, health, prefix, best));
    }
    std::stable_sort(
        proposals.begin(), proposals.end(),
        [](const PrefixReplacement &a, const PrefixReplacement &b) { return a.affected > b.affected; });
    return proposals;
}

std::optional<PrefixReplacement>
proposeMovedPrefix(const QList<LinkItem> &items, const QList<RecordHealth> &health, const QString &oldPrefix,
                   const QString &searchRoot, std::stop_token stop,
                   const std::function<void(const SearchProgress &)> &progress)
{
    const auto candidates =
        findRelocationCandidates({lastComponent(oldPrefix), true, std::nullopt}, searchRoot, stop, progress);
    if (!candidates)
        return std::nullopt;
    const QStringList lost = lostPathsBelow(health, oldPrefix, sampleSize);
    QString best;
    qsizetype bestFound = 0;
    for (const QString &candidate : *candidates) {
        if (stop.stop_requested())
            return std::nullopt;
        const qsizetype found = countFound(lost, oldPrefix, candidate);
        if (found > bestFound) {
            best = candidate;
            bestFound = found;
        }
    }
    return evaluatePrefixReplacement(items, health, oldPrefix, best);
}

} // namespace fiva
