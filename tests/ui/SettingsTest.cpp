#include "platform/Settings.h"

#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <vector>

using namespace fiva;
using namespace Qt::StringLiterals;

namespace {

using Key = Settings::Key;

struct KeyRow
{
    Key key;
    QString name;
    QVariant defaultValue;
    QVariant other;
};

const std::vector<KeyRow> keyRows{
    {Key::sortOrder, u"sortOrder"_s, u"Plus récent d'abord"_s, u"Ordre alphabétique (A → Z)"_s},
    {Key::warnOldBackup, u"warnOldBackup"_s, true, false},
    {Key::askDeleteConfirmation, u"askDeleteConfirmation"_s, true, false},
    {Key::backupReminderDay, u"backupReminderDay"_s, u"Lundi"_s, u"Dimanche"_s},
    {Key::noteFontName, u"noteFontName"_s, u"Helvetica"_s, u"Courier New"_s},
    {Key::noteFontSize, u"noteFontSize"_s, 16.0, 30.0},
    {Key::lastOpenPanelFolder, u"lastOpenPanelFolder"_s, QString(), u"/home/léa/Documents"_s},
    {Key::lastSavePanelFolder, u"lastSavePanelFolder"_s, QString(), u"/media/clé/Sauvegardes"_s},
    {Key::lastBackupReminderDate, u"lastBackupReminderDate"_s, QString(), u"2025-01-01"_s},
    {Key::mainWindowGeometry, u"MainWindow/geometry"_s, QByteArray(),
     QByteArray("\x01\xd9\xd0\xcb\0\x03", 6)}};

class SettingsTest : public ::testing::Test
{
protected:
    QString file() const { return m_dir.filePath(u"settings.ini"_s); }
    QTemporaryDir m_dir;
};

// Each key reads as its default until written; a write is announced and reaches the file at once, under
// the key's own name, for another reader of it, as another window or the next launch would be.
TEST_F(SettingsTest, KeysReadTheirDefaultsUntilWrittenAndWritesReachTheFileAtOnce)
{
    Settings writer(file());
    QSignalSpy changed(&writer, &Settings::changed);
    ASSERT_EQ(Settings::allKeys.size(), keyRows.size());
    for (const KeyRow &row : keyRows) {
        SCOPED_TRACE(row.name.toStdString());
        EXPECT_EQ(Settings::keyName(row.key), row.name);
        EXPECT_EQ(Settings::defaultValue(row.key), row.defaultValue);
        EXPECT_EQ(Settings(file()).value(row.key), row.defaultValue);
        EXPECT_FALSE(writer.contains(row.key));
        writer.setValue(row.key, row.other);
        ASSERT_FALSE(changed.isEmpty());
        EXPECT_EQ(changed.takeFirst()[0].value<Key>(), row.key);
        EXPECT_TRUE(changed.isEmpty());
        Settings reader(file());
        EXPECT_EQ(reader.value(row.key), row.other);
        EXPECT_TRUE(reader.contains(row.key));
        EXPECT_EQ(QSettings(file(), QSettings::IniFormat).value(row.name).toString(), row.other.toString());
    }
}

TEST_F(SettingsTest, ValuesLeftByOtherToolsStayAsStored)
{
    {
        QSettings raw(file(), QSettings::IniFormat);
        raw.setValue(u"sortOrder"_s, u"Par taille"_s);
        raw.setValue(u"backupReminderDay"_s, u"Funday"_s);
        raw.setValue(u"noteFontName"_s, u"Comic Sans MS"_s);
        raw.setValue(u"noteFontSize"_s, u"grand"_s);
    }
    Settings settings(file());
    EXPECT_EQ((QStringList{settings.sortOrder(), settings.backupReminderDay(), settings.noteFontName()}),
              (QStringList{u"Par taille"_s, u"Funday"_s, u"Comic Sans MS"_s}));
    // A size that is no number reads as the default, and stays stored as it was.
    EXPECT_EQ(settings.noteFontSize(), 16.0);
    EXPECT_EQ(QSettings(file(), QSettings::IniFormat).value(u"noteFontSize"_s).toString(), u"grand"_s);
}

TEST_F(SettingsTest, NotesRenderAtTheDefaultSizeUnlessTheStoredOneIsPositive)
{
    Settings settings(file());
    for (const auto &[stored, rendered] : {std::pair{12.5, 12.5}, {30.0, 30.0}, {0.0, 16.0}, {-4.0, 16.0}}) {
        settings.setNoteFontSize(stored);
        EXPECT_EQ(settings.noteFontSizeForRendering(), rendered) << stored;
    }
}

} // namespace
