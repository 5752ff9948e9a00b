// The health pass over 100,000 generated records whose files, folders and attachment copies are
// made on disk first, nine in ten of them present, so that the pass meets both hits and misses;
// and the cache's refresh after a few records changed.
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>
#include <cstdio>

#include "common/DataGenerator.h"
#include "health/HealthCache.h"
#include "health/HealthCheck.h"

namespace {

using namespace fiva;

class Tree
{
public:
    explicit Tree(int count) : m_items(bench::generateSavedData(count).items)
    {
        const QString root = m_dir.path();
        int n = 0;
        auto place = [&](QString &path, bool folder) {
            path = root + path;
            if (++n % 10 == 0)
                return; // the one in ten that broke
            if (folder) {
                QDir().mkpath(path);
            } else {
                QDir().mkpath(path.section(u'/', 0, -2));
                QFile file(path);
                if (!file.open(QIODevice::WriteOnly))
                    std::fprintf(stderr, "cannot create %s\n", qPrintable(path));
            }
        };
        for (LinkItem &item : m_items) {
            if (item.kind != LinkKind::url)
                place(item.path, item.kind == LinkKind::directory);
            for (Attachment &attachment : item.attachments)
                place(attachment.filePath, false);
        }
    }
    const QList<LinkItem> &items() const { return m_items; }

private:
    QTemporaryDir m_dir;
    QList<LinkItem> m_items;
};

const Tree &tree()
{
    static const Tree made(100000);
    return made;
}

void BM_HealthPass(benchmark::State &state)
{
    const QList<LinkItem> &items = tree().items();
    qsizetype broken = 0;
    for (auto _ : state) {
        const auto results = checkRecords(items);
        broken = std::count_if(results->cbegin(), results->cend(),
                               [](const RecordHealth &h) { return h.isBroken(); });
        benchmark::DoNotOptimize(broken);
    }
    state.counters["broken"] = double(broken);
    state.SetItemsProcessed(state.iterations() * items.size());
}
BENCHMARK(BM_HealthPass)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_HealthRefreshAfterHundredEdits(benchmark::State &state)
{
    QList<LinkItem> items = tree().items();
    HealthCache cache;
    cache.refreshAll(items);
    for (auto _ : state) {
        state.PauseTiming();
        for (int i = 0; i < 100; ++i) {
            LinkItem &item = items[(i * 997) % items.size()];
            // Alternately moved away and back: always a change, never a growing path.
            if (item.path.endsWith(u'~'))
                item.path.chop(1);
            else
                item.path += u'~';
        }
        state.ResumeTiming();
        cache.refreshChanged(items);
    }
}
BENCHMARK(BM_HealthRefreshAfterHundredEdits)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
