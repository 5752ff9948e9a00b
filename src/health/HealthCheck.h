#pragma once

#include "model/LinkItem.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QUuid>

#include <functional>
#include <optional>
#include <stop_token>

#include "health/WebCheckResult.h"

namespace fiva {

enum class ProblemKind {
    pathMissing,       // nothing at the record's path
    notAFile,          // a `file` record whose path is a folder
    notAFolder,        // a `directory` record whose path is not a folder
    pathUnreachable,   // the path cannot be looked at (permissions, a broken mount…)
    attachmentMissing, // the copy of an attachment is gone
    webBroken,         // the last web check of a `url` record failed
};

struct Problem
{
    ProblemKind kind = ProblemKind::pathMissing;
    // The path or address concerned: the record's, or the attachment copy's.
    QString subject;
    // The attachment concerned, for attachmentMissing; its name as the user knows it.
    QUuid attachmentId;
    QString attachmentName;
    // The failed web check, for webBroken.
    std::optional<WebCheckResult> web;

    // One French sentence, for the list's tooltip and for `fiva-cli check`.
    QString description() const;

    friend bool operator==(const Problem &, const Problem &) = default;
};

// What one look at the disk found for a record: its problems, and the sizes of the attachment
// copies that exist, remembered so that a copy that later disappears can be searched for by size.
struct RecordHealth
{
    QUuid id;
    QList<Problem> problems;
    QHash<QUuid, qint64> attachmentSizes;

    bool isBroken() const { return !problems.isEmpty(); }
};

// What is at a path: a single stat answers both "does it exist" and "is it a folder".
enum class PathState { missing, file, folder, unreachable };
struct PathInfo
{
    PathState state = PathState::missing;
    qint64 size = 0;
};
PathInfo inspectPath(const QString &path);

// The last web check of each `url` record, by record id. A result applies only while the record
// still points at the address that was checked.
using WebResults = QHash<QUuid, WebCheckResult>;

// Checks one record against the disk (and its last web check).
RecordHealth checkRecord(const LinkItem &item, const WebResults &web = {});

// Checks every record of a snapshot; safe to run on a worker thread, since records are values.
// Large snapshots are split over the cores. `progress`, when given, is called from the calling
// thread with the number of records checked so far. Returns nothing when stopped before the end,
// so that a half pass is never mistaken for a whole one.
std::optional<QList<RecordHealth>> checkRecords(const QList<LinkItem> &items, const WebResults &web = {},
                                                std::stop_token stop = {},
                                                const std::function<void(qsizetype)> &progress = {});

} // namespace fiva
