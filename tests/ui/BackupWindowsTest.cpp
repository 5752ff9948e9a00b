#include "ui/settings/BackupConfigWindow.h"
#include "ui/settings/BackupHistoryView.h"

#include <QAbstractItemModelTester>
#include <QCheckBox>
#include <QComboBox>
#include <QFrame>
#include <QListView>
#include <QLocale>
#include <QPushButton>
#include <QSignalSpy>
#include <QTimer>
#include <QToolButton>

#include <algorithm>

#include "ScreensTestSupport.h"

using namespace fiva;
using namespace fiva::test;
using namespace Qt::StringLiterals;

namespace {

class BackupConfigWindowTest : public ScreenTest
{
protected:
    BackupConfigWindowTest() : m_store(start()) {}
    ~BackupConfigWindowTest() override { delete m_shared.data(); }

    std::unique_ptr<LinkStore> m_store;
    QPointer<BackupConfigWindow> m_shared;
};

TEST_F(BackupConfigWindowTest, ShowsTheFourIntervalsAndTheStoresValuesInOrder)
{
    BackupConfigWindow window(*m_store);
    EXPECT_EQ(window.windowTitle(), u"Configuration sauvegarde"_s);
    EXPECT_EQ(window.size(), QSize(400, 230));
    auto *toggle = child<QCheckBox>(&window, u"autoBackupEnabled"_s);
    EXPECT_EQ(toggle->text(), u"Activer la sauvegarde automatique"_s);
    EXPECT_TRUE(toggle->isChecked());
    auto *picker = child<QComboBox>(&window, u"autoBackupInterval"_s);
    QStringList labels;
    for (int i = 0; i < picker->count(); ++i)
        labels << picker->itemText(i);
    EXPECT_EQ(labels, (QStringList{u"5 minutes"_s, u"15 minutes"_s, u"1 heure"_s, u"1 jour"_s}));
    EXPECT_EQ(picker->currentText(), u"15 minutes"_s);
    EXPECT_EQ(child<QWidget>(&window, u"intervalPicker"_s)->width(), 260);

    // Toggle, picker, divider, button, top to bottom.
    window.show();
    auto *button = child<QPushButton>(&window, u"openAutoBackupsFolder"_s);
    EXPECT_EQ(button->text(), u"Ouvrir le dossier des sauvegardes"_s);
    const int pickerY = child<QWidget>(&window, u"intervalPicker"_s)->y();
    EXPECT_LT(toggle->y(), pickerY);
    QFrame *line = nullptr;
    for (QFrame *frame : window.findChildren<QFrame *>(QString(), Qt::FindDirectChildrenOnly)) {
        if (frame->frameShape() == QFrame::HLine)
            line = frame;
    }
    ASSERT_NE(line, nullptr);
    EXPECT_LT(pickerY, line->y());
    EXPECT_LT(line->y(), button->y());
    EXPECT_EQ(line->width(), 400 - 2 * 20);
}

TEST_F(BackupConfigWindowTest, ToggleSwitchesTheTimerOffAndOnAgainWithANewPeriod)
{
    BackupConfigWindow window(*m_store);
    window.show();
    auto *toggle = child<QCheckBox>(&window, u"autoBackupEnabled"_s);
    QPointer<QTimer> first = m_store->autoBackupTimer();
    ASSERT_TRUE(first);

    QTest::mouseClick(toggle, Qt::LeftButton);
    EXPECT_FALSE(m_store->autoBackupEnabled());
    EXPECT_EQ(m_store->autoBackupTimer(), nullptr);
    EXPECT_TRUE(first.isNull());

    QTest::mouseClick(toggle, Qt::LeftButton);
    EXPECT_TRUE(m_store->autoBackupEnabled());
    ASSERT_NE(m_store->autoBackupTimer(), nullptr);
    EXPECT_TRUE(m_store->autoBackupTimer()->isActive());
    EXPECT_EQ(m_store->autoBackupTimer()->interval(), 900 * 1000);
}

TEST_F(BackupConfigWindowTest, ChoosingAnIntervalRestartsTheTimerEvenWhenItIsTheSame)
{
    BackupConfigWindow window(*m_store);
    window.show();
    auto *picker = child<QComboBox>(&window, u"autoBackupInterval"_s);
    QSignalSpy restarts(m_store.get(), &LinkStore::autoBackupIntervalOptionChanged);

    QTest::keyClick(picker, Qt::Key_End);
    EXPECT_EQ(m_store->autoBackupIntervalOption(), AutoBackupInterval::oneDay);
    ASSERT_NE(m_store->autoBackupTimer(), nullptr);
    EXPECT_EQ(m_store->autoBackupTimer()->interval(), 86400 * 1000);

    QPointer<QTimer> before = m_store->autoBackupTimer();
    // Picking the current entry again is an assignment too, and restarts the period.
    Q_EMIT picker->activated(picker->currentIndex());
    EXPECT_TRUE(before.isNull());
    EXPECT_EQ(m_store->autoBackupTimer()->interval(), 86400 * 1000);
    EXPECT_EQ(restarts.count(), 2);
}

TEST_F(BackupConfigWindowTest, PickerStaysEnabledWhileOffAndFollowsTheStore)
{
    BackupConfigWindow window(*m_store);
    auto *toggle = child<QCheckBox>(&window, u"autoBackupEnabled"_s);
    auto *picker = child<QComboBox>(&window, u"autoBackupInterval"_s);
    QSignalSpy restarts(m_store.get(), &LinkStore::autoBackupIntervalOptionChanged);

    m_store->setAutoBackupEnabled(false);
    m_store->setAutoBackupIntervalOption(AutoBackupInterval::fiveMinutes);
    EXPECT_FALSE(toggle->isChecked());
    EXPECT_TRUE(picker->isEnabled());
    EXPECT_EQ(picker->currentText(), u"5 minutes"_s);
    // Following the store writes nothing back to it.
    EXPECT_EQ(restarts.count(), 1);
    EXPECT_EQ(m_store->autoBackupTimer(), nullptr);
}

TEST_F(BackupConfigWindowTest, FolderButtonCreatesAndRevealsTheAutomaticBackupsFolder)
{
    BackupConfigWindow window(*m_store);
    window.show();
    QTest::mouseClick(child<QPushButton>(&window, u"openAutoBackupsFolder"_s), Qt::LeftButton);
    const QString folder = m_as.filePath(u"Fiva/AutoBackups"_s);
    EXPECT_TRUE(QFileInfo(folder).isDir());
    ASSERT_EQ(m_workspace.calls.size(), 1u);
    EXPECT_EQ(m_workspace.calls.front(), u"revealItem "_s + folder);
}

TEST_F(BackupConfigWindowTest, OneSharedWindowForgottenWhenClosed)
{
    BackupConfigWindow *first = BackupConfigWindow::showShared(m_shared, *m_store);
    ASSERT_NE(first, nullptr);
    EXPECT_TRUE(first->isVisible());
    EXPECT_EQ(BackupConfigWindow::showShared(m_shared, *m_store), first);
    const auto windows = QApplication::topLevelWidgets();
    EXPECT_EQ(
        std::count_if(windows.begin(), windows.end(),
                      [](QWidget *w) { return qobject_cast<BackupConfigWindow *>(w) && w->isVisible(); }),
        1);

    first->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
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

class BackupHistoryViewTest : public ScreenTest
{
protected:
    // Tests switch the default locale; the next test starts from C again whatever happened.
    ~BackupHistoryViewTest() override { QLocale::setDefault(QLocale::c()); }

    BackupHistoryViewTest() : m_store(start()) {}

    // A backup file of `bytes` bytes recorded in the history at the clock's time.
    QString recordBackup(const QString &name, qsizetype bytes)
    {
        const QString path = m_as.filePath(name);
        writeBytes(path, QByteArray(bytes, 'x'));
        m_store->addBackupLog(path);
        return path;
    }

    std::unique_ptr<LinkStore> m_store;
};

TEST_F(BackupHistoryViewTest, HeaderAndCloseButton)
{
    BackupHistoryView view(*m_store, m_workspace);
    EXPECT_EQ(view.size(), QSize(500, 420));
    EXPECT_TRUE(showsLabel(&view, u"Historique des sauvegardes"_s));
    EXPECT_EQ(view.closeButton()->toolTip(), u"Fermer"_s);
    EXPECT_FALSE(view.closeButton()->icon().isNull());
    EXPECT_EQ(view.list()->model()->rowCount(), 0);

    QSignalSpy dismissed(&view, &BackupHistoryView::dismissRequested);
    view.show();
    QTest::mouseClick(view.closeButton(), Qt::LeftButton);
    EXPECT_EQ(dismissed.count(), 1);
}

TEST_F(BackupHistoryViewTest, RowsShowDatePathAndSizeNewestFirstAndFollowTheStore)
{
    const QString older = recordBackup(u"older.fivabackup"_s, 1500);
    BackupHistoryView view(*m_store, m_workspace);
    QAbstractItemModelTester tester(view.list()->model(),
                                    QAbstractItemModelTester::FailureReportingMode::Warning);
    ASSERT_EQ(view.list()->model()->rowCount(), 1);

    // A backup made while the sheet is open shows up at the top.
    m_clock.advance(3600);
    const QString newer = recordBackup(u"newer.fivabackup"_s, 2'500'000);
    ASSERT_EQ(view.list()->model()->rowCount(), 2);
    EXPECT_EQ(view.list()->model()->index(0, 0).data(Qt::ToolTipRole).toString(), newer);
    EXPECT_EQ(view.list()->model()->index(1, 0).data(Qt::ToolTipRole).toString(), older);

    const BackupLog &top = m_store->backupHistory().front();
    EXPECT_EQ(top.fileSize, 2'500'000);
    EXPECT_EQ(view.list()->model()->index(0, 0).data().toString(), BackupHistoryView::dateText(top));
}

TEST_F(BackupHistoryViewTest, DatesAreNumericWithoutSecondsInTheUsersLocale)
{
    // 2025-01-01 01:02:03 local time.
    const QDateTime when(QDate(2025, 1, 1), QTime(1, 2, 3));
    const BackupLog log{QUuid::createUuid(),
                        Timestamp::fromUnix(static_cast<double>(when.toSecsSinceEpoch())), u"/b"_s, 1};
    QLocale::setDefault(QLocale(QLocale::French, QLocale::France));
    EXPECT_EQ(BackupHistoryView::dateText(log), u"01/01/2025 01:02"_s);
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    EXPECT_EQ(BackupHistoryView::dateText(log), u"1/1/25 1:02 AM"_s);
    QLocale::setDefault(QLocale::c());
    EXPECT_EQ(BackupHistoryView::dateText(log), u"2025-01-01 01:02"_s);
}

TEST_F(BackupHistoryViewTest, SizesInDecimalUnitsOfTheUsersLocale)
{
    QLocale::setDefault(QLocale::c());
    EXPECT_EQ(BackupHistoryView::sizeText(0), u"0 bytes"_s);
    EXPECT_EQ(BackupHistoryView::sizeText(1400), u"1 kB"_s);
    EXPECT_EQ(BackupHistoryView::sizeText(2'500'000), u"2.5 MB"_s);
    QLocale::setDefault(QLocale(QLocale::French, QLocale::France));
    EXPECT_EQ(BackupHistoryView::sizeText(2'500'000), u"2,5 Mo"_s);
    QLocale::setDefault(QLocale::c());
}

TEST_F(BackupHistoryViewTest, TheLinkRevealsThatRowsFileEvenWhenItIsGone)
{
    const QString first = recordBackup(u"first.fivabackup"_s, 10);
    m_clock.advance(60);
    const QString second = recordBackup(u"second.fivabackup"_s, 20);
    QFile::remove(first);

    BackupHistoryView view(*m_store, m_workspace);
    view.show();
    QListView *list = view.list();
    // Clicking elsewhere in the row reveals nothing.
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {},
                      list->visualRect(list->model()->index(0, 0)).topLeft() + QPoint(8, 4));
    EXPECT_TRUE(m_workspace.calls.empty());

    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, view.linkRectOfRow(1).center());
    ASSERT_EQ(m_workspace.calls.size(), 1u);
    EXPECT_EQ(m_workspace.calls.back(), u"revealItem "_s + first);
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, view.linkRectOfRow(0).center());
    ASSERT_EQ(m_workspace.calls.size(), 2u);
    EXPECT_EQ(m_workspace.calls.back(), u"revealItem "_s + second);
}

TEST_F(BackupHistoryViewTest, RowsAreTallEnoughForFourLinesAndTheLinkIsTheLast)
{
    recordBackup(u"one.fivabackup"_s, 1);
    BackupHistoryView view(*m_store, m_workspace);
    view.show();
    const QRect row = view.list()->visualRect(view.list()->model()->index(0, 0));
    const QRect link = view.linkRectOfRow(0);
    EXPECT_TRUE(row.contains(link)) << "link outside its row";
    EXPECT_GE(row.height(), 4 * QFontMetrics(view.list()->font()).height());
    EXPECT_GT(link.top(), row.top() + row.height() / 2);
}

} // namespace
