// Peak memory of reading the data file, measured in a fresh process for each case so that one
// case's high-water mark cannot hide another's: the program runs itself with --measure.
#include "model/JsonCodec.h"
#include "platform/AllocatorTuning.h"
#include "platform/Clock.h"
#include "platform/Paths.h"
#include "platform/Workspace.h"
#include "store/FileIO.h"
#include "store/LinkStore.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

#include <unistd.h>

#include <cstdio>

#include "common/DataGenerator.h"
#include "common/FreshProcess.h"
#include "common/NoWorkspace.h"

namespace {

using namespace fiva;

using bench::NoWorkspace;

// The high-water mark of this process's own memory. Not getrusage's ru_maxrss: that one carries
// over from the parent across fork and exec, and the parent holds the generated data.
long peakKiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : status.readAll().split('\n'))
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').value(0).toLong();
    return 0;
}

long currentKiB()
{
    QFile statm(QStringLiteral("/proc/self/statm"));
    if (!statm.open(QIODevice::ReadOnly))
        return 0;
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.size() > 1 ? fields[1].toLong() * (sysconf(_SC_PAGESIZE) / 1024) : 0;
}

// Child: "decode" reads and decodes the file; "store" starts a LinkStore on the folder around it
// (which rewrites the file); "save" does that and then saves once more after toggleFavorite.
// Prints "BASELINE_KIB PEAK_KIB".
int measure(const QString &mode, const QString &asFolder)
{
    const long baseline = currentKiB();
    const QString dataFile = asFolder + QStringLiteral("/Fiva/FivaData.json");
    qsizetype count = -1;
    if (mode == QStringLiteral("decode")) {
        auto bytes = fileio::readDocument(dataFile);
        if (!bytes)
            return 1;
        auto data = json::decodeSavedData(std::move(bytes).value());
        count = data.ok() ? data.value().items.size() : -1;
    } else {
        FixedPaths paths(asFolder, asFolder + QStringLiteral("/tmp"));
        NoWorkspace workspace;
        SystemClock clock;
        LinkStore store(paths, workspace, clock);
        count = store.items().size();
        // The save after a change, on top of the start-up and its own save.
        if (mode == QStringLiteral("save") && count > 0)
            store.toggleFavorite(store.items().at(count / 2).id);
    }
    std::printf("%ld %ld %lld\n", baseline, peakKiB(), static_cast<long long>(count));
    return 0;
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

    std::printf("%-8s %-7s %10s %12s %12s %8s\n", "records", "mode", "file_MB", "peak_MB", "above_base_MB",
                "x_file");
    for (int count : {10000, 100000}) {
        QTemporaryDir dir;
        const QByteArray bytes = json::encode(bench::generateSavedData(count)).value();
        if (!bench::writeDataFolder(dir.path(), bytes))
            return 1;
        for (const QString &mode :
             {QStringLiteral("decode"), QStringLiteral("store"), QStringLiteral("save")}) {
            const QList<QByteArray> out = bench::measureInFreshProcess({mode, dir.path()});
            if (out.size() != 3 || out[2].toLongLong() != count) {
                std::fprintf(stderr, "measurement of %s failed\n", qPrintable(mode));
                return 1;
            }
            const double fileMB = double(bytes.size()) / 1e6;
            const double peakMB = out[1].toDouble() * 1024 / 1e6;
            const double aboveMB = (out[1].toDouble() - out[0].toDouble()) * 1024 / 1e6;
            std::printf("%-8d %-7s %10.1f %12.1f %12.1f %8.2f\n", count, qPrintable(mode), fileMB, peakMB,
                        aboveMB, peakMB / fileMB);
        }
    }
    return 0;
}
