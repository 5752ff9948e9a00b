#include "model/JsonCodec.h"
#include "store/FileIO.h"

#include <QElapsedTimer>
#include <QThread>

#include <cstdio>
#include <signal.h>

#include "CliTestSupport.h"
#include "common/DataGenerator.h"

namespace cli_test {
namespace {

using fiva::SavedData;

// A save killed at any instant must leave the old complete file or the new complete one. The
// kills are spread over a whole run of `fiva-cli favorite` on a large data file; it takes about a
// minute, so it runs under its own label, outside the default test run (ctest -L kill).
TEST_F(CliTest, KillsDuringSavesOfALargeFileNeverLeaveATornDataFile)
{
    constexpr int records = 100'000;
    constexpr int kills = 40;
    const SavedData generated = fiva::bench::generateSavedData(records);
    QDir().mkpath(home() + u"/Fiva"_s);
    ASSERT_FALSE(fiva::fileio::writeDocument(dataFile(), generated).has_value());
    const QString id = generated.items.front().id.toString(QUuid::WithoutBraces);
    const QStringList args{u"favorite"_s, id};

    // One whole run tells over how long to spread the kills; the time is only used for that.
    QElapsedTimer clock;
    clock.start();
    ASSERT_EQ(run(args).exitCode, 0);
    const qint64 runMs = clock.elapsed();

    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"XDG_DATA_HOME"_s, home());
    env.insert(u"TMPDIR"_s, path(u"tmp"_s));
    int torn = 0, oldState = 0, newState = 0;
    for (int k = 0; k < kills; ++k) {
        QProcess process;
        process.setProcessEnvironment(env);
        process.start(cliPath(), args);
        ASSERT_TRUE(process.waitForStarted());
        QThread::usleep(static_cast<unsigned long>((k + 0.5) * runMs * 1000 / kills));
        ::kill(static_cast<pid_t>(process.processId()), SIGKILL);
        process.waitForFinished();

        const auto decoded = fiva::json::decodeSavedData(read(dataFile()));
        if (!decoded.ok() || decoded.value().items.size() != records) {
            ++torn;
            continue;
        }
        // The flag flips with every completed run: either state is a whole file.
        (decoded.value().items.front().isFavorite == generated.items.front().isFavorite ? oldState
                                                                                        : newState)++;
    }
    const qint64 size = QFileInfo(dataFile()).size();
    std::printf("kills %d, torn %d, complete files %d (flag as before %d, flipped %d), data file %lld bytes, "
                "one uninterrupted run %lld ms\n",
                kills, torn, oldState + newState, oldState, newState, static_cast<long long>(size),
                static_cast<long long>(runMs));
    EXPECT_EQ(torn, 0);
    // The next start clears what killed writers left beside the data file.
    ASSERT_EQ(run("list").exitCode, 0);
    EXPECT_EQ(QDir(home() + u"/Fiva"_s).entryList({u".FivaData.json.tmp-*"_s}, QDir::Files | QDir::Hidden),
              QStringList{});
}

} // namespace
} // namespace cli_test
