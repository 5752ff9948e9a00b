#include "ui/main/HealthMonitor.h"

#include "store/LinkStore.h"

#include <QGuiApplication>

#include <algorithm>
#include <thread>
#include <utility>

#include "health/HealthCache.h"

namespace fiva {

struct HealthMonitor::Private
{
    explicit Private(LinkStore &store) : store(store) {}

    LinkStore &store;
    QString cacheFile;
    HealthCache cache;
    // The sentences of cache's problems, written on the worker: for ten thousand broken records they
    // take the main thread a tenth of a second.
    QHash<QUuid, QString> problems;
    // Web results recorded while a pass ran on an older copy of the cache, to carry over its result.
    QList<WebCheckResult> webDuringPass;
    Pass waiting = Pass::none;
    bool running = false;
    // Last, so that it is joined first: a pass under way is stopped before anything it uses goes.
    std::jthread worker;
};

HealthMonitor::HealthMonitor(LinkStore &store, const QString &cacheFile, QObject *parent)
    : QObject(parent), d(std::make_unique<Private>(store))
{
    d->cacheFile = cacheFile;
    if (!cacheFile.isEmpty())
        d->cache.load(cacheFile);
    connect(&store, &LinkStore::itemsChanged, this, [this] { start(Pass::changed); });
    if (auto *app = qobject_cast<QGuiApplication *>(QCoreApplication::instance())) {
        connect(app, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState state) {
            if (state == Qt::ApplicationActive)
                start(Pass::all);
        });
    }
    start(Pass::changed);
}

HealthMonitor::~HealthMonitor()
{
    if (d->worker.joinable()) {
        d->worker.request_stop();
        d->worker.join();
    }
}

const HealthCache &HealthMonitor::cache() const
{
    return d->cache;
}

namespace {

QHash<QUuid, QString> problemSentences(const HealthCache &cache)
{
    QHash<QUuid, QString> problems;
    for (const QUuid &id : cache.brokenIds()) {
        QStringList sentences;
        for (const Problem &problem : cache.health(id)->problems)
            sentences << problem.description();
        problems.insert(id, sentences.join(u'\n'));
    }
    return problems;
}

} // namespace

QHash<QUuid, QString> HealthMonitor::problems() const
{
    return d->problems;
}

bool HealthMonitor::isRunning() const
{
    return d->running;
}

void HealthMonitor::refreshAll()
{
    start(Pass::all);
}

void HealthMonitor::recordWebResults(const QList<WebCheckResult> &results)
{
    d->cache.recordWebResults(results);
    if (d->running)
        d->webDuringPass += results;
    // Only a cache: a failure to keep it costs a check, not data.
    if (!d->cacheFile.isEmpty())
        (void)d->cache.save(d->cacheFile);
    start(Pass::changed);
}

void HealthMonitor::start(Pass pass)
{
    if (d->running) {
        d->waiting = std::max(d->waiting, pass);
        return;
    }
    d->running = true;
    if (d->worker.joinable())
        d->worker.join(); // the previous pass has already handed its result over
    // Copies: the store may change its records, and the window read the cache, while this runs.
    d->worker = std::jthread([this, items = d->store.items(), cache = d->cache,
                              all = pass == Pass::all](std::stop_token stop) mutable {
        const bool complete = all ? cache.refreshAll(items, stop) : cache.refreshChanged(items, stop);
        if (stop.stop_requested())
            return;
        QHash<QUuid, QString> problems = complete ? problemSentences(cache) : QHash<QUuid, QString>();
        QMetaObject::invokeMethod(
            this,
            [this, cache = std::move(cache), problems = std::move(problems), complete] {
                finished(cache, problems, complete);
            },
            Qt::QueuedConnection);
    });
}

void HealthMonitor::finished(const HealthCache &cache, const QHash<QUuid, QString> &problems, bool complete)
{
    d->running = false;
    const QList<WebCheckResult> webDuringPass = std::exchange(d->webDuringPass, {});
    if (complete) {
        // The sizes of the attachment copies are kept as soon as they are learnt, not only with the
        // next web check: a copy that is gone by the next run can then still be searched for by size.
        const bool learnt = !d->cache.savesAs(cache);
        d->cache = cache;
        d->problems = problems;
        d->cache.recordWebResults(webDuringPass);
        if (learnt && !d->cacheFile.isEmpty())
            (void)d->cache.save(d->cacheFile);
        Q_EMIT healthChanged();
    }
    const Pass next = std::exchange(d->waiting, Pass::none);
    if (next != Pass::none)
        start(next);
}

} // namespace fiva
