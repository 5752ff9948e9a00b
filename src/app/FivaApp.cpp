#include "app/FivaApp.h"

#include "app/AboutWindow.h"
#include "app/AppInfo.h"
#include "app/FirstPaintProbe.h"
#include "app/MainWindow.h"
#include "app/PdfWindow.h"
#include "platform/Dialogs.h"
#include "platform/Workspace.h"
#include "store/Console.h"
#include "store/Recovery.h"
#include "ui/main/ContentView.h"
#include "ui/settings/BackupConfigWindow.h"
#include "ui/settings/PreferencesView.h"

#include <QAction>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QKeySequence>
#include <QLibraryInfo>
#include <QMenu>
#include <QMenuBar>
#include <QScreen>
#include <QTranslator>

namespace fiva {

namespace {

// The interface is written in French only, so Qt's French catalogue is loaded even under a C or
// English locale; without it the panels would mix "Look in:" with our own French texts.
std::unique_ptr<QTranslator> installQtTexts()
{
    auto translator = std::make_unique<QTranslator>();
    const QString folder = QLibraryInfo::path(QLibraryInfo::TranslationsPath);
    if (!translator->load(QStringLiteral("qtbase_fr"), folder)) {
        console::print(QStringLiteral("⚠️ Textes de Qt en français introuvables dans le dossier"),
                       folder);
        return nullptr;
    }
    QCoreApplication::installTranslator(translator.get());
    return translator;
}

void centre(QWidget *window)
{
    if (const QScreen *screen = QGuiApplication::primaryScreen())
        window->move(screen->availableGeometry().center() - window->rect().center());
}

void bringForward(QWidget *window)
{
    window->show();
    window->raise();
    window->activateWindow();
}

} // namespace

FivaApp::FivaApp(AppServices services, QObject *parent)
    : QObject(parent), m_services(std::move(services)), m_qtTexts(installQtTexts()),
      m_store(std::make_unique<LinkStore>(m_services.paths, m_services.workspace, m_services.clock,
                                          m_services.timerPeriod, LinkStore::StartupRewrite::whenAsked)),
      m_helpCommands(m_services.resources, m_services.dialogs, m_services.workspace)
{
    m_store->setDialogs(&m_services.dialogs);
    // fiva-cli and scripts change the same files: the window shows what they saved.
    m_store->watchFiles();
    m_mainWindow = std::make_unique<MainWindow>(m_services.settings);
    m_mainWindow->setWindowIcon(appIcon());
    auto *content = new ContentView(*m_store, m_services.dialogs, m_services.workspace, m_services.settings,
                                    m_services.clock);
    m_mainWindow->setCentralWidget(content);
    // The window's own toolbar area rather than a bar inside the content.
    m_mainWindow->addToolBar(Qt::TopToolBarArea, content->toolBar());
    buildMenus();
    // The comparison behind the start-up rewrite is a whole encode of the data: not on the way to the
    // first sight of the list.
    afterFirstPaint(m_mainWindow.get(), [store = QPointer<LinkStore>(m_store.get())] {
        if (store)
            store->finishStartup();
    });
}

FivaApp::~FivaApp()
{
    // A window closed before its list was ever painted still stores what the file lacked.
    m_store->finishStartup(true);
    if (m_mainWindow)
        m_mainWindow->saveWindowState();
    // Every window holds the store: they go first.
    for (const QPointer<PdfWindow> &window : std::as_const(m_licenceWindows))
        delete window.data();
    delete m_backupConfigWindow.data();
    delete m_preferencesWindow.data();
    delete m_aboutWindow.data();
    m_mainWindow.reset();
}

void FivaApp::buildMenus()
{
    QMenuBar *bar = m_mainWindow->menuBar();

    QMenu *app = bar->addMenu(QStringLiteral("Fiva"));
    m_about = app->addAction(QStringLiteral("À propos de Fiva"), this, &FivaApp::showAbout);
    m_about->setMenuRole(QAction::AboutRole);
    app->addSeparator();
    m_preferences = app->addAction(QStringLiteral("Préférences…"), this, &FivaApp::showPreferences);
    m_preferences->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
    m_preferences->setMenuRole(QAction::PreferencesRole);
    app->addSeparator();
    m_quit = app->addAction(QStringLiteral("Quitter"), this, [] { QCoreApplication::quit(); });
    m_quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    m_quit->setMenuRole(QAction::QuitRole);

    // The content's own actions, so that their shortcuts are shown where a user looks for them.
    if (auto *content = qobject_cast<ContentView *>(m_mainWindow->centralWidget())) {
        QMenu *records = bar->addMenu(QStringLiteral("Fiches"));
        records->addActions(content->recordActions());
        records->addSeparator();
        records->addAction(content->importBookmarksAction());
        records->addAction(content->exportBookmarksAction());
        records->addSeparator();
        records->addActions(content->healthActions());
    }

    QMenu *backup = bar->addMenu(QStringLiteral("Sauvegarde"));
    m_backupConfig = backup->addAction(QStringLiteral("Configuration sauvegarde…"), this,
                                       &FivaApp::showBackupConfigWindow);

    QMenu *help = bar->addMenu(QStringLiteral("Aide"));
    m_help =
        help->addAction(QStringLiteral("Aide Fiva…"), this, [this] { m_helpCommands.openHelpDocument(); });
    m_help->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Question));
    help->addSeparator();
    help->addAction(QStringLiteral("Infos - Licence…"), this,
                    [this] { m_helpCommands.openLicenceDocument(); });
    help->addAction(QStringLiteral("Site web de Fiva"), this,
                    [this] { m_helpCommands.openWebPage(siteAddress()); });
    help->addAction(QStringLiteral("Contact"), this,
                    [this] { m_helpCommands.openWebPage(siteAddress() + QStringLiteral("/contact")); });
    help->addAction(QStringLiteral("Aide en ligne"), this,
                    [this] { m_helpCommands.openWebPage(siteAddress() + QStringLiteral("/mini-forum")); });
}

void FivaApp::showMainWindow()
{
    if (m_mainWindow->isMinimized())
        m_mainWindow->showNormal();
    bringForward(m_mainWindow.get());
}

void FivaApp::offerRestore(const QString &backupFile)
{
    showMainWindow();
    if (auto *content = qobject_cast<ContentView *>(m_mainWindow->centralWidget()))
        content->confirmRestore(backupFile);
}

void FivaApp::offerRecovery()
{
    const QString setAside = m_store->setAsideDataFile();
    if (setAside.isEmpty())
        return;
    const QString title = QStringLiteral("Fichier de données illisible");
    const QString what = QStringLiteral("Le fichier de données n’a pas pu être lu. Il a été mis de côté sous "
                                        "le nom « %1 ».")
                             .arg(setAside);
    const auto candidate = m_store->newestReadableAutoBackup();
    if (!candidate) {
        m_services.dialogs.runAlert(
            AlertRequest{title,
                         what + QStringLiteral("\n\nAucune sauvegarde automatique lisible n’a été trouvée."),
                         AlertStyle::warning,
                         {QStringLiteral("OK")},
                         std::nullopt});
        return;
    }
    const AlertAnswer answer = m_services.dialogs.runAlert(
        AlertRequest{title,
                     what + QStringLiteral("\n\nCharger la sauvegarde automatique la plus récente ?\n") +
                         recoveryOffer(*candidate),
                     AlertStyle::warning,
                     {QStringLiteral("Charger la sauvegarde"), QStringLiteral("Annuler")},
                     std::nullopt});
    if (answer.button == 0)
        m_store->recoverFromAutoBackup(candidate->path);
}

void FivaApp::showAbout()
{
    if (!m_aboutWindow) {
        // Created once; closing it only hides it, so the next request shows the same window.
        m_aboutWindow = new AboutWindow;
        m_aboutWindow->setWindowIcon(appIcon());
        centre(m_aboutWindow);
        connect(m_aboutWindow, &AboutWindow::websiteRequested, this,
                [this] { m_services.workspace.openUrl(QUrl(siteAddress())); });
        connect(m_aboutWindow, &AboutWindow::licenceRequested, this, &FivaApp::openLicenceWindow);
    }
    bringForward(m_aboutWindow);
}

void FivaApp::showPreferences()
{
    if (!m_preferencesWindow) {
        m_preferencesWindow = new PreferencesView(m_services.settings);
        m_preferencesWindow->setWindowFlag(Qt::Window);
        m_preferencesWindow->setWindowIcon(appIcon());
        centre(m_preferencesWindow);
    }
    bringForward(m_preferencesWindow);
}

void FivaApp::showBackupConfigWindow()
{
    BackupConfigWindow *window = BackupConfigWindow::showShared(m_backupConfigWindow, *m_store);
    window->setWindowIcon(appIcon());
}

PdfWindow *FivaApp::openLicenceWindow()
{
    std::optional<QString> file = m_services.resources.find(QStringLiteral("licence.pdf"));
    if (!file)
        file = m_services.resources.find(QStringLiteral("license.pdf"));
    if (!file)
        console::print(u"⚠️ Aucun PDF licence/license trouvé.");
    auto *window = new PdfWindow(QStringLiteral("Licence"), file);
    window->setWindowIcon(appIcon());
    centre(window);
    m_licenceWindows.removeAll(nullptr);
    m_licenceWindows.append(window);
    bringForward(window);
    return window;
}

AboutWindow *FivaApp::aboutWindow() const
{
    return m_aboutWindow;
}

PreferencesView *FivaApp::preferencesWindow() const
{
    return m_preferencesWindow;
}

BackupConfigWindow *FivaApp::backupConfigWindow() const
{
    return m_backupConfigWindow;
}

QList<PdfWindow *> FivaApp::licenceWindows() const
{
    QList<PdfWindow *> open;
    for (const QPointer<PdfWindow> &window : m_licenceWindows) {
        if (window)
            open.append(window);
    }
    return open;
}

} // namespace fiva
