#include "ui/editing/EditLinkView.h"
#include "ui/main/ContentView.h"
#include "ui/main/DetailView.h"
#include "ui/main/LinkListModel.h"

#include <QPlainTextEdit>

#include "AppTestSupport.h"

using namespace fiva;
using namespace fiva::test;
using namespace Qt::StringLiterals;

namespace {

// The whole application, as a user drives it: one store, the real main window and its sheets, the
// scripted dialogs answering the panels and alerts.
class EndToEndTest : public AppTest
{
protected:
    QTemporaryDir m_userFiles;
};

TEST_F(EndToEndTest, RecordAndAttachmentSurviveExportDeleteAndRestore)
{
    auto app = launch(true);
    auto *view = qobject_cast<ContentView *>(app->mainWindow()->centralWidget());
    ASSERT_NE(view, nullptr);
    // A first start has never been backed up: the warning comes with the window.
    EXPECT_EQ(alertTexts(m_dialogs),
              QStringList{u"⚠️ Sauvegarde ancienne|Votre dernière sauvegarde manuelle "
                          u"date de plus de 3 jours.|info|OK"_s});

    // A new record through the edit sheet.
    view->newItemAction()->trigger();
    auto *sheet = app->mainWindow()->findChild<EditLinkView *>();
    ASSERT_NE(sheet, nullptr);
    QTest::keyClicks(child<QLineEdit>(sheet, u"title"_s), u"Bail de l'appartement"_s);
    QTest::keyClicks(child<QLineEdit>(sheet, u"path"_s), u"https://exemple.fr/bail"_s);
    child<QPlainTextEdit>(sheet, u"notes"_s)->setPlainText(u"À renouveler en juin"_s);
    QTest::mouseClick(child<QPushButton>(sheet, u"confirm"_s), Qt::LeftButton);
    ASSERT_EQ(app->store().items().size(), 1);
    const QUuid id = app->store().items().front().id;

    // Selected, then given an attachment through the detail column.
    ASSERT_EQ(view->model().rowCount(), 1);
    clickRow(view->list(), 0);
    ASSERT_EQ(view->selectedItemID(), id);
    const QString original = m_userFiles.filePath(u"quittance mars.pdf"_s);
    writeBytes(original, "%PDF-1.4 quittance de mars");
    m_dialogs.openChoices.push_back(QStringList{original});
    auto *detail = view->findChild<DetailView *>();
    ASSERT_NE(detail, nullptr);
    QTest::mouseClick(child<QPushButton>(detail, u"addAttachment"_s), Qt::LeftButton);
    ASSERT_EQ(app->store().items().front().attachments.size(), 1);
    const Attachment attached = app->store().items().front().attachments.front();
    EXPECT_TRUE(attached.filePath.startsWith(m_as.filePath(u"Fiva_Attachments/"_s)));

    // Exported from the toolbar.
    const QString archive = m_userFiles.filePath(u"Sauvegarde-Fiva.fivabackup"_s);
    m_dialogs.saveChoices.push_back(archive);
    printedBy([&] { view->exportAction()->trigger(); });
    EXPECT_EQ(alertTexts(m_dialogs).last(), u"Sauvegarde terminée||info|OK"_s);
    ASSERT_EQ(app->store().backupHistory().size(), 1);
    EXPECT_EQ(app->store().backupHistory().front().filePath, archive);

    // Deleted with the Delete key: the record and its copy are gone.
    clickRow(view->list(), 0);
    QTest::keyClick(view->list(), Qt::Key_Delete);
    EXPECT_TRUE(app->store().items().isEmpty());
    EXPECT_FALSE(QFileInfo::exists(attached.filePath));

    // Restored after confirmation: the record comes back with its attachment's bytes.
    m_dialogs.openChoices.push_back(QStringList{archive});
    m_dialogs.alertAnswers.push_back(AlertAnswer{0, {}});
    printedBy([&] { view->restoreAction()->trigger(); });
    EXPECT_EQ(m_dialogs.alerts.back().message, u"Restaurer les données ?"_s);
    ASSERT_EQ(app->store().items().size(), 1);
    const LinkItem &back = app->store().items().front();
    EXPECT_EQ(back.id, id);
    EXPECT_EQ(back.title, u"Bail de l'appartement"_s);
    ASSERT_EQ(back.attachments.size(), 1);
    EXPECT_EQ(readBytes(back.attachments.front().filePath), QByteArray("%PDF-1.4 quittance de mars"));
}

} // namespace
