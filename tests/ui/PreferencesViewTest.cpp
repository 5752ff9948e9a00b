#include "ui/settings/PreferencesView.h"

#include <QCheckBox>
#include <QComboBox>
#include <QSlider>

#include <limits>

#include "ScreensTestSupport.h"

using namespace fiva;
using namespace fiva::test;
using namespace Qt::StringLiterals;

namespace {

class PreferencesViewTest : public ::testing::Test
{
protected:
    PreferencesViewTest() { ensureWidgetsApplication(); }

    QString settingsFile() const { return m_dir.filePath(u"Fiva.ini"_s); }
    // What another instance reading the same file sees: the value really reached the store.
    QVariant storedValue(Settings::Key key) const { return Settings(settingsFile()).value(key); }

    QTemporaryDir m_dir;
    Settings m_settings{settingsFile()};
};

TEST_F(PreferencesViewTest, FirstStartShowsTheDefaults)
{
    PreferencesView view(m_settings);
    EXPECT_TRUE(child<QCheckBox>(&view, u"askDeleteConfirmation"_s)->isChecked());
    EXPECT_TRUE(child<QCheckBox>(&view, u"warnOldBackup"_s)->isChecked());
    EXPECT_EQ(child<QComboBox>(&view, u"noteFontName"_s)->currentText(), u"Helvetica"_s);
    EXPECT_EQ(child<QSlider>(&view, u"noteFontSize"_s)->value(), 16);
    EXPECT_EQ(child<QLabel>(&view, u"noteFontSizeText"_s)->text(), u"16 pt"_s);
    EXPECT_EQ(child<QComboBox>(&view, u"backupReminderDay"_s)->currentText(), u"Lundi"_s);
    EXPECT_EQ(view.width(), 540);
    // Showing the defaults writes nothing.
    for (Settings::Key key : Settings::allKeys)
        EXPECT_FALSE(m_settings.contains(key));
}

TEST_F(PreferencesViewTest, TogglesAreStoredAtOnce)
{
    PreferencesView view(m_settings);
    view.show();
    QTest::mouseClick(child<QCheckBox>(&view, u"askDeleteConfirmation"_s), Qt::LeftButton);
    EXPECT_EQ(storedValue(Settings::Key::askDeleteConfirmation), false);
    auto *warn = child<QCheckBox>(&view, u"warnOldBackup"_s);
    QTest::mouseClick(warn, Qt::LeftButton);
    EXPECT_EQ(storedValue(Settings::Key::warnOldBackup), false);
    QTest::keyClick(warn, Qt::Key_Space);
    EXPECT_EQ(storedValue(Settings::Key::warnOldBackup), true);
}

TEST_F(PreferencesViewTest, SliderEndsStoreTenAndThirty)
{
    PreferencesView view(m_settings);
    view.show();
    auto *slider = child<QSlider>(&view, u"noteFontSize"_s);
    auto *text = child<QLabel>(&view, u"noteFontSizeText"_s);
    auto *preview = child<QLabel>(&view, u"notePreview"_s);
    QTest::keyClick(slider, Qt::Key_Home);
    EXPECT_EQ(storedValue(Settings::Key::noteFontSize), 10.0);
    EXPECT_EQ(text->text(), u"10 pt"_s);
    EXPECT_EQ(preview->font().pointSizeF(), 10.0);
    QTest::keyClick(slider, Qt::Key_End);
    EXPECT_EQ(storedValue(Settings::Key::noteFontSize), 30.0);
    EXPECT_EQ(text->text(), u"30 pt"_s);
    EXPECT_EQ(preview->font().pointSizeF(), 30.0);
}

TEST_F(PreferencesViewTest, FontPickerEntriesAreDrawnInTheirOwnFontAndChoosingStoresTheName)
{
    PreferencesView view(m_settings);
    view.show();
    auto *picker = child<QComboBox>(&view, u"noteFontName"_s);
    ASSERT_EQ(picker->count(), 5);
    for (int i = 0; i < picker->count(); ++i) {
        EXPECT_EQ(picker->itemText(i), PreferencesView::noteFonts()[i]);
        const QFont font = picker->itemData(i, Qt::FontRole).value<QFont>();
        EXPECT_EQ(font.family(), picker->itemText(i));
        EXPECT_EQ(font.pointSizeF(), 13.0);
    }
    QTest::keyClick(picker, Qt::Key_Down);
    EXPECT_EQ(storedValue(Settings::Key::noteFontName), u"Times New Roman"_s);
    EXPECT_EQ(child<QLabel>(&view, u"notePreview"_s)->font().family(), u"Times New Roman"_s);

    auto *day = child<QComboBox>(&view, u"backupReminderDay"_s);
    EXPECT_EQ(day->count(), 7);
    QTest::keyClick(day, Qt::Key_End);
    EXPECT_EQ(storedValue(Settings::Key::backupReminderDay), u"Dimanche"_s);
}

TEST_F(PreferencesViewTest, ValuesFromAnotherToolStayStoredAndStillShow)
{
    m_settings.setNoteFontName(u"Comic Neue"_s);
    m_settings.setBackupReminderDay(u"Funday"_s);
    m_settings.setNoteFontSize(45.5);
    PreferencesView view(m_settings);
    view.show();
    EXPECT_EQ(child<QComboBox>(&view, u"noteFontName"_s)->currentIndex(), -1);
    EXPECT_EQ(child<QComboBox>(&view, u"backupReminderDay"_s)->currentIndex(), -1);
    EXPECT_EQ(child<QLabel>(&view, u"notePreview"_s)->font().family(), u"Comic Neue"_s);
    EXPECT_EQ(child<QLabel>(&view, u"noteFontSizeText"_s)->text(), u"45 pt"_s);
    EXPECT_EQ(storedValue(Settings::Key::noteFontName), u"Comic Neue"_s);
    EXPECT_EQ(storedValue(Settings::Key::backupReminderDay), u"Funday"_s);
    EXPECT_EQ(storedValue(Settings::Key::noteFontSize), 45.5);
}

TEST_F(PreferencesViewTest, FollowsChangesMadeElsewhere)
{
    PreferencesView view(m_settings);
    m_settings.setWarnOldBackup(false);
    m_settings.setNoteFontSize(22);
    EXPECT_FALSE(child<QCheckBox>(&view, u"warnOldBackup"_s)->isChecked());
    EXPECT_EQ(child<QSlider>(&view, u"noteFontSize"_s)->value(), 22);
    EXPECT_EQ(child<QLabel>(&view, u"noteFontSizeText"_s)->text(), u"22 pt"_s);
}

struct SizeCase
{
    double points;
    QString text;
    double previewSize;
};

class SizeTextTest : public ::testing::TestWithParam<SizeCase>
{
};

TEST_P(SizeTextTest, WholePartOrSomethingReadable)
{
    EXPECT_EQ(PreferencesView::sizeText(GetParam().points), GetParam().text);
    EXPECT_EQ(PreferencesView::previewPointSize(GetParam().points), GetParam().previewSize);
}

INSTANTIATE_TEST_SUITE_P(Sizes, SizeTextTest,
                         ::testing::Values(SizeCase{16, u"16 pt"_s, 16}, SizeCase{16.9, u"16 pt"_s, 16.9},
                                           SizeCase{10, u"10 pt"_s, 10}, SizeCase{0, u"0 pt"_s, 16},
                                           SizeCase{-3.7, u"-3 pt"_s, 16},
                                           SizeCase{1e6, u"1000000 pt"_s, 500},
                                           SizeCase{std::numeric_limits<double>::quiet_NaN(), u"– pt"_s, 16},
                                           SizeCase{std::numeric_limits<double>::infinity(), u"– pt"_s, 16},
                                           SizeCase{1e300, u"– pt"_s, 500}));

} // namespace
