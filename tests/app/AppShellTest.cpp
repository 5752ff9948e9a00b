#include "app/AboutWindow.h"
#include "app/CommandLine.h"
#include "app/PdfWindow.h"
#include "ui/common/QtDialogs.h"
#include "ui/main/ContentView.h"
#include "ui/settings/BackupConfigWindow.h"
#include "ui/settings/PreferencesView.h"

#include <QFileDialog>
#include <QMenu>
#include <QMenuBar>
#include <QPdfDocument>
#include <QTimer>
#include <QToolBar>
#include <QTreeView>

#include "AppTestSupport.h"

using namespace fiva;
using namespace fiva::test;
using namespace Qt::StringLiterals;

namespace {

// Every menu as "Title: item | item …", a divider as "—", shortcuts in brackets.
QStringList menus(FivaApp &app)
{
    QStringList menus;
    for (QAction *menu : app.mainWindow()->menuBar()->actions()) {
        QStringList items;
        for (QAction *item : menu->menu()->actions()) {
            const QString shortcut = item->shortcut().toString();
            items << (item->isSeparator()  ? u"—"_s
                      : shortcut.isEmpty() ? item->text()
                                           : item->text() + u" ["_s + shortcut + u']');
        }
        menus << menu->text() + u": "_s + items.join(u" | "_s);
    }
    return menus;
}

QAction *menuItem(FivaApp &app, const QString &text)
{
    for (QAction *menu : app.mainWindow()->menuBar()->actions()) {
        for (QAction *item : menu->menu()->actions()) {
            if (item->text() == text)
                return item;
        }
    }
    ADD_FAILURE() << "no menu item " << text.toStdString();
    return nullptr;
}

// The texts of the visible widgets of one type, and of the actions of a menu, without the
// shortcuts and separators.
template <typename T> QStringList texts(QWidget *parent)
{
    QStringList shown;
    for (T *widget : parent->findChildren<T *>()) {
        if (widget->isVisibleTo(parent))
            shown << widget->text();
    }
    return shown;
}
QStringList texts(const QMenu &menu)
{
    QStringList shown;
    for (QAction *action : menu.actions()) {
        if (!action->isSeparator())
            shown << action->text().section(u'\t', 0, 0);
    }
    return shown;
}
QStringList columns(const QAbstractItemView &view)
{
    QStringList shown;
    for (int column = 0; column < view.model()->columnCount(); ++column)
        shown << view.model()->headerData(column, Qt::Horizontal).toString();
    return shown;
}

using AppShellTest = AppTest;

// Qt's own texts follow the rest of the interface, although the tests run under the C locale.
TEST_F(AppShellTest, QtsOwnTextsInThePanelsAndTheFieldsMenuAreFrench)
{
    auto app = launch();
    QtDialogs qt(app->mainWindow());
    qt.setUseNativePanels(false);
    qt.showSavePanel({u"Sauvegarde-Fiva.fivabackup"_s, {u"fivabackup"_s}}, [](std::optional<QString>) {});
    auto *panel = child<QFileDialog>(app->mainWindow(), u"savePanel"_s);
    ASSERT_NE(panel, nullptr);
    QLineEdit field;
    const std::unique_ptr<QMenu> menu(field.createStandardContextMenu());
    const std::pair<QStringList, QStringList> cases[]{
        {texts<QLabel>(panel), {u"Voir dans :"_s, u"&Nom de fichier :"_s, u"Fichiers de type :"_s}},
        {texts<QPushButton>(panel), {u"&Enregistrer"_s, u"Annuler"_s}},
        {columns(*child<QTreeView>(panel, u"treeView"_s)),
         {u"Nom"_s, u"Taille"_s, u"Type"_s, u"Dernière modification"_s}},
        {texts(*menu),
         {u"&Annuler"_s, u"&Rétablir"_s, u"Co&uper"_s, u"Cop&ier"_s, u"Co&ller"_s, u"Supprimer"_s,
          u"Tout sélectionner"_s}}};
    for (const auto &[shown, french] : cases)
        EXPECT_EQ(shown, french);
    panel->reject();
}

TEST_F(AppShellTest, MenusHoldTheirItemsInOrderAndTheContentsToolbarSitsAtTheTopOfTheWindow)
{
    auto app = launch();
    EXPECT_EQ(menus(*app),
              (QStringList{
                  u"Fiva: À propos de Fiva | — | Préférences… [Ctrl+,] | — | Quitter [Ctrl+Q]"_s,
                  u"Fiches: Nouvelle fiche [Ctrl+N] | Rechercher [Ctrl+F] | Modifier la fiche… [Ctrl+E] | "
                  u"Ouvrir le lien [Return] | Favori oui/non [Ctrl+D] | Supprimer [Del] | Effacer la "
                  u"recherche [Esc] | "
                  u"— | Importer des favoris… | Exporter des favoris… | — | Vérifier les pages web… | "
                  u"Réparer les dossiers déplacés… | Doublons…"_s,
                  u"Sauvegarde: Configuration sauvegarde…"_s,
                  u"Aide: Aide Fiva… [Ctrl+?] | — | Infos - Licence… | Site web de Fiva | Contact | Aide en "
                  u"ligne"_s}));
    MainWindow *window = app->mainWindow();
    EXPECT_NE(qobject_cast<ContentView *>(window->centralWidget()), nullptr);
    auto *toolBar = child<QToolBar>(window, u"mainToolBar"_s);
    ASSERT_NE(toolBar, nullptr);
    EXPECT_EQ(toolBar->parentWidget(), window);
    EXPECT_EQ(window->toolBarArea(toolBar), Qt::TopToolBarArea);
}

TEST_F(AppShellTest, AboutIsOneWindowHiddenWhenClosedAndShownAgain)
{
    auto app = launch();
    app->aboutAction()->trigger();
    app->aboutAction()->trigger();
    AboutWindow *about = app->aboutWindow();
    ASSERT_NE(about, nullptr);
    EXPECT_EQ(visibleWindows<AboutWindow>(), QList<AboutWindow *>{about});
    EXPECT_EQ(about->windowTitle(), u"À propos de Fiva"_s);
    EXPECT_EQ(notShown(about, {u"Fiva"_s, u"Version 3.0.11.25"_s, u"Auteur : L’équipe Fiva"_s}),
              QStringList());
    EXPECT_FALSE(child<QLabel>(about, u"appIcon"_s)->pixmap().isNull());

    about->close();
    flushDeletions();
    ASSERT_EQ(app->aboutWindow(), about);
    EXPECT_FALSE(about->isVisible());
    app->aboutAction()->trigger();
    EXPECT_EQ(app->aboutWindow(), about);
    EXPECT_TRUE(about->isVisible());
    QTest::mouseClick(child<QPushButton>(about, u"visitWebsite"_s), Qt::LeftButton);
    EXPECT_EQ(m_workspace.calls, std::vector<QString>{u"openUrl https://fiva.example"_s});
}

TEST_F(AppShellTest, EachLicenceRequestOpensANewWindowWithLicenceOrLicensePdfOrNone)
{
    auto app = launch();
    PdfWindow *empty = nullptr;
    EXPECT_EQ(printedBy([&] { empty = app->openLicenceWindow(); }),
              u"⚠️ Aucun PDF licence/license trouvé.\n"_s);
    ASSERT_NE(empty, nullptr);
    EXPECT_TRUE(empty->isVisible());
    EXPECT_FALSE(empty->file().has_value());
    EXPECT_EQ(empty->document()->pageCount(), 0);
    EXPECT_TRUE(m_dialogs.alerts.empty());

    // The other spelling, in any resource folder.
    writePdf(m_moreResources.filePath(u"license.pdf"_s), u"license"_s);
    PdfWindow *fallback = app->openLicenceWindow();
    EXPECT_EQ(fallback->file(), m_moreResources.filePath(u"license.pdf"_s));
    EXPECT_EQ(fallback->document()->getAllText(0).text().trimmed(), u"license"_s);

    writePdf(resource(u"licence.pdf"_s), u"licence"_s);
    writePdf(resource(u"license.pdf"_s), u"license"_s);
    app->aboutAction()->trigger();
    auto *button = child<QPushButton>(app->aboutWindow(), u"showLicence"_s);
    QTest::mouseClick(button, Qt::LeftButton);
    QTest::mouseClick(button, Qt::LeftButton);
    const QList<PdfWindow *> windows = app->licenceWindows();
    ASSERT_EQ(windows.size(), 4);
    EXPECT_EQ(visibleWindows<PdfWindow>().size(), 4);
    for (PdfWindow *window : windows.mid(2)) {
        EXPECT_EQ(window->windowTitle(), u"Licence"_s);
        EXPECT_EQ(window->file(), resource(u"licence.pdf"_s));
        EXPECT_EQ(window->document()->status(), QPdfDocument::Status::Ready);
        EXPECT_EQ(window->document()->pageCount(), 1);
    }
    // A closed licence window is gone; the others stay.
    windows[2]->close();
    flushDeletions();
    EXPECT_EQ(app->licenceWindows().size(), 3);
}

TEST_F(AppShellTest, HelpItemsOpenTheirDocumentOrPageOrSayTheDocumentIsMissing)
{
    auto app = launch();
    for (const QString &text :
         {u"Aide Fiva…"_s, u"Infos - Licence…"_s, u"Site web de Fiva"_s, u"Contact"_s, u"Aide en ligne"_s})
        menuItem(*app, text)->trigger();
    EXPECT_EQ(
        alertTexts(m_dialogs),
        (QStringList{u"Fichier d’aide introuvable|Ajoutez Aide-Fiva.pdf dans les Resources de l’application.|"
                     u"warning|OK"_s,
                     u"Impossible d’ouvrir la licence|Le fichier license.html est introuvable dans "
                     u"l'application.|warning|OK"_s}));
    EXPECT_EQ(m_workspace.calls, (std::vector<QString>{u"openUrl https://fiva.example"_s,
                                                       u"openUrl https://fiva.example/contact"_s,
                                                       u"openUrl https://fiva.example/mini-forum"_s}));

    m_workspace.calls.clear();
    writePdf(resource(u"Aide-Fiva.pdf"_s), u"aide"_s);
    writeBytes(resource(u"licence.html"_s), "<p>MIT</p>");
    MainWindow *window = app->mainWindow();
    window->show();
    QApplication::setActiveWindow(window);
    QTest::keyClick(window, Qt::Key_Question, Qt::ControlModifier);
    menuItem(*app, u"Infos - Licence…"_s)->trigger();
    EXPECT_EQ(m_workspace.calls, (std::vector<QString>{u"openPath "_s + resource(u"Aide-Fiva.pdf"_s),
                                                       u"openPath "_s + resource(u"licence.html"_s)}));
    EXPECT_EQ(m_dialogs.alerts.size(), 2u);
}

TEST_F(AppShellTest, BackupConfigurationAndPreferencesAreOneWindowEachOnTheAppsStoreAndSettings)
{
    // Forgetting a closed window is the shared configuration window's own business, tested with it.
    auto app = launch();
    for (QAction *action : {app->backupConfigAction(), app->backupConfigAction(), app->preferencesAction(),
                            app->preferencesAction()})
        action->trigger();
    ASSERT_NE(app->backupConfigWindow(), nullptr);
    ASSERT_NE(app->preferencesWindow(), nullptr);
    EXPECT_EQ(visibleWindows<BackupConfigWindow>(), QList<BackupConfigWindow *>{app->backupConfigWindow()});
    EXPECT_EQ(visibleWindows<PreferencesView>(), QList<PreferencesView *>{app->preferencesWindow()});
    click(child<QCheckBox>(app->backupConfigWindow(), u"autoBackupEnabled"_s));
    EXPECT_FALSE(app->store().autoBackupEnabled());
    click(child<QCheckBox>(app->preferencesWindow(), u"warnOldBackup"_s));
    EXPECT_FALSE(m_settings.warnOldBackup());
}

TEST_F(AppShellTest, TheMainWindowComesBackWhereItWasClosedOrQuitFromTheMenu)
{
    const QRect closedAt(120, 90, 900, 640);
    {
        auto app = launch(true);
        app->mainWindow()->setGeometry(closedAt);
        app->mainWindow()->close();
    }
    const QRect quitAt(60, 70, 800, 500);
    {
        auto app = launch(true);
        EXPECT_EQ(app->mainWindow()->geometry(), closedAt);
        app->mainWindow()->setGeometry(quitAt);
        QTimer::singleShot(0, app->quitAction(), &QAction::trigger);
        // Only a guard against a broken quit hanging the run; a working one returns at once.
        QTimer guard;
        guard.setSingleShot(true);
        QObject::connect(&guard, &QTimer::timeout, qApp, [] { QCoreApplication::exit(1); });
        guard.start(20'000);
        EXPECT_EQ(QApplication::exec(), 0);
    }
    EXPECT_EQ(launch()->mainWindow()->geometry(), quitAt);
}

TEST_F(AppShellTest, ABackupHandedToTheProgramIsOfferedForRestoreOverTheWindow)
{
    writeBytes(dataFile(),
               json::encode(
                   SavedData{{makeItem(u"Bail"_s, u"Sans catégorie"_s)}, {u"Sans catégorie"_s}, std::nullopt})
                   .value());
    const QString archive = m_as.filePath(u"Sauvegarde.fivabackup"_s);
    const std::pair<int, qsizetype> cases[] = {{0, 1}, {1, 0}}; // "Restaurer", "Annuler": records after
    for (const auto &[answer, recordsAfter] : cases) {
        auto app = launch(true);
        m_dialogs.saveChoices.push_back(archive);
        printedBy([&] { app->store().exportBackup(); });
        app->store().deleteItem(app->store().items().front().id);
        m_dialogs.alerts.clear();
        m_dialogs.alertAnswers.push_back(AlertAnswer{answer, {}});
        printedBy([&] { app->offerRestore(archive); });
        ASSERT_EQ(m_dialogs.alerts.size(), 1u);
        EXPECT_EQ(m_dialogs.alerts.front().message, u"Restaurer les données ?"_s);
        EXPECT_EQ(m_dialogs.alerts.front().informativeText, LinkStore::restoreConfirmationText(archive));
        EXPECT_TRUE(app->mainWindow()->isVisible());
        EXPECT_EQ(app->store().items().size(), recordsAfter) << answer;
    }
}

TEST(CommandLine, OnlyHelpVersionAndOneBackupArchiveAreUnderstood)
{
    using Action = CommandLine::Action;
    const struct
    {
        QStringList arguments;
        Action action;
        QString backupFile;
    } cases[] = {
        {{}, Action::run, {}},
        {{u"--help"_s}, Action::help, {}},
        {{u"a.fivabackup"_s, u"--version"_s}, Action::version, {}},
        {{u"sous/a.fivabackup"_s}, Action::run, QDir::current().absoluteFilePath(u"sous/a.fivabackup"_s)},
        {{u"/x/a.fivabackup"_s}, Action::run, u"/x/a.fivabackup"_s},
        {{u"--"_s, u"-a.fivabackup"_s}, Action::run, QDir::current().absoluteFilePath(u"-a.fivabackup"_s)},
        {{u"-h"_s}, Action::usageError, {}},
        {{u"--restore"_s, u"a.fivabackup"_s}, Action::usageError, {}},
        {{u"a.fivabackup"_s, u"b.fivabackup"_s}, Action::usageError, {}},
        {{u""_s}, Action::usageError, {}},
    };
    for (const auto &c : cases) {
        const CommandLine parsed = parseCommandLine(c.arguments);
        const std::string shown = c.arguments.join(u' ').toStdString();
        EXPECT_EQ(parsed.action, c.action) << shown;
        EXPECT_EQ(parsed.backupFile, c.backupFile) << shown;
        EXPECT_EQ(parsed.error.isEmpty(), c.action != Action::usageError) << shown;
    }
}

TEST(Resources, AnInstalledProgramLooksInItsPrefixsShareFolderFirst)
{
    QTemporaryDir prefix;
    const QDir root(prefix.path());
    ASSERT_TRUE(root.mkpath(u"bin/share/fiva"_s) && root.mkpath(u"share/fiva"_s));
    const QStringList folders = Resources::besideProgram(root.filePath(u"bin"_s));
    EXPECT_EQ(folders, (QStringList{root.filePath(u"share/fiva"_s), root.filePath(u"bin/share/fiva"_s)}));

    const Resources resources(folders);
    writeBytes(root.filePath(u"bin/share/fiva/Aide-Fiva.pdf"_s), "built");
    EXPECT_EQ(resources.find(u"Aide-Fiva.pdf"_s), root.filePath(u"bin/share/fiva/Aide-Fiva.pdf"_s));
    writeBytes(root.filePath(u"share/fiva/Aide-Fiva.pdf"_s), "installed");
    EXPECT_EQ(resources.find(u"Aide-Fiva.pdf"_s), root.filePath(u"share/fiva/Aide-Fiva.pdf"_s));
    // A folder of that name is not the document.
    ASSERT_TRUE(root.mkpath(u"share/fiva/licence.pdf"_s));
    EXPECT_FALSE(resources.find(u"licence.pdf"_s).has_value());
}

TEST(ShippedDocuments, TheBuiltPdfsAreReadableAndTheLicenceIsThere)
{
    ensureWidgetsApplication();
    const QDir built(QStringLiteral(FIVA_BUILT_DOCUMENTS));
    QPdfDocument help, licence;
    EXPECT_EQ(help.load(built.filePath(u"Aide-Fiva.pdf"_s)), QPdfDocument::Error::None);
    EXPECT_EQ(licence.load(built.filePath(u"licence.pdf"_s)), QPdfDocument::Error::None);
    EXPECT_GE(licence.pageCount(), 1);
    EXPECT_TRUE(help.getAllText(0).text().contains(u"Aide de Fiva"_s));
    const QByteArray html = readBytes(built.filePath(u"licence.html"_s));
    EXPECT_TRUE(html.contains("MIT") && html.contains("Permission is hereby granted"));
}

} // namespace
