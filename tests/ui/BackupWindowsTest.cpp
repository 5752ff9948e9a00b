#include "ui/main/ContentView.h"
#include "ui/settings/BackupConfigWindow.h"
#include "ui/settings/BackupHistoryView.h"

#include <QAbstractItemModelTester>
#include <QClipboard>
#include <QLocale>
#include <QSignalSpy>
#include <QToolButton>

#include "support/ScreenTest.h"

using namespace fiva;
using namespace fiva::test;
using namespace Qt::StringLiterals;

namespace {

// Restarting the timer on every assignment and creating the folder are the store's, tested with it; these
// check what the windows show and which store settings their gestures assign.
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
    QString recordBackup(const QString &name)
    {
        const QString path = m_as.filePath(name);
        writeBytes(path, QByteArray(10, 'x'));
        m_store->addBackupLog(path);
        return path;
    }
    QModelIndex row(BackupHistoryView &view, int r) { return view.list()->model()->index(r, 0); }

    std::unique_ptr<LinkStore> m_store = start();
    QPointer<BackupConfigWindow> m_shared;
};

TEST_F(BackupWindowsTest, OneSharedConfigurationWindowFollowsTheStoreAssignsEachGestureAndRevealsTheFolder)
{
    BackupConfigWindow *window = BackupConfigWindow::showShared(m_shared, *m_store);
    ASSERT_NE(window, nullptr);
    EXPECT_EQ(BackupConfigWindow::showShared(m_shared, *m_store), window);
    EXPECT_EQ(visibleWindows<BackupConfigWindow>(), QList<BackupConfigWindow *>{window});
    EXPECT_EQ(window->windowTitle(), u"Configuration sauvegarde"_s);
    auto *toggle = child<QCheckBox>(window, u"autoBackupEnabled"_s);
    auto *picker = child<QComboBox>(window, u"autoBackupInterval"_s);
    auto *button = child<QPushButton>(window, u"openAutoBackupsFolder"_s);
    EXPECT_EQ(toggle->text(), u"Activer la sauvegarde automatique"_s);
    EXPECT_TRUE(toggle->isChecked());
    EXPECT_EQ(choices(picker), (QStringList{u"5 minutes"_s, u"15 minutes"_s, u"1 heure"_s, u"1 jour"_s}));
    EXPECT_EQ(picker->currentText(), u"15 minutes"_s);
    EXPECT_EQ(button->text(), u"Ouvrir le dossier des sauvegardes"_s);
    auto *pickerRow = child<QWidget>(window, u"intervalPicker"_s);
    EXPECT_LT(toggle->y(), pickerRow->y());
    EXPECT_LT(pickerRow->y(), button->y());

    QSignalSpy assigned(m_store.get(), &LinkStore::autoBackupIntervalOptionChanged);
    click(toggle);
    EXPECT_FALSE(m_store->autoBackupEnabled());
    click(toggle);
    EXPECT_TRUE(m_store->autoBackupEnabled());
    QTest::keyClick(picker, Qt::Key_End);
    EXPECT_EQ(m_store->autoBackupIntervalOption(), AutoBackupInterval::oneDay);
    // Picking the current entry again is an assignment too, so that it restarts the period.
    Q_EMIT picker->activated(picker->currentIndex());
    EXPECT_EQ(assigned.count(), 2);

    // The window follows the store and writes nothing back; the picker stays enabled while off.
    m_store->setAutoBackupEnabled(false);
    EXPECT_FALSE(toggle->isChecked());
    m_store->setAutoBackupIntervalOption(AutoBackupInterval::fiveMinutes);
    EXPECT_TRUE(picker->isEnabled());
    EXPECT_EQ(picker->currentText(), u"5 minutes"_s);
    EXPECT_EQ(assigned.count(), 3);
    EXPECT_FALSE(m_store->autoBackupEnabled());

    click(button);
    EXPECT_EQ(m_workspace.calls,
              std::vector<QString>{u"revealItem "_s + m_as.filePath(u"Fiva/AutoBackups"_s)});
    // Once closed it is forgotten, and a fresh window shows the values the store has now.
    window->close();
    flushDeletions();
    EXPECT_TRUE(m_shared.isNull());
    m_store->setAutoBackupIntervalOption(AutoBackupInterval::oneHour);
    BackupConfigWindow *second = BackupConfigWindow::showShared(m_shared, *m_store);
    ASSERT_NE(second, nullptr);
    EXPECT_TRUE(second->isVisible());
    EXPECT_FALSE(child<QCheckBox>(second, u"autoBackupEnabled"_s)->isChecked());
    EXPECT_EQ(child<QComboBox>(second, u"autoBackupInterval"_s)->currentText(), u"1 heure"_s);
}

TEST_F(BackupWindowsTest, HistoryListsBackupsNewestFirstInRowsOfFourLinesWhoseLinkRevealsTheFileEvenGone)
{
    const QString older = recordBackup(u"older.fivabackup"_s);
    QFile::remove(older);
    BackupHistoryView view(*m_store, m_workspace);
    view.show();
    QAbstractItemModelTester tester(view.list()->model(),
                                    QAbstractItemModelTester::FailureReportingMode::Warning);
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

    // Clicking elsewhere in the row reveals nothing.
    QWidget *viewport = view.list()->viewport();
    QTest::mouseClick(viewport, Qt::LeftButton, {}, rect.topLeft() + QPoint(8, 4));
    EXPECT_TRUE(m_workspace.calls.empty());
    QTest::mouseClick(viewport, Qt::LeftButton, {}, view.linkRectOfRow(1).center());
    QTest::mouseClick(viewport, Qt::LeftButton, {}, link.center());
    EXPECT_EQ(m_workspace.calls, (std::vector<QString>{u"revealItem "_s + older, u"revealItem "_s + newer}));

    // A path six rows wide is shown whole, on more lines, with the link still inside its row.
    QString deep = m_as.path();
    while (QFontMetrics(view.list()->font()).horizontalAdvance(deep) < 6 * view.list()->viewport()->width())
        deep += u"/dossier des sauvegardes"_s;
    m_clock.advance(60);
    deep = recordBackup(deep.mid(m_as.path().size() + 1) + u"/profonde.fivabackup"_s);
    const QRect deepRow = view.list()->visualRect(row(view, 0));
    EXPECT_GE(deepRow.height(), view.list()->visualRect(row(view, 1)).height() +
                                    3 * QFontMetrics(view.list()->font()).height());
    EXPECT_TRUE(deepRow.contains(view.linkRectOfRow(0)));

    // The keyboard reaches the link and copies the path of the current row, as the row's menu does.
    QApplication::setActiveWindow(&view);
    view.list()->setFocus();
    m_workspace.calls.clear();
    const std::tuple<Qt::Key, Qt::KeyboardModifiers, QString, QString> keys[]{
        {Qt::Key_Home, Qt::NoModifier, {}, deep},
        {Qt::Key_Return, Qt::NoModifier, u"revealItem "_s + deep, deep},
        {Qt::Key_Down, Qt::NoModifier, {}, newer},
        {Qt::Key_Enter, Qt::KeypadModifier, u"revealItem "_s + newer, newer}};
    for (const auto &[key, modifiers, revealed, copied] : keys) {
        QApplication::clipboard()->clear();
        QTest::keyClick(view.list(), key, modifiers);
        QTest::keyClick(view.list(), Qt::Key_C, Qt::ControlModifier);
        EXPECT_EQ(QApplication::clipboard()->text(), copied) << key;
        EXPECT_EQ(m_workspace.calls.empty() ? QString() : m_workspace.calls.back(), revealed) << key;
        m_workspace.calls.clear();
    }
    QStringList menu;
    for (const QAction *action : view.list()->actions())
        menu << action->text();
    EXPECT_EQ(view.list()->contextMenuPolicy(), Qt::ActionsContextMenu);
    EXPECT_EQ(menu, (QStringList{u"Afficher dans le Finder"_s, u"Copier le chemin"_s}));

    QSignalSpy dismissed(&view, &BackupHistoryView::dismissRequested);
    click(view.closeButton());
    EXPECT_EQ(dismissed.count(), 1);
}

// The history and the status line show dates alike; a locale that names no language gets French.
TEST_F(BackupWindowsTest, DatesAreNumericWithoutSecondsAndSizesDecimalInTheUsersLocaleOrFrenchWithoutOne)
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
               u"01/01/2025 01:02"_s,
               {{0, u"0 bytes"_s}, {1400, u"1 kB"_s}, {2'500'000, u"2.5 MB"_s}}}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.locale.name().toStdString());
        QLocale::setDefault(c.locale);
        EXPECT_EQ(BackupHistoryView::dateText(log), c.date);
        EXPECT_EQ(ContentView::lastBackupText(log.date), u"Dernière sauvegarde : "_s + c.date);
        for (const auto &[bytes, text] : c.sizes)
            EXPECT_EQ(BackupHistoryView::sizeText(bytes), text);
    }
}

} // namespace
