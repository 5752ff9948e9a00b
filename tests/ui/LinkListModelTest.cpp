#include "ui/main/LinkListModel.h"

#include "list/FilterEngine.h"
#include "list/FilterState.h"

#include <QAbstractItemModelTester>
#include <QItemSelectionModel>
#include <QSignalSpy>

#include <gtest/gtest.h>

#include "support/TestCommon.h"

using namespace fiva;
using namespace fiva::test;
using namespace Qt::StringLiterals;

namespace {

class LinkListModelTest : public ::testing::Test
{
protected:
    LinkListModelTest()
    {
        m_items = {
            makeItem({u"Provence"_s, u"https://provence.fr"_s, editFormNotes(u"lavande"_s), u"Voyages"_s, 30,
                      true}),
            makeItem({u"Projet"_s, u"/home/moi/projet"_s, std::nullopt, u"Travail"_s, 20}),
            makeItem({u"Recette"_s, u"/home/moi/recette.pdf"_s, u""_s, u"Cuisine"_s, 10}),
            makeItem({u"Promenade"_s, u"https://rando.fr"_s, u"sentier"_s, u"Voyages"_s, 40}),
        };
        m_model.setFilterState(FilterState());
        m_model.setItems(m_items);
    }

    QString titles() const { return rowTexts(m_model, LinkListModel::TitleRole); }

    void search(const QString &text)
    {
        FilterState state = m_model.filterState();
        state.searchText = text;
        m_model.setFilterState(state);
    }

    QList<LinkItem> m_items;
    LinkListModel m_model;
    QAbstractItemModelTester m_tester{&m_model, QAbstractItemModelTester::FailureReportingMode::Fatal};
};

TEST_F(LinkListModelTest, RowsExposeTheRecordFieldsNewestFirst)
{
    QStringList rows;
    for (int row = 0; row < m_model.rowCount(); ++row) {
        const QModelIndex index = m_model.index(row);
        const QVariant notes = index.data(LinkListModel::NotesRole);
        rows << QStringList{index.data(LinkListModel::TitleRole).toString(),
                            index.data(LinkListModel::PathRole).toString(),
                            notes.isValid() ? notes.toString() : u"-"_s,
                            index.data(LinkListModel::FavoriteRole).toBool() ? u"★"_s : u"☆"_s}
                    .join(u'|');
        EXPECT_EQ(index.data(LinkListModel::IdRole).toUuid(), m_model.idAt(row));
        EXPECT_EQ(m_model.rowOf(m_model.idAt(row)), row);
    }
    // Empty notes show no third line.
    EXPECT_EQ(rows, (QStringList{u"Promenade|https://rando.fr|sentier|☆"_s,
                                 u"Provence|https://provence.fr|"_s + editFormNotes(u"lavande"_s) + u"|★"_s,
                                 u"Projet|/home/moi/projet|-|☆"_s, u"Recette|/home/moi/recette.pdf|-|☆"_s}));
    EXPECT_EQ(m_model.idAt(4), QUuid());
    EXPECT_EQ(m_model.rowOf(QUuid::createUuid()), -1);
}

TEST_F(LinkListModelTest, SelectionFollowsItsRecordWhileTyping)
{
    QItemSelectionModel selection(&m_model);
    const QUuid provence = m_items[0].id;
    selection.setCurrentIndex(m_model.index(m_model.rowOf(provence)), QItemSelectionModel::ClearAndSelect);

    // What is typed, the titles listed, the record selected. Once its record is filtered out the
    // selection is gone for good; the window keeps the selected id itself and selects rowOf(id) again.
    const std::tuple<QString, QString, QString> typing[]{
        {u"p"_s, u"Promenade|Provence|Projet|Recette"_s, u"Provence"_s},
        {u"pr"_s, u"Promenade|Provence|Projet"_s, u"Provence"_s},
        {u"pro"_s, u"Promenade|Provence|Projet"_s, u"Provence"_s},
        {u"prov"_s, u"Provence"_s, u"Provence"_s},
        {u"pro"_s, u"Promenade|Provence|Projet"_s, u"Provence"_s},
        {u"proj"_s, u"Projet"_s, u"-"_s},
        {u""_s, u"Promenade|Provence|Projet|Recette"_s, u"-"_s}};
    for (const auto &[text, listed, selected] : typing) {
        SCOPED_TRACE(text.toStdString());
        search(text);
        EXPECT_EQ(titles(), listed);
        const QModelIndex current = selection.currentIndex();
        const bool shown = current.isValid() && selection.isSelected(current);
        EXPECT_EQ(shown ? current.data(LinkListModel::TitleRole).toString() : u"-"_s, selected);
    }
    EXPECT_EQ(m_model.idAt(m_model.rowOf(provence)), provence);
}

TEST_F(LinkListModelTest, ChangedRecordsReachTheRows)
{
    QSignalSpy changed(&m_model, &QAbstractItemModel::dataChanged);
    QList<LinkItem> toggled = m_items;
    toggled[1].isFavorite = true;
    m_model.setItems(toggled);
    EXPECT_FALSE(changed.isEmpty());
    EXPECT_TRUE(m_model.index(m_model.rowOf(toggled[1].id)).data(LinkListModel::FavoriteRole).toBool());

    QPersistentModelIndex projet(m_model.index(m_model.rowOf(m_items[1].id)));
    QList<LinkItem> edited = toggled;
    edited[1].createdAt = Timestamp{100};
    edited.removeAt(0);
    edited.append(makeItem({u"Nouveau"_s, u"https://neuf.fr"_s, std::nullopt, u"Voyages"_s, 50}));
    m_model.setItems(edited);
    EXPECT_EQ(titles(), u"Projet|Nouveau|Promenade|Recette"_s);
    ASSERT_TRUE(projet.isValid());
    EXPECT_EQ(projet.row(), 0);

    FilterState favourites = m_model.filterState();
    favourites.showFavoritesOnly = true;
    m_model.setFilterState(favourites);
    EXPECT_EQ(titles(), u"Projet"_s);
    m_model.setItems({});
    EXPECT_EQ(m_model.rowCount(), 0);
    EXPECT_FALSE(projet.isValid());
}

} // namespace
