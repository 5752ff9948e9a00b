#pragma once

#include "platform/Settings.h"

#include <QStringList>
#include <QWidget>

class QCheckBox;
class QComboBox;
class QLabel;
class QSlider;

namespace fiva {

// The settings screen. It keeps nothing of its own: every control writes its key at once and
// follows the key when anything else changes it.
class PreferencesView final : public QWidget
{
    Q_OBJECT

public:
    explicit PreferencesView(Settings &settings, QWidget *parent = nullptr);

    // The choices of the two pickers, in the order shown.
    static QStringList days();
    static QStringList noteFonts();
    // "16 pt": the whole number part of the size; something readable for what is not a number.
    static QString sizeText(double points);
    // The size the preview is set in: the stored one when usable, else the default.
    static double previewPointSize(double points);

private:
    void refresh(Settings::Key key);
    void refreshAll();
    void refreshPreview();

    Settings &m_settings;
    QCheckBox *m_askDeleteConfirmation = nullptr;
    QCheckBox *m_warnOldBackup = nullptr;
    QComboBox *m_noteFont = nullptr;
    QSlider *m_noteSize = nullptr;
    QLabel *m_noteSizeText = nullptr;
    QLabel *m_preview = nullptr;
    QComboBox *m_reminderDay = nullptr;
};

} // namespace fiva
