#pragma once

#include "app/HelpMenuCommands.h"
#include "app/Resources.h"
#include "store/LinkStore.h"

#include <QList>
#include <QObject>
#include <QPointer>

#include <memory>

class QAction;
class QTranslator;

namespace fiva {

class AboutWindow;
class BackupConfigWindow;
class Clock;
class Dialogs;
class MainWindow;
class Paths;
class PdfWindow;
class PreferencesView;
class Settings;
class Workspace;

// What the application is given by main(), or by a test: the desktop services, the stored
// preferences (the window's size and position among them) and where the shipped documents are.
// All of it must outlive the application object.
struct AppServices
{
    const Paths &paths;
    Workspace &workspace;
    const Clock &clock;
    Dialogs &dialogs;
    Settings &settings;
    Resources resources;
    TimerPeriod timerPeriod = realTimerPeriod;
};

// The application: the one store every window is handed, the main window with the menus, and the
// windows opened from them. Qt's own texts (file panels, standard buttons, the text fields' context
// menu) are French while it exists, whatever the locale says, as the rest of the interface is.
class FivaApp final : public QObject
{
    Q_OBJECT

public:
    explicit FivaApp(AppServices services, QObject *parent = nullptr);
    ~FivaApp() override;

    LinkStore &store() { return *m_store; }
    MainWindow *mainWindow() const { return m_mainWindow.get(); }

    // The menu commands, by the menus' own texts.
    QAction *aboutAction() const { return m_about; }
    QAction *preferencesAction() const { return m_preferences; }
    QAction *quitAction() const { return m_quit; }
    QAction *backupConfigAction() const { return m_backupConfig; }
    QAction *helpAction() const { return m_help; }

    // Brings the main window to the front, as a second start of the program asks.
    void showMainWindow();
    // When the data file could not be read at start and was set aside: says so, and offers the
    // newest automatic backup that decodes, with its date and number of records.
    void offerRecovery();
    // A backup archive handed to the program (by the file manager): the window's restore
    // confirmation for it, as if it had been chosen in the restore panel.
    void offerRestore(const QString &backupFile);

    void showAbout();
    void showPreferences();
    void showBackupConfigWindow();
    // A new licence window each time, with "licence.pdf", else "license.pdf", else empty.
    PdfWindow *openLicenceWindow();

    // The windows open now; null, or empty, when none.
    AboutWindow *aboutWindow() const;
    PreferencesView *preferencesWindow() const;
    BackupConfigWindow *backupConfigWindow() const;
    QList<PdfWindow *> licenceWindows() const;

private:
    void buildMenus();

    AppServices m_services;
    // Qt's own texts in French; installed before any window exists and removed after the last.
    std::unique_ptr<QTranslator> m_qtTexts;
    std::unique_ptr<LinkStore> m_store;
    HelpMenuCommands m_helpCommands;
    std::unique_ptr<MainWindow> m_mainWindow;

    QPointer<AboutWindow> m_aboutWindow;
    QPointer<PreferencesView> m_preferencesWindow;
    QPointer<BackupConfigWindow> m_backupConfigWindow;
    QList<QPointer<PdfWindow>> m_licenceWindows;

    QAction *m_about = nullptr;
    QAction *m_preferences = nullptr;
    QAction *m_quit = nullptr;
    QAction *m_backupConfig = nullptr;
    QAction *m_help = nullptr;
};

} // namespace fiva
