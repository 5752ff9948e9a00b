#include "ui/settings/PreferencesView.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QSignalBlocker>
#include <QSlider>
#include <QVBoxLayout>

#include <cmath>

namespace fiva {

namespace {

constexpr int minimumNoteSize = 10;
constexpr int maximumNoteSize = 30;

QGroupBox *section(const QString &title, QWidget *parent)
{
    auto *box = new QGroupBox(title, parent);
    box->setFlat(false);
    return box;
}

} // namespace

QStringList PreferencesView::days()
{
    return {QStringLiteral("Lundi"),   QStringLiteral("Mardi"),    QStringLiteral("Mercredi"),
            QStringLiteral("Jeudi"),   QStringLiteral("Vendredi"), QStringLiteral("Samedi"),
            QStringLiteral("Dimanche")};
}

QStringList PreferencesView::noteFonts()
{
    return {QStringLiteral("Helvetica"), QStringLiteral("Times New Roman"), QStringLiteral("Georgia"),
            QStringLiteral("Courier New"), QStringLiteral("Arial")};
}

QString PreferencesView::sizeText(double points)
{
    // Another tool may have stored anything; a value beyond long long has no whole part to show.
    if (!std::isfinite(points) || std::fabs(points) >= 9.0e18)
        return QStringLiteral("– pt");
    return QString::asprintf("%lld", static_cast<long long>(std::trunc(points))) + QStringLiteral(" pt");
}

double PreferencesView::previewPointSize(double points)
{
    if (!std::isfinite(points) || points <= 0)
        return Settings::defaultValue(Settings::Key::noteFontSize).toDouble();
    // QFont refuses absurd sizes with a warning; nothing readable lies beyond this anyway.
    return std::min(points, 500.0);
}

PreferencesView::PreferencesView(Settings &settings, QWidget *parent) : QWidget(parent), m_settings(settings)
{
    setWindowTitle(QStringLiteral("Préférences"));
    setFixedWidth(540);

    auto *layout = new QVBoxLayout(this);

    auto *security = section(QStringLiteral("Sécurité"), this);
    auto *securityLayout = new QVBoxLayout(security);
    m_askDeleteConfirmation =
        new QCheckBox(QStringLiteral("Demander une confirmation avant de supprimer une fiche"), security);
    m_askDeleteConfirmation->setObjectName(QStringLiteral("askDeleteConfirmation"));
    securityLayout->addWidget(m_askDeleteConfirmation);
    layout->addWidget(security);

    auto *backup = section(QStringLiteral("Sauvegarde"), this);
    auto *backupLayout = new QVBoxLayout(backup);
    m_warnOldBackup = new QCheckBox(QStringLiteral("Avertir si la dernière sauvegarde est ancienne"), backup);
    m_warnOldBackup->setObjectName(QStringLiteral("warnOldBackup"));
    backupLayout->addWidget(m_warnOldBackup);
    layout->addWidget(backup);

    auto *notes = section(QStringLiteral("Affichage des notes"), this);
    auto *notesLayout = new QVBoxLayout(notes);
    auto *fontForm = new QFormLayout;
    m_noteFont = new QComboBox(notes);
    m_noteFont->setObjectName(QStringLiteral("noteFontName"));
    for (const QString &family : noteFonts()) {
        m_noteFont->addItem(family);
        QFont entryFont(family);
        entryFont.setPointSizeF(13);
        m_noteFont->setItemData(m_noteFont->count() - 1, entryFont, Qt::FontRole);
    }
    fontForm->addRow(QStringLiteral("Police des notes"), m_noteFont);
    notesLayout->addLayout(fontForm);

    auto *sizeRow = new QHBoxLayout;
    sizeRow->addWidget(new QLabel(QStringLiteral("Taille des notes"), notes));
    m_noteSize = new QSlider(Qt::Horizontal, notes);
    m_noteSize->setObjectName(QStringLiteral("noteFontSize"));
    m_noteSize->setRange(minimumNoteSize, maximumNoteSize);
    m_noteSize->setSingleStep(1);
    m_noteSize->setPageStep(1);
    sizeRow->addWidget(m_noteSize, 1);
    m_noteSizeText = new QLabel(notes);
    m_noteSizeText->setObjectName(QStringLiteral("noteFontSizeText"));
    m_noteSizeText->setFixedWidth(50);
    m_noteSizeText->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    sizeRow->addWidget(m_noteSizeText);
    notesLayout->addLayout(sizeRow);

    notesLayout->addSpacing(4);
    auto *previewColumn = new QVBoxLayout;
    previewColumn->setSpacing(4);
    auto *caption = new QLabel(QStringLiteral("Aperçu :"), notes);
    QFont captionFont = caption->font();
    captionFont.setPointSizeF(captionFont.pointSizeF() * 0.85);
    caption->setFont(captionFont);
    caption->setForegroundRole(QPalette::PlaceholderText);
    previewColumn->addWidget(caption, 0, Qt::AlignLeft);
    m_preview = new QLabel(QStringLiteral("Exemple de texte de note."), notes);
    m_preview->setObjectName(QStringLiteral("notePreview"));
    m_preview->setStyleSheet(
        QStringLiteral("QLabel { background: palette(base); border-radius: 4px; padding: 6px; }"));
    previewColumn->addWidget(m_preview, 0, Qt::AlignLeft);
    notesLayout->addLayout(previewColumn);
    layout->addWidget(notes);

    auto *reminder = section(QStringLiteral("Rappel hebdomadaire"), this);
    auto *reminderForm = new QFormLayout(reminder);
    m_reminderDay = new QComboBox(reminder);
    m_reminderDay->setObjectName(QStringLiteral("backupReminderDay"));
    m_reminderDay->addItems(days());
    reminderForm->addRow(QStringLiteral("Jour du rappel"), m_reminderDay);
    layout->addWidget(reminder);
    layout->addStretch(1);

    refreshAll();

    connect(m_askDeleteConfirmation, &QCheckBox::toggled, this,
            [this](bool on) { m_settings.setAskDeleteConfirmation(on); });
    connect(m_warnOldBackup, &QCheckBox::toggled, this, [this](bool on) { m_settings.setWarnOldBackup(on); });
    // `activated` only reports the user's choices, so showing a value never writes it back: a
    // name set by another tool stays stored as it is.
    connect(m_noteFont, &QComboBox::activated, this,
            [this](int index) { m_settings.setNoteFontName(m_noteFont->itemText(index)); });
    connect(m_noteSize, &QSlider::valueChanged, this,
            [this](int points) { m_settings.setNoteFontSize(static_cast<double>(points)); });
    connect(m_reminderDay, &QComboBox::activated, this,
            [this](int index) { m_settings.setBackupReminderDay(m_reminderDay->itemText(index)); });
    connect(&m_settings, &Settings::changed, this, &PreferencesView::refresh);
}

void PreferencesView::refreshAll()
{
    for (Settings::Key key : Settings::allKeys)
        refresh(key);
}

void PreferencesView::refresh(Settings::Key key)
{
    switch (key) {
    case Settings::Key::askDeleteConfirmation: {
        const QSignalBlocker blocker(m_askDeleteConfirmation);
        m_askDeleteConfirmation->setChecked(m_settings.askDeleteConfirmation());
        break;
    }
    case Settings::Key::warnOldBackup: {
        const QSignalBlocker blocker(m_warnOldBackup);
        m_warnOldBackup->setChecked(m_settings.warnOldBackup());
        break;
    }
    case Settings::Key::noteFontName: {
        const QSignalBlocker blocker(m_noteFont);
        m_noteFont->setCurrentIndex(m_noteFont->findText(m_settings.noteFontName(), Qt::MatchExactly));
        refreshPreview();
        break;
    }
    case Settings::Key::noteFontSize: {
        const double points = m_settings.noteFontSize();
        {
            const QSignalBlocker blocker(m_noteSize);
            const double shown = std::isfinite(points) ? std::clamp(points, 10.0, 30.0) : 16.0;
            m_noteSize->setValue(static_cast<int>(std::lround(shown)));
        }
        m_noteSizeText->setText(sizeText(points));
        refreshPreview();
        break;
    }
    case Settings::Key::backupReminderDay: {
        const QSignalBlocker blocker(m_reminderDay);
        m_reminderDay->setCurrentIndex(
            m_reminderDay->findText(m_settings.backupReminderDay(), Qt::MatchExactly));
        break;
    }
    case Settings::Key::sortOrder:
    case Settings::Key::lastOpenPanelFolder:
    case Settings::Key::lastSavePanelFolder:
    case Settings::Key::lastBackupReminderDate:
    case Settings::Key::mainWindowGeometry:
        break;
    }
}

void PreferencesView::refreshPreview()
{
    QFont font(m_settings.noteFontName());
    font.setPointSizeF(previewPointSize(m_settings.noteFontSize()));
    m_preview->setFont(font);
}

} // namespace fiva
