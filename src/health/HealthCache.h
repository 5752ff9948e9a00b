#pragma once

#include <QHash>
#include <QList>
#include <QString>
#include <QUuid>

#include <optional>
#include <stop_token>

#include "health/HealthCheck.h"

namespace fiva {

// The health of every record, kept between passes so that a change to a few records costs a
// look at those few. It is a value: a worker thread refreshes a copy of it and the window assigns
// the copy back, so the window never reads a cache that is being written.
class HealthCache final
{
public:
    // Looks again at the records that are new or whose path, kind or attachments changed since they
    // were last looked at, and forgets records that are gone. Returns false, leaving the cache as it
    // was, when stopped.
    bool refreshChanged(const QList<LinkItem> &items, std::stop_token stop = {});
    // Looks again at every record: files may have moved while Fiva was in the background.
    bool refreshAll(const QList<LinkItem> &items, std::stop_token stop = {});

    // Nothing when the record has not been looked at.
    const RecordHealth *health(const QUuid &id) const;
    bool isBroken(const QUuid &id) const;
    QList<QUuid> brokenIds() const;
    qsizetype size() const { return m_entries.size(); }

    // Keeps the results of a web check; the records they concern are looked at again on the next
    // refresh.
    void recordWebResults(const QList<WebCheckResult> &results);
    const WebResults &webResults() const { return m_web; }

    // The size an attachment's copy had when it was last seen, to search for it when it is gone.
    std::optional<qint64> attachmentSize(const QUuid &attachmentId) const;

    // The cache file lives beside the data file under its own name; it is never the data file.
    static QString cacheFileFor(const QString &dataFilePath);
    // Only what cannot be looked at again cheaply is saved: web results and attachment sizes.
    // A missing or unreadable file leaves the cache empty and returns false.
    bool load(const QString &cacheFilePath);
    bool save(const QString &cacheFilePath, QString *error = nullptr) const;
    // Whether save() would write the same as for `other`: a pass that learnt nothing worth keeping
    // leaves the file alone.
    bool savesAs(const HealthCache &other) const
    {
        return m_attachmentSizes == other.m_attachmentSizes && m_web == other.m_web;
    }

private:
    struct Entry
    {
        LinkKind kind = LinkKind::url;
        QString path;
        QList<Attachment> attachments;
        RecordHealth health;
    };

    bool refresh(const QList<LinkItem> &items, bool all, std::stop_token stop);
    void forgetStrayWebResults();

    QHash<QUuid, Entry> m_entries;
    QHash<QUuid, qint64> m_attachmentSizes;
    WebResults m_web;
};

} // namespace fiva
