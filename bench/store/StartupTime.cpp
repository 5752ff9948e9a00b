// Start-up time as a user meets it: each measurement in a fresh process, whose memory comes from
// the kernel a page fault at a time, which a benchmark repeating in one process does not pay.
// usage: bench_startup [RUNS] [COUNT]   (defaults: 7 runs of 100,000 records)
#include "model/JsonCodec.h"
#include "platform/AllocatorTuning.h"
#include "platform/Clock.h"
#include "platform/Collation.h"
#include "platform/Paths.h"
#include "platform/Workspace.h"
#include "store/FileIO.h"
#include "store/LinkStore.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "common/DataGenerator.h"
#include "common/FreshProcess.h"
#include "common/NoWorkspace.h"

namespace {

using namespace fiva;

using bench::NoWorkspace;

double msSince(const QElapsedTimer &timer)
{
    return double(timer.nsecsElapsed()) / 1e6;
}

// Child, "parts": read, decode and sort the categories, timed apart; prints "READ DECODE SORT" in ms.
// Child, "store": a whole LinkStore start-up (which also rewrites the file); prints its time in ms.
int measure(const QString &mode, const QString &asFolder)
{
    QElapsedTimer timer;
    timer.start();
    if (mode == QStringLiteral("store")) {
        FixedPaths paths(asFolder, asFolder + QStringLiteral("/tmp"));
        NoWorkspace workspace;
        SystemClock clock;
        LinkStore store(paths, workspace, clock);
        const double elapsed = msSince(timer);
        if (store.items().isEmpty())
            return 1;
        std::printf("%.1f\n", elapsed);
        return 0;
    }
    auto bytes = fileio::readDocument(asFolder + QStringLiteral("/Fiva/FivaData.json"));
    if (!bytes)
        return 1;
    const double read = msSince(timer);
    auto data = json::decodeSavedData(std::move(bytes).value());
    if (!data)
        return 1;
    const double decoded = msSince(timer);
    QStringList &categories = data.value().categories;
    const QCollator collator = userCollator();
    std::stable_sort(categories.begin(), categories.end(),
                     [&](const QString &a, const QString &b) { return collator.compare(a, b) < 0; });
    const double sorted = msSince(timer);
    std::printf("%.1f %.1f %.1f\n", read, decoded - read, sorted - decoded);
    return 0;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char **argv)
{
    // Measured with the allocator settings the programs run with.
    fiva::restartWithTunedAllocator(argv);
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    if (args.size() == 4 && args[1] == QStringLiteral("--measure"))
        return measure(args[2], args[3]);
    const int runs = args.size() > 1 ? args[1].toInt() : 7;
    const int count = args.size() > 2 ? args[2].toInt() : 100000;

    QTemporaryDir dir;
    const QByteArray bytes = json::encode(bench::generateSavedData(count)).value();
    if (!bench::writeDataFolder(dir.path(), bytes))
        return 1;

    std::vector<std::vector<double>> columns(4);
    std::printf("%d records, %.1f MB, %d fresh processes (ms)\n%8s %8s %8s %8s %10s\n", count,
                double(bytes.size()) / 1e6, runs, "read", "decode", "sort", "sum", "LinkStore");
    for (int run = 0; run < runs; ++run) {
        QList<QByteArray> out = bench::measureInFreshProcess({QStringLiteral("parts"), dir.path()});
        out += bench::measureInFreshProcess({QStringLiteral("store"), dir.path()});
        if (out.size() != 4) {
            std::fprintf(stderr, "measurement failed\n");
            return 1;
        }
        double sum = 0;
        for (int k = 0; k < 3; ++k) {
            columns[std::size_t(k)].push_back(out[k].toDouble());
            sum += out[k].toDouble();
        }
        columns[3].push_back(out[3].toDouble());
        std::printf("%8.1f %8.1f %8.1f %8.1f %10.1f\n", out[0].toDouble(), out[1].toDouble(),
                    out[2].toDouble(), sum, out[3].toDouble());
    }
    std::printf("median %8.1f %8.1f %8.1f %8.1f %10.1f\n", median(columns[0]), median(columns[1]),
                median(columns[2]), median(columns[0]) + median(columns[1]) + median(columns[2]),
                median(columns[3]));
    return 0;
}
