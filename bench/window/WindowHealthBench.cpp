// The main window over 100,000 generated records whose files, folders and attachment copies are made
// on disk first, nine in ten of them present: how long the first health pass takes in the background,
// how long the event loop is kept waiting meanwhile (a 2 ms timer measures the gaps, while a key is
// typed into the search field every 40 ms), and each keystroke of "facture" with and without the
// filter "Liens cassés uniquement".
//
// Run offscreen: QT_QPA_PLATFORM=offscreen bench_window_health [repetitions]

#include "model/JsonCodec.h"
#include "model/SavedData.h"
#include "platform/Clock.h"
#include "platform/Dialogs.h"
#include "platform/Paths.h"
#include "platform/Settings.h"
#include "platform/Workspace.h"
#include "store/LinkStore.h"
#include "ui/main/ContentView.h"
#include "ui/main/HealthMonitor.h"
#include "ui/main/LinkListModel.h"

#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QHash>
#include <QLabel>
#include <QLineEdit>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <utility>
#include <vector>

#include "common/DataGenerator.h"

using namespace fiva;
using namespace Qt::StringLiterals;

namespace {

constexpr int recordCount = 100'000;
const QString typed = u"facture"_s;

class QuietDialogs final : public Dialogs
{
public:
    AlertAnswer runAlert(const AlertRequest &) override { return {1, {}}; }
    void showOpenPanel(const OpenPanelRequest &, OpenPanelDone done) override { done(std::nullopt); }
    void showSavePanel(const SavePanelRequest &, SavePanelDone done) override { done(std::nullopt); }
};

class QuietWorkspace final : public Workspace
{
public:
    bool openUrl(const QUrl &) override { return true; }
    bool openPath(const QString &) override { return true; }
    bool showFolder(const QString &) override { return true; }
    bool revealItem(const QString &) override { return true; }
};

// The generated records with their targets made under `root`, all but one in ten.
QList<LinkItem> recordsOnDisk(const QString &root)
{
    QList<LinkItem> items = bench::generateSavedData(recordCount).items;
    int n = 0;
    const auto place = [&](QString &path, bool folder) {
        path = root + path;
        if (++n % 10 == 0)
            return;
        if (folder) {
            QDir().mkpath(path);
        } else {
            QDir().mkpath(path.section(u'/', 0, -2));
            QFile file(path);
            if (!file.open(QIODevice::WriteOnly))
                std::fprintf(stderr, "cannot create %s\n", qPrintable(path));
        }
    };
    for (LinkItem &item : items) {
        if (item.kind != LinkKind::url)
            place(item.path, item.kind == LinkKind::directory);
        for (Attachment &attachment : item.attachments)
            place(attachment.filePath, false);
    }
    return items;
}

double percentile(std::vector<double> values, double p)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, std::size_t(p * double(values.size() - 1) + 0.5))];
}

double median(const std::vector<double> &values)
{
    return percentile(values, 0.5);
}

double ms(qint64 ns)
{
    return double(ns) / 1e6;
}

// Types `typed` into the search field, one timed key at a time, then clears it.
std::vector<double> typeQuery(QLineEdit *search)
{
    std::vector<double> times;
    for (const QChar c : typed) {
        QElapsedTimer timer;
        timer.start();
        QTest::keyClick(search, c.toLatin1());
        times.push_back(ms(timer.nsecsElapsed()));
    }
    search->clear();
    QCoreApplication::processEvents();
    return times;
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const int repetitions = argc > 1 ? std::max(1, atoi(argv[1])) : 5;

    QTemporaryDir files;
    QTemporaryDir support;
    QDir(support.path()).mkpath(u"Fiva"_s);
    {
        QFile data(support.filePath(u"Fiva/FivaData.json"_s));
        const SavedData saved{recordsOnDisk(files.path()), {}, std::nullopt};
        if (!data.open(QIODevice::WriteOnly) || data.write(json::encode(saved).value()) < 0)
            return 1;
    }
    FixedPaths paths(support.path(), support.path());
    QuietWorkspace workspace;
    QuietDialogs dialogs;
    SystemClock clock;
    Settings settings(support.filePath(u"Fiva.ini"_s));
    settings.setWarnOldBackup(false);
    settings.setBackupReminderDay(u"-"_s);

    std::printf("records: %d, load average at start: ", recordCount);
    if (QFile load(u"/proc/loadavg"_s); load.open(QIODevice::ReadOnly))
        std::printf("%s", load.readLine().constData());

    // Fonts are looked up once per process, at the first text drawn; that is not the pass's doing.
    {
        QLabel warmUp(u"Été"_s);
        warmUp.grab();
    }

    std::vector<double> passes, builds, worstGaps, p99Gaps, applying, typedDuring, idleWorst, idleP99,
        typedIdle;
    for (int run = 0; run < repetitions; ++run) {
        LinkStore store(paths, workspace, clock);
        QElapsedTimer sinceStart;
        sinceStart.start();
        ContentView view(store, dialogs, workspace, settings, clock);
        const double built = ms(sinceStart.nsecsElapsed());
        view.resize(1100, 700);
        view.show();
        auto *monitor = view.findChild<HealthMonitor *>(u"healthMonitor"_s);
        auto *search = view.findChild<QLineEdit *>(u"search"_s);

        // Gaps between the ticks of a 2 ms timer: what a user's input would wait for.
        std::vector<double> gaps;
        std::vector<double> *keys = &typedDuring;
        QElapsedTimer tick;
        tick.start();
        double lastTick = 0;
        std::optional<double> applyStart;
        double applyGap = 0;
        QTimer probe;
        probe.setTimerType(Qt::PreciseTimer);
        QObject::connect(&probe, &QTimer::timeout, [&] {
            gaps.push_back(ms(tick.nsecsElapsed()) - 2.0);
            tick.restart();
            lastTick = ms(sinceStart.nsecsElapsed());
            if (applyStart && applyGap == 0)
                applyGap = lastTick - *applyStart - 2.0;
        });
        QTimer typing;
        int next = 0;
        QObject::connect(&typing, &QTimer::timeout, [&] {
            QElapsedTimer key;
            key.start();
            QTest::keyClick(search, typed.at(next % typed.size()).toLatin1());
            keys->push_back(ms(key.nsecsElapsed()));
            if (++next % typed.size() == 0)
                search->clear();
        });
        double passDone = 0;
        QEventLoop loop;
        // Connected after the window's own: runs once the window has put the marks on the list, so the
        // gap from the tick before to the tick after covers that work.
        QObject::connect(monitor, &HealthMonitor::healthChanged, &loop, [&] {
            passDone = ms(sinceStart.nsecsElapsed());
            applyStart = lastTick;
            QTimer::singleShot(20, &loop, &QEventLoop::quit);
        });
        probe.start(2);
        typing.start(40);
        if (monitor->isRunning())
            loop.exec();
        const std::vector<double> passGaps = std::exchange(gaps, {});
        // The same ticks and keys for as long again with no pass running: what the machine's load alone
        // costs.
        keys = &typedIdle;
        QTimer::singleShot(int(passDone - built) + 20, &loop, &QEventLoop::quit);
        loop.exec();
        probe.stop();
        typing.stop();
        search->clear();
        const auto worst = [](const std::vector<double> &v) {
            return v.empty() ? 0 : *std::max_element(v.begin(), v.end());
        };
        builds.push_back(built);
        passes.push_back(passDone);
        worstGaps.push_back(worst(passGaps));
        p99Gaps.push_back(percentile(passGaps, 0.99));
        applying.push_back(applyGap);
        idleWorst.push_back(worst(gaps));
        idleP99.push_back(percentile(gaps, 0.99));
        std::printf(
            "run %d: window built in %.0f ms, first pass done %.0f ms after the start; event loop during "
            "the pass: %zu ticks, worst gap %.1f ms, 99th percentile %.1f ms, applying the result %.1f ms; "
            "without a pass: worst %.1f ms, 99th percentile %.1f ms; broken records: %lld\n",
            run + 1, built, passDone, passGaps.size(), worstGaps.back(), p99Gaps.back(), applyGap,
            idleWorst.back(), idleP99.back(), static_cast<long long>(monitor->problems().size()));

        if (run + 1 < repetitions)
            continue;
        // What applying a result costs the window, split: the problems' sentences, then the list.
        {
            QElapsedTimer step;
            step.start();
            const QHash<QUuid, QString> problems = monitor->problems();
            const double sentences = ms(step.nsecsElapsed());
            step.restart();
            view.model().setProblems(problems);
            std::printf("applying a result again: sentences of the problems %.1f ms, list model %.1f ms\n",
                        sentences, ms(step.nsecsElapsed()));
        }
        // Keystrokes once the pass is over, with the fifth filter off and on.
        auto *brokenOnly = view.findChild<QCheckBox *>(u"brokenOnly"_s);
        for (const bool on : {false, true}) {
            brokenOnly->setChecked(on);
            QCoreApplication::processEvents();
            std::vector<std::vector<double>> perKey(std::size_t(typed.size()));
            typeQuery(search); // warm-up
            for (int r = 0; r < 15; ++r) {
                const std::vector<double> times = typeQuery(search);
                for (std::size_t k = 0; k < times.size(); ++k)
                    perKey[k].push_back(times[k]);
            }
            std::printf("keystrokes \"f\" → \"facture\", \"Liens cassés uniquement\" %s (median of 15, ms):",
                        on ? "on " : "off");
            for (const auto &times : perKey)
                std::printf(" %.2f", median(times));
            std::printf("; rows at \"facture\": ");
            QTest::keyClicks(search, typed);
            std::printf("%d\n", view.model().rowCount());
            search->clear();
        }
    }
    std::printf(
        "median of %d runs: window built %.0f ms; first pass done %.0f ms after the start; during the "
        "pass, worst event-loop gap %.1f ms, 99th percentile %.1f ms, applying the result %.1f ms; "
        "without a pass, worst %.1f ms, 99th percentile %.1f ms\n",
        repetitions, median(builds), median(passes), median(worstGaps), median(p99Gaps), median(applying),
        median(idleWorst), median(idleP99));
    for (const auto &[label, times] :
         {std::pair{"during the passes", &typedDuring}, {"without a pass", &typedIdle}})
        std::printf("keystrokes typed %s: %zu, median %.2f ms, 99th percentile %.2f ms, worst %.2f ms\n",
                    label, times->size(), median(*times), percentile(*times, 0.99),
                    times->empty() ? 0.0 : *std::max_element(times->begin(), times->end()));
    return 0;
}
