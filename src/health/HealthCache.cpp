#include "health/HealthCache.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <array>
#include <utility>

namespace fiva {

namespace {

constexpr std::array<std::pair<WebOutcome, const char16_t *>, 9> outcomeNames{{
    {WebOutcome::reachable, u"reachable"},
    {WebOutcome::notFound, u"notFound"},
    {WebOutcome::gone, u"gone"},
    {WebOutcome::httpError, u"httpError"},
    {WebOutcome::hostNotFound, u"hostNotFound"},
    {WebOutcome::timedOut, u"timedOut"},
    {WebOutcome::tlsError, u"tlsError"},
    {WebOutcome::connectionError, u"connectionError"},
    {WebOutcome::cancelled, u"cancelled"},
}};

QString outcomeName(WebOutcome outcome)
{
    for (const auto &[value, name] : outcomeNames)
        if (value == outcome)
            return QString::fromUtf16(name);
    return {};
}

std::optional<WebOutcome> outcomeFromName(const QString &name)
{
    for (const auto &[value, text] : outcomeNames)
        if (name == QStringView(text))
            return value;
    return std::nullopt;
}

} // namespace

bool HealthCache::refreshChanged(const QList<LinkItem> &items, std::stop_token stop)
{
    return refresh(items, false, std::move(stop));
}

bool HealthCache::refreshAll(const QList<LinkItem> &items, std::stop_token stop)
{
    return refresh(items, true, std::move(stop));
}

bool HealthCache::refresh(const QList<LinkItem> &items, bool all, std::stop_token stop)
{
    QList<LinkItem> stale;
    qsizetype known = 0;
    if (all) {
        stale = items;
    } else {
        for (const LinkItem &item : items) {
            const auto found = m_entries.constFind(item.id);
            if (found != m_entries.cend())
                ++known;
            if (found == m_entries.cend() || found->kind != item.kind || found->path != item.path ||
                found->attachments != item.attachments)
                stale.append(item);
        }
    }
    const auto results = checkRecords(stale, m_web, stop);
    if (!results)
        return false;

    if (!all && known == m_entries.size()) {
        // No record is gone: a few edits cost a few updates, not a new table of every record.
        for (qsizetype i = 0; i < stale.size(); ++i) {
            const LinkItem &item = stale.at(i);
            const RecordHealth &health = results->at(i);
            for (auto size = health.attachmentSizes.cbegin(); size != health.attachmentSizes.cend(); ++size)
                m_attachmentSizes.insert(size.key(), size.value());
            m_entries.insert(item.id, Entry{item.kind, item.path, item.attachments, health});
        }
        forgetStrayWebResults();
        return true;
    }

    QHash<QUuid, Entry> entries;
    entries.reserve(items.size());
    QHash<QUuid, qint64> sizes;
    for (const LinkItem &item : items) {
        const auto found = m_entries.constFind(item.id);
        if (found != m_entries.cend())
            entries.insert(item.id, *found);
        for (const Attachment &attachment : item.attachments) {
            const auto size = m_attachmentSizes.constFind(attachment.id);
            if (size != m_attachmentSizes.cend())
                sizes.insert(attachment.id, *size);
        }
    }
    for (qsizetype i = 0; i < stale.size(); ++i) {
        const LinkItem &item = stale.at(i);
        const RecordHealth &health = results->at(i);
        for (auto size = health.attachmentSizes.cbegin(); size != health.attachmentSizes.cend(); ++size)
            sizes.insert(size.key(), size.value());
        entries.insert(item.id, Entry{item.kind, item.path, item.attachments, health});
    }
    m_entries = std::move(entries);
    m_attachmentSizes = std::move(sizes);
    forgetStrayWebResults();
    return true;
}

void HealthCache::forgetStrayWebResults()
{
    // Web results of records that are gone would only grow the cache file.
    for (auto web = m_web.begin(); web != m_web.end();)
        web = m_entries.contains(web.key()) ? std::next(web) : m_web.erase(web);
}

const RecordHealth *HealthCache::health(const QUuid &id) const
{
    const auto found = m_entries.constFind(id);
    return found == m_entries.cend() ? nullptr : &found->health;
}

bool HealthCache::isBroken(const QUuid &id) const
{
    const RecordHealth *found = health(id);
    return found && found->isBroken();
}

QList<QUuid> HealthCache::brokenIds() const
{
    QList<QUuid> ids;
    for (auto entry = m_entries.cbegin(); entry != m_entries.cend(); ++entry)
        if (entry->health.isBroken())
            ids.append(entry.key());
    return ids;
}

void HealthCache::recordWebResults(const QList<WebCheckResult> &results)
{
    for (const WebCheckResult &result : results) {
        if (result.outcome == WebOutcome::cancelled)
            continue;
        m_web.insert(result.id, result);
        m_entries.remove(result.id);
    }
}

std::optional<qint64> HealthCache::attachmentSize(const QUuid &attachmentId) const
{
    const auto found = m_attachmentSizes.constFind(attachmentId);
    return found == m_attachmentSizes.cend() ? std::nullopt : std::optional(*found);
}

QString HealthCache::cacheFileFor(const QString &dataFilePath)
{
    return QFileInfo(dataFilePath).absoluteDir().filePath(QStringLiteral("FivaHealthCache.json"));
}

bool HealthCache::load(const QString &cacheFilePath)
{
    m_entries.clear();
    m_attachmentSizes.clear();
    m_web.clear();
    QFile file(cacheFilePath);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll());
    if (!document.isObject())
        return false;
    const QJsonObject root = document.object();
    const auto keepSize = [this](const QString &key, const QJsonValue &size) {
        const QUuid id(key);
        if (!id.isNull() && size.isDouble() && size.toDouble() >= 0)
            m_attachmentSizes.insert(id, qint64(size.toDouble()));
    };
    const QJsonValue sizes = root.value(u"attachmentSizes");
    for (const QJsonValue &pair : sizes.toArray())
        keepSize(pair.toArray().at(0).toString(), pair.toArray().at(1));
    // The first files kept the sizes as an object keyed by attachment id.
    const QJsonObject sizesById = sizes.toObject();
    for (auto size = sizesById.begin(); size != sizesById.end(); ++size)
        keepSize(size.key(), size.value());
    for (const QJsonValue &value : root.value(u"web").toArray()) {
        const QJsonObject object = value.toObject();
        const QUuid id(object.value(u"id").toString());
        const auto outcome = outcomeFromName(object.value(u"outcome").toString());
        if (id.isNull() || !outcome)
            continue;
        m_web.insert(id, WebCheckResult{id, object.value(u"address").toString(),
                                        object.value(u"finalAddress").toString(), *outcome,
                                        object.value(u"httpStatus").toInt(),
                                        object.value(u"errorText").toString(),
                                        Timestamp{object.value(u"checkedAt").toDouble()}});
    }
    return true;
}

bool HealthCache::save(const QString &cacheFilePath, QString *error) const
{
    // Pairs rather than an object keyed by id: each key added to a QJsonObject is first looked for
    // among the others, which made a cache of 30,000 attachments take seconds to write.
    QJsonArray sizes;
    for (auto size = m_attachmentSizes.cbegin(); size != m_attachmentSizes.cend(); ++size)
        sizes.append(QJsonArray{size.key().toString(QUuid::WithoutBraces).toUpper(), double(size.value())});
    QJsonArray web;
    for (const WebCheckResult &result : m_web)
        web.append(QJsonObject{{QStringLiteral("id"), result.id.toString(QUuid::WithoutBraces).toUpper()},
                               {QStringLiteral("address"), result.address},
                               {QStringLiteral("finalAddress"), result.finalAddress},
                               {QStringLiteral("outcome"), outcomeName(result.outcome)},
                               {QStringLiteral("httpStatus"), result.httpStatus},
                               {QStringLiteral("errorText"), result.errorText},
                               {QStringLiteral("checkedAt"), result.checkedAt.seconds}});
    const QByteArray bytes =
        QJsonDocument(QJsonObject{{QStringLiteral("attachmentSizes"), sizes}, {QStringLiteral("web"), web}})
            .toJson(QJsonDocument::Compact);
    QSaveFile file(cacheFilePath);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        if (error)
            *error = QStringLiteral("Impossible d’écrire le cache de santé des liens « ") + cacheFilePath +
                     QStringLiteral(" » : ") + file.errorString();
        return false;
    }
    return true;
}

} // namespace fiva
