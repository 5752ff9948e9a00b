#include "ui/settings/BackupConfigWindow.h"
#include "ui/settings/BackupHistoryView.h"

#include <QAbstractItemModelTester>
#include <QFrame>
#include <QLocale>
#include <QSignalSpy>
#include <QTimer>
#include <QToolButton>

#include "support/ScreenTest.h"

using namespace fiva;
using namespace fiva::test;
using namespace Qt::StringLiterals;

namespace {

class BackupWindowsTest : public ScreenTest
{
protected:
    ~BackupWindowsTest() override
    {
        delete m_shared.data();
        // Tests switch the default locale; the next test starts from C again whatever happened.
        QLocale::setDefault(QLocale::c());
    }

    // A backup file recorded in the history at the clock's time.
    QString recordBackup(const QString &name, qsizetype bytes = 10)
    {
        const QString path = m_as.filePath(name);
        writeBytes(path, QByteArray(bytes, 'x'));
        m_store->addBackupLog(path);
        return path;
    }
    QModelIndex row(BackupHistoryView &view, int r) { return view.list()->model()->index(r, 0); }
    std::optional<int> timerSeconds() const
    {
        const QTimer *timer = m_store->autoBackupTimer();
        return timer && timer->isActive() ? std::optional(timer->interval() / 1000) : std::nullopt;
    }

    std::unique_ptr<LinkStore> m_store = start();
    QPointer<BackupConfigWindow> m_shared;
};

TEST_F(BackupWindowsTest, ConfigurationShowsTheToggleTheFourIntervalsAndTheFolderButtonInOrder)
{
    BackupConfigWindow window(*m_store);
    window.show();
    EXPECT_EQ(window.windowTitle(), u"Configuration sauvegarde"_s);
    EXPECT_EQ(window.size(), QSize(400, 230));
    auto *toggle = child<QCheckBox>(&window, u"autoBackupEnabled"_s);
    auto *picker = child<QComboBox>(&window, u"autoBackupInterval"_s);
    auto *button = child<QPushButton>(&window, u"openAutoBackupsFolder"_s);
    EXPECT_EQ(toggle->text(), u"Activer la sauvegarde automatique"_s);
    EXPECT_TRUE(toggle->isChecked());
    EXPECT_EQ(choices(picker), (QStringList{u"5 minutes"_s, u"15 minutes"_s, u"1 heure"_s, u"1 jour"_s}));
    EXPECT_EQ(picker->currentText(), u"15 minutes"_s);
    EXPECT_EQ(button->text(), u"Ouvrir le dossier des sauvegardes"_s);
    auto *pickerRow = child<QWidget>(&window, u"intervalPicker"_s);
    EXPECT_EQ(pickerRow->width(), 260);
    QFrame *line = nullptr;
    for (QFrame *frame : window.findChildren<QFrame *>(QString(), Qt::FindDirectChildrenOnly)) {
        if (frame->frameShape() == QFrame::HLine)
            line = frame;
    }
    ASSERT_NE(line, nullptr);
    EXPECT_EQ(line->width(), 400 - 2 * 20);
    EXPECT_LT(toggle->y(), pickerRow->y());
    EXPECT_LT(pickerRow->y(), line->y());
    EXPECT_LT(line->y(), button->y());
}

TEST_F(BackupWindowsTest, ConfigurationGesturesRestartTheTimerAndStoreChangesDoNotComeBack)
{
    BackupConfigWindow window(*m_store);
    window.show();
    auto *toggle = child<QCheckBox>(&window, u"autoBackupEnabled"_s);
    auto *picker = child<QComboBox>(&window, u"autoBackupInterval"_s);
    QSignalSpy restarts(m_store.get(), &LinkStore::autoBackupIntervalOptionChanged);
    QPointer<QTimer> first = m_store->autoBackupTimer();
    ASSERT_TRUE(first);
    QTest::mouseClick(toggle, Qt::LeftButton);
    EXPECT_FALSE(m_store->autoBackupEnabled());
    EXPECT_EQ(m_store->autoBackupTimer(), nullptr);
    EXPECT_TRUE(first.isNull());
    QTest::mouseClick(toggle, Qt::LeftButton);
    EXPECT_TRUE(m_store->autoBackupEnabled());
    EXPECT_EQ(timerSeconds(), 900);

    QTest::keyClick(picker, Qt::Key_End);
    EXPECT_EQ(m_store->autoBackupIntervalOption(), AutoBackupInterval::oneDay);
    EXPECT_EQ(timerSeconds(), 86400);
    // Picking the current entry again is an assignment too, and restarts the period.
    QPointer<QTimer> before = m_store->autoBackupTimer();
    Q_EMIT picker->activated(picker->currentIndex());
    EXPECT_TRUE(before.isNull());
    EXPECT_EQ(timerSeconds(), 86400);
    EXPECT_EQ(restarts.count(), 2);

    // The window follows the store and writes nothing back; the picker stays enabled while off.
    m_store->setAutoBackupEnabled(false);
    m_store->setAutoBackupIntervalOption(AutoBackupInterval::fiveMinutes);
    EXPECT_FALSE(toggle->isChecked());
    EXPECT_TRUE(picker->isEnabled());
    EXPECT_EQ(picker->currentText(), u"5 minutes"_s);
    EXPECT_EQ(restarts.count(), 3);
    EXPECT_EQ(m_store->autoBackupTimer(), nullptr);
}

TEST_F(BackupWindowsTest, OneSharedConfigurationWindowRevealsTheFolderAndIsForgottenWhenClosed)
{
    BackupConfigWindow *first = BackupConfigWindow::showShared(m_shared, *m_store);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(BackupConfigWindow::showShared(m_shared, *m_store), first);
    EXPECT_EQ(visibleWindows<BackupConfigWindow>(), QList<BackupConfigWindow *>{first});
    QTest::mouseClick(child<QPushButton>(first, u"openAutoBackupsFolder"_s), Qt::LeftButton);
    const QString folder = m_as.filePath(u"Fiva/AutoBackups"_s);
    EXPECT_TRUE(QFileInfo(folder).isDir());
    EXPECT_EQ(m_workspace.calls, std::vector<QString>{u"revealItem "_s + folder});

    first->close();
    flushDeletions();
    EXPECT_TRUE(m_shared.isNull());
    // A fresh window shows the values the store has now.
    m_store->setAutoBackupEnabled(false);
    m_store->setAutoBackupIntervalOption(AutoBackupInterval::oneHour);
    BackupConfigWindow *second = BackupConfigWindow::showShared(m_shared, *m_store);
    ASSERT_NE(second, nullptr);
    EXPECT_TRUE(second->isVisible());
    EXPECT_FALSE(child<QCheckBox>(second, u"autoBackupEnabled"_s)->isChecked());
    EXPECT_EQ(child<QComboBox>(second, u"autoBackupInterval"_s)->currentText(), u"1 heure"_s);
}

TEST_F(BackupWindowsTest, HistoryListsBackupsNewestFirstInRowsOfFourLinesAndFollowsTheStore)
{
    const QString older = recordBackup(u"older.fivabackup"_s);
    BackupHistoryView view(*m_store, m_workspace);
    view.show();
    QAbstractItemModelTester tester(view.list()->model(),
                                    QAbstractItemModelTester::FailureReportingMode::Warning);
    EXPECT_EQ(view.size(), QSize(500, 420));
    EXPECT_TRUE(showsLabel(&view, u"Historique des sauvegardes"_s));
    EXPECT_EQ(view.closeButton()->toolTip(), u"Fermer"_s);
    EXPECT_FALSE(view.closeButton()->icon().isNull());
    ASSERT_EQ(view.list()->model()->rowCount(), 1);

    // A backup made while the sheet is open shows up at the top.
    m_clock.advance(3600);
    const QString newer = recordBackup(u"newer.fivabackup"_s);
    ASSERT_EQ(view.list()->model()->rowCount(), 2);
    EXPECT_EQ(row(view, 0).data(Qt::ToolTipRole).toString(), newer);
    EXPECT_EQ(row(view, 1).data(Qt::ToolTipRole).toString(), older);
    EXPECT_EQ(row(view, 0).data().toString(), BackupHistoryView::dateText(m_store->backupHistory().front()));

    const QRect rect = view.list()->visualRect(row(view, 0));
    const QRect link = view.linkRectOfRow(0);
    EXPECT_TRUE(rect.contains(link)) << "link outside its row";
    EXPECT_GE(rect.height(), 4 * QFontMetrics(view.list()->font()).height());
    EXPECT_GT(link.top(), rect.top() + rect.height() / 2);

    QSignalSpy dismissed(&view, &BackupHistoryView::dismissRequested);
    QTest::mouseClick(view.closeButton(), Qt::LeftButton);
    EXPECT_EQ(dismissed.count(), 1);
}

TEST_F(BackupWindowsTest, HistoryLinkRevealsThatRowsFileEvenWhenItIsGone)
{
    const QString first = recordBackup(u"first.fivabackup"_s);
    m_clock.advance(60);
    const QString second = recordBackup(u"second.fivabackup"_s);
    QFile::remove(first);
    BackupHistoryView view(*m_store, m_workspace);
    view.show();
    QWidget *viewport = view.list()->viewport();
    // Clicking elsewhere in the row reveals nothing.
    QTest::mouseClick(viewport, Qt::LeftButton, {},
                      view.list()->visualRect(row(view, 0)).topLeft() + QPoint(8, 4));
    EXPECT_TRUE(m_workspace.calls.empty());
    QTest::mouseClick(viewport, Qt::LeftButton, {}, view.linkRectOfRow(1).center());
    QTest::mouseClick(viewport, Qt::LeftButton, {}, view.linkRectOfRow(0).center());
    EXPECT_EQ(m_workspace.calls, (std::vector<QString>{u"revealItem "_s + first, u"revealItem "_s + second}));
}

TEST_F(BackupWindowsTest, HistoryDatesAreNumericWithoutSecondsAndSizesDecimalInTheUsersLocale)
{
    // 2025-01-01 01:02:03 local time.
    const QDateTime when(QDate(2025, 1, 1), QTime(1, 2, 3));
    const BackupLog log{QUuid::createUuid(), Timestamp::fromUnix(double(when.toSecsSinceEpoch())), u"/b"_s,
                        1};
    const struct
    {
        QLocale locale;
        QString date;
        std::vector<std::pair<qint64, QString>> sizes;
    } cases[]{{QLocale(QLocale::French, QLocale::France), u"01/01/2025 01:02"_s, {{2'500'000, u"2,5 Mo"_s}}},
              {QLocale(QLocale::English, QLocale::UnitedStates), u"1/1/25 1:02 AM"_s, {}},
              {QLocale::c(),
               u"2025-01-01 01:02"_s,
               {{0, u"0 bytes"_s}, {1400, u"1 kB"_s}, {2'500'000, u"2.5 MB"_s}}}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.locale.name().toStdString());
        QLocale::setDefault(c.locale);
        EXPECT_EQ(BackupHistoryView::dateText(log), c.date);
        for (const auto &[bytes, text] : c.sizes)
            EXPECT_EQ(BackupHistoryView::sizeText(bytes), text);
    }
}

} // namespace
