#include "ui/main/FilterEngine.h"

#include "ui/main/ListFilter.h"

#include <QCollator>
#include <QLocale>

#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "FilterTestSupport.h"

using namespace fiva;
using namespace Qt::StringLiterals;
using fiva::test::editFormNotes;

namespace {

// Pieces chosen to meet every special case of the engine: accents in both spellings, marks that
// join the note head, case mappings that change length or depend on context, line-feed pairs,
// emoji sequences, a lone surrogate, the field separator itself, and fragments of the note wrapping.
const QStringList pieces{
    u"a"_s,
    u"e"_s,
    u"é"_s,
    u"e\u0301"_s,
    u"E"_s,
    u"É"_s,
    u"p"_s,
    u"r"_s,
    u"o"_s,
    u" "_s,
    u"ß"_s,
    u"ẞ"_s,
    u"SS"_s,
    u"Σ"_s,
    u"σ"_s,
    u"ς"_s,
    u"İ"_s,
    u"i"_s,
    u"\u0307"_s,
    u"\u0301"_s,
    u"q"_s,
    u"\r"_s,
    u"\n"_s,
    u"👍"_s,
    u"🏽"_s,
    u"\u200D"_s,
    u"🇫"_s,
    u"🇷"_s,
    QString(QChar(0xD800)),
    QString(QChar(0)),
    u"<p>"_s,
    u"</p>"_s,
    u"body"_s,
    u">"_s,
    u"<"_s,
    u"utf-8"_s,
    u"UTF"_s,
    u"'"_s,
    u"Été"_s,
    u"ok"_s,
};
const QStringList categories{u"Sans catégorie"_s, u"Travail"_s,    u"Travail / Projets"_s,
                             u"Café"_s,           u"Cafe\u0301"_s, u"Toutes"_s};

class RandomEdits
{
public:
    explicit RandomEdits(unsigned seed) : m_random(seed) {}

    int below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(m_random); }
    bool chance(int percent) { return below(100) < percent; }

    QString text(int maxPieces)
    {
        // Mostly a handful of pieces, so that records and queries share the awkward neighbours.
        static const QStringList core{u"e"_s, u"\u0301"_s, u"q"_s, u"é"_s, u"\r"_s, u"\n"_s, u"Σ"_s, u" "_s};
        QString out;
        for (int i = below(maxPieces + 1); i > 0; --i)
            out += chance(50) ? core[below(int(core.size()))] : pieces[below(int(pieces.size()))];
        return out;
    }

    // The search text of someone typing `target` one code unit at a time.
    QString typeOn(const QList<LinkItem> &items)
    {
        if (m_typed >= m_target.size() || chance(10)) {
            m_target = query(items);
            m_typed = 0;
        }
        return m_target.left(++m_typed);
    }

    LinkItem item()
    {
        LinkItem item;
        item.id = QUuid::createUuid();
        item.title = text(4);
        item.path = text(3);
        const int notes = below(4);
        if (notes == 1)
            item.notes = editFormNotes(text(4));
        else if (notes == 2)
            item.notes = text(4);
        item.category = categories[below(int(categories.size()))];
        item.createdAt = Timestamp{double(below(6))};
        item.isFavorite = chance(40);
        return item;
    }

    // A query taken from some record's text most of the time, so that searches find things.
    QString query(const QList<LinkItem> &items)
    {
        if (items.isEmpty() || chance(30))
            return text(3);
        const LinkItem &item = items[below(int(items.size()))];
        const QString source = chance(50) && item.notes ? *item.notes : (chance(50) ? item.title : item.path);
        if (source.isEmpty())
            return text(2);
        const int from = below(int(source.size()));
        return source.mid(from, 1 + below(chance(10) ? 60 : 6)).toUpper();
    }

private:
    std::mt19937 m_random;
    QString m_target;
    qsizetype m_typed = 0;
};

void editItems(RandomEdits &random, QList<LinkItem> &items)
{
    switch (random.below(6)) {
    case 0:
        items.append(random.item());
        break;
    case 1:
        if (!items.isEmpty())
            items.removeAt(random.below(int(items.size())));
        break;
    case 2:
        if (items.size() > 1)
            items.move(random.below(int(items.size())), random.below(int(items.size())));
        break;
    default:
        if (!items.isEmpty()) {
            LinkItem &item = items[random.below(int(items.size()))];
            switch (random.below(5)) {
            case 0:
                item.title = random.text(4);
                break;
            case 1:
                item.notes = random.chance(50) ? std::optional(editFormNotes(random.text(3))) : std::nullopt;
                break;
            case 2:
                item.isFavorite = !item.isFavorite;
                break;
            case 3:
                item.createdAt = Timestamp{double(random.below(6))};
                break;
            default:
                item.category = categories[random.below(int(categories.size()))];
                break;
            }
        }
        break;
    }
}

void editState(RandomEdits &random, FilterState &state, const QList<LinkItem> &items)
{
    switch (random.below(9)) {
    case 0:
    case 1:
        state.searchText = random.typeOn(items);
        break;
    case 2:
        state.searchText.chop(1);
        break;
    case 3:
        state.searchText = random.query(items);
        break;
    case 4:
        state.selectedCategory =
            random.chance(30) ? u"Toutes"_s : categories[random.below(int(categories.size()))];
        break;
    case 5:
        state.showFavoritesOnly = !state.showFavoritesOnly;
        break;
    case 6:
        state.dateFilterEnabled = !state.dateFilterEnabled;
        state.dateFrom = Timestamp{double(random.below(6))};
        state.dateTo = Timestamp{double(random.below(6))};
        break;
    default: {
        const QStringList orders{u"Plus récent d'abord"_s, u"Plus ancien d'abord"_s,
                                 u"Ordre alphabétique (A → Z)"_s, u"inconnu"_s};
        state.sortOrderRawValue = orders[random.below(int(orders.size()))];
        break;
    }
    }
}

struct EngineSetup
{
    const char *name;
    QLocale locale;
    FilterEngine::Tuning tuning;
};

class FilterEngineEquivalence : public ::testing::TestWithParam<EngineSetup>
{
};

// Whatever the engine caches, after any sequence of record edits and filter changes it lists exactly
// what a full recomputation lists.
TEST_P(FilterEngineEquivalence, MatchesFullRecomputationUnderRandomEdits)
{
    const EngineSetup &setup = GetParam();
    const QCollator collator(setup.locale);
    for (unsigned seed = 1; seed <= 20; ++seed) {
        RandomEdits random(seed);
        QList<LinkItem> items;
        for (int i = random.below(120); i > 0; --i)
            items.append(random.item());
        FilterEngine engine(collator);
        engine.setTuning(setup.tuning);
        engine.setItems(items);
        FilterState state;
        for (int step = 0; step < 250; ++step) {
            if (random.chance(15)) {
                editItems(random, items);
                engine.setItems(items);
            } else {
                editState(random, state, items);
            }
            QList<LinkItem> listed;
            for (int row : engine.rows(state))
                listed.append(items[row]);
            const QList<LinkItem> expected = filteredItems(items, state, collator);
            ASSERT_EQ(listed.size(), expected.size())
                << "seed " << seed << " step " << step << " query " << state.searchText.toStdString();
            for (qsizetype i = 0; i < listed.size(); ++i)
                ASSERT_EQ(listed[i].id, expected[i].id)
                    << "seed " << seed << " step " << step << " row " << i;
        }
    }
}

FilterEngine::Tuning everyScanOnTwoThreads()
{
    FilterEngine::Tuning tuning;
    tuning.parallelThreshold = 2;
    return tuning;
}

FilterEngine::Tuning nothingRemembered()
{
    FilterEngine::Tuning tuning;
    tuning.keepRecentMatches = false;
    tuning.twoThreads = false;
    return tuning;
}

INSTANTIATE_TEST_SUITE_P(
    Setups, FilterEngineEquivalence,
    ::testing::Values(EngineSetup{"french", QLocale(QLocale::French, QLocale::France), {}},
                      EngineSetup{"c_locale", QLocale::c(), {}},
                      EngineSetup{"two_threads", QLocale(QLocale::French), everyScanOnTwoThreads()},
                      EngineSetup{"no_memory", QLocale(QLocale::English), nothingRemembered()}),
    [](const auto &info) { return std::string(info.param.name); });

} // namespace
