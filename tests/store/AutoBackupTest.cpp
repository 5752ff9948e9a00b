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

const QString autoBackupError = u"❌ Auto-backup error: "_s;

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

TEST_F(StoreTest, EveryAssignmentRestartsTheTimerWithTheChosenPeriodEvenWithTheSameValue)
{
    auto store = start();
    QSignalSpy enabledChanged(store.get(), &LinkStore::autoBackupEnabledChanged);
    QSignalSpy intervalChanged(store.get(), &LinkStore::autoBackupIntervalOptionChanged);
    using I = AutoBackupInterval;
    struct Step
    {
        const char *name;
        std::function<void(LinkStore &)> assign;
        int periodMs; // 0: no timer runs afterwards
    };
    const std::vector<Step> steps = {
        {"same enabled", [](LinkStore &s) { s.setAutoBackupEnabled(true); }, 900'000},
        {"same interval", [](LinkStore &s) { s.setAutoBackupIntervalOption(I::fifteenMinutes); }, 900'000},
        {"other interval", [](LinkStore &s) { s.setAutoBackupIntervalOption(I::oneHour); }, 3'600'000},
        {"off", [](LinkStore &s) { s.setAutoBackupEnabled(false); }, 0},
        {"interval while off", [](LinkStore &s) { s.setAutoBackupIntervalOption(I::oneDay); }, 0},
        {"on again", [](LinkStore &s) { s.setAutoBackupEnabled(true); }, 86'400'000},
        {"five minutes", [](LinkStore &s) { s.setAutoBackupIntervalOption(I::fiveMinutes); }, 300'000},
    };
    for (const Step &step : steps) {
        SCOPED_TRACE(step.name);
        const QPointer<QTimer> before = store->autoBackupTimer();
        step.assign(*store);
        EXPECT_TRUE(before.isNull()) << "the previous timer must be gone";
        QTimer *timer = store->autoBackupTimer();
        ASSERT_EQ(timer != nullptr, step.periodMs != 0);
        if (timer) {
            EXPECT_TRUE(timer->isActive());
            EXPECT_FALSE(timer->isSingleShot());
            EXPECT_EQ(timer->interval(), step.periodMs);
        }
    }
    EXPECT_EQ(enabledChanged.count(), 3);
    EXPECT_EQ(intervalChanged.count(), 4);
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
    auto store = startWith({makeItem(u"a"_s, sansCategorie)}, {sansCategorie});
    m_clock.set(Timestamp::fromUnix(1'750'000'000.25));
    QSignalSpy historyChanged(store.get(), &LinkStore::backupHistoryChanged);

    StdoutCapture capture;
    store->performAutoBackup();
    EXPECT_EQ(capture.finish(), QString());

    const QString file = autoBackups() + u"/AutoBackup-1750000000.25.fivabackup"_s;
    const QByteArray written = readBytes(file);
    EXPECT_EQ(written, json::encode(SavedData{store->items(), store->categories(), m_clock.now()}).value());
    EXPECT_EQ(store->lastBackupDate(), m_clock.now());
    EXPECT_EQ(json::decodeSavedData(readBytes(dataFile())).value().lastBackupDate, m_clock.now());
    EXPECT_EQ(store->backupHistory(),
              (QList<BackupLog>{{store->backupHistory().value(0).id, m_clock.now(), file, written.size()}}));
    EXPECT_EQ(historyChanged.count(), 1);
    EXPECT_EQ(readBytes(historyFile()), json::encode(store->backupHistory()).value());
}

TEST(AutoBackupFileName, IsTheShortestExactDecimalWithAFraction)
{
    const std::pair<double, const char *> exact[] = {
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
        ASSERT_TRUE(name.startsWith(u"AutoBackup-"_s) && name.endsWith(u".fivabackup"_s));
        const QByteArray number = name.mid(11, name.size() - 11 - 11).toLatin1();
        EXPECT_FALSE(number.contains('e') || number.contains('E')) << number.constData();
        double back = 0;
        const auto [end, ec] = std::from_chars(number.constData(), number.constData() + number.size(), back);
        EXPECT_TRUE(ec == std::errc() && end == number.constData() + number.size()) << number.constData();
        EXPECT_EQ(back, Timestamp::fromUnix(unix).toUnix()) << number.constData();
    }
}

TEST_F(StoreTest, PruningKeepsTheTenNewestEntriesWhateverTheyAre)
{
    auto store = start();
    const QString usersFile = autoBackups() + u"/mes-notes.txt"_s;
    writeBytes(autoBackups() + u"/mon-dossier/dedans.txt"_s, "à moi aussi");
    writeBytes(usersFile, "à moi");
    writeBytes(autoBackups() + u"/.directory"_s, "[Desktop Entry]");
    // File systems stamp creation coarsely; wait for the stamp to move on so the user's file is
    // strictly older than every backup.
    const QString probe = as(u"probe"_s);
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
    QStringList expected = names.mid(2) << u".directory"_s;
    expected.sort();
    EXPECT_EQ(
        QDir(autoBackups()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name),
        expected);
    ASSERT_EQ(store->backupHistory().size(), 12);
    EXPECT_EQ(store->backupHistory().last().filePath, autoBackups() + u'/' + names.first());
}

TEST_F(StoreTest, FailedAutomaticBackupChangesNothing)
{
    const QByteArray blocker = "a file where the folder should be";
    // A file where the backups folder should be; a folder bearing the backup's own name.
    for (const bool folderBlocked : {true, false}) {
        SCOPED_TRACE(folderBlocked ? "folder" : "file");
        QDir(as(u"Fiva"_s)).removeRecursively();
        auto store = startWith({makeItem(u"a"_s, sansCategorie)}, {sansCategorie});
        if (folderBlocked)
            writeBytes(autoBackups(), blocker);
        else
            QDir().mkpath(autoBackups() + u'/' + LinkStore::autoBackupFileName(m_clock.now()));
        const QByteArray dataBefore = readBytes(dataFile());
        QSignalSpy reported(store.get(), &LinkStore::failureReported);

        StdoutCapture capture;
        store->performAutoBackup();
        const QString out = capture.finish();
        ASSERT_EQ(reported.count(), 1);
        EXPECT_TRUE(reported[0][0].toString().startsWith(u"La sauvegarde automatique a échoué. "_s));
        EXPECT_TRUE(reported[0][0].toString().endsWith(
            u" Fiva réessaiera à la prochaine échéance ; en attendant, exportez une sauvegarde."_s));
        EXPECT_TRUE(out.startsWith(folderBlocked ? autoBackupError + u"Un élément du chemin « "_s +
                                                       autoBackups() + u" »"_s
                                                 : autoBackupError))
            << out.toStdString();
        EXPECT_EQ(out.count(u'\n'), 1);
        EXPECT_FALSE(store->lastBackupDate().has_value());
        EXPECT_TRUE(store->backupHistory().isEmpty());
        EXPECT_FALSE(QFile::exists(historyFile()));
        EXPECT_EQ(readBytes(dataFile()), dataBefore);
        if (folderBlocked) {
            EXPECT_EQ(readBytes(autoBackups()), blocker);
            EXPECT_TRUE(
                reported[0][0].toString().contains(u"Un élément du chemin « "_s + autoBackups() +
                                                   u" » n'est pas un dossier. (Not a directory, ENOTDIR)"_s));
        }
    }
}

TEST_F(StoreTest, HistoryEntriesGoInFrontAndAreWrittenEvenWhenTheFileCannotBe)
{
    auto store = start();
    store->addBackupLog(as(u"nowhere.fivabackup"_s));
    m_clock.advance(60);
    writeBytes(as(u"b.fivabackup"_s), "abc");
    store->addBackupLog(as(u"b.fivabackup"_s));
    ASSERT_EQ(store->backupHistory().size(), 2);
    EXPECT_EQ(store->backupHistory()[0].fileSize, 3);
    EXPECT_EQ(store->backupHistory()[1].fileSize, 0) << "a missing file has size zero";
    EXPECT_NE(store->backupHistory()[0].id, store->backupHistory()[1].id);
    EXPECT_EQ(json::decodeBackupHistory(readBytes(historyFile())).value(), store->backupHistory());

    // A write failure is printed and the entry kept.
    QFile::remove(historyFile());
    QDir().mkpath(historyFile());
    writeBytes(as(u"manual.fivabackup"_s), "12345");
    StdoutCapture capture;
    store->addBackupLog(as(u"manual.fivabackup"_s));
    const QString out = capture.finish();
    EXPECT_TRUE(out.startsWith(u"⚠️ Erreur historique : « "_s + historyFile() + u" » est un dossier"_s))
        << out.toStdString();
    ASSERT_EQ(store->backupHistory().size(), 3);
    EXPECT_EQ(store->backupHistory().first().fileSize, 5);
}

TEST_F(StoreTest, HistoryIsLoadedAtStartAndABadFileIsSetAside)
{
    const QList<BackupLog> history{{QUuid::createUuid(), Timestamp{2.5}, u"/b"_s, 2},
                                   {QUuid::createUuid(), Timestamp{1.0}, u"/a"_s, 1}};
    writeBytes(historyFile(), json::encode(history).value());
    EXPECT_EQ(start()->backupHistory(), history);

    for (const QByteArray &bad : {QByteArray("[{\"id\":1}]"), QByteArray("nope"), QByteArray()}) {
        writeBytes(historyFile(), bad);
        EXPECT_TRUE(start()->backupHistory().isEmpty());
        EXPECT_FALSE(QFileInfo::exists(historyFile())) << "left where the next backup would replace it";
        const QStringList aside = QDir(QFileInfo(historyFile()).path())
                                      .entryList({QFileInfo(historyFile()).fileName() + u".unreadable-*"_s});
        ASSERT_EQ(aside.size(), 1);
        const QString asidePath = QFileInfo(historyFile()).dir().filePath(aside.first());
        EXPECT_EQ(readBytes(asidePath), bad);
        EXPECT_TRUE(m_startOutput.contains(asidePath)) << m_startOutput.toStdString();
        QFile::remove(asidePath);
    }
}

TEST_F(StoreTest, OpeningTheBackupsFolderCreatesAndRevealsIt)
{
    auto store = start();
    StdoutCapture capture;
    store->openAutoBackupsFolder();
    EXPECT_EQ(capture.finish(), QString());
    EXPECT_TRUE(QFileInfo(autoBackups()).isDir());
    EXPECT_EQ(m_workspace.calls, std::vector<QString>{u"revealItem "_s + autoBackups()});

    // A folder that cannot be created is reported, and the file manager is still asked.
    QDir(autoBackups()).removeRecursively();
    writeBytes(autoBackups(), "");
    StdoutCapture again;
    store->openAutoBackupsFolder();
    const QString out = again.finish();
    EXPECT_TRUE(out.startsWith(u"❌ Impossible de créer le dossier AutoBackups : Un élément du chemin « "_s +
                               autoBackups() + u" »"_s))
        << out.toStdString();
    EXPECT_EQ(m_workspace.calls.size(), 2u);
}

} // namespace
} // namespace fiva::test
