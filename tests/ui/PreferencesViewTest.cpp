#include "ui/settings/PreferencesView.h"

#include <QSlider>

#include <limits>

#include "support/ScreenTest.h"

using namespace fiva;
using namespace fiva::test;
using namespace Qt::StringLiterals;

namespace {

using Key = Settings::Key;

// What the window shows, top to bottom, then the preview's font, as "on|on|Helvetica|16|16 pt|…".
QString shown(PreferencesView &v)
{
    const auto ticked = [&](const QString &name) {
        return child<QCheckBox>(&v, name)->isChecked() ? u"on"_s : u"off"_s;
    };
    const auto picked = [&](const QString &name) {
        auto *picker = child<QComboBox>(&v, name);
        return picker->currentIndex() < 0 ? u"-"_s : picker->currentText();
    };
    const QFont preview = child<QLabel>(&v, u"notePreview"_s)->font();
    const QString size = QString::number(child<QSlider>(&v, u"noteFontSize"_s)->value());
    QStringList parts;
    parts << ticked(u"askDeleteConfirmation"_s) << ticked(u"warnOldBackup"_s) << picked(u"noteFontName"_s)
          << size << child<QLabel>(&v, u"noteFontSizeText"_s)->text() << picked(u"backupReminderDay"_s)
          << preview.family() << QString::number(preview.pointSizeF());
    return parts.join(u'|');
}

class PreferencesViewTest : public ScreenTest
{
protected:
    // What another instance reading the same file sees: the value really reached the file.
    QVariant stored(Key key) const { return Settings(settingsFile()).value(key); }
};

TEST_F(PreferencesViewTest, ListsTheChoicesShowsTheStoredValuesWritesNoneAndFollowsChangesMadeElsewhere)
{
    PreferencesView view(m_settings);
    auto *fonts = child<QComboBox>(&view, u"noteFontName"_s);
    EXPECT_EQ(choices(fonts), (QStringList{u"Helvetica"_s, u"Times New Roman"_s, u"Georgia"_s,
                                           u"Courier New"_s, u"Arial"_s}));
    // Each font is drawn in itself.
    for (int i = 0; i < fonts->count(); ++i) {
        const QFont font = fonts->itemData(i, Qt::FontRole).value<QFont>();
        EXPECT_EQ(font.family(), fonts->itemText(i));
        EXPECT_EQ(font.pointSizeF(), 13.0);
    }
    EXPECT_EQ(choices(child<QComboBox>(&view, u"backupReminderDay"_s)),
              (QStringList{u"Lundi"_s, u"Mardi"_s, u"Mercredi"_s, u"Jeudi"_s, u"Vendredi"_s, u"Samedi"_s,
                           u"Dimanche"_s}));
    EXPECT_EQ(shown(view), u"on|on|Helvetica|16|16 pt|Lundi|Helvetica|16"_s);
    for (Key key : Settings::allKeys)
        EXPECT_FALSE(m_settings.contains(key));

    m_settings.setWarnOldBackup(false);
    m_settings.setNoteFontSize(22);
    EXPECT_EQ(shown(view), u"on|off|Helvetica|22|22 pt|Lundi|Helvetica|22"_s);

    // Values another tool left: no entry matches them, yet they stay stored and still show.
    m_settings.setNoteFontName(u"Comic Neue"_s);
    m_settings.setBackupReminderDay(u"Funday"_s);
    m_settings.setNoteFontSize(45.5);
    EXPECT_EQ(shown(view), u"on|off|-|30|45 pt|-|Comic Neue|45.5"_s);
    PreferencesView fresh(m_settings);
    EXPECT_EQ(shown(fresh), shown(view));
    EXPECT_EQ(stored(Key::noteFontName), u"Comic Neue"_s);
    EXPECT_EQ(stored(Key::backupReminderDay), u"Funday"_s);
    EXPECT_EQ(stored(Key::noteFontSize), 45.5);
}

TEST_F(PreferencesViewTest, EachGestureIsStoredAtOnce)
{
    PreferencesView view(m_settings);
    view.show();
    const auto press = [&](const QString &name, Qt::Key key) {
        QTest::keyClick(child<QWidget>(&view, name), key);
    };
    click(child<QCheckBox>(&view, u"askDeleteConfirmation"_s));
    EXPECT_EQ(stored(Key::askDeleteConfirmation), false);
    click(child<QCheckBox>(&view, u"warnOldBackup"_s));
    EXPECT_EQ(stored(Key::warnOldBackup), false);
    press(u"warnOldBackup"_s, Qt::Key_Space);
    EXPECT_EQ(stored(Key::warnOldBackup), true);
    press(u"noteFontSize"_s, Qt::Key_Home);
    EXPECT_EQ(stored(Key::noteFontSize), 10.0);
    EXPECT_EQ(shown(view), u"off|on|Helvetica|10|10 pt|Lundi|Helvetica|10"_s);
    press(u"noteFontSize"_s, Qt::Key_End);
    EXPECT_EQ(stored(Key::noteFontSize), 30.0);
    press(u"noteFontName"_s, Qt::Key_Down);
    EXPECT_EQ(stored(Key::noteFontName), u"Times New Roman"_s);
    press(u"backupReminderDay"_s, Qt::Key_End);
    EXPECT_EQ(stored(Key::backupReminderDay), u"Dimanche"_s);
    EXPECT_EQ(shown(view), u"off|on|Times New Roman|30|30 pt|Dimanche|Times New Roman|30"_s);
}

TEST(PreferencesView, SizeTextShowsTheWholePartAndThePreviewAReadableSize)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double infinity = std::numeric_limits<double>::infinity();
    const struct
    {
        double points;
        QString text;
        double previewSize;
    } cases[]{{16, u"16 pt"_s, 16}, {16.9, u"16 pt"_s, 16.9},  {10, u"10 pt"_s, 10},
              {0, u"0 pt"_s, 16},   {-3.7, u"-3 pt"_s, 16},    {1e6, u"1000000 pt"_s, 500},
              {nan, u"– pt"_s, 16}, {infinity, u"– pt"_s, 16}, {1e300, u"– pt"_s, 500}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.points);
        EXPECT_EQ(PreferencesView::sizeText(c.points), c.text);
        EXPECT_EQ(PreferencesView::previewPointSize(c.points), c.previewSize);
    }
}

} // namespace
