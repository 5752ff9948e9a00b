#include "ui/editing/CategoryManagerView.h"

#include <QLineEdit>
#include <QPushButton>

#include "ScreensTestSupport.h"

using namespace fiva;
using namespace fiva::test;
using namespace Qt::StringLiterals;

namespace {

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
    static QStringList rows(CategoryManagerView &s)
    {
        QStringList texts;
        for (int i = 0; i < list(s)->count(); ++i)
            texts.append(list(s)->item(i)->text());
        return texts;
    }
    static void select(CategoryManagerView &s, const QString &name)
    {
        const int row = static_cast<int>(rows(s).indexOf(name));
        ASSERT_GE(row, 0) << name.toStdString();
        clickListRow(list(s), row);
    }
    static bool hintsShown(CategoryManagerView &s)
    {
        return showsLabel(&s, u"Sélectionnez une catégorie à gauche."_s) &&
               showsLabel(&s, u"Sélectionnez une catégorie pour la renommer."_s) &&
               showsLabel(&s, u"Sélectionnez une catégorie à supprimer."_s);
    }
    static QPushButton *button(CategoryManagerView &s, const QString &name)
    {
        return child<QPushButton>(&s, name);
    }
};

TEST_F(CategoryManagerViewTest, WithoutSelectionShowsHintsAndNoButtons)
{
    auto store = startWith({}, {u"B"_s, u"A"_s});
    auto sheet = openSheet(*store);
    EXPECT_EQ(rows(*sheet), (QStringList{u"A"_s, u"B"_s}));
    EXPECT_TRUE(hintsShown(*sheet));
    EXPECT_FALSE(button(*sheet, u"rename"_s)->isVisible());
    EXPECT_FALSE(button(*sheet, u"delete"_s)->isVisible());
    EXPECT_FALSE(child<QLineEdit>(sheet.get(), u"newSubCategory"_s)->isVisible());
    EXPECT_FALSE(sheet->selectedCategory());
}

TEST_F(CategoryManagerViewTest, AddButtonFollowsTrimmedTextAndFieldEmptiesEvenForDuplicates)
{
    auto store = startWith({}, {u"Travail"_s});
    auto sheet = openSheet(*store);
    auto *field = child<QLineEdit>(sheet.get(), u"newCategory"_s);
    auto *add = button(*sheet, u"addCategory"_s);
    EXPECT_FALSE(add->isEnabled());
    QTest::keyClicks(field, u" \t "_s);
    EXPECT_FALSE(add->isEnabled());
    QTest::keyClicks(field, u"Loisirs "_s);
    EXPECT_TRUE(add->isEnabled());
    QTest::mouseClick(add, Qt::LeftButton);
    EXPECT_EQ(store->categories(), (QStringList{u"Loisirs"_s, u"Travail"_s}));
    EXPECT_EQ(rows(*sheet), store->categories());
    EXPECT_EQ(onDisk().categories, store->categories());
    EXPECT_TRUE(field->text().isEmpty());
    EXPECT_FALSE(add->isEnabled());

    QTest::keyClicks(field, u"Travail"_s);
    QTest::mouseClick(add, Qt::LeftButton);
    EXPECT_EQ(store->categories(), (QStringList{u"Loisirs"_s, u"Travail"_s}));
    EXPECT_TRUE(field->text().isEmpty());
}

TEST_F(CategoryManagerViewTest, SubCategoriesNestUnderTheSelection)
{
    auto store = startWith({}, {u"Travail"_s});
    auto sheet = openSheet(*store);
    select(*sheet, u"Travail"_s);
    EXPECT_EQ(sheet->selectedCategory(), u"Travail"_s);
    EXPECT_FALSE(showsLabel(sheet.get(), u"Sélectionnez une catégorie à gauche."_s));
    auto *field = child<QLineEdit>(sheet.get(), u"newSubCategory"_s);
    auto *add = button(*sheet, u"addSubCategory"_s);
    EXPECT_FALSE(add->isEnabled());
    QTest::keyClicks(field, u" Projets"_s);
    QTest::mouseClick(add, Qt::LeftButton);
    EXPECT_EQ(store->categories(), (QStringList{u"Travail"_s, u"Travail / Projets"_s}));
    EXPECT_TRUE(field->text().isEmpty());
    EXPECT_EQ(sheet->selectedCategory(), u"Travail"_s);

    select(*sheet, u"Travail / Projets"_s);
    QTest::keyClicks(field, u"2026"_s);
    QTest::keyClick(field, Qt::Key_Return);
    EXPECT_TRUE(store->categories().contains(u"Travail / Projets / 2026"_s));
    EXPECT_EQ(onDisk().categories, store->categories());
}

TEST_F(CategoryManagerViewTest, RenameAsksWithTheNameAndRelabelsRecords)
{
    auto store = startWith({makeItem(u"r"_s, u"Travail"_s), makeItem(u"s"_s, u"Travail / Projets"_s)},
                           {u"Travail"_s, u"Travail / Projets"_s});
    auto sheet = openSheet(*store);
    select(*sheet, u"Travail"_s);
    auto *rename = button(*sheet, u"rename"_s);
    EXPECT_EQ(rename->text(), u"Renommer « Travail »"_s);

    m_dialogs.alertAnswers.push_back({1, u"Ignoré"_s});
    QTest::mouseClick(rename, Qt::LeftButton);
    EXPECT_EQ(store->categories(), (QStringList{u"Travail"_s, u"Travail / Projets"_s}));

    m_dialogs.alertAnswers.push_back({0, u"  Boulot\t"_s});
    QTest::mouseClick(rename, Qt::LeftButton);
    ASSERT_EQ(m_dialogs.alerts.size(), 2u);
    const AlertRequest expected{u"Renommer la catégorie"_s,
                                u"Entrez le nouveau nom :"_s,
                                AlertStyle::informational,
                                {u"OK"_s, u"Annuler"_s},
                                u"Travail"_s};
    EXPECT_EQ(m_dialogs.alerts[1], expected);
    EXPECT_EQ(store->categories(), (QStringList{u"Boulot"_s, u"Travail / Projets"_s}));
    EXPECT_EQ(store->items()[0].category, u"Boulot"_s);
    EXPECT_EQ(store->items()[1].category, u"Travail / Projets"_s);
    EXPECT_EQ(onDisk().items, store->items());
    // The old name stays selected in the sheet although no line shows it.
    EXPECT_EQ(rename->text(), u"Renommer « Travail »"_s);
    EXPECT_EQ(button(*sheet, u"delete"_s)->text(), u"Supprimer « Travail »"_s);
    EXPECT_TRUE(list(*sheet)->selectedItems().isEmpty());
}

TEST_F(CategoryManagerViewTest, DeleteConfirmsThenFallsBackAndClearsSelection)
{
    auto store = startWith({makeItem(u"r"_s, u"Travail"_s), makeItem(u"s"_s, u"Travail / Projets"_s)},
                           {u"Travail"_s, u"Travail / Projets"_s});
    auto sheet = openSheet(*store);
    select(*sheet, u"Travail"_s);
    auto *remove = button(*sheet, u"delete"_s);

    m_dialogs.alertAnswers.push_back({1, {}});
    QTest::mouseClick(remove, Qt::LeftButton);
    EXPECT_EQ(store->categories().size(), 2);
    EXPECT_EQ(sheet->selectedCategory(), u"Travail"_s);

    QTest::mouseClick(remove, Qt::LeftButton);
    ASSERT_EQ(m_dialogs.alerts.size(), 2u);
    const AlertRequest expected{
        u"Supprimer la catégorie « Travail » ?"_s,
        u"Cette action supprimera la catégorie dans toutes les fiches qui l’utilisent."_s,
        AlertStyle::warning,
        {u"Supprimer"_s, u"Annuler"_s},
        std::nullopt};
    EXPECT_EQ(m_dialogs.alerts[1], expected);
    EXPECT_EQ(store->categories(), QStringList{u"Travail / Projets"_s});
    EXPECT_EQ(store->items()[0].category, u"Sans catégorie"_s);
    EXPECT_EQ(store->items()[1].category, u"Travail / Projets"_s);
    EXPECT_EQ(onDisk().items, store->items());
    EXPECT_FALSE(sheet->selectedCategory());
    EXPECT_TRUE(list(*sheet)->selectedItems().isEmpty());
    EXPECT_TRUE(hintsShown(*sheet));
}

TEST_F(CategoryManagerViewTest, FermerAndEscapeClose)
{
    auto store = startWith({}, {u"A"_s});
    auto sheet = openSheet(*store);
    QTest::mouseClick(button(*sheet, u"close"_s), Qt::LeftButton);
    EXPECT_FALSE(sheet->isVisible());
    sheet->show();
    QTest::keyClick(list(*sheet), Qt::Key_Escape);
    EXPECT_FALSE(sheet->isVisible());
    EXPECT_EQ(store->categories(), QStringList{u"A"_s});
}

} // namespace
