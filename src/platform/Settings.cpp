#include "platform/Settings.h"

#include <QSettings>

#include <cmath>

namespace fiva {

namespace {

struct KeySpec
{
    Settings::Key key;
    const char16_t *name;
    QMetaType::Type type;
    QVariant defaultValue;
};

const std::array<KeySpec, Settings::allKeys.size()> &keyTable()
{
    static const std::array<KeySpec, Settings::allKeys.size()> table{{
        {Settings::Key::sortOrder, u"sortOrder", QMetaType::QString, QStringLiteral("Plus récent d'abord")},
        {Settings::Key::warnOldBackup, u"warnOldBackup", QMetaType::Bool, true},
        {Settings::Key::askDeleteConfirmation, u"askDeleteConfirmation", QMetaType::Bool, true},
        {Settings::Key::backupReminderDay, u"backupReminderDay", QMetaType::QString, QStringLiteral("Lundi")},
        {Settings::Key::noteFontName, u"noteFontName", QMetaType::QString, QStringLiteral("Helvetica")},
        {Settings::Key::noteFontSize, u"noteFontSize", QMetaType::Double, 16.0},
        {Settings::Key::lastOpenPanelFolder, u"lastOpenPanelFolder", QMetaType::QString, QString()},
        {Settings::Key::lastSavePanelFolder, u"lastSavePanelFolder", QMetaType::QString, QString()},
        {Settings::Key::lastBackupReminderDate, u"lastBackupReminderDate", QMetaType::QString, QString()},
        // The name the window used when it kept its own settings object on this same file, so that
        // a window placed by an earlier version opens where it was left.
        {Settings::Key::mainWindowGeometry, u"MainWindow/geometry", QMetaType::QByteArray, QByteArray()},
    }};
    return table;
}

const KeySpec &specOf(Settings::Key key)
{
    const KeySpec &spec = keyTable()[static_cast<std::size_t>(key)];
    Q_ASSERT(spec.key == key);
    return spec;
}

} // namespace

Settings::Settings(QObject *parent)
    : QObject(parent), m_settings(std::make_unique<QSettings>(QStringLiteral("Fiva"), QStringLiteral("Fiva")))
{
}

Settings::Settings(const QString &fileName, QObject *parent)
    : QObject(parent), m_settings(std::make_unique<QSettings>(fileName, QSettings::IniFormat))
{
}

Settings::~Settings() = default;

QString Settings::keyName(Key key)
{
    return QString::fromUtf16(specOf(key).name);
}

QVariant Settings::defaultValue(Key key)
{
    return specOf(key).defaultValue;
}

bool Settings::contains(Key key) const
{
    return m_settings->contains(keyName(key));
}

QVariant Settings::value(Key key) const
{
    const KeySpec &spec = specOf(key);
    QVariant stored = m_settings->value(keyName(key));
    // INI files hand every value back as text; convert it to the key's type, and fall back to the
    // default for what cannot be read as that type rather than showing a half-parsed value.
    if (!stored.isValid() || !stored.convert(QMetaType(spec.type)))
        return spec.defaultValue;
    return stored;
}

void Settings::setValue(Key key, const QVariant &value)
{
    QVariant typed = value;
    if (!typed.convert(QMetaType(specOf(key).type)))
        return;
    m_settings->setValue(keyName(key), typed);
    m_settings->sync();
    Q_EMIT changed(key);
}

double Settings::noteFontSizeForRendering() const
{
    const double size = noteFontSize();
    return size > 0 ? size : defaultValue(Key::noteFontSize).toDouble();
}

} // namespace fiva
