#pragma once

#include "list/FilterState.h"
#include "model/LinkItem.h"

#include <QCollator>
#include <QCollatorSortKey>
#include <QHash>
#include <QList>
#include <QString>

#include <array>
#include <cstdint>
#include <deque>
#include <future>
#include <optional>
#include <string>
#include <vector>

namespace fiva {

// Evaluates the record list again and again, as the user types, with the same result as
// `filteredItems` but without redoing the work that did not change:
// - the lower-cased, normalised text of every record is kept in one UTF-8 buffer, rebuilt only for
//   the records whose text changed, and scanned with memchr on the query's rarest byte;
// - the notes head and tail that every note saved by the edit form shares are stored once, not per record;
// - the text matches of recent queries are kept, so a query that only grew is searched among the
//   records the shorter one found, and going back to a recent query costs nothing;
// - each sort order is a permutation of all records computed once (a stable sort followed by a
//   filter gives the same list as the filter followed by the stable sort);
// - long scans are split across threads;
// - the text of a whole new list is indexed on another thread while the first rows are shown, and the
//   alphabetical order sorted there after it;
// - an edit, an addition or a star rebuilds only the text block of the records it changed, and
//   carries the sort orders and recent matches over.
class FilterEngine final
{
public:
    explicit FilterEngine(const QCollator &collator = QCollator());
    ~FilterEngine();

    void setCollator(const QCollator &collator);

    // Replaces the records; what was derived from records whose fields did not change is kept.
    void setItems(const QList<LinkItem> &items);
    const QList<LinkItem> &items() const { return m_items; }

    // Positions in items() of the records listed under `state`, in list order.
    std::vector<int> rows(const FilterState &state);

    // Forgets the text matches of earlier queries, as if no query had been typed yet.
    void clearRecentMatches() { m_recentMatches.clear(); }

private:
    struct Span
    {
        std::size_t begin = 0; // title, path and notes, each followed by a NUL
        std::size_t end = 0;
        bool wrappedNotes = false; // notes stored without the shared head and tail
    };
    struct Query;
    // The text is cut into blocks of consecutive records, so that a change to a few records rebuilds
    // their blocks and leaves the others' text where it is.
    struct TextBlock
    {
        std::string text; // the spans of its records point into it
        std::array<std::uint32_t, 256> byteCounts{};
    };
    struct TextIndex
    {
        std::vector<TextBlock> blocks;
        std::vector<Span> spans;
    };
    struct Matches
    {
        QString key;
        std::vector<int> items; // increasing
    };

    static void appendRecordText(const LinkItem &item, std::string &text, Span &span);
    static void countBytes(TextBlock &block);
    void sumByteCounts();
    const char *textOf(std::size_t record) const { return m_blocks[record / m_recordsPerBlock].text.data(); }
    // Rebuilds the blocks holding a record whose text or position changed; the text of records that
    // only moved is copied, not computed again.
    void updateText(const std::vector<int> &previous, const std::vector<std::uint8_t> &textReusable,
                    std::size_t oldCount);
    // The text of many new records is indexed on another thread: the list can be shown without it,
    // and the first search waits for it.
    void indexTextInBackground();
    void waitForTextIndex();
    // Also for the alphabetical order sorted after the text.
    void waitForBackground();
    const std::vector<int> *textMatches(const QString &searchText);
    // Fills in what the scan needs to know about `query.key`.
    void prepareQuery(Query &query) const;
    // Keeps the recent matches valid across a change that left every record in place.
    void carryMatchesOver(const std::vector<std::uint8_t> &textReusable);
    std::vector<int> scan(const Query &query, const std::vector<int> *candidates) const;
    void scanAll(const Query &query, int first, int last, std::vector<int> &out) const;
    void scanBlock(const Query &query, int first, int last, std::vector<int> &out) const;
    void scanCandidates(const Query &query, const int *first, const int *last, std::vector<int> &out) const;
    bool recordMatches(const Query &query, int index) const;
    bool spanContains(const Query &query, const char *begin, const char *end) const;
    bool matchesSlowly(const Query &query, int index) const;
    const std::vector<int> &order(SortOrder sortOrder);
    bool before(SortOrder sortOrder, int a, int b);
    const QCollatorSortKey &sortKey(int index);
    // Carries a cached order over a change of records; false when it must be sorted again.
    bool updateOrder(SortOrder sortOrder, const std::vector<int> &previous, std::size_t oldCount,
                     const std::vector<std::uint8_t> &keyKept);
    int categoryId(const QString &category);

    QCollator m_collator;
    QList<LinkItem> m_items;

    std::size_t m_recordsPerBlock;
    std::vector<TextBlock> m_blocks;
    std::vector<Span> m_spans;
    std::array<std::uint32_t, 256> m_byteCounts{};
    std::future<TextIndex> m_pendingText;
    std::future<std::vector<int>> m_pendingAlphabetical;

    std::vector<int> m_categoryIds;
    QHash<QString, int> m_categoryIdByRawName;
    QHash<QString, int> m_categoryIdByNormalizedName;

    std::array<std::optional<std::vector<int>>, 3> m_orders;
    std::vector<std::optional<QCollatorSortKey>> m_sortKeys;

    std::deque<Matches> m_recentMatches;
    std::vector<std::uint8_t> m_pass;
};

} // namespace fiva
