#include <QDeadlineTimer>
#include <QPointer>
#include <QSignalSpy>
#include <QTimer>

#include <fcntl.h>
#include <sys/stat.h>

#include <charconv>
#include <functional>
#include <optional>
#include <utility>

#include "StoreTestSupport.h"

namespace fiva::test {
namespace {

const QString sansCategorie = QStringLiteral("Sans catégorie");

// What the file system reports as an entry's creation, as the pruning reads it.
std::optional<std::pair<qint64, quint32>> creation(const QString &path)
{
    struct statx info
    {
    };
    if (::statx(AT_FDCWD, QFile::encodeName(path).constData(), 0, STATX_BTIME | STATX_MTIME, &info) != 0)
        return std::nullopt;
    const statx_timestamp &t = (info.stx_mask & STATX_BTIME) ? info.stx_btime : info.stx_mtime;
    return std::pair<qint64, quint32>{t.tv_sec, t.tv_nsec};
}

TEST_F(StoreTest, TimerPeriodIsTheChosenInterval)
{
    auto store = start();
    const std::vector<std::pair<AutoBackupInterval, int>> cases = {
        {AutoBackupInterval::fiveMinutes, 300'000},
        {AutoBackupInterval::fifteenMinutes, 900'000},
        {AutoBackupInterval::oneHour, 3'600'000},
        {AutoBackupInterval::oneDay, 86'400'000},
    };
    for (const auto &[interval, ms] : cases) {
        store->setAutoBackupIntervalOption(interval);
        ASSERT_NE(store->autoBackupTimer(), nullptr);
        EXPECT_EQ(store->autoBackupTimer()->interval(), ms);
        EXPECT_TRUE(store->autoBackupTimer()->isActive());
        EXPECT_FALSE(store->autoBackupTimer()->isSingleShot());
    }
}

struct Assignment
{
    const char *name;
    std::function<void(LinkStore &)> assign;
    bool running; // a timer runs afterwards
};

TEST_F(StoreTest, EveryAssignmentRestartsTheTimerEvenWithTheSameValue)
{
    auto store = start();
    QSignalSpy enabledChanged(store.get(), &LinkStore::autoBackupEnabledChanged);
    QSignalSpy intervalChanged(store.get(), &LinkStore::autoBackupIntervalOptionChanged);
    const std::vector<Assignment> steps = {
        {"same enabled", [](LinkStore &s) { s.setAutoBackupEnabled(true); }, true},
        {"same interval",
         [](LinkStore &s) { s.setAutoBackupIntervalOption(AutoBackupInterval::fifteenMinutes); }, true},
        {"other interval", [](LinkStore &s) { s.setAutoBackupIntervalOption(AutoBackupInterval::oneHour); },
         true},
        {"off", [](LinkStore &s) { s.setAutoBackupEnabled(false); }, false},
        {"interval while off",
         [](LinkStore &s) { s.setAutoBackupIntervalOption(AutoBackupInterval::oneDay); }, false},
        {"on again", [](LinkStore &s) { s.setAutoBackupEnabled(true); }, true},
    };
    for (const Assignment &step : steps) {
        const QPointer<QTimer> before = store->autoBackupTimer();
        step.assign(*store);
        EXPECT_TRUE(before.isNull()) << step.name << ": the previous timer must be gone";
        EXPECT_EQ(store->autoBackupTimer() != nullptr, step.running) << step.name;
        if (store->autoBackupTimer()) {
            EXPECT_TRUE(store->autoBackupTimer()->isActive()) << step.name;
        }
    }
    EXPECT_EQ(enabledChanged.count(), 3);
    EXPECT_EQ(intervalChanged.count(), 3);
    EXPECT_EQ(store->autoBackupTimer()->interval(), 86'400'000);
}

TEST_F(StoreTest, EachFiringQueuesOneBackupOnTheMainThread)
{
    auto store = start([](AutoBackupInterval) { return std::chrono::milliseconds(1); });
    QTimer *timer = store->autoBackupTimer();
    ASSERT_NE(timer, nullptr);
    std::optional<qsizetype> historyDuringFirstFiring;
    QObject::connect(timer, &QTimer::timeout, timer, [&] {
        if (!historyDuringFirstFiring)
            historyDuringFirstFiring = store->backupHistory().size();
    });
    const QDeadlineTimer deadline(10'000);
    while (store->backupHistory().isEmpty() && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    store->setAutoBackupEnabled(false);

    ASSERT_TRUE(historyDuringFirstFiring.has_value());
    EXPECT_EQ(*historyDuringFirstFiring, 0) << "the backup must not run inside the timer's signal";
    ASSERT_FALSE(store->backupHistory().isEmpty());
    EXPECT_TRUE(QFile::exists(store->backupHistory().first().filePath));
}

TEST_F(StoreTest, AutomaticBackupWritesTheDocumentThenSavesRecordsAndPrunes)
{
    auto store = startWith({makeItem(QStringLiteral("a"), sansCategorie)}, {sansCategorie});
    m_clock.set(Timestamp::fromUnix(1'750'000'000.25));
    QSignalSpy historyChanged(store.get(), &LinkStore::backupHistoryChanged);

    StdoutCapture capture;
    store->performAutoBackup();
    EXPECT_EQ(capture.finish(), QString());

    const QString file = autoBackups() + QStringLiteral("/AutoBackup-1750000000.25.fivabackup");
    const QByteArray written = readBytes(file);
    EXPECT_EQ(written, json::encode(SavedData{store->items(), store->categories(), m_clock.now()}).value());
    EXPECT_EQ(store->lastBackupDate(), m_clock.now());
    EXPECT_EQ(json::decodeSavedData(readBytes(dataFile())).value().lastBackupDate, m_clock.now());

    ASSERT_EQ(store->backupHistory().size(), 1);
    const BackupLog &log = store->backupHistory().first();
    EXPECT_EQ(log.filePath, file);
    EXPECT_EQ(log.fileSize, written.size());
    EXPECT_EQ(log.date, m_clock.now());
    EXPECT_EQ(historyChanged.count(), 1);
    EXPECT_EQ(readBytes(historyFile()), json::encode(store->backupHistory()).value());
}

TEST(AutoBackupFileName, IsTheShortestExactDecimalWithAFraction)
{
    const std::vector<std::pair<double, const char *>> exact = {
        {1'735'689'600.0, "AutoBackup-1735689600.0.fivabackup"},
        {1'735'689'600.5, "AutoBackup-1735689600.5.fivabackup"},
        {1'750'000'000.25, "AutoBackup-1750000000.25.fivabackup"},
        {1'000'000'000.0, "AutoBackup-1000000000.0.fivabackup"},
    };
    for (const auto &[unix, name] : exact)
        EXPECT_EQ(LinkStore::autoBackupFileName(Timestamp::fromUnix(unix)), QLatin1String(name));

    // Values with long fractions: the digits must read back as the very same double.
    for (const double unix : {1'763'873'195.1234567, 1'700'000'000.1, 1'234'567'890.0000002}) {
        const QString name = LinkStore::autoBackupFileName(Timestamp::fromUnix(unix));
        ASSERT_TRUE(name.startsWith(QStringLiteral("AutoBackup-")) &&
                    name.endsWith(QStringLiteral(".fivabackup")));
        const QByteArray number = name.mid(11, name.size() - 11 - 11).toLatin1();
        EXPECT_FALSE(number.contains('e') || number.contains('E')) << number.constData();
        double back = 0;
        const auto [end, ec] = std::from_chars(number.constData(), number.constData() + number.size(), back);
        EXPECT_EQ(ec, std::errc());
        EXPECT_EQ(end, number.constData() + number.size());
        EXPECT_EQ(back, Timestamp::fromUnix(unix).toUnix()) << number.constData();
    }
}

TEST_F(StoreTest, PruningKeepsTheTenNewestEntriesWhateverTheyAre)
{
    auto store = start();
    QDir().mkpath(autoBackups());
    const QString usersFile = autoBackups() + QStringLiteral("/mes-notes.txt");
    const QString hidden = autoBackups() + QStringLiteral("/.directory");
    writeBytes(autoBackups() + QStringLiteral("/mon-dossier/dedans.txt"), "à moi aussi");
    writeBytes(usersFile, "à moi");
    writeBytes(hidden, "[Desktop Entry]");
    // File systems stamp creation coarsely; wait for the stamp to move on so the user's file is
    // strictly older than every backup.
    const QString probe = as(QStringLiteral("probe"));
    const QDeadlineTimer deadline(5'000);
    do {
        QFile::remove(probe);
        writeBytes(probe, "");
    } while (creation(probe) <= creation(usersFile) && !deadline.hasExpired());
    ASSERT_GT(creation(probe), creation(usersFile));

    QStringList names;
    for (int i = 0; i < 12; ++i) {
        m_clock.advance(900);
        names << LinkStore::autoBackupFileName(m_clock.now());
        store->performAutoBackup();
    }

    QStringList expected = names.mid(2);
    expected << QStringLiteral(".directory");
    expected.sort();
    EXPECT_EQ(
        QDir(autoBackups()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name),
        expected);
    ASSERT_EQ(store->backupHistory().size(), 12);
    EXPECT_EQ(store->backupHistory().last().filePath, autoBackups() + u'/' + names.first());
    EXPECT_FALSE(QFile::exists(store->backupHistory().at(10).filePath));
    EXPECT_FALSE(QFile::exists(store->backupHistory().at(11).filePath));
    EXPECT_TRUE(QFile::exists(store->backupHistory().at(9).filePath));
}

TEST_F(StoreTest, BackupFolderThatCannotBeCreatedWritesNothing)
{
    auto store = startWith({makeItem(QStringLiteral("a"), sansCategorie)}, {sansCategorie});
    QDir().mkpath(as(QStringLiteral("Fiva")));
    writeBytes(autoBackups(), "a file where the folder should be");
    const QByteArray dataBefore = readBytes(dataFile());

    StdoutCapture capture;
    store->performAutoBackup();
    const QString out = capture.finish();

    EXPECT_TRUE(
        out.startsWith(QStringLiteral("❌ Auto-backup error: ") + autoBackups() + QStringLiteral(": ")))
        << out.toStdString();
    EXPECT_EQ(out.count(u'\n'), 1);
    EXPECT_FALSE(store->lastBackupDate().has_value());
    EXPECT_TRUE(store->backupHistory().isEmpty());
    EXPECT_FALSE(QFile::exists(historyFile()));
    EXPECT_EQ(readBytes(dataFile()), dataBefore);
    EXPECT_EQ(readBytes(autoBackups()), QByteArray("a file where the folder should be"));
}

TEST_F(StoreTest, BackupFileThatCannotBeWrittenLeavesNothingBehind)
{
    auto store = start();
    // A folder already bearing the backup's name makes the write itself fail.
    QDir().mkpath(autoBackups() + u'/' + LinkStore::autoBackupFileName(m_clock.now()));
    StdoutCapture capture;
    store->performAutoBackup();
    EXPECT_TRUE(capture.finish().startsWith(QStringLiteral("❌ Auto-backup error: ")));
    EXPECT_FALSE(store->lastBackupDate().has_value());
    EXPECT_TRUE(store->backupHistory().isEmpty());
    EXPECT_FALSE(QFile::exists(dataFile()));
}

TEST_F(StoreTest, HistoryWriteFailureIsPrintedAndTheEntryKept)
{
    auto store = start();
    QDir().mkpath(historyFile());
    writeBytes(as(QStringLiteral("manual.fivabackup")), "12345");

    StdoutCapture capture;
    store->addBackupLog(as(QStringLiteral("manual.fivabackup")));
    const QString out = capture.finish();

    EXPECT_TRUE(out.startsWith(QStringLiteral("⚠️ Erreur historique : ") + historyFile()))
        << out.toStdString();
    ASSERT_EQ(store->backupHistory().size(), 1);
    EXPECT_EQ(store->backupHistory().first().fileSize, 5);
}

TEST_F(StoreTest, HistoryEntriesGoInFrontAndMissingFilesHaveSizeZero)
{
    auto store = start();
    store->addBackupLog(as(QStringLiteral("nowhere.fivabackup")));
    m_clock.advance(60);
    writeBytes(as(QStringLiteral("b.fivabackup")), "abc");
    store->addBackupLog(as(QStringLiteral("b.fivabackup")));
    ASSERT_EQ(store->backupHistory().size(), 2);
    EXPECT_EQ(store->backupHistory()[0].fileSize, 3);
    EXPECT_EQ(store->backupHistory()[1].fileSize, 0);
    EXPECT_NE(store->backupHistory()[0].id, store->backupHistory()[1].id);
    EXPECT_EQ(json::decodeBackupHistory(readBytes(historyFile())).value(), store->backupHistory());
}

TEST_F(StoreTest, HistoryIsLoadedAtStartAndABadFileIsIgnoredSilently)
{
    const QList<BackupLog> history{{QUuid::createUuid(), Timestamp{2.5}, QStringLiteral("/b"), 2},
                                   {QUuid::createUuid(), Timestamp{1.0}, QStringLiteral("/a"), 1}};
    writeBytes(historyFile(), json::encode(history).value());
    EXPECT_EQ(start()->backupHistory(), history);

    for (const QByteArray &bad : {QByteArray("[{\"id\":1}]"), QByteArray("nope"), QByteArray()}) {
        writeBytes(historyFile(), bad);
        auto store = start();
        EXPECT_TRUE(store->backupHistory().isEmpty());
        EXPECT_EQ(m_startOutput.count(u'\n'), 1) << "only the missing data file is reported";
        EXPECT_EQ(readBytes(historyFile()), bad);
    }
}

TEST_F(StoreTest, OpeningTheBackupsFolderCreatesAndRevealsIt)
{
    auto store = start();
    StdoutCapture capture;
    store->openAutoBackupsFolder();
    EXPECT_EQ(capture.finish(), QString());
    EXPECT_TRUE(QFileInfo(autoBackups()).isDir());
    ASSERT_EQ(m_workspace.calls.size(), 1u);
    EXPECT_EQ(m_workspace.calls[0], QStringLiteral("revealItem ") + autoBackups());
}

TEST_F(StoreTest, OpeningAFolderThatCannotBeCreatedReportsAndStillAsksTheFileManager)
{
    auto store = start();
    writeBytes(autoBackups(), "");
    StdoutCapture capture;
    store->openAutoBackupsFolder();
    const QString out = capture.finish();
    EXPECT_TRUE(
        out.startsWith(QStringLiteral("❌ Impossible de créer le dossier AutoBackups : ") + autoBackups()))
        << out.toStdString();
    EXPECT_EQ(m_workspace.calls.size(), 1u);
}

} // namespace
} // namespace fiva::test
