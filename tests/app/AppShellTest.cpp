#include "app/AboutWindow.h"
#include "app/FivaApp.h"
#include "app/MainWindow.h"
#include "app/PdfWindow.h"
#include "platform/Settings.h"
#include "ui/main/ContentView.h"
#include "ui/settings/BackupConfigWindow.h"
#include "ui/settings/BackupHistoryView.h"
#include "ui/settings/PreferencesView.h"

#include <QAction>
#include <QCheckBox>
#include <QDialog>
#include <QMenu>
#include <QMenuBar>
#include <QPainter>
#include <QPdfDocument>
#include <QPdfWriter>
#include <QPushButton>
#include <QTimer>
#include <QToolBar>
#include <QToolButton>

#include <algorithm>

#include "ScreensTestSupport.h"

using namespace fiva;
using namespace fiva::test;
using namespace Qt::StringLiterals;

namespace {

// A one-page PDF whose only text is `text`, so a test can tell which file a window loaded.
void writePdf(const QString &path, const QString &text)
{
    QPdfWriter writer(path);
    QPainter painter(&writer);
    painter.drawText(QPointF(100, 100), text);
}

QMenu *menuTitled(QMenuBar *bar, const QString &title)
{
    for (QAction *action : bar->actions()) {
        if (action->text() == title)
            return action->menu();
    }
    ADD_FAILURE() << "no menu " << title.toStdString();
    return nullptr;
}

// A menu's items as shown, a divider as "—".
QStringList itemTexts(QMenu *menu)
{
    QStringList texts;
    for (QAction *action : menu->actions())
        texts << (action->isSeparator() ? u"—"_s : action->text());
    return texts;
}

QAction *item(QMenu *menu, const QString &text)
{
    for (QAction *action : menu->actions()) {
        if (action->text() == text)
            return action;
    }
    ADD_FAILURE() << "no item " << text.toStdString();
    return nullptr;
}

template <typename T> int visibleWindowsOf()
{
    const auto windows = QApplication::topLevelWidgets();
    return static_cast<int>(std::count_if(windows.begin(), windows.end(),
                                          [](QWidget *w) { return qobject_cast<T *>(w) && w->isVisible(); }));
}

class AppShellTest : public ScreenTest
{
protected:
    std::unique_ptr<FivaApp> launch()
    {
        StdoutCapture quiet;
        return std::make_unique<FivaApp>(AppServices{m_paths, m_workspace, m_clock, m_dialogs, m_settings,
                                                     Resources({m_resources.path(), m_moreResources.path()}),
                                                     m_stateDir.filePath(u"window.ini"_s)});
    }
    QString resource(const QString &name) const { return m_resources.filePath(name); }

    QTemporaryDir m_resources;
    QTemporaryDir m_moreResources;
    QTemporaryDir m_stateDir;
    Settings m_settings{m_stateDir.filePath(u"Fiva.ini"_s)};
};

TEST_F(AppShellTest, MenusHoldTheirItemsInOrderWithTheirShortcuts)
{
    auto app = launch();
    QMenuBar *bar = app->mainWindow()->menuBar();
    QStringList titles;
    for (QAction *action : bar->actions())
        titles << action->text();
    EXPECT_EQ(titles, (QStringList{u"Fiva"_s, u"Sauvegarde"_s, u"Aide"_s}));

    QMenu *fiva = menuTitled(bar, u"Fiva"_s);
    EXPECT_EQ(itemTexts(fiva),
              (QStringList{u"À propos de Fiva"_s, u"—"_s, u"Préférences…"_s, u"—"_s, u"Quitter"_s}));
    EXPECT_EQ(item(fiva, u"Préférences…"_s)->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Comma));
    EXPECT_EQ(item(fiva, u"Quitter"_s)->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Q));
    EXPECT_EQ(itemTexts(menuTitled(bar, u"Sauvegarde"_s)), (QStringList{u"Configuration sauvegarde…"_s}));
    QMenu *help = menuTitled(bar, u"Aide"_s);
    EXPECT_EQ(itemTexts(help), (QStringList{u"Aide Fiva…"_s, u"—"_s, u"Infos - Licence…"_s,
                                            u"Site web de Fiva"_s, u"Contact"_s, u"Aide en ligne"_s}));
    EXPECT_EQ(item(help, u"Aide Fiva…"_s)->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Question));
}

TEST_F(AppShellTest, AboutIsOneWindowHiddenWhenClosedAndShownAgain)
{
    auto app = launch();
    app->aboutAction()->trigger();
    app->aboutAction()->trigger();
    AboutWindow *about = app->aboutWindow();
    ASSERT_NE(about, nullptr);
    EXPECT_EQ(visibleWindowsOf<AboutWindow>(), 1);
    EXPECT_EQ(about->windowTitle(), u"À propos de Fiva"_s);
    EXPECT_EQ(about->size(), QSize(420, 500));
    EXPECT_TRUE(showsLabel(about, u"Fiva"_s));
    EXPECT_TRUE(showsLabel(about, u"Version 3.0.11.25"_s));
    EXPECT_TRUE(showsLabel(about, u"Auteur : L’équipe Fiva"_s));
    EXPECT_FALSE(child<QLabel>(about, u"appIcon"_s)->pixmap().isNull());

    about->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    ASSERT_EQ(app->aboutWindow(), about);
    EXPECT_FALSE(about->isVisible());
    app->aboutAction()->trigger();
    EXPECT_EQ(app->aboutWindow(), about);
    EXPECT_TRUE(about->isVisible());

    QTest::mouseClick(child<QPushButton>(about, u"visitWebsite"_s), Qt::LeftButton);
    ASSERT_EQ(m_workspace.calls.size(), 1u);
    EXPECT_EQ(m_workspace.calls.back(), u"openUrl https://fiva.example"_s);
}

TEST_F(AppShellTest, EachLicenceRequestOpensANewWindowWithLicencePdf)
{
    writePdf(resource(u"licence.pdf"_s), u"licence"_s);
    writePdf(resource(u"license.pdf"_s), u"license"_s);
    auto app = launch();
    app->aboutAction()->trigger();
    auto *button = child<QPushButton>(app->aboutWindow(), u"showLicence"_s);
    QTest::mouseClick(button, Qt::LeftButton);
    QTest::mouseClick(button, Qt::LeftButton);

    const QList<PdfWindow *> windows = app->licenceWindows();
    ASSERT_EQ(windows.size(), 2);
    EXPECT_NE(windows[0], windows[1]);
    EXPECT_EQ(visibleWindowsOf<PdfWindow>(), 2);
    for (PdfWindow *window : windows) {
        EXPECT_EQ(window->windowTitle(), u"Licence"_s);
        EXPECT_EQ(window->size(), QSize(600, 800));
        EXPECT_EQ(window->file(), resource(u"licence.pdf"_s));
        EXPECT_EQ(window->document()->status(), QPdfDocument::Status::Ready);
        EXPECT_EQ(window->document()->pageCount(), 1);
    }

    // A closed licence window is gone; the others stay.
    windows[0]->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_EQ(app->licenceWindows().size(), 1);
}

TEST_F(AppShellTest, LicenceWindowFallsBackToLicensePdfInAnyResourceFolder)
{
    writePdf(m_moreResources.filePath(u"license.pdf"_s), u"license"_s);
    auto app = launch();
    PdfWindow *window = app->openLicenceWindow();
    EXPECT_EQ(window->file(), m_moreResources.filePath(u"license.pdf"_s));
    EXPECT_EQ(window->document()->pageCount(), 1);
    EXPECT_EQ(window->document()->getAllText(0).text().trimmed(), u"license"_s);
}

TEST_F(AppShellTest, WithoutAnyLicencePdfTheWindowOpensEmptyAndSaysSo)
{
    auto app = launch();
    StdoutCapture output;
    PdfWindow *window = app->openLicenceWindow();
    EXPECT_EQ(output.finish(), u"⚠️ Aucun PDF licence/license trouvé.\n"_s);
    ASSERT_NE(window, nullptr);
    EXPECT_TRUE(window->isVisible());
    EXPECT_FALSE(window->file().has_value());
    EXPECT_EQ(window->document()->pageCount(), 0);
    EXPECT_TRUE(m_dialogs.alerts.empty());
}

TEST_F(AppShellTest, MissingHelpDocumentIsAnAlertAndNothingElse)
{
    auto app = launch();
    app->helpAction()->trigger();
    ASSERT_EQ(m_dialogs.alerts.size(), 1u);
    EXPECT_EQ(m_dialogs.alerts[0].message, u"Fichier d’aide introuvable"_s);
    EXPECT_EQ(m_dialogs.alerts[0].informativeText,
              u"Ajoutez Aide-Fiva.pdf dans les Resources de l’application."_s);
    EXPECT_EQ(m_dialogs.alerts[0].buttons, QStringList{u"OK"_s});
    EXPECT_TRUE(m_workspace.calls.empty());
}

TEST_F(AppShellTest, CtrlQuestionMarkOpensTheHelpDocument)
{
    writePdf(resource(u"Aide-Fiva.pdf"_s), u"aide"_s);
    auto app = launch();
    MainWindow *window = app->mainWindow();
    window->show();
    QApplication::setActiveWindow(window);
    QTest::keyClick(window, Qt::Key_Question, Qt::ControlModifier);
    ASSERT_EQ(m_workspace.calls.size(), 1u);
    EXPECT_EQ(m_workspace.calls[0], u"openPath "_s + resource(u"Aide-Fiva.pdf"_s));
    EXPECT_TRUE(m_dialogs.alerts.empty());
}

TEST_F(AppShellTest, LicenceItemOpensTheHtmlLicenceOrSaysItIsMissing)
{
    auto app = launch();
    QMenu *help = menuTitled(app->mainWindow()->menuBar(), u"Aide"_s);
    item(help, u"Infos - Licence…"_s)->trigger();
    ASSERT_EQ(m_dialogs.alerts.size(), 1u);
    EXPECT_EQ(m_dialogs.alerts[0].message, u"Impossible d’ouvrir la licence"_s);
    EXPECT_EQ(m_dialogs.alerts[0].informativeText,
              u"Le fichier license.html est introuvable dans l'application."_s);
    EXPECT_TRUE(m_workspace.calls.empty());

    writeBytes(resource(u"licence.html"_s), "<p>MIT</p>");
    item(help, u"Infos - Licence…"_s)->trigger();
    EXPECT_EQ(m_dialogs.alerts.size(), 1u);
    ASSERT_EQ(m_workspace.calls.size(), 1u);
    EXPECT_EQ(m_workspace.calls[0], u"openPath "_s + resource(u"licence.html"_s));
}

TEST_F(AppShellTest, WebItemsOpenTheSitesPages)
{
    auto app = launch();
    QMenu *help = menuTitled(app->mainWindow()->menuBar(), u"Aide"_s);
    for (const QString &text : {u"Site web de Fiva"_s, u"Contact"_s, u"Aide en ligne"_s})
        item(help, text)->trigger();
    EXPECT_EQ(m_workspace.calls, (std::vector<QString>{u"openUrl https://fiva.example"_s,
                                                       u"openUrl https://fiva.example/contact"_s,
                                                       u"openUrl https://fiva.example/mini-forum"_s}));
    EXPECT_TRUE(m_dialogs.alerts.empty());
}

TEST_F(AppShellTest, BackupConfigurationIsOneWindowOnTheAppsStore)
{
    auto app = launch();
    app->backupConfigAction()->trigger();
    BackupConfigWindow *first = app->backupConfigWindow();
    ASSERT_NE(first, nullptr);
    app->backupConfigAction()->trigger();
    EXPECT_EQ(app->backupConfigWindow(), first);
    EXPECT_EQ(visibleWindowsOf<BackupConfigWindow>(), 1);

    // The window works on the application's one store.
    QTest::mouseClick(child<QCheckBox>(first, u"autoBackupEnabled"_s), Qt::LeftButton);
    EXPECT_FALSE(app->store().autoBackupEnabled());

    first->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_EQ(app->backupConfigWindow(), nullptr);
    app->backupConfigAction()->trigger();
    ASSERT_NE(app->backupConfigWindow(), nullptr);
    EXPECT_FALSE(child<QCheckBox>(app->backupConfigWindow(), u"autoBackupEnabled"_s)->isChecked());
    EXPECT_EQ(visibleWindowsOf<BackupConfigWindow>(), 1);
}

TEST_F(AppShellTest, PreferencesIsOneWindowOnTheGivenSettings)
{
    auto app = launch();
    app->preferencesAction()->trigger();
    app->preferencesAction()->trigger();
    ASSERT_NE(app->preferencesWindow(), nullptr);
    EXPECT_EQ(visibleWindowsOf<PreferencesView>(), 1);
    QTest::mouseClick(child<QCheckBox>(app->preferencesWindow(), u"warnOldBackup"_s), Qt::LeftButton);
    EXPECT_FALSE(m_settings.warnOldBackup());
}

TEST_F(AppShellTest, TheMainWindowComesBackWhereItWas)
{
    const QRect placed(120, 90, 900, 640);
    {
        auto app = launch();
        app->mainWindow()->show();
        app->mainWindow()->setGeometry(placed);
        app->mainWindow()->close();
    }
    auto app = launch();
    EXPECT_EQ(app->mainWindow()->geometry(), placed);
}

TEST_F(AppShellTest, QuittingFromTheMenuEndsTheRunAndKeepsTheWindowsPlace)
{
    const QRect placed(60, 70, 800, 500);
    {
        auto app = launch();
        app->mainWindow()->show();
        app->mainWindow()->setGeometry(placed);
        QTimer::singleShot(0, app->quitAction(), &QAction::trigger);
        // Only a guard against a broken quit hanging the run; a working one returns at once.
        QTimer guard;
        guard.setSingleShot(true);
        QObject::connect(&guard, &QTimer::timeout, qApp, [] { QCoreApplication::exit(1); });
        guard.start(20'000);
        EXPECT_EQ(QApplication::exec(), 0);
    }
    auto app = launch();
    EXPECT_EQ(app->mainWindow()->geometry(), placed);
}

TEST_F(AppShellTest, MainWindowShowsTheContentWithItsToolbarOnTheSameStore)
{
    auto app = launch();
    writeBytes(m_as.filePath(u"b.fivabackup"_s), "12345");
    app->store().addBackupLog(m_as.filePath(u"b.fivabackup"_s));
    app->mainWindow()->show();
    ASSERT_NE(qobject_cast<ContentView *>(app->mainWindow()->centralWidget()), nullptr);
    auto *toolBar = child<QToolBar>(app->mainWindow(), u"mainToolBar"_s);
    ASSERT_NE(toolBar, nullptr);
    EXPECT_EQ(toolBar->parentWidget(), app->mainWindow());
    EXPECT_EQ(app->mainWindow()->toolBarArea(toolBar), Qt::TopToolBarArea);
    child<QAction>(app->mainWindow(), u"showBackupHistory"_s)->trigger();
    auto *sheet = child<QDialog>(app->mainWindow(), u"backupHistorySheet"_s);
    ASSERT_NE(sheet, nullptr);
    auto *view = sheet->findChild<BackupHistoryView *>();
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(view->list()->model()->rowCount(), 1);
    QTest::mouseClick(view->closeButton(), Qt::LeftButton);
    EXPECT_FALSE(sheet->isVisible());
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
    for (const QString &name : {u"Aide-Fiva.pdf"_s, u"licence.pdf"_s}) {
        QPdfDocument document;
        EXPECT_EQ(document.load(built.filePath(name)), QPdfDocument::Error::None) << name.toStdString();
        EXPECT_GE(document.pageCount(), 1) << name.toStdString();
    }
    QPdfDocument help;
    help.load(built.filePath(u"Aide-Fiva.pdf"_s));
    EXPECT_TRUE(help.getAllText(0).text().contains(u"Aide de Fiva"_s));
    const QByteArray licence = readBytes(built.filePath(u"licence.html"_s));
    EXPECT_TRUE(licence.contains("MIT"));
    EXPECT_TRUE(licence.contains("Permission is hereby granted"));
}

} // namespace
