// What the user waits for after each keystroke in the search field, on 100,000 generated records:
// the list model's new rows, with a selected row whose persistent index follows its record.

#include "list/FilterEngine.h"
#include "list/FilterEngineTuning.h"
#include "list/FilterState.h"
#include "list/ListFilter.h"
#include "ui/main/LinkListModel.h"

#include <QCollator>
#include <QItemSelectionModel>
#include <QLocale>

#include <benchmark/benchmark.h>
#include <memory>

#include "common/DataGenerator.h"

using namespace fiva;
using namespace Qt::StringLiterals;

namespace {

constexpr int recordCount = 100'000;

const QList<LinkItem> &records()
{
    static const QList<LinkItem> items = bench::generateSavedData(recordCount).items;
    return items;
}

QCollator frenchCollator()
{
    return QCollator(QLocale(QLocale::French, QLocale::France));
}

// A main window's list: the model over all records with one record selected.
struct List
{
    List()
    {
        model.setFilterState(FilterState());
        model.setItems(records());
        selection.setCurrentIndex(model.index(model.rowCount() / 2), QItemSelectionModel::ClearAndSelect);
    }

    void show(const QString &searchText, SortOrder order = SortOrder::recentFirst)
    {
        FilterState state = model.filterState();
        state.searchText = searchText;
        state.sortOrderRawValue = sortOrderRawValue(order);
        model.setFilterState(state);
    }

    LinkListModel model{frenchCollator()};
    QItemSelectionModel selection{&model};
};

List &sharedList()
{
    static List list;
    return list;
}

// The keystroke that turns word[0, k-1) into word[0, k), the shorter query having been shown just
// before, as it is when typing.
void typeLetter(benchmark::State &state, List &list, const QString &word)
{
    const auto k = qsizetype(state.range(0));
    for (auto _ : state) {
        state.PauseTiming();
        list.model.engine().clearRecentMatches();
        list.show(u""_s);
        for (qsizetype i = 1; i < k; ++i)
            list.show(word.left(i));
        state.ResumeTiming();
        list.show(word.left(k));
    }
    state.counters["rows"] = list.model.rowCount();
}

void BM_TypeFacture(benchmark::State &state)
{
    typeLetter(state, sharedList(), u"facture"_s);
}
// Each iteration replays the shorter queries untimed, so the iteration count is fixed rather than
// left to the library, which would otherwise aim at half a second of timed keystrokes.
constexpr int typingIterations = 30;

BENCHMARK(BM_TypeFacture)->DenseRange(1, 7)->Unit(benchmark::kMillisecond)->Iterations(typingIterations);

void BM_TypeZoe(benchmark::State &state)
{
    typeLetter(state, sharedList(), u"zoé"_s);
}
BENCHMARK(BM_TypeZoe)->DenseRange(1, 3)->Unit(benchmark::kMillisecond)->Iterations(typingIterations);

void BM_TypeRecordNumber(benchmark::State &state)
{
    typeLetter(state, sharedList(), u"n°4217"_s);
}
BENCHMARK(BM_TypeRecordNumber)->DenseRange(1, 6)->Unit(benchmark::kMillisecond)->Iterations(typingIterations);

// A first letter rarely found early in a record makes the scan read most of the text.
void BM_FirstLetter(benchmark::State &state)
{
    static const QStringList letters{u"e"_s, u"k"_s, u"w"_s, u"ç"_s, u"#"_s};
    const QString letter = letters[state.range(0)];
    List &list = sharedList();
    for (auto _ : state) {
        state.PauseTiming();
        list.model.engine().clearRecentMatches();
        list.show(u""_s);
        state.ResumeTiming();
        list.show(letter);
    }
    state.SetLabel(letter.toStdString());
    state.counters["rows"] = list.model.rowCount();
}
BENCHMARK(BM_FirstLetter)->DenseRange(0, 4)->Unit(benchmark::kMillisecond)->Iterations(typingIterations);

// Backspace from "facture" to "factur": remembered from the way in, or not.
void BM_Backspace(benchmark::State &state)
{
    const bool remembered = state.range(0) != 0;
    List &list = sharedList();
    for (auto _ : state) {
        state.PauseTiming();
        list.model.engine().clearRecentMatches();
        if (remembered)
            list.show(u"factur"_s);
        list.show(u"facture"_s);
        state.ResumeTiming();
        list.show(u"factur"_s);
    }
    state.SetLabel(remembered ? "typed before" : "never typed");
}
BENCHMARK(BM_Backspace)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->Iterations(typingIterations);

void BM_CategoryChange(benchmark::State &state)
{
    List &list = sharedList();
    list.show(u"fac"_s);
    const QStringList choices{u"Travail"_s, u"Toutes"_s, u"Voyages"_s};
    int next = 0;
    for (auto _ : state) {
        FilterState filter = list.model.filterState();
        filter.selectedCategory = choices[next++ % choices.size()];
        list.model.setFilterState(filter);
    }
}
BENCHMARK(BM_CategoryChange)->Unit(benchmark::kMillisecond);

void BM_SortChange(benchmark::State &state)
{
    List &list = sharedList();
    int next = 0;
    for (auto _ : state)
        list.show(u"fac"_s, allSortOrders[std::size_t(next++ % 3)]);
}
BENCHMARK(BM_SortChange)->Unit(benchmark::kMillisecond);

// The star button: the store hands over its records with one favourite flag changed. Both lists
// are made beforehand, so the copy the store itself makes is not counted.
void BM_ToggleFavourite(benchmark::State &state)
{
    List &list = sharedList();
    list.show(u"fac"_s, SortOrder::alphabetical);
    QList<LinkItem> toggled = records();
    toggled[500].isFavorite = !toggled[500].isFavorite;
    int n = 0;
    for (auto _ : state)
        list.model.setItems(n++ % 2 ? records() : toggled);
    list.model.setItems(records());
}
BENCHMARK(BM_ToggleFavourite)->Unit(benchmark::kMillisecond);

// A record edited: its text and sort key are computed, every other record's are reused, and the
// sort orders move it to its new place (or, for comparison, are sorted again).
void BM_EditOneTitle(benchmark::State &state)
{
    FilterEngineTuning tuning;
    tuning.carryOrdersOverEdits = state.range(0) != 0;
    List &list = sharedList();
    setFilterEngineTuning(tuning);
    list.show(u"fac"_s, SortOrder::alphabetical);
    list.show(u"fac"_s, SortOrder::oldFirst);
    list.show(u"fac"_s, SortOrder::recentFirst);
    QList<LinkItem> edited = records();
    edited[700].title = u"Titre modifié"_s;
    edited[700].createdAt = Timestamp{0};
    int n = 0;
    for (auto _ : state)
        list.model.setItems(n++ % 2 ? records() : edited);
    list.model.setItems(records());
    setFilterEngineTuning({});
    state.SetLabel(tuning.carryOrdersOverEdits ? "orders carried over" : "orders sorted again");
}
BENCHMARK(BM_EditOneTitle)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

// A record added at the end, as the edit form does.
void BM_AddRecord(benchmark::State &state)
{
    List &list = sharedList();
    list.show(u"fac"_s, SortOrder::alphabetical);
    QList<LinkItem> added = records();
    LinkItem item = added.front();
    item.id = QUuid::createUuid();
    item.title = u"Nouvelle fiche"_s;
    added.append(item);
    int n = 0;
    for (auto _ : state)
        list.model.setItems(n++ % 2 ? records() : added);
    list.model.setItems(records());
}
BENCHMARK(BM_AddRecord)->Unit(benchmark::kMillisecond);

// Opening the window: every record's text, then the first evaluation.
void BM_FirstEvaluation(benchmark::State &state)
{
    for (auto _ : state) {
        LinkListModel model(frenchCollator());
        model.setFilterState(FilterState());
        model.setItems(records());
        benchmark::DoNotOptimize(model.rowCount());
    }
}
BENCHMARK(BM_FirstEvaluation)->Unit(benchmark::kMillisecond)->Iterations(2);

// Before: every keystroke recomputes everything (lower-casing, normalising, scanning, sorting).
void BM_PlainRecomputation(benchmark::State &state)
{
    FilterState filter;
    filter.searchText = u"factu"_s;
    filter.sortOrderRawValue = sortOrderRawValue(SortOrder(state.range(0)));
    const QCollator collator = frenchCollator();
    for (auto _ : state)
        benchmark::DoNotOptimize(filteredItems(records(), filter, collator).size());
}
BENCHMARK(BM_PlainRecomputation)->Arg(0)->Arg(2)->Unit(benchmark::kMillisecond)->Iterations(1);

// What each part is worth: the same typing with one thread, and without remembered matches.
void BM_TypeFactureOneThread(benchmark::State &state)
{
    FilterEngineTuning tuning;
    tuning.splitScans = false;
    setFilterEngineTuning(tuning);
    static List list;
    typeLetter(state, list, u"facture"_s);
    setFilterEngineTuning({});
}
BENCHMARK(BM_TypeFactureOneThread)
    ->DenseRange(1, 7, 3)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(typingIterations);

void BM_TypeFactureNoNarrowing(benchmark::State &state)
{
    FilterEngineTuning tuning;
    tuning.keepRecentMatches = false;
    setFilterEngineTuning(tuning);
    static List list;
    typeLetter(state, list, u"facture"_s);
    setFilterEngineTuning({});
}
BENCHMARK(BM_TypeFactureNoNarrowing)
    ->DenseRange(1, 7, 3)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(typingIterations);

} // namespace

BENCHMARK_MAIN();
