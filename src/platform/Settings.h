#pragma once

#include <QObject>
#include <QString>
#include <QVariant>

#include <array>
#include <memory>

class QSettings;

namespace fiva {

// The program's stored preferences. Every key, its type and its default live in one table in
// Settings.cpp; the application creates one instance and hands it to the screens, which bind to
// `changed`. A key that was never written reads as its default, and a value written by another tool
// is never rewritten just because it was read.
class Settings final : public QObject
{
    Q_OBJECT

public:
    enum class Key {
        sortOrder,
        warnOldBackup,
        askDeleteConfirmation,
        backupReminderDay,
        noteFontName,
        noteFontSize,
        // Where the last open or save panel was confirmed, to start the next one there; empty until then.
        lastOpenPanelFolder,
        lastSavePanelFolder,
        // The day the backup reminder was last shown, as yyyy-MM-dd, so that it comes once a day
        // however often the program is started; empty until then.
        lastBackupReminderDate,
        // The main window's size and position, as Qt saves them.
        mainWindowGeometry
    };
    Q_ENUM(Key)
    static constexpr std::array allKeys{
        Key::sortOrder,           Key::warnOldBackup,       Key::askDeleteConfirmation,
        Key::backupReminderDay,   Key::noteFontName,        Key::noteFontSize,
        Key::lastOpenPanelFolder, Key::lastSavePanelFolder, Key::lastBackupReminderDate,
        Key::mainWindowGeometry};

    // The user's settings store, under organisation and application "Fiva".
    explicit Settings(QObject *parent = nullptr);
    // An INI file of its own, for tests and tools.
    explicit Settings(const QString &fileName, QObject *parent = nullptr);
    ~Settings() override;

    static QString keyName(Key key);
    // The value a key reads as while it has never been written, typed as the key is.
    static QVariant defaultValue(Key key);

    // The stored value converted to the key's type, or the default when absent or not convertible.
    QVariant value(Key key) const;
    bool contains(Key key) const;
    void setValue(Key key, const QVariant &value);

    QString sortOrder() const { return value(Key::sortOrder).toString(); }
    void setSortOrder(const QString &rawValue) { setValue(Key::sortOrder, rawValue); }
    bool warnOldBackup() const { return value(Key::warnOldBackup).toBool(); }
    void setWarnOldBackup(bool on) { setValue(Key::warnOldBackup, on); }
    bool askDeleteConfirmation() const { return value(Key::askDeleteConfirmation).toBool(); }
    void setAskDeleteConfirmation(bool on) { setValue(Key::askDeleteConfirmation, on); }
    QString backupReminderDay() const { return value(Key::backupReminderDay).toString(); }
    void setBackupReminderDay(const QString &day) { setValue(Key::backupReminderDay, day); }
    QString noteFontName() const { return value(Key::noteFontName).toString(); }
    void setNoteFontName(const QString &family) { setValue(Key::noteFontName, family); }
    double noteFontSize() const { return value(Key::noteFontSize).toDouble(); }
    void setNoteFontSize(double points) { setValue(Key::noteFontSize, points); }

    // What the notes renderer uses: the stored size when it is greater than 0, else the default.
    double noteFontSizeForRendering() const;

Q_SIGNALS:
    void changed(fiva::Settings::Key key);

private:
    std::unique_ptr<QSettings> m_settings;
};

} // namespace fiva
