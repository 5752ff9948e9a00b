#include "ui/editing/EditLinkView.h"

#include <QPlainTextEdit>

#include <algorithm>

#include "support/ScreenTest.h"

using namespace fiva;
using namespace fiva::test;
using namespace Qt::StringLiterals;

namespace {

using LinkType = EditLinkView::LinkType;

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
    static QPushButton *button(EditLinkView &f, const QString &name) { return child<QPushButton>(&f, name); }
    static void pick(EditLinkView &f, LinkType t) { click(button(f, u"linkType%1"_s.arg(int(t)))); }
};

TEST_F(EditLinkViewTest, NewRecordIsStoredTrimmedWithFirstCategoryAndNotesAndComesBackOnEdit)
{
    auto store = startWith({}, {u"Travail"_s, u"Loisirs"_s});
    auto form = openForm(*store);
    EXPECT_TRUE(showsLabel(form.get(), u"Nouvelle fiche"_s));
    EXPECT_EQ(button(*form, u"confirm"_s)->text(), u"Ajouter"_s);
    QTest::keyClicks(title(*form), u"  Mon site\t "_s);
    QTest::keyClicks(path(*form), u" https://example.org  "_s);
    QTest::keyClicks(notes(*form), u"ligne <b>1</b> & co"_s);
    QTest::keyClick(notes(*form), Qt::Key_Return);
    QTest::keyClicks(notes(*form), u"ligne 2"_s);
    click(button(*form, u"confirm"_s));

    EXPECT_TRUE(m_dialogs.alerts.empty());
    EXPECT_EQ(form->result(), QDialog::Accepted);
    ASSERT_EQ(store->items().size(), 1);
    const LinkItem item = store->items().first();
    EXPECT_FALSE(item.id.isNull());
    // The store sorts its list, so the first entry is "Loisirs".
    EXPECT_EQ(item, (LinkItem{item.id, u"Mon site"_s, u"https://example.org"_s, u"Loisirs"_s,
                              editFormNotes(u"ligne <b>1</b> & co<br>ligne 2"_s), newYear2025, false,
                              QList<Attachment>(), LinkKind::url}));
    EXPECT_EQ(onDisk().items, store->items());

    auto again = openForm(*store, &item);
    EXPECT_TRUE(showsLabel(again.get(), u"Modifier la fiche"_s));
    EXPECT_EQ(button(*again, u"confirm"_s)->text(), u"Enregistrer"_s);
    EXPECT_EQ(notes(*again)->toPlainText(), u"ligne <b>1</b> & co\nligne 2"_s);
}

TEST_F(EditLinkViewTest, ConfirmingNeedsATitleAndALocationAfterTrimmingWhileCancelAndEscapeWriteNothing)
{
    enum Leave { confirm, returnKey, escape, cancel };
    // Title and location (set rather than typed: a line feed cannot be typed into a line edit), how the
    // form is left, whether that stores a record.
    const struct
    {
        QString title;
        QString path;
        Leave leave;
        bool stored;
    } cases[]{{u""_s, u"x"_s, confirm, false},     {u"x"_s, u""_s, confirm, false},
              {u" \t "_s, u"x"_s, confirm, false}, {u"x"_s, u"\u00a0\u2003"_s, confirm, false},
              {u"\n"_s, u"x"_s, confirm, true},    {u" a "_s, u" b "_s, confirm, true},
              {u"t"_s, u"p"_s, returnKey, true},   {u"t"_s, u"p"_s, escape, false},
              {u"t"_s, u"p"_s, cancel, false}};
    for (const auto &c : cases) {
        SCOPED_TRACE(QString(c.title + u'|' + c.path + u'|' + QString::number(c.leave)).toStdString());
        m_dialogs.alerts.clear();
        auto store = startWith({}, {});
        const QByteArray before = readBytes(dataFile());
        auto form = openForm(*store);
        EXPECT_EQ(form->category(), u"Sans catégorie"_s);
        title(*form)->setText(c.title);
        path(*form)->setText(c.path);
        if (c.leave == confirm || c.leave == cancel)
            click(button(*form, c.leave == confirm ? u"confirm"_s : u"cancel"_s));
        else
            QTest::keyClick(title(*form), c.leave == returnKey ? Qt::Key_Return : Qt::Key_Escape);
        EXPECT_EQ(store->items().size(), c.stored ? 1 : 0);
        if (c.stored) {
            EXPECT_TRUE(m_dialogs.alerts.empty());
            EXPECT_FALSE(form->isVisible());
            EXPECT_EQ(form->result(), QDialog::Accepted);
            EXPECT_EQ(store->items().first().category, u"Sans catégorie"_s);
            EXPECT_EQ(store->items().first().notes, editFormNotes({}));
            continue;
        }
        EXPECT_EQ(readBytes(dataFile()), before);
        if (c.leave != confirm) {
            EXPECT_FALSE(form->isVisible());
            EXPECT_EQ(form->result(), QDialog::Rejected);
            continue;
        }
        EXPECT_EQ(alertTexts(m_dialogs),
                  QStringList{u"Champs requis|Le titre et le lien ne doivent pas être vides.|warning|OK"_s});
        EXPECT_TRUE(form->isVisible());
        EXPECT_EQ(title(*form)->text(), c.title);
        EXPECT_EQ(path(*form)->text(), c.path);
    }
}

TEST_F(EditLinkViewTest, EditingKeepsIdentityDateFavouriteAttachmentsAndUnlistedCategory)
{
    LinkItem original =
        makeItem(u"Ancien"_s, u"Disparue"_s, {Attachment{QUuid::createUuid(), u"a.pdf"_s, u"/x/a.pdf"_s}});
    original.isFavorite = true;
    original.notes = u"texte brut<br>suite"_s;
    original.kind = LinkKind::file;
    const LinkItem other = makeItem(u"Autre"_s, u"A"_s);
    auto store = startWith({other, original}, {u"A"_s, u"B"_s, u"B / C"_s});
    auto form = openForm(*store, &original);
    EXPECT_EQ(notes(*form)->toPlainText(), u"texte brut\nsuite"_s);
    EXPECT_TRUE(button(*form, u"linkType1"_s)->isChecked());
    EXPECT_EQ(child<QComboBox>(form.get(), u"category"_s)->currentIndex(), -1);
    title(*form)->clear();
    QTest::keyClicks(title(*form), u"Nouveau"_s);
    pick(*form, LinkType::directory);
    click(button(*form, u"confirm"_s));

    ASSERT_EQ(store->items().size(), 2);
    EXPECT_EQ(store->items().first(), other);
    LinkItem expected = original;
    expected.title = u"Nouveau"_s;
    expected.kind = LinkKind::directory;
    expected.notes = editFormNotes(u"texte brut<br>suite"_s);
    EXPECT_EQ(store->items().last(), expected);
    EXPECT_EQ(onDisk().items, store->items());

    // Values far past a line edit's default limit open whole and are saved unchanged.
    LinkItem longOne = makeItem(u"L"_s, u"A"_s);
    for (int i = 0; longOne.title.size() < 100000; ++i)
        longOne.title += QString::number(i) + u"é-"_s;
    longOne.path = u"data:text/plain,"_s + QString(100000, u'x') + u"fin"_s;
    store->addItem(longOne);
    auto longForm = openForm(*store, &longOne);
    EXPECT_EQ(title(*longForm)->text(), longOne.title);
    EXPECT_EQ(path(*longForm)->text(), longOne.path);
    click(button(*longForm, u"confirm"_s));
    const auto saved = std::find_if(store->items().cbegin(), store->items().cend(),
                                    [&](const LinkItem &i) { return i.id == longOne.id; });
    ASSERT_NE(saved, store->items().cend());
    EXPECT_EQ(saved->title, longOne.title);
    EXPECT_EQ(saved->path, longOne.path);
    store->deleteItem(longOne.id);

    // A listed category shows, and picking another one stores it.
    auto again = openForm(*store, &store->items().first());
    auto *picker = child<QComboBox>(again.get(), u"category"_s);
    EXPECT_EQ(picker->currentText(), u"A"_s);
    QTest::keyClick(picker, Qt::Key_Down);
    QTest::keyClick(picker, Qt::Key_Down);
    click(button(*again, u"confirm"_s));
    EXPECT_EQ(store->items().first().category, u"B / C"_s);
}

TEST_F(EditLinkViewTest, ARecordDeletedOrAFormClosedMeanwhileIsLeftAlone)
{
    const LinkItem original = makeItem(u"Fiche"_s, u"A"_s);
    auto store = startWith({original}, {u"A"_s});
    auto form = openForm(*store, &original);
    store->deleteItem(original.id);
    const QByteArray afterDelete = readBytes(dataFile());
    click(button(*form, u"confirm"_s));
    EXPECT_EQ(form->result(), QDialog::Accepted);
    EXPECT_TRUE(store->items().isEmpty());
    EXPECT_EQ(readBytes(dataFile()), afterDelete);

    // A panel answering after its form is gone.
    m_dialogs.holdPanels = true;
    openForm(*store)->chooseLocation(true, false, LinkType::file);
    m_dialogs.finishOpenPanel(QStringList{u"/late"_s});
    EXPECT_TRUE(store->items().isEmpty());
}

TEST_F(EditLinkViewTest, EachKindRelabelsTheLocationKeepsItsTextAndChoosesWithItsOwnPanel)
{
    auto store = startWith({}, {u"A"_s});
    auto form = openForm(*store);
    QPushButton *choose = button(*form, u"choose"_s);
    // The location's label, its placeholder and whether it can be chosen.
    const auto block = [&] {
        QString label = u"?"_s;
        for (const QString &text : {u"URL du site"_s, u"Fichier local"_s, u"Dossier"_s}) {
            if (showsLabel(form.get(), text))
                label = text;
        }
        return QString(label + u'|' + path(*form)->placeholderText() +
                       (choose->isVisibleTo(form.get()) ? u"|…"_s : u""_s));
    };
    EXPECT_EQ(block(), u"URL du site|https://…"_s);
    pick(*form, LinkType::file);
    EXPECT_EQ(block(), u"Fichier local|Chemin du fichier|…"_s);
    QTest::keyClicks(path(*form), u"/home/moi/doc.txt"_s);
    pick(*form, LinkType::url);
    EXPECT_EQ(block(), u"URL du site|https://…"_s);
    EXPECT_EQ(path(*form)->text(), u"/home/moi/doc.txt"_s);
    pick(*form, LinkType::directory);
    EXPECT_EQ(block(), u"Dossier|Chemin du dossier|…"_s);

    m_dialogs.openChoices = {std::nullopt, QStringList{u"/srv/partage"_s},
                             QStringList{u"/srv/fichier.pdf"_s}};
    click(choose);
    EXPECT_EQ(path(*form)->text(), u"/home/moi/doc.txt"_s);
    click(choose);
    EXPECT_EQ(path(*form)->text(), u"/srv/partage"_s);
    EXPECT_EQ(form->linkType(), LinkType::directory);
    pick(*form, LinkType::file);
    click(choose);
    using Kind = OpenPanelRequest::Kind;
    EXPECT_EQ(m_dialogs.openPanels, (std::vector<OpenPanelRequest>{{Kind::folders, {}, false, {}},
                                                                   {Kind::folders, {}, false, {}},
                                                                   {Kind::files, {}, false, {}}}));
    QTest::keyClicks(title(*form), u"Doc"_s);
    click(button(*form, u"confirm"_s));
    ASSERT_EQ(store->items().size(), 1);
    EXPECT_EQ(store->items().first().path, u"/srv/fichier.pdf"_s);
    EXPECT_EQ(store->items().first().kind, LinkKind::file);
}

} // namespace
