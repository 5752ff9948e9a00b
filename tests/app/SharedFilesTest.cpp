#include "app/SingleInstance.h"
#include "ui/editing/EditLinkView.h"
#include "ui/main/ContentView.h"
#include "ui/main/DetailView.h"
#include "ui/main/LinkListModel.h"

#include <QLineEdit>
#include <QSignalSpy>

#include "AppTestSupport.h"
#include "support/ProcessRun.h"

using namespace fiva;
using namespace fiva::test;
using namespace Qt::StringLiterals;

namespace {

// The window beside other programs on the same data folder: fiva-cli, a second start of fiva.
class SharedFilesTest : public AppTest
{
protected:
    int runProgram(const QString &program, const QStringList &args)
    {
        // The window's event loop must keep running while the other program talks to it.
        return runProcess(program, args,
                          {.env = {"XDG_DATA_HOME=" + QFile::encodeName(m_as.path()).toStdString(),
                                   "QT_QPA_PLATFORM=offscreen"},
                           .whileWaiting = [] { QCoreApplication::processEvents(); }})
            .exitCode;
    }
    static QString program(const char *variable)
    {
        const QString found = qEnvironmentVariable(variable);
        EXPECT_FALSE(found.isEmpty()) << variable << " must name the program";
        return found;
    }
};

TEST_F(SharedFilesTest, ARecordAddedByFivaCliAppearsAndSurvivesTheWindowsNextSave)
{
    writeBytes(dataFile(), json::encode(SavedData{{makeItem(u"Banque"_s, u"Sans catégorie"_s),
                                                   makeItem(u"Bail"_s, u"Sans catégorie"_s)},
                                                  {u"Sans catégorie"_s},
                                                  std::nullopt})
                               .value());
    auto app = launch(true);
    auto *view = qobject_cast<ContentView *>(app->mainWindow()->centralWidget());
    ASSERT_NE(view, nullptr);
    // A filter and a selection the reload must keep.
    QTest::keyClicks(child<QLineEdit>(view, u"search"_s), u"Ba"_s);
    ASSERT_EQ(view->model().rowCount(), 2);
    clickRow(view->list(), 0);
    const std::optional<QUuid> selected = view->selectedItemID();
    ASSERT_TRUE(selected.has_value());

    // And a form open on it, with a change typed but not saved yet.
    QTest::mouseClick(child<QPushButton>(view->findChild<DetailView *>(), u"edit"_s), Qt::LeftButton);
    auto *sheet = app->mainWindow()->findChild<EditLinkView *>();
    ASSERT_NE(sheet, nullptr);
    QLineEdit *path = child<QLineEdit>(sheet, u"path"_s);
    path->clear();
    QTest::keyClicks(path, u"https://exemple.fr/nouveau"_s);

    ASSERT_EQ(runProgram(program("FIVA_CLI"), {u"add"_s, u"--title"_s, u"Bateau"_s, u"--path"_s, u"p"_s}), 0);
    QTRY_COMPARE_WITH_TIMEOUT(app->store().items().size(), 3, 5000);
    EXPECT_EQ(view->model().rowCount(), 3);
    EXPECT_EQ(view->selectedItemID(), selected);
    EXPECT_EQ(child<QLineEdit>(view, u"search"_s)->text(), u"Ba"_s);
    ASSERT_EQ(app->mainWindow()->findChild<EditLinkView *>(), sheet);
    EXPECT_EQ(path->text(), u"https://exemple.fr/nouveau"_s);
    QTest::mouseClick(child<QPushButton>(sheet, u"confirm"_s), Qt::LeftButton);
    EXPECT_EQ(onDisk().items.size(), 3);

    // The window's next save (a star) writes the three records, the outside one included.
    const int row = view->model().rowOf(*selected);
    QTest::mouseClick(view->list()->viewport(), Qt::LeftButton, {}, view->starRectOfRow(row).center());
    const SavedData saved = onDisk();
    ASSERT_EQ(saved.items.size(), 3);
    EXPECT_EQ(saved.items.last().title, u"Bateau"_s);
    EXPECT_TRUE(std::any_of(saved.items.begin(), saved.items.end(), [&](const LinkItem &item) {
        return item.id == *selected && item.isFavorite && item.path == u"https://exemple.fr/nouveau"_s;
    }));
}

TEST_F(SharedFilesTest, ASecondStartBringsTheRunningWindowForwardAndEnds)
{
    const QString folder = m_as.filePath(u"Fiva"_s);
    SingleInstance running(folder);
    ASSERT_TRUE(running.claim());
    QSignalSpy asked(&running, &SingleInstance::activationRequested);
    // The real program, on the same data folder: it must end at once, with nothing to report,
    // handing the running one the backup archive it was given.
    const QString archive = m_as.filePath(u"Sauvegarde été.fivabackup"_s);
    for (const QStringList &arguments : {QStringList{}, QStringList{archive}}) {
        asked.clear();
        EXPECT_EQ(runProgram(program("FIVA_APP"), arguments), 0);
        QTRY_COMPARE_WITH_TIMEOUT(asked.count(), 1, 5000);
        EXPECT_EQ(asked.front().front().toString(), arguments.value(0));
    }

    // Another data folder (another test, another user) is another instance.
    QTemporaryDir elsewhere;
    EXPECT_TRUE(SingleInstance(elsewhere.filePath(u"Fiva"_s)).claim());
    EXPECT_NE(SingleInstance::serverName(folder), SingleInstance::serverName(elsewhere.filePath(u"Fiva"_s)));
}

TEST_F(SharedFilesTest, AnUnreadableDataFileIsToldAndTheNewestAutomaticBackupOffered)
{
    struct Case
    {
        const char *name;
        bool withBackup;
        int answer;
        qsizetype recordsAfter;
        QString offer;
    };
    const Case cases[] = {
        {"accepted", true, 0, 1, u"Charger la sauvegarde,Annuler"_s},
        {"declined", true, 1, 0, u"Charger la sauvegarde,Annuler"_s},
        {"no backup", false, 0, 0, u"OK"_s},
    };
    for (const Case &c : cases) {
        QDir(m_as.filePath(u"Fiva"_s)).removeRecursively();
        if (c.withBackup) {
            writeBytes(m_as.filePath(u"Fiva/AutoBackups/"_s + LinkStore::autoBackupFileName(newYear2025)),
                       json::encode(SavedData{{makeItem(u"Sauvée"_s, u"Sans catégorie"_s)},
                                              {u"Sans catégorie"_s},
                                              newYear2025})
                           .value());
        }
        writeBytes(dataFile(), "{\"items\": [");
        auto app = launch();
        m_dialogs.alerts.clear();
        m_dialogs.alertAnswers.push_back(AlertAnswer{c.answer, {}});
        printedBy([&] { app->offerRecovery(); });
        ASSERT_EQ(m_dialogs.alerts.size(), 1u) << c.name;
        const AlertRequest &alert = m_dialogs.alerts.front();
        EXPECT_EQ(alert.message, u"Fichier de données illisible"_s) << c.name;
        EXPECT_TRUE(alert.informativeText.contains(app->store().setAsideDataFile().isEmpty()
                                                       ? u"FivaData.json.unreadable-"_s
                                                       : app->store().setAsideDataFile()))
            << c.name;
        EXPECT_EQ(alert.informativeText.contains(u"Sauvegarde automatique du "_s), c.withBackup) << c.name;
        EXPECT_EQ(alert.buttons.join(u','), c.offer) << c.name;
        EXPECT_EQ(app->store().items().size(), c.recordsAfter) << c.name;
        EXPECT_EQ(QFileInfo::exists(dataFile()), c.recordsAfter > 0) << c.name;
    }
}

} // namespace
