#include "ui/main/FilterEngine.h"
#include "ui/main/ListFilter.h"
#include "ui/main/SearchText.h"
#include "ui/main/SortOrder.h"

#include <QCollator>
#include <QLocale>

#include <functional>
#include <gtest/gtest.h>
#include <vector>

#include "FilterTestSupport.h"

using namespace fiva;
using namespace Qt::StringLiterals;
using fiva::test::editFormNotes;
using fiva::test::ItemSpec;
using fiva::test::makeItem;

namespace {

// Every rule is checked on both the plain evaluation and the cached engine, each fresh, so that a
// rule the engine gets right only by falling back on recomputation still shows.
enum class Implementation { plain, engine };

QStringList listedTitles(Implementation implementation, const std::vector<ItemSpec> &specs,
                         const FilterState &state)
{
    QList<LinkItem> items;
    for (const ItemSpec &spec : specs)
        items.append(makeItem(spec));
    const QCollator collator{QLocale(QLocale::French, QLocale::France)};
    QStringList titles;
    if (implementation == Implementation::plain) {
        for (const LinkItem &item : filteredItems(items, state, collator))
            titles.append(item.title);
    } else {
        FilterEngine engine(collator);
        engine.setItems(items);
        for (int row : engine.rows(state))
            titles.append(items[row].title);
    }
    return titles;
}

struct RuleCase
{
    const char *name;
    std::vector<ItemSpec> items;
    std::function<void(FilterState &)> adjust;
    QStringList expected;
};

const QString decomposedEte = QStringLiteral(u"E\u0301te\u0301 a\u0300 Arles");
const QString decomposedEte2 = QStringLiteral(u"e\u0301te\u0301");

std::vector<RuleCase> searchCases()
{
    const auto search = [](QString text) { return [text](FilterState &s) { s.searchText = text; }; };
    return {
        {"upper-case query finds lower-case title",
         {{u"Été en Provence"_s}, {u"Hiver"_s}},
         search(u"ÉTÉ"_s),
         {u"Été en Provence"_s}},
        {"no accent folding", {{u"Été en Provence"_s}}, search(u"ete"_s), {}},
        {"precomposed query finds decomposed title",
         {{decomposedEte}, {u"Autre"_s}},
         search(u"été"_s),
         {decomposedEte}},
        {"decomposed query finds precomposed title", {{u"Café"_s}}, search(u"cafe\u0301"_s), {u"Café"_s}},
        {"base letter does not match inside an accented one", {{u"cafe\u0301"_s}}, search(u"cafe"_s), {}},
        {"letter without precomposed form keeps its accent",
         {{u"q\u0301uoi"_s}, {u"quoi"_s}},
         search(u"q"_s),
         {u"quoi"_s}},
        {"lone combining mark matches no accented letter", {{u"q\u0301uoi"_s}}, search(u"\u0301"_s), {}},
        {"sharp s is found by itself", {{u"Straße"_s}}, search(u"STRAẞE"_s), {u"Straße"_s}},
        {"lower-casing does not expand sharp s", {{u"Straße"_s}}, search(u"strasse"_s), {}},
        {"dotted capital I lowers to i and a dot", {{u"İstanbul"_s}}, search(u"İSTANBUL"_s), {u"İstanbul"_s}},
        {"dotless query misses the dotted I", {{u"İstanbul"_s}}, search(u"istanbul"_s), {}},
        {"final sigma", {{u"ΟΔΟΣ ΚΑΛΗ"_s}}, search(u"οδος"_s), {u"ΟΔΟΣ ΚΑΛΗ"_s}},
        {"medial sigma", {{u"ΟΔΟΣΣΑ"_s}}, search(u"οδοσσα"_s), {u"ΟΔΟΣΣΑ"_s}},
        {"a single space", {{u"deux mots"_s}, {u"unmot"_s}}, search(u" "_s), {u"deux mots"_s}},
        {"spaces are not trimmed", {{u"deux mots"_s}}, search(u"mots "_s), {}},
        {"path is searched", {{u"Titre"_s, u"/home/moi/Rapport.pdf"_s}}, search(u"rapport"_s), {u"Titre"_s}},
        {"no match across title and path", {{u"ab"_s, u"cd"_s}}, search(u"bc"_s), {}},
        {"no match across path and notes", {{u"t"_s, u"ab"_s, u"cd"_s}}, search(u"bc"_s), {}},
        {"notes are searched",
         {{u"a"_s, u"p"_s, u"Recette du gâteau"_s}, {u"b"_s}},
         search(u"GÂTEAU"_s),
         {u"a"_s}},
        {"markup of edit-form notes is searchable",
         {{u"a"_s, u"p"_s, editFormNotes({})}, {u"b"_s}, {u"c"_s, u"p"_s, u"nue"_s}},
         search(u"body"_s),
         {u"a"_s}},
        {"charset is searched lower-cased",
         {{u"a"_s, u"p"_s, editFormNotes(u"x"_s)}},
         search(u"UTF-8"_s),
         {u"a"_s}},
        {"query straddling the head and the text",
         {{u"a"_s, u"p"_s, editFormNotes(u"Bonjour"_s)}, {u"b"_s, u"p"_s, editFormNotes(u"Salut"_s)}},
         search(u"<p>bonjour"_s),
         {u"a"_s}},
        {"long query straddling the head and the text",
         {{u"a"_s, u"p"_s, editFormNotes(u"Bonjour"_s)}, {u"b"_s, u"p"_s, editFormNotes(u"Salut"_s)}},
         search(u"<meta charset=\"utf-8\">\n    </head>\n    <body>\n        <p>bonjour"_s),
         {u"a"_s}},
        {"query straddling the text and the tail",
         {{u"a"_s, u"p"_s, editFormNotes(u"fin"_s)}, {u"b"_s, u"p"_s, editFormNotes(u"x"_s)}},
         search(u"fin</p>\n    </body>"_s),
         {u"a"_s}},
        {"the whole tail",
         {{u"a"_s, u"p"_s, editFormNotes(u"z"_s)}, {u"b"_s}},
         search(u"</p>\n    </body>\n</html>"_s),
         {u"a"_s}},
        {"accent at the start of a note joins the head",
         {{u"a"_s, u"p"_s, editFormNotes(u"\u0301x"_s)}, {u"b"_s, u"p"_s, editFormNotes(u"x"_s)}},
         search(u"<p>"_s),
         {u"b"_s}},
        {"record without notes searched by title and path only", {{u"a"_s, u"p"_s}}, search(u"body"_s), {}},
        {"empty notes find nothing", {{u"a"_s, u"p"_s, u""_s}}, search(u"x"_s), {}},
        {"category is not searched",
         {{u"a"_s, u"p"_s, std::nullopt, u"Voyages"_s}},
         search(u"voyages"_s),
         {}},
        {"carriage return does not match half a line break",
         {{u"a\r\nb"_s}, {u"c\rd"_s}},
         search(u"\r"_s),
         {u"c\rd"_s}},
        {"emoji with skin tone is one character",
         {{u"👍🏽 ok"_s}, {u"👍 ok"_s}},
         search(u"👍"_s),
         {u"👍 ok"_s}},
    };
}

std::vector<RuleCase> otherCases()
{
    const auto category = [](QString name) { return [name](FilterState &s) { s.selectedCategory = name; }; };
    const std::vector<ItemSpec> filed{{u"parent"_s, u"p"_s, std::nullopt, u"Travail"_s},
                                      {u"enfant"_s, u"p"_s, std::nullopt, u"Travail / Projets"_s},
                                      {u"orphelin"_s, u"p"_s, std::nullopt, u"Inconnue"_s}};
    const auto dated = [](double from, double to) {
        return [from, to](FilterState &s) {
            s.dateFilterEnabled = true;
            s.dateFrom = Timestamp{from};
            s.dateTo = Timestamp{to};
        };
    };
    const std::vector<ItemSpec> days{{u"avant"_s, u"p"_s, std::nullopt, u"c"_s, 99.5},
                                     {u"début"_s, u"p"_s, std::nullopt, u"c"_s, 100},
                                     {u"milieu"_s, u"p"_s, std::nullopt, u"c"_s, 150},
                                     {u"fin"_s, u"p"_s, std::nullopt, u"c"_s, 200},
                                     {u"après"_s, u"p"_s, std::nullopt, u"c"_s, 200.001}};
    const auto sorted = [](SortOrder order) {
        return [order](FilterState &s) { s.sortOrderRawValue = sortOrderRawValue(order); };
    };
    const std::vector<ItemSpec> ties{{u"b1"_s, u"p"_s, std::nullopt, u"c"_s, 10},
                                     {u"a"_s, u"p"_s, std::nullopt, u"c"_s, 20},
                                     {u"b2"_s, u"p"_s, std::nullopt, u"c"_s, 10},
                                     {u"c"_s, u"p"_s, std::nullopt, u"c"_s, 5},
                                     {u"b3"_s, u"p"_s, std::nullopt, u"c"_s, 10}};
    // The precomposed and decomposed spellings of "été" collate equal, so they keep their stored order.
    const std::vector<ItemSpec> titled{{u"zèbre"_s}, {u"Été"_s},   {u"abeille"_s},  {u"été"_s},
                                       {u"Zèbre"_s}, {u"étang"_s}, {decomposedEte2}};
    return {
        {"Toutes shows every category",
         filed,
         category(u"Toutes"_s),
         {u"parent"_s, u"enfant"_s, u"orphelin"_s}},
        {"parent does not show sub-category", filed, category(u"Travail"_s), {u"parent"_s}},
        {"sub-category does not show parent", filed, category(u"Travail / Projets"_s), {u"enfant"_s}},
        {"unknown category shows nothing", filed, category(u"Loisirs"_s), {}},
        {"category equality is canonical",
         {{u"a"_s, u"p"_s, std::nullopt, u"Cafe\u0301"_s}, {u"b"_s}},
         category(u"Café"_s),
         {u"a"_s}},
        {"category equality is not case-insensitive", filed, category(u"travail"_s), {}},
        {"favourites only",
         {{u"a"_s, u"p"_s, std::nullopt, u"c"_s, 0, true},
          {u"b"_s},
          {u"c"_s, u"p"_s, std::nullopt, u"c"_s, 0, true}},
         [](FilterState &s) { s.showFavoritesOnly = true; },
         {u"a"_s, u"c"_s}},
        {"date range is inclusive at both ends", days, dated(100, 200), {u"fin"_s, u"milieu"_s, u"début"_s}},
        {"date filter off keeps its bounds unused",
         days,
         [](FilterState &s) {
             s.dateFrom = Timestamp{1000};
             s.dateTo = Timestamp{0};
         },
         {u"après"_s, u"fin"_s, u"milieu"_s, u"début"_s, u"avant"_s}},
        {"reversed range shows nothing", days, dated(200, 100), {}},
        {"recent first keeps stored order of ties",
         ties,
         sorted(SortOrder::recentFirst),
         {u"a"_s, u"b1"_s, u"b2"_s, u"b3"_s, u"c"_s}},
        {"old first keeps stored order of ties",
         ties,
         sorted(SortOrder::oldFirst),
         {u"c"_s, u"b1"_s, u"b2"_s, u"b3"_s, u"a"_s}},
        {"unknown sort order reads as recent first",
         ties,
         [](FilterState &s) { s.sortOrderRawValue = u"Plus récent"_s; },
         {u"a"_s, u"b1"_s, u"b2"_s, u"b3"_s, u"c"_s}},
        {"alphabetical in French, equal titles in stored order",
         titled,
         sorted(SortOrder::alphabetical),
         {u"abeille"_s, u"étang"_s, u"été"_s, decomposedEte2, u"Été"_s, u"zèbre"_s, u"Zèbre"_s}},
        {"filters combine",
         {{u"a1"_s, u"p"_s, std::nullopt, u"x"_s, 5, true},
          {u"a2"_s, u"p"_s, std::nullopt, u"y"_s, 5, true},
          {u"a3"_s, u"p"_s, std::nullopt, u"x"_s, 5, false},
          {u"b"_s, u"p"_s, std::nullopt, u"x"_s, 5, true},
          {u"a4"_s, u"p"_s, std::nullopt, u"x"_s, 50, true}},
         [](FilterState &s) {
             s.searchText = u"A"_s;
             s.selectedCategory = u"x"_s;
             s.showFavoritesOnly = true;
             s.dateFilterEnabled = true;
             s.dateFrom = Timestamp{0};
             s.dateTo = Timestamp{10};
         },
         {u"a1"_s}},
        {"empty store", {}, [](FilterState &) {}, {}},
    };
}

class FilterRules : public ::testing::TestWithParam<Implementation>
{
};

void checkCases(Implementation implementation, const std::vector<RuleCase> &cases)
{
    for (const RuleCase &rule : cases) {
        FilterState state;
        rule.adjust(state);
        EXPECT_EQ(listedTitles(implementation, rule.items, state), rule.expected) << rule.name;
    }
}

TEST_P(FilterRules, Search)
{
    checkCases(GetParam(), searchCases());
}

TEST_P(FilterRules, CategoryFavouritesDatesAndOrder)
{
    checkCases(GetParam(), otherCases());
}

INSTANTIATE_TEST_SUITE_P(BothImplementations, FilterRules,
                         ::testing::Values(Implementation::plain, Implementation::engine),
                         [](const auto &info) {
                             return info.param == Implementation::plain ? "plain" : "engine";
                         });

TEST(FilterState, InitialRangeIsOneCalendarMonthBack)
{
    const QDateTime now(QDate(2025, 3, 31), QTime(14, 30, 15), Qt::UTC);
    const FilterState state = FilterState::initial(now);
    EXPECT_EQ(state.dateTo.toUnix(), double(now.toSecsSinceEpoch()));
    EXPECT_EQ(state.dateFrom.toUnix(),
              double(QDateTime(QDate(2025, 2, 28), QTime(14, 30, 15), Qt::UTC).toSecsSinceEpoch()));
    EXPECT_EQ(state.searchText, QString());
    EXPECT_EQ(state.selectedCategory, u"Toutes"_s);
    EXPECT_FALSE(state.showFavoritesOnly);
    EXPECT_FALSE(state.dateFilterEnabled);
    EXPECT_EQ(state.sortOrderRawValue, u"Plus récent d'abord"_s);

    FilterState on = state;
    on.dateFilterEnabled = true;
    EXPECT_TRUE(matchesFilters(makeItem({u"t"_s, u"p"_s, std::nullopt, u"c"_s, state.dateFrom.seconds}), on));
    EXPECT_FALSE(
        matchesFilters(makeItem({u"t"_s, u"p"_s, std::nullopt, u"c"_s, state.dateFrom.seconds - 1}), on));
    EXPECT_FALSE(
        matchesFilters(makeItem({u"t"_s, u"p"_s, std::nullopt, u"c"_s, state.dateTo.seconds + 0.5}), on));
}

TEST(SortOrder, RawValuesAreTheFrenchLabelsAndMatchWhole)
{
    const std::vector<std::pair<SortOrder, QString>> table{
        {SortOrder::recentFirst, u"Plus récent d'abord"_s},
        {SortOrder::oldFirst, u"Plus ancien d'abord"_s},
        {SortOrder::alphabetical, u"Ordre alphabétique (A → Z)"_s},
    };
    ASSERT_EQ(allSortOrders.size(), table.size());
    for (std::size_t i = 0; i < table.size(); ++i) {
        EXPECT_EQ(allSortOrders[i], table[i].first);
        EXPECT_EQ(sortOrderRawValue(table[i].first), table[i].second);
        EXPECT_EQ(sortOrderFromRawValue(table[i].second), table[i].first);
        EXPECT_EQ(sortOrderFromRawValue(QString(table[i].second + u" "_s)), std::nullopt);
        EXPECT_EQ(sortOrderFromRawValue(table[i].second.toUpper()), std::nullopt);
    }
    EXPECT_EQ(resolvedSortOrder(u""_s), SortOrder::recentFirst);
    EXPECT_EQ(resolvedSortOrder(u"Ordre alphabétique"_s), SortOrder::recentFirst);
}

TEST(SearchKey, LowerCasesFullyThenComposes)
{
    const std::vector<std::pair<QString, QString>> table{
        {u"ÉTÉ"_s, u"été"_s},         {u"E\u0301TE\u0301"_s, u"été"_s},
        {u"İ"_s, u"i\u0307"_s},       {u"ẞ"_s, u"ß"_s},
        {u"ΣΑΣ"_s, u"σας"_s},         {u"Σ"_s, u"σ"_s},
        {u"ΑΣ'"_s, u"ας'"_s},         {u"ΑΣ'Β"_s, u"ασ'β"_s},
        {u"A\u0323\u0302"_s, u"ậ"_s},
    };
    for (const auto &[text, key] : table)
        EXPECT_EQ(searchKey(text), key) << text.toStdString();
}

} // namespace
