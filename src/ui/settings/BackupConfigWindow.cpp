#include "ui/settings/BackupConfigWindow.h"

#include "model/AutoBackupInterval.h"
#include "store/LinkStore.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QSignalBlocker>
#include <QVBoxLayout>

namespace fiva {

BackupConfigWindow::BackupConfigWindow(LinkStore &store, QWidget *parent) : QWidget(parent), m_store(store)
{
    setWindowTitle(QStringLiteral("Configuration sauvegarde"));
    // A title bar and a close button only: no resizing, no minimising.
    setWindowFlags(Qt::Window | Qt::WindowTitleHint | Qt::WindowCloseButtonHint | Qt::CustomizeWindowHint |
                   Qt::MSWindowsFixedSizeDialogHint);
    setFixedSize(400, 230);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 20);
    layout->setSpacing(16);

    m_enabled = new QCheckBox(QStringLiteral("Activer la sauvegarde automatique"), this);
    m_enabled->setObjectName(QStringLiteral("autoBackupEnabled"));
    layout->addWidget(m_enabled, 0, Qt::AlignLeft);

    auto *intervalRow = new QHBoxLayout;
    intervalRow->setSpacing(8);
    auto *intervalLabel = new QLabel(QStringLiteral("Intervalle :"), this);
    m_interval = new QComboBox(this);
    m_interval->setObjectName(QStringLiteral("autoBackupInterval"));
    for (AutoBackupInterval interval : allAutoBackupIntervals)
        m_interval->addItem(label(interval), static_cast<int>(interval));
    intervalLabel->setBuddy(m_interval);
    intervalRow->addWidget(intervalLabel);
    intervalRow->addWidget(m_interval, 1);
    auto *intervalHolder = new QWidget(this);
    intervalHolder->setObjectName(QStringLiteral("intervalPicker"));
    intervalRow->setContentsMargins(0, 0, 0, 0);
    intervalHolder->setLayout(intervalRow);
    intervalHolder->setFixedWidth(260);
    layout->addWidget(intervalHolder, 0, Qt::AlignLeft);

    auto *divider = new QFrame(this);
    divider->setFrameShape(QFrame::HLine);
    divider->setFrameShadow(QFrame::Sunken);
    layout->addWidget(divider);

    m_openFolder = new QPushButton(QStringLiteral("Ouvrir le dossier des sauvegardes"), this);
    m_openFolder->setObjectName(QStringLiteral("openAutoBackupsFolder"));
    layout->addWidget(m_openFolder, 0, Qt::AlignLeft);
    layout->addStretch(1);

    refresh();

    // The user's gestures only: a value pushed by the store must not be written back, since every
    // assignment restarts the timer.
    connect(m_enabled, &QCheckBox::clicked, this, [this](bool on) { m_store.setAutoBackupEnabled(on); });
    connect(m_interval, &QComboBox::activated, this, [this](int index) {
        m_store.setAutoBackupIntervalOption(
            static_cast<AutoBackupInterval>(m_interval->itemData(index).toInt()));
    });
    connect(m_openFolder, &QPushButton::clicked, this, [this] { m_store.openAutoBackupsFolder(); });
    connect(&m_store, &LinkStore::autoBackupEnabledChanged, this, &BackupConfigWindow::refresh);
    connect(&m_store, &LinkStore::autoBackupIntervalOptionChanged, this, &BackupConfigWindow::refresh);
}

void BackupConfigWindow::refresh()
{
    const QSignalBlocker enabledBlocker(m_enabled);
    const QSignalBlocker intervalBlocker(m_interval);
    m_enabled->setChecked(m_store.autoBackupEnabled());
    m_interval->setCurrentIndex(m_interval->findData(static_cast<int>(m_store.autoBackupIntervalOption())));
}

BackupConfigWindow *BackupConfigWindow::showShared(QPointer<BackupConfigWindow> &shared, LinkStore &store)
{
    if (!shared) {
        auto *window = new BackupConfigWindow(store);
        // Closing forgets the window; the next request builds a fresh one from the store's values.
        window->setAttribute(Qt::WA_DeleteOnClose);
        if (const QScreen *screen = QGuiApplication::primaryScreen())
            window->move(screen->availableGeometry().center() - window->rect().center());
        shared = window;
    }
    shared->show();
    shared->raise();
    shared->activateWindow();
    return shared;
}

} // namespace fiva
