#pragma once

#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QUuid>

#include <memory>

namespace fiva {

class HealthCache;
struct WebCheckResult;
class LinkStore;

// Keeps the health of the store's records current without ever blocking the window: each pass runs
// on a worker thread over a copy of the records and of the cache, and the window takes the result
// back in one assignment. A pass starts at once, after every change of the records (looking only at
// the records that changed) and whenever the application becomes active again (looking at all of
// them, since files may have moved meanwhile). A request that comes during a pass waits for its end.
class HealthMonitor final : public QObject
{
    Q_OBJECT
public:
    // `cacheFile`, when given, holds the last web results and the sizes of the attachment copies;
    // it is read once, here, and written when a pass or a web check changed what it holds.
    explicit HealthMonitor(LinkStore &store, const QString &cacheFile = {}, QObject *parent = nullptr);
    ~HealthMonitor() override;

    const HealthCache &cache() const;
    // What is wrong with each broken record after the last pass, one French sentence per problem, one
    // per line.
    QHash<QUuid, QString> problems() const;
    bool isRunning() const;

    // Looks again at every record.
    void refreshAll();
    // Keeps the results of a web check (in the cache file too, when there is one) and looks again
    // at the records they concern.
    void recordWebResults(const QList<WebCheckResult> &results);

Q_SIGNALS:
    // A pass ended and its results are in cache().
    void healthChanged();

private:
    enum class Pass { none, changed, all };
    void start(Pass pass);
    void finished(const HealthCache &cache, const QHash<QUuid, QString> &problems, bool complete);

    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace fiva
