// The data file at 10,000 and 100,000 records: the codec alone (decode, encode) and the store
// around it (start-up, which reads, decodes, rewrites and sorts; one save after toggleFavorite).
#include "model/JsonCodec.h"
#include "platform/AllocatorTuning.h"
#include "platform/Clock.h"
#include "platform/Paths.h"
#include "platform/Workspace.h"
#include "store/FileIO.h"
#include "store/LinkStore.h"

#include <QCollator>
#include <QCoreApplication>
#include <QLocale>
#include <QTemporaryDir>

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <map>
#include <optional>
#include <simdjson.h>

#include "common/DataGenerator.h"
#include "common/FreshProcess.h"
#include "common/NoWorkspace.h"

namespace {

using namespace fiva;

using bench::NoWorkspace;

const QByteArray &encodedData(int count)
{
    static std::map<int, QByteArray> cache;
    auto it = cache.find(count);
    if (it == cache.end())
        it = cache.emplace(count, json::encode(bench::generateSavedData(count)).value()).first;
    return it->second;
}

// An application-support folder holding the generated data file, as the store expects it.
class DataFolder
{
public:
    explicit DataFolder(int count) : m_paths(m_dir.path(), m_dir.path() + QStringLiteral("/tmp"))
    {
        if (!bench::writeDataFolder(m_dir.path(), encodedData(count)))
            std::fprintf(stderr, "cannot write the data file in %s\n", qPrintable(m_dir.path()));
    }

    const Paths &paths() const { return m_paths; }

private:
    QTemporaryDir m_dir;
    FixedPaths m_paths;
};

void setBytes(benchmark::State &state, int count)
{
    state.SetBytesProcessed(std::int64_t(state.iterations()) * encodedData(count).size());
    state.counters["file_MB"] = double(encodedData(count).size()) / 1e6;
}

void decode(benchmark::State &state)
{
    const int count = int(state.range(0));
    const QByteArray &bytes = encodedData(count);
    for (auto _ : state) {
        std::optional<Result<SavedData>> result;
        result.emplace(json::decodeSavedData(bytes));
        if (!result->ok())
            state.SkipWithError(qPrintable(result->error()));
        // Freeing the records is the caller's business, not decoding.
        state.PauseTiming();
        result.reset();
        state.ResumeTiming();
    }
    setBytes(state, count);
}

// The floor for decoding: simdjson alone building its document, from the same padded copy the
// codec makes. What decode adds on top is the conversion into records.
void simdjsonParseOnly(benchmark::State &state)
{
    const int count = int(state.range(0));
    const QByteArray &bytes = encodedData(count);
    for (auto _ : state) {
        const simdjson::padded_string padded(bytes.data(), std::size_t(bytes.size()));
        simdjson::dom::parser parser;
        simdjson::dom::element root;
        if (parser.parse(padded).get(root) != simdjson::SUCCESS)
            state.SkipWithError("simdjson rejected the data");
        benchmark::DoNotOptimize(root);
    }
    setBytes(state, count);
}

void encode(benchmark::State &state)
{
    const int count = int(state.range(0));
    const SavedData data = json::decodeSavedData(encodedData(count)).value();
    for (auto _ : state) {
        QByteArray bytes = json::encode(data).value();
        benchmark::DoNotOptimize(bytes);
    }
    setBytes(state, count);
}

// Start-up as the user's data goes: read the file, decode it, sort the categories, without the
// rewrite of the file that the store then makes (measured by storeStartUp).
void readDecodeSort(benchmark::State &state)
{
    const int count = int(state.range(0));
    DataFolder folder(count);
    const QString dataFile =
        folder.paths().applicationSupportFolder() + QStringLiteral("/Fiva/FivaData.json");
    for (auto _ : state) {
        std::optional<Result<SavedData>> result;
        auto bytes = fileio::readDocument(dataFile);
        if (!bytes) {
            state.SkipWithError(qPrintable(bytes.error()));
            break;
        }
        result.emplace(json::decodeSavedData(std::move(bytes).value()));
        if (!result->ok() || result->value().items.size() != count) {
            state.SkipWithError("the data did not decode");
            break;
        }
        QStringList &categories = result->value().categories;
        QCollator collator{QLocale()};
        std::stable_sort(categories.begin(), categories.end(),
                         [&](const QString &a, const QString &b) { return collator.compare(a, b) < 0; });
        state.PauseTiming();
        result.reset();
        state.ResumeTiming();
    }
    setBytes(state, count);
}

void storeStartUp(benchmark::State &state)
{
    const int count = int(state.range(0));
    DataFolder folder(count);
    NoWorkspace workspace;
    SystemClock clock;
    for (auto _ : state) {
        std::optional<LinkStore> store;
        store.emplace(folder.paths(), workspace, clock);
        if (store->items().size() != count)
            state.SkipWithError("the store did not load every record");
        // Freeing 100k records is not part of start-up.
        state.PauseTiming();
        store.reset();
        state.ResumeTiming();
    }
    setBytes(state, count);
}

void saveAfterToggleFavorite(benchmark::State &state)
{
    const int count = int(state.range(0));
    DataFolder folder(count);
    NoWorkspace workspace;
    SystemClock clock;
    LinkStore store(folder.paths(), workspace, clock);
    const QUuid id = store.items().at(count / 2).id;
    for (auto _ : state)
        store.toggleFavorite(id);
    setBytes(state, count);
}

} // namespace

BENCHMARK(simdjsonParseOnly)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(decode)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(encode)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(readDecodeSort)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(storeStartUp)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(saveAfterToggleFavorite)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

int main(int argc, char **argv)
{
    // Measured with the allocator settings the programs run with.
    fiva::restartWithTunedAllocator(argv);
    // The store's timer needs an application object; nothing here runs its event loop.
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
