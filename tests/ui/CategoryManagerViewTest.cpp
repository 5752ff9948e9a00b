#include "ui/editing/CategoryManagerView.h"

#include <QListWidget>

#include "support/ScreenTest.h"

using namespace fiva;
using namespace fiva::test;
using namespace Qt::StringLiterals;

namespace {

// The store's category operations trim the names, relabel the records and save, under tests of their own;
// these check which names the sheet hands them and what it shows meanwhile.
class CategoryManagerViewTest : public ScreenTest
{
protected:
    std::unique_ptr<CategoryManagerView> openSheet(LinkStore &store)
    {
        auto sheet = std::make_unique<CategoryManagerView>(store, m_dialogs);
        sheet->show();
        return sheet;
    }
    static QListWidget *list(CategoryManagerView &s) { return child<QListWidget>(&s, u"categoryList"_s); }
    static QString rows(CategoryManagerView &s) { return rowTexts(*list(s)->model(), Qt::DisplayRole); }
    static void select(CategoryManagerView &s, const QString &name)
    {
        clickRow(list(s), int(rows(s).split(u'|').indexOf(name)));
    }
    // The three right-hand sections: the sub-category field, then each button's text, or their hints.
    static QString sections(CategoryManagerView &s)
    {
        QStringList shown;
        for (const QString &hint :
             {u"Sélectionnez une catégorie à gauche."_s, u"Sélectionnez une catégorie pour la renommer."_s,
              u"Sélectionnez une catégorie à supprimer."_s}) {
            if (showsLabel(&s, hint))
                shown << hint;
        }
        if (child<QLineEdit>(&s, u"newSubCategory"_s)->isVisible())
            shown << u"sous-catégorie"_s;
        for (const QString &name : {u"rename"_s, u"delete"_s}) {
            if (auto *button = child<QPushButton>(&s, name); button->isVisible())
                shown << button->text();
        }
        return shown.join(u'|');
    }
    static const inline QString hints =
        u"Sélectionnez une catégorie à gauche.|Sélectionnez une catégorie pour la "
        u"renommer.|Sélectionnez une catégorie à supprimer."_s;
};

TEST_F(CategoryManagerViewTest, WithoutSelectionShowsHintsAndClosesWithFermerOrEscape)
{
    auto store = startWith({}, {u"B"_s, u"A"_s});
    auto sheet = openSheet(*store);
    EXPECT_EQ(rows(*sheet), u"A|B"_s);
    EXPECT_EQ(sections(*sheet), hints);
    EXPECT_FALSE(sheet->selectedCategory());
    // A Ctrl-click on the selected line empties the selection, and the sheet forgets the name.
    select(*sheet, u"B"_s);
    const QModelIndex b = list(*sheet)->model()->index(1, 0);
    QTest::mouseClick(list(*sheet)->viewport(), Qt::LeftButton, Qt::ControlModifier,
                      list(*sheet)->visualRect(b).center());
    EXPECT_TRUE(list(*sheet)->selectedItems().isEmpty());
    EXPECT_FALSE(sheet->selectedCategory());
    EXPECT_EQ(sections(*sheet), hints);

    click(child<QPushButton>(sheet.get(), u"close"_s));
    EXPECT_FALSE(sheet->isVisible());
    sheet->show();
    QTest::keyClick(list(*sheet), Qt::Key_Escape);
    EXPECT_FALSE(sheet->isVisible());
    EXPECT_EQ(store->categories(), (QStringList{u"A"_s, u"B"_s}));
}

TEST_F(CategoryManagerViewTest, AddButtonsFollowTheTrimmedTextAndSubCategoriesNestUnderTheSelection)
{
    auto store = startWith({}, {u"Travail"_s});
    auto sheet = openSheet(*store);
    auto *field = child<QLineEdit>(sheet.get(), u"newCategory"_s);
    auto *add = child<QPushButton>(sheet.get(), u"addCategory"_s);
    EXPECT_FALSE(add->isEnabled());
    QTest::keyClicks(field, u" \t "_s);
    EXPECT_FALSE(add->isEnabled());
    QTest::keyClicks(field, u"Loisirs "_s);
    EXPECT_TRUE(add->isEnabled());
    click(add);
    EXPECT_EQ(store->categories(), (QStringList{u"Loisirs"_s, u"Travail"_s}));
    EXPECT_EQ(rows(*sheet), u"Loisirs|Travail"_s);
    EXPECT_TRUE(field->text().isEmpty());
    EXPECT_FALSE(add->isEnabled());
    // A name already there changes nothing, but the field still empties.
    QTest::keyClicks(field, u"Travail"_s);
    click(add);
    EXPECT_EQ(store->categories(), (QStringList{u"Loisirs"_s, u"Travail"_s}));
    EXPECT_TRUE(field->text().isEmpty());

    select(*sheet, u"Travail"_s);
    EXPECT_EQ(sheet->selectedCategory(), u"Travail"_s);
    EXPECT_EQ(sections(*sheet), u"sous-catégorie|Renommer « Travail »|Supprimer « Travail »"_s);
    auto *subField = child<QLineEdit>(sheet.get(), u"newSubCategory"_s);
    auto *addSub = child<QPushButton>(sheet.get(), u"addSubCategory"_s);
    EXPECT_FALSE(addSub->isEnabled());
    QTest::keyClicks(subField, u" Projets"_s);
    click(addSub);
    EXPECT_EQ(store->categories(), (QStringList{u"Loisirs"_s, u"Travail"_s, u"Travail / Projets"_s}));
    EXPECT_TRUE(subField->text().isEmpty());
    EXPECT_EQ(sheet->selectedCategory(), u"Travail"_s);

    select(*sheet, u"Travail / Projets"_s);
    QTest::keyClicks(subField, u"2026"_s);
    QTest::keyClick(subField, Qt::Key_Return);
    EXPECT_TRUE(store->categories().contains(u"Travail / Projets / 2026"_s));
}

TEST_F(CategoryManagerViewTest, RenameAndDeleteAskFirstAndActOnTheSelectedName)
{
    auto store = startWith({}, {u"Travail"_s, u"Travail / Projets"_s});
    auto sheet = openSheet(*store);
    select(*sheet, u"Travail"_s);
    auto *rename = child<QPushButton>(sheet.get(), u"rename"_s);
    auto *remove = child<QPushButton>(sheet.get(), u"delete"_s);
    m_dialogs.alertAnswers = {{1, u"Ignoré"_s}, {1, {}}, {0, u"  Boulot\t"_s}};
    click(rename);
    click(remove);
    EXPECT_EQ(store->categories(), (QStringList{u"Travail"_s, u"Travail / Projets"_s}));
    EXPECT_EQ(sheet->selectedCategory(), u"Travail"_s);

    click(rename);
    EXPECT_EQ(store->categories(), (QStringList{u"Boulot"_s, u"Travail / Projets"_s}));
    // The old name stays selected in the sheet although no line shows it.
    EXPECT_EQ(sections(*sheet), u"sous-catégorie|Renommer « Travail »|Supprimer « Travail »"_s);
    EXPECT_TRUE(list(*sheet)->selectedItems().isEmpty());

    select(*sheet, u"Boulot"_s);
    click(remove);
    const QString renaming = u"Renommer la catégorie|Entrez le nouveau nom :|info|OK,Annuler|Travail"_s;
    const QString deleting =
        u" » ?|Cette action supprimera la catégorie dans toutes les fiches qui l’utilisent."
        u"|warning|Supprimer,Annuler"_s;
    EXPECT_EQ(alertTexts(m_dialogs),
              (QStringList{renaming, u"Supprimer la catégorie « Travail"_s + deleting, renaming,
                           u"Supprimer la catégorie « Boulot"_s + deleting}));
    EXPECT_EQ(store->categories(), QStringList{u"Travail / Projets"_s});
    EXPECT_FALSE(sheet->selectedCategory());
    EXPECT_TRUE(list(*sheet)->selectedItems().isEmpty());
    EXPECT_EQ(sections(*sheet), hints);
}

} // namespace
