#include "ui/editing/EditLinkView.h"

#include <QComboBox>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>

#include "ScreensTestSupport.h"

using namespace fiva;
using namespace fiva::test;
using namespace Qt::StringLiterals;

namespace {

const QString head =
    u"<html>\n    <head>\n        <meta charset=\"UTF-8\">\n    </head>\n    <body>\n        <p>"_s;
const QString tail = u"</p>\n    </body>\n</html>"_s;

class EditLinkViewTest : public ScreenTest
{
protected:
    std::unique_ptr<EditLinkView> openForm(LinkStore &store, const LinkItem *item = nullptr)
    {
        auto form = std::make_unique<EditLinkView>(store, m_dialogs, m_clock, item);
        form->show();
        return form;
    }
    static QLineEdit *title(EditLinkView &f) { return child<QLineEdit>(&f, u"title"_s); }
    static QLineEdit *path(EditLinkView &f) { return child<QLineEdit>(&f, u"path"_s); }
    static QPlainTextEdit *notes(EditLinkView &f) { return child<QPlainTextEdit>(&f, u"notes"_s); }
    static QPushButton *confirm(EditLinkView &f) { return child<QPushButton>(&f, u"confirm"_s); }
    static QPushButton *segment(EditLinkView &f, EditLinkView::LinkType t)
    {
        return child<QPushButton>(&f, u"linkType%1"_s.arg(static_cast<int>(t)));
    }
};

TEST_F(EditLinkViewTest, NewRecordIsStoredTrimmedWithFirstCategoryAndEmptyNotes)
{
    auto store = startWith({}, {u"Travail"_s, u"Loisirs"_s});
    auto form = openForm(*store);
    EXPECT_TRUE(showsLabel(form.get(), u"Nouvelle fiche"_s));
    EXPECT_EQ(confirm(*form)->text(), u"Ajouter"_s);

    QTest::keyClicks(title(*form), u"  Mon site\t "_s);
    QTest::keyClicks(path(*form), u" https://example.org  "_s);
    QTest::mouseClick(confirm(*form), Qt::LeftButton);

    EXPECT_TRUE(m_dialogs.alerts.empty());
    EXPECT_EQ(form->result(), QDialog::Accepted);
    ASSERT_EQ(store->items().size(), 1);
    const LinkItem &item = store->items().first();
    EXPECT_EQ(item.title, u"Mon site"_s);
    EXPECT_EQ(item.path, u"https://example.org"_s);
    // The store sorts its list, so the first entry is "Loisirs".
    EXPECT_EQ(item.category, u"Loisirs"_s);
    EXPECT_EQ(item.notes, head + tail);
    EXPECT_EQ(item.kind, LinkKind::url);
    EXPECT_FALSE(item.isFavorite);
    EXPECT_FALSE(item.id.isNull());
    EXPECT_EQ(item.createdAt, newYear2025);
    EXPECT_EQ(onDisk().items, store->items());
}

TEST_F(EditLinkViewTest, EmptyCategoryListGivesSansCategorie)
{
    auto store = startWith({}, {});
    auto form = openForm(*store);
    EXPECT_EQ(form->category(), u"Sans catégorie"_s);
    QTest::keyClicks(title(*form), u"t"_s);
    QTest::keyClicks(path(*form), u"p"_s);
    QTest::keyClick(title(*form), Qt::Key_Return);
    ASSERT_EQ(store->items().size(), 1);
    EXPECT_EQ(store->items().first().category, u"Sans catégorie"_s);
}

struct ValidationCase
{
    QString title;
    QString path;
    bool accepted;
};

class EditLinkValidationTest : public EditLinkViewTest, public ::testing::WithParamInterface<ValidationCase>
{
};

TEST_P(EditLinkValidationTest, EmptyTitleOrLocationAfterTrimmingAsksForBoth)
{
    const ValidationCase &c = GetParam();
    auto store = startWith({}, {u"A"_s});
    const QByteArray before = readBytes(dataFile());
    auto form = openForm(*store);
    // setText rather than typing: a line feed cannot be typed into a line edit.
    title(*form)->setText(c.title);
    path(*form)->setText(c.path);
    QTest::mouseClick(confirm(*form), Qt::LeftButton);
    if (c.accepted) {
        EXPECT_TRUE(m_dialogs.alerts.empty());
        EXPECT_EQ(store->items().size(), 1);
        return;
    }
    ASSERT_EQ(m_dialogs.alerts.size(), 1u);
    const AlertRequest &alert = m_dialogs.alerts.front();
    EXPECT_EQ(alert.message, u"Champs requis"_s);
    EXPECT_EQ(alert.informativeText, u"Le titre et le lien ne doivent pas être vides."_s);
    EXPECT_EQ(alert.buttons, QStringList{u"OK"_s});
    EXPECT_TRUE(store->items().isEmpty());
    EXPECT_EQ(readBytes(dataFile()), before);
    EXPECT_TRUE(form->isVisible());
    EXPECT_EQ(title(*form)->text(), c.title);
    EXPECT_EQ(path(*form)->text(), c.path);
}

INSTANTIATE_TEST_SUITE_P(Fields, EditLinkValidationTest,
                         ::testing::Values(ValidationCase{u""_s, u"x"_s, false},
                                           ValidationCase{u"x"_s, u""_s, false},
                                           ValidationCase{u" \t "_s, u"x"_s, false},
                                           ValidationCase{u"x"_s, u"\u00a0\u2003"_s, false},
                                           ValidationCase{u"\n"_s, u"x"_s, true},
                                           ValidationCase{u" a "_s, u" b "_s, true}));

TEST_F(EditLinkViewTest, TwoLinesOfNotesAreStoredWithBreakAndComeBackOnEdit)
{
    auto store = startWith({}, {u"A"_s});
    auto form = openForm(*store);
    QTest::keyClicks(title(*form), u"Notes"_s);
    QTest::keyClicks(path(*form), u"/tmp"_s);
    QTest::keyClicks(notes(*form), u"ligne <b>1</b> & co"_s);
    QTest::keyClick(notes(*form), Qt::Key_Return);
    QTest::keyClicks(notes(*form), u"ligne 2"_s);
    QTest::mouseClick(confirm(*form), Qt::LeftButton);
    ASSERT_EQ(store->items().size(), 1);
    EXPECT_EQ(store->items().first().notes, head + u"ligne <b>1</b> & co<br>ligne 2"_s + tail);

    const LinkItem stored = store->items().first();
    auto again = openForm(*store, &stored);
    EXPECT_EQ(notes(*again)->toPlainText(), u"ligne <b>1</b> & co\nligne 2"_s);
    EXPECT_TRUE(showsLabel(again.get(), u"Modifier la fiche"_s));
    EXPECT_EQ(confirm(*again)->text(), u"Enregistrer"_s);
}

TEST_F(EditLinkViewTest, EditingKeepsIdentityDateFavouriteAttachmentsAndUnlistedCategory)
{
    LinkItem original =
        makeItem(u"Ancien"_s, u"Disparue"_s, {Attachment{QUuid::createUuid(), u"a.pdf"_s, u"/x/a.pdf"_s}});
    original.isFavorite = true;
    original.notes = u"texte brut<br>suite"_s;
    original.kind = LinkKind::file;
    LinkItem other = makeItem(u"Autre"_s, u"A"_s);
    auto store = startWith({other, original}, {u"A"_s, u"B"_s});
    auto form = openForm(*store, &original);

    EXPECT_EQ(notes(*form)->toPlainText(), u"texte brut\nsuite"_s);
    EXPECT_TRUE(segment(*form, EditLinkView::LinkType::file)->isChecked());
    EXPECT_EQ(child<QComboBox>(form.get(), u"category"_s)->currentIndex(), -1);
    title(*form)->clear();
    QTest::keyClicks(title(*form), u"Nouveau"_s);
    QTest::mouseClick(segment(*form, EditLinkView::LinkType::directory), Qt::LeftButton);
    QTest::mouseClick(confirm(*form), Qt::LeftButton);

    ASSERT_EQ(store->items().size(), 2);
    EXPECT_EQ(store->items().first(), other);
    const LinkItem &edited = store->items().last();
    EXPECT_EQ(edited.id, original.id);
    EXPECT_EQ(edited.createdAt, original.createdAt);
    EXPECT_TRUE(edited.isFavorite);
    EXPECT_EQ(edited.attachments, original.attachments);
    EXPECT_EQ(edited.category, u"Disparue"_s);
    EXPECT_EQ(edited.title, u"Nouveau"_s);
    EXPECT_EQ(edited.kind, LinkKind::directory);
    EXPECT_EQ(edited.notes, head + u"texte brut<br>suite"_s + tail);
    EXPECT_EQ(onDisk().items, store->items());
}

TEST_F(EditLinkViewTest, PickingAnotherCategoryIsStored)
{
    LinkItem original = makeItem(u"Fiche"_s, u"A"_s);
    auto store = startWith({original}, {u"A"_s, u"B"_s, u"B / C"_s});
    auto form = openForm(*store, &original);
    auto *picker = child<QComboBox>(form.get(), u"category"_s);
    EXPECT_EQ(picker->currentText(), u"A"_s);
    QTest::keyClick(picker, Qt::Key_Down);
    QTest::keyClick(picker, Qt::Key_Down);
    QTest::mouseClick(confirm(*form), Qt::LeftButton);
    EXPECT_EQ(store->items().first().category, u"B / C"_s);
}

TEST_F(EditLinkViewTest, RecordDeletedMeanwhileIsNotBroughtBack)
{
    LinkItem original = makeItem(u"Fiche"_s, u"A"_s);
    auto store = startWith({original}, {u"A"_s});
    auto form = openForm(*store, &original);
    store->deleteItem(original.id);
    const QByteArray afterDelete = readBytes(dataFile());
    QTest::mouseClick(confirm(*form), Qt::LeftButton);
    EXPECT_TRUE(store->items().isEmpty());
    EXPECT_EQ(readBytes(dataFile()), afterDelete);
    EXPECT_EQ(form->result(), QDialog::Accepted);
}

TEST_F(EditLinkViewTest, CancelAndEscapeWriteNothing)
{
    for (bool useEscape : {false, true}) {
        auto store = startWith({}, {u"A"_s});
        const QByteArray before = readBytes(dataFile());
        auto form = openForm(*store);
        QTest::keyClicks(title(*form), u"t"_s);
        QTest::keyClicks(path(*form), u"p"_s);
        if (useEscape)
            QTest::keyClick(title(*form), Qt::Key_Escape);
        else
            QTest::mouseClick(child<QPushButton>(form.get(), u"cancel"_s), Qt::LeftButton);
        EXPECT_EQ(form->result(), QDialog::Rejected);
        EXPECT_FALSE(form->isVisible());
        EXPECT_TRUE(store->items().isEmpty());
        EXPECT_EQ(readBytes(dataFile()), before);
    }
}

TEST_F(EditLinkViewTest, SwitchingKindKeepsTheLocationText)
{
    auto store = startWith({}, {u"A"_s});
    auto form = openForm(*store);
    auto *choose = child<QPushButton>(form.get(), u"choose"_s);
    EXPECT_FALSE(choose->isVisibleTo(form.get()));
    EXPECT_EQ(path(*form)->placeholderText(), u"https://…"_s);
    QTest::mouseClick(segment(*form, EditLinkView::LinkType::file), Qt::LeftButton);
    EXPECT_TRUE(choose->isVisibleTo(form.get()));
    EXPECT_TRUE(showsLabel(form.get(), u"Fichier local"_s));
    EXPECT_EQ(path(*form)->placeholderText(), u"Chemin du fichier"_s);
    QTest::keyClicks(path(*form), u"/home/moi/doc.txt"_s);
    QTest::mouseClick(segment(*form, EditLinkView::LinkType::url), Qt::LeftButton);
    EXPECT_TRUE(showsLabel(form.get(), u"URL du site"_s));
    EXPECT_EQ(path(*form)->text(), u"/home/moi/doc.txt"_s);
    EXPECT_EQ(form->linkType(), EditLinkView::LinkType::url);
}

TEST_F(EditLinkViewTest, ChoosingLocationAsksTheRightPanelAndCancelChangesNothing)
{
    auto store = startWith({}, {u"A"_s});
    auto form = openForm(*store);
    QTest::mouseClick(segment(*form, EditLinkView::LinkType::directory), Qt::LeftButton);
    path(*form)->setText(u"avant"_s);
    auto *choose = child<QPushButton>(form.get(), u"choose"_s);

    m_dialogs.openChoices.push_back(std::nullopt);
    QTest::mouseClick(choose, Qt::LeftButton);
    EXPECT_EQ(path(*form)->text(), u"avant"_s);
    EXPECT_EQ(form->linkType(), EditLinkView::LinkType::directory);

    m_dialogs.openChoices.push_back(QStringList{u"/srv/partage"_s});
    QTest::mouseClick(choose, Qt::LeftButton);
    EXPECT_EQ(path(*form)->text(), u"/srv/partage"_s);
    EXPECT_EQ(form->linkType(), EditLinkView::LinkType::directory);
    ASSERT_EQ(m_dialogs.openPanels.size(), 2u);
    EXPECT_EQ(m_dialogs.openPanels[1].kind, OpenPanelRequest::Kind::folders);
    EXPECT_FALSE(m_dialogs.openPanels[1].allowsMultipleSelection);

    QTest::mouseClick(segment(*form, EditLinkView::LinkType::file), Qt::LeftButton);
    m_dialogs.openChoices.push_back(QStringList{u"/srv/fichier.pdf"_s});
    QTest::mouseClick(choose, Qt::LeftButton);
    EXPECT_EQ(m_dialogs.openPanels[2].kind, OpenPanelRequest::Kind::files);
    EXPECT_EQ(form->linkType(), EditLinkView::LinkType::file);
    QTest::keyClicks(title(*form), u"Doc"_s);
    QTest::mouseClick(confirm(*form), Qt::LeftButton);
    ASSERT_EQ(store->items().size(), 1);
    EXPECT_EQ(store->items().first().path, u"/srv/fichier.pdf"_s);
    EXPECT_EQ(store->items().first().kind, LinkKind::file);
}

TEST_F(EditLinkViewTest, PanelAnsweringAfterTheFormClosedIsIgnored)
{
    auto store = startWith({}, {u"A"_s});
    m_dialogs.holdPanels = true;
    {
        auto form = openForm(*store);
        form->chooseLocation(true, false, EditLinkView::LinkType::file);
    }
    m_dialogs.finishOpenPanel(QStringList{u"/late"_s});
    EXPECT_TRUE(store->items().isEmpty());
}

} // namespace
