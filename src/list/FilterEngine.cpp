#include "list/FilterEngine.h"

#include "list/FilterEngineTuning.h"
#include "list/SearchText.h"
#include "model/NotesMarkup.h"
#include "model/Parallel.h"
#include "text/Utf8.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>
#include <system_error>

namespace fiva {

namespace {

// How much of the head and tail stays around the user's text, so that short queries that straddle
// an edge are still found by the plain scan.
constexpr qsizetype notesContext = 16;

constexpr std::size_t recentMatchesKept = 8;

// UTF-8, except that a lone surrogate is written as its own three bytes instead of a replacement
// character: the encoding stays one-to-one, so a byte match is a code-unit match.
void appendWtf8(std::string &out, QStringView text)
{
    const qsizetype n = text.size();
    for (qsizetype i = 0; i < n; ++i) {
        char32_t c = text[i].unicode();
        if (c < 0x80) {
            out.push_back(static_cast<char>(c));
            continue;
        }
        if (QChar::isHighSurrogate(c) && i + 1 < n && text[i + 1].isLowSurrogate()) {
            c = QChar::surrogateToUcs4(static_cast<char16_t>(c), text[i + 1].unicode());
            ++i;
        }
        appendUtf8(out, c);
    }
}

void appendUtf16(std::u16string &out, const char *data, std::size_t size)
{
    const auto *p = reinterpret_cast<const unsigned char *>(data);
    const auto *end = p + size;
    while (p < end) {
        char32_t c = *p;
        int more = 0;
        if (c >= 0xF0) {
            c &= 0x07;
            more = 3;
        } else if (c >= 0xE0) {
            c &= 0x0F;
            more = 2;
        } else if (c >= 0xC0) {
            c &= 0x1F;
            more = 1;
        }
        ++p;
        for (; more > 0 && p < end; --more, ++p)
            c = (c << 6) | (*p & 0x3F);
        if (QChar::requiresSurrogates(c)) {
            out.push_back(QChar::highSurrogate(c));
            out.push_back(QChar::lowSurrogate(c));
        } else {
            out.push_back(static_cast<char16_t>(c));
        }
    }
}

bool isContinuation(unsigned char byte)
{
    return (byte & 0xC0) == 0x80;
}

// Whether a match may begin or end at `at`, inside the record text [spanBegin, spanEnd) whose fields
// end with a NUL. Below U+0300 nothing combines with its neighbour except CR with LF, which decides
// nearly every case from the bytes around `at`; the rest decodes the run of non-ASCII text around
// `at`, with one ASCII character on each side, which is all the grapheme rules look at, into a
// buffer each thread keeps, and asks the same rules as the plain search.
bool isBoundary(const char *spanBegin, const char *spanEnd, const char *at)
{
    if (at == spanBegin || at == spanEnd || at[-1] == '\0' || *at == '\0')
        return true;
    const char *previousStart = at - 1;
    while (previousStart > spanBegin && isContinuation(static_cast<unsigned char>(*previousStart)))
        --previousStart;
    const auto previous = static_cast<unsigned char>(*previousStart);
    const auto next = static_cast<unsigned char>(*at);
    if (next < 0xCC && previous < 0xCC)
        return !(previous == '\r' && next == '\n');

    // NUL is ASCII, so neither end leaves the field.
    const char *windowBegin = at - 1;
    while (windowBegin > spanBegin && static_cast<unsigned char>(*windowBegin) >= 0x80)
        --windowBegin;
    if (*windowBegin == '\0')
        ++windowBegin;
    const char *windowEnd = at;
    while (windowEnd < spanEnd && static_cast<unsigned char>(*windowEnd) >= 0x80)
        ++windowEnd;
    if (windowEnd < spanEnd && *windowEnd != '\0')
        ++windowEnd;
    thread_local std::u16string window;
    window.clear();
    appendUtf16(window, windowBegin, std::size_t(at - windowBegin));
    const auto position = static_cast<qsizetype>(window.size());
    appendUtf16(window, at, std::size_t(windowEnd - at));
    return isCharacterBoundary(QStringView(window), position);
}

bool sameText(const LinkItem &a, const LinkItem &b)
{
    return a.title == b.title && a.path == b.path && a.notes == b.notes;
}

// What FilterEngine::order gives for the alphabetical order, with keys of its own, for another thread.
std::vector<int> alphabeticalOrder(const QList<LinkItem> &items, const QCollator &collator)
{
    std::vector<int> indexes(std::size_t(items.size()));
    for (std::size_t i = 0; i < indexes.size(); ++i)
        indexes[i] = int(i);
    if (collator.locale() == QLocale::c()) {
        std::stable_sort(indexes.begin(), indexes.end(), [&](int a, int b) {
            return collator.compare(items.at(a).title, items.at(b).title) < 0;
        });
        return indexes;
    }
    std::vector<QCollatorSortKey> keys;
    keys.reserve(indexes.size());
    for (const LinkItem &item : items)
        keys.push_back(collator.sortKey(item.title));
    std::stable_sort(indexes.begin(), indexes.end(), [&](int a, int b) {
        const bool aEmpty = items.at(a).title.isEmpty(), bEmpty = items.at(b).title.isEmpty();
        if (aEmpty || bEmpty)
            return aEmpty && !bEmpty;
        return keys[std::size_t(a)].compare(keys[std::size_t(b)]) < 0;
    });
    return indexes;
}

} // namespace

struct FilterEngine::Query
{
    QString key;
    std::string bytes;
    std::size_t rareIndex = 0;
    bool slow = false;          // holds a NUL, which the buffer uses between fields
    bool inHeadOrTail = false;  // every wrapped note matches through its head or tail alone
    bool crossesWindow = false; // may straddle a note's edge by more than the context kept
};

FilterEngine::FilterEngine(const QCollator &collator)
    : m_collator(collator), m_recordsPerBlock(std::max<std::size_t>(filterEngineTuning().recordsPerBlock, 1))
{
}

FilterEngine::~FilterEngine()
{
    waitForBackground();
}

void FilterEngine::countBytes(TextBlock &block)
{
    block.byteCounts.fill(0);
    for (std::size_t i = 0; i < block.text.size(); i += 61)
        ++block.byteCounts[static_cast<unsigned char>(block.text[i])];
}

void FilterEngine::sumByteCounts()
{
    m_byteCounts.fill(0);
    for (const TextBlock &block : m_blocks) {
        for (std::size_t b = 0; b < m_byteCounts.size(); ++b)
            m_byteCounts[b] += block.byteCounts[b];
    }
}

void FilterEngine::indexTextInBackground()
{
    const auto buildText = [](const QList<LinkItem> &items, std::size_t recordsPerBlock) {
        TextIndex index;
        const auto n = std::size_t(items.size());
        index.spans.resize(n);
        index.blocks.resize((n + recordsPerBlock - 1) / recordsPerBlock);
        for (std::size_t i = 0; i < n; ++i)
            appendRecordText(items.at(qsizetype(i)), index.blocks[i / recordsPerBlock].text, index.spans[i]);
        for (TextBlock &block : index.blocks)
            countBytes(block);
        return index;
    };
    m_blocks.clear();
    m_spans.clear();
    // One thread, the text first since the first search waits for it, then the alphabetical order, so that
    // choosing it later costs nothing. A collator of its own: a shared one is set up lazily, unguarded.
    QCollator collator(m_collator.locale());
    collator.setCaseSensitivity(m_collator.caseSensitivity());
    collator.setNumericMode(m_collator.numericMode());
    collator.setIgnorePunctuation(m_collator.ignorePunctuation());
    std::promise<TextIndex> text;
    std::future<TextIndex> textReady = text.get_future();
    try {
        m_pendingAlphabetical =
            std::async(std::launch::async, [items = m_items, recordsPerBlock = m_recordsPerBlock, collator,
                                            text = std::move(text), buildText]() mutable {
                try {
                    text.set_value(buildText(items, recordsPerBlock));
                } catch (...) {
                    text.set_exception(std::current_exception());
                }
                return alphabeticalOrder(items, collator);
            });
        m_pendingText = std::move(textReady);
    } catch (const std::system_error &) {
        // No thread to be had: the text is indexed here, as it was before there was one, and the order is
        // sorted when it is first asked for.
        std::promise<TextIndex> done;
        done.set_value(buildText(m_items, m_recordsPerBlock));
        m_pendingText = done.get_future();
    }
}

void FilterEngine::waitForTextIndex()
{
    if (!m_pendingText.valid())
        return;
    TextIndex index = m_pendingText.get();
    m_blocks = std::move(index.blocks);
    m_spans = std::move(index.spans);
    sumByteCounts();
}

void FilterEngine::waitForBackground()
{
    waitForTextIndex();
    if (!m_pendingAlphabetical.valid())
        return;
    try {
        m_orders[std::size_t(SortOrder::alphabetical)] = m_pendingAlphabetical.get();
    } catch (const std::exception &) {
        // Sorted again when it is asked for.
    }
}

void FilterEngine::updateText(const std::vector<int> &previous, const std::vector<std::uint8_t> &textReusable,
                              std::size_t oldCount)
{
    const std::size_t n = previous.size();
    const std::size_t recordsPerBlock = m_recordsPerBlock;
    std::vector<TextBlock> blocks((n + recordsPerBlock - 1) / recordsPerBlock);
    std::vector<Span> spans(n);
    std::vector<std::uint8_t> kept(blocks.size(), 0);
    for (std::size_t k = 0; k < blocks.size(); ++k) {
        const std::size_t from = k * recordsPerBlock, to = std::min(n, from + recordsPerBlock);
        bool same = k < m_blocks.size() && std::min(oldCount, from + recordsPerBlock) == to;
        for (std::size_t i = from; i < to && same; ++i)
            same = previous[i] == int(i) && textReusable[i];
        if (same) {
            kept[k] = 1;
            std::copy(m_spans.begin() + qsizetype(from), m_spans.begin() + qsizetype(to),
                      spans.begin() + qsizetype(from));
            continue;
        }
        TextBlock &block = blocks[k];
        for (std::size_t i = from; i < to; ++i) {
            if (!textReusable[i]) {
                appendRecordText(m_items.at(qsizetype(i)), block.text, spans[i]);
                continue;
            }
            const auto was = std::size_t(previous[i]);
            const Span &span = m_spans[was];
            spans[i] = {block.text.size(), block.text.size() + (span.end - span.begin), span.wrappedNotes};
            block.text.append(textOf(was) + span.begin, span.end - span.begin);
        }
        countBytes(block);
    }
    // Only now: the blocks rebuilt above may have copied text out of the ones kept.
    for (std::size_t k = 0; k < blocks.size(); ++k) {
        if (kept[k])
            blocks[k] = std::move(m_blocks[k]);
    }
    m_blocks = std::move(blocks);
    m_spans = std::move(spans);
    sumByteCounts();
}

void FilterEngine::setCollator(const QCollator &collator)
{
    waitForBackground();
    m_collator = collator;
    m_sortKeys.assign(m_sortKeys.size(), std::nullopt);
    m_orders[static_cast<std::size_t>(SortOrder::alphabetical)].reset();
}

void FilterEngine::appendRecordText(const LinkItem &item, std::string &text, Span &span)
{
    static const QString head = searchKey(notesHead.toString());
    static const QString tail = searchKey(notesTail.toString());
    span.begin = text.size();
    appendWtf8(text, searchKey(item.title));
    text.push_back('\0');
    appendWtf8(text, searchKey(item.path));
    text.push_back('\0');
    span.wrappedNotes = false;
    if (item.notes) {
        const QString notes = searchKey(*item.notes);
        if (notes.size() >= head.size() + tail.size() && notes.startsWith(head) && notes.endsWith(tail)) {
            span.wrappedNotes = true;
            const qsizetype from = head.size() - notesContext;
            appendWtf8(text,
                       QStringView(notes).sliced(from, notes.size() - from - (tail.size() - notesContext)));
        } else {
            appendWtf8(text, notes);
        }
    }
    text.push_back('\0');
    span.end = text.size();
}

int FilterEngine::categoryId(const QString &category)
{
    if (auto found = m_categoryIdByRawName.constFind(category); found != m_categoryIdByRawName.cend())
        return found.value();
    const QString normalized = category.normalized(QString::NormalizationForm_C);
    auto id = m_categoryIdByNormalizedName.constFind(normalized);
    if (id == m_categoryIdByNormalizedName.cend())
        id = m_categoryIdByNormalizedName.insert(normalized, int(m_categoryIdByNormalizedName.size()));
    m_categoryIdByRawName.insert(category, id.value());
    return id.value();
}

void FilterEngine::setItems(const QList<LinkItem> &items)
{
    waitForBackground();
    const QList<LinkItem> old = std::exchange(m_items, items);
    const auto n = static_cast<std::size_t>(m_items.size());
    const auto oldCount = static_cast<std::size_t>(old.size());

    // Where each record was before, found by position first and by id when records moved.
    std::vector<int> previous(n, -1);
    QHash<QUuid, int> oldById;
    // Every record that was there keeps its position; records may only come or go at the end.
    bool idsInPlace = true;
    bool textUnchanged = n == oldCount, datesUnchanged = n == oldCount, titlesUnchanged = n == oldCount;
    std::vector<std::uint8_t> textReusable(n, 0);
    for (std::size_t i = 0; i < n; ++i) {
        const LinkItem &item = m_items.at(qsizetype(i));
        int before = -1;
        if (i < oldCount && old[qsizetype(i)].id == item.id) {
            before = int(i);
        } else {
            textUnchanged = datesUnchanged = titlesUnchanged = false;
            idsInPlace = idsInPlace && i >= oldCount;
            // Records added after all the old ones in place are new: no need to index the old ones by id.
            if (idsInPlace)
                continue;
            if (oldById.isEmpty()) {
                for (int j = int(oldCount) - 1; j >= 0; --j)
                    oldById.insert(old[j].id, j);
            }
            before = oldById.value(item.id, -1);
        }
        previous[i] = before;
        if (before < 0)
            continue;
        const LinkItem &was = old[before];
        textReusable[i] = sameText(was, item);
        textUnchanged = textUnchanged && textReusable[i];
        datesUnchanged = datesUnchanged && was.createdAt == item.createdAt;
        titlesUnchanged = titlesUnchanged && was.title == item.title;
    }

    if (!textUnchanged && n >= filterEngineTuning().leastIndexedInBackground &&
        std::none_of(textReusable.begin(), textReusable.end(), [](std::uint8_t kept) { return kept; })) {
        m_recentMatches.clear();
        indexTextInBackground();
    } else if (!textUnchanged) {
        updateText(previous, textReusable, oldCount);
        // After an edit or an addition, the few records whose text changed are matched again; the
        // others keep their places, and so their matches.
        constexpr std::ptrdiff_t mostMatchedAgain = 256;
        if (idsInPlace && std::count(textReusable.begin(), textReusable.end(), 0) <= mostMatchedAgain)
            carryMatchesOver(textReusable);
        else
            m_recentMatches.clear();
    }

    if (idsInPlace) {
        // The common case of an edit, an addition or a star: only the records that changed are looked at.
        m_sortKeys.resize(n);
        m_categoryIds.resize(n);
        for (std::size_t i = 0; i < n; ++i) {
            const LinkItem &item = m_items.at(qsizetype(i));
            const bool fresh = previous[i] != int(i);
            if (fresh || old[qsizetype(i)].title != item.title)
                m_sortKeys[i].reset();
            if (fresh || old[qsizetype(i)].category != item.category)
                m_categoryIds[i] = categoryId(item.category);
        }
    } else {
        // Keys are copied to records that moved first, then moved to those that stayed in place, so that
        // a duplicated id never reads a key already moved away.
        std::vector<std::optional<QCollatorSortKey>> sortKeys(n);
        for (bool inPlace : {false, true}) {
            for (std::size_t i = 0; i < n; ++i) {
                const int before = previous[i];
                if (before < 0 || std::size_t(before) >= m_sortKeys.size() || (before == int(i)) != inPlace ||
                    old[before].title != m_items.at(qsizetype(i)).title)
                    continue;
                if (inPlace)
                    sortKeys[i] = std::move(m_sortKeys[std::size_t(before)]);
                else
                    sortKeys[i] = m_sortKeys[std::size_t(before)];
            }
        }
        m_sortKeys = std::move(sortKeys);
        m_categoryIds.resize(n);
        for (std::size_t i = 0; i < n; ++i)
            m_categoryIds[i] = categoryId(m_items.at(qsizetype(i)).category);
    }

    if (!datesUnchanged || !titlesUnchanged) {
        std::vector<std::uint8_t> dateKept(n, 0), titleKept(n, 0);
        for (std::size_t i = 0; i < n; ++i) {
            if (previous[i] < 0)
                continue;
            const LinkItem &was = old[previous[i]];
            dateKept[i] = was.createdAt == m_items.at(qsizetype(i)).createdAt;
            titleKept[i] = was.title == m_items.at(qsizetype(i)).title;
        }
        for (SortOrder byDate : {SortOrder::recentFirst, SortOrder::oldFirst}) {
            if (!datesUnchanged && !updateOrder(byDate, previous, oldCount, dateKept))
                m_orders[std::size_t(byDate)].reset();
        }
        if (!titlesUnchanged && !updateOrder(SortOrder::alphabetical, previous, oldCount, titleKept))
            m_orders[std::size_t(SortOrder::alphabetical)].reset();
    }
}

bool FilterEngine::spanContains(const Query &query, const char *begin, const char *end) const
{
    const std::string &needle = query.bytes;
    const std::size_t m = needle.size();
    if (std::size_t(end - begin) < m)
        return false;
    const char rare = needle[query.rareIndex];
    const char *p = begin + query.rareIndex;
    const char *last = end - m + query.rareIndex + 1;
    while (p < last) {
        p = static_cast<const char *>(std::memchr(p, rare, std::size_t(last - p)));
        if (!p)
            return false;
        const char *start = p - query.rareIndex;
        if (std::memcmp(start, needle.data(), m) == 0 && isBoundary(begin, end, start) &&
            isBoundary(begin, end, start + m))
            return true;
        ++p;
    }
    return false;
}

bool FilterEngine::matchesSlowly(const Query &query, int index) const
{
    const LinkItem &item = m_items.at(index);
    return containsWholeCharacters(searchKey(item.title), query.key) ||
           containsWholeCharacters(searchKey(item.path), query.key) ||
           (item.notes && containsWholeCharacters(searchKey(*item.notes), query.key));
}

bool FilterEngine::recordMatches(const Query &query, int index) const
{
    if (query.slow)
        return matchesSlowly(query, index);
    const Span &span = m_spans[std::size_t(index)];
    if (span.wrappedNotes) {
        if (query.inHeadOrTail)
            return true;
        if (query.crossesWindow)
            return matchesSlowly(query, index);
    }
    const char *text = textOf(std::size_t(index));
    return spanContains(query, text + span.begin, text + span.end);
}

void FilterEngine::scanAll(const Query &query, int first, int last, std::vector<int> &out) const
{
    const auto perBlock = int(m_recordsPerBlock);
    for (int from = first; from < last;) {
        const int to = std::min(last, (from / perBlock + 1) * perBlock);
        scanBlock(query, from, to, out);
        from = to;
    }
}

// Records first to last, all in one block.
void FilterEngine::scanBlock(const Query &query, int first, int last, std::vector<int> &out) const
{
    // One memchr pass over the whole range instead of one call per record: the rare byte usually
    // lies thousands of bytes apart.
    const char *base = textOf(std::size_t(first));
    const std::string &needle = query.bytes;
    const std::size_t m = needle.size();
    const char rare = needle[query.rareIndex];
    const char *rangeEnd = base + m_spans[std::size_t(last - 1)].end;
    if (std::size_t(rangeEnd - (base + m_spans[std::size_t(first)].begin)) < m)
        return;
    const char *limit = rangeEnd - m + query.rareIndex + 1;
    const char *p = base + m_spans[std::size_t(first)].begin + query.rareIndex;
    int record = first;
    while (p < limit) {
        p = static_cast<const char *>(std::memchr(p, rare, std::size_t(limit - p)));
        if (!p)
            return;
        const char *start = p - query.rareIndex;
        while (base + m_spans[std::size_t(record)].end <= start)
            ++record;
        const Span &span = m_spans[std::size_t(record)];
        if (std::memcmp(start, needle.data(), m) == 0 &&
            isBoundary(base + span.begin, base + span.end, start) &&
            isBoundary(base + span.begin, base + span.end, start + m)) {
            out.push_back(record);
            if (++record >= last)
                return;
            p = base + m_spans[std::size_t(record)].begin + query.rareIndex;
            continue;
        }
        ++p;
    }
}

void FilterEngine::scanCandidates(const Query &query, const int *first, const int *last,
                                  std::vector<int> &out) const
{
    for (const int *index = first; index != last; ++index) {
        if (recordMatches(query, *index))
            out.push_back(*index);
    }
}

std::vector<int> FilterEngine::scan(const Query &query, const std::vector<int> *candidates) const
{
    std::vector<int> allIndexes;
    const bool plainScan = !candidates && !query.slow && !query.inHeadOrTail && !query.crossesWindow;
    if (!candidates && !plainScan) {
        allIndexes.resize(m_spans.size());
        for (std::size_t i = 0; i < allIndexes.size(); ++i)
            allIndexes[i] = int(i);
        candidates = &allIndexes;
    }
    const std::size_t size = candidates ? candidates->size() : m_spans.size();
    const FilterEngineTuning &tuning = filterEngineTuning();
    const std::size_t runs = tuning.splitScans && size >= 2
                                 ? runCount(size, std::max<std::size_t>(tuning.parallelThreshold / 2, 1))
                                 : 1;
    std::vector<std::vector<int>> parts(runs);
    forEachRun(runs, [&](std::size_t part) {
        const std::size_t from = size * part / runs, to = size * (part + 1) / runs;
        if (plainScan)
            scanAll(query, int(from), int(to), parts[part]);
        else
            scanCandidates(query, candidates->data() + from, candidates->data() + to, parts[part]);
    });
    for (std::size_t part = 1; part < runs; ++part)
        parts[0].insert(parts[0].end(), parts[part].begin(), parts[part].end());
    return std::move(parts[0]);
}

void FilterEngine::prepareQuery(Query &query) const
{
    appendWtf8(query.bytes, query.key);
    query.slow = query.bytes.find('\0') != std::string::npos;
    std::uint32_t fewest = std::numeric_limits<std::uint32_t>::max();
    for (std::size_t i = 0; i < query.bytes.size(); ++i) {
        const std::uint32_t count = m_byteCounts[static_cast<unsigned char>(query.bytes[i])];
        if (count < fewest) {
            fewest = count;
            query.rareIndex = i;
        }
    }
    static const QString head = searchKey(notesHead.toString());
    static const QString tail = searchKey(notesTail.toString());
    query.inHeadOrTail = containsWholeCharacters(QStringView(head).chopped(1), query.key) ||
                         containsWholeCharacters(QStringView(tail).sliced(1), query.key);
    const QStringView key = query.key;
    for (qsizetype j = notesContext + 1; j <= key.size() && !query.crossesWindow; ++j) {
        query.crossesWindow = (j <= head.size() && key.first(j) == QStringView(head).last(j)) ||
                              (j <= tail.size() && key.last(j) == QStringView(tail).first(j));
    }
}

void FilterEngine::carryMatchesOver(const std::vector<std::uint8_t> &textReusable)
{
    std::vector<int> changed;
    for (std::size_t i = 0; i < textReusable.size(); ++i) {
        if (!textReusable[i])
            changed.push_back(int(i));
    }
    const auto n = int(textReusable.size());
    for (Matches &recent : m_recentMatches) {
        Query query;
        query.key = recent.key;
        prepareQuery(query);
        std::vector<int> &found = recent.items;
        found.erase(std::remove_if(found.begin(), found.end(),
                                   [&](int i) { return i >= n || !textReusable[std::size_t(i)]; }),
                    found.end());
        for (int i : changed) {
            if (recordMatches(query, i))
                found.insert(std::lower_bound(found.begin(), found.end(), i), i);
        }
    }
}

const std::vector<int> *FilterEngine::textMatches(const QString &searchText)
{
    Query query;
    query.key = searchKey(searchText);
    if (query.key.isEmpty())
        return nullptr;
    waitForTextIndex();
    for (auto it = m_recentMatches.begin(); it != m_recentMatches.end(); ++it) {
        if (it->key == query.key) {
            if (it != m_recentMatches.begin()) {
                Matches found = std::move(*it);
                m_recentMatches.erase(it);
                m_recentMatches.push_front(std::move(found));
            }
            return &m_recentMatches.front().items;
        }
    }

    // A record that holds the new query at character boundaries also holds any earlier query that
    // sits inside it at character boundaries, so only that query's matches need to be searched.
    const std::vector<int> *candidates = nullptr;
    if (filterEngineTuning().keepRecentMatches) {
        for (const Matches &recent : m_recentMatches) {
            if (candidates && candidates->size() <= recent.items.size())
                continue;
            for (qsizetype at = query.key.indexOf(recent.key); at >= 0;
                 at = query.key.indexOf(recent.key, at + 1)) {
                if (isCharacterBoundary(query.key, at) &&
                    isCharacterBoundary(query.key, at + recent.key.size())) {
                    candidates = &recent.items;
                    break;
                }
            }
        }
    }

    prepareQuery(query);
    Matches matches{query.key, scan(query, candidates)};
    if (!filterEngineTuning().keepRecentMatches)
        m_recentMatches.clear();
    m_recentMatches.push_front(std::move(matches));
    if (m_recentMatches.size() > recentMatchesKept)
        m_recentMatches.pop_back();
    return &m_recentMatches.front().items;
}

bool FilterEngine::before(SortOrder sortOrder, int a, int b)
{
    switch (sortOrder) {
    case SortOrder::recentFirst:
        return m_items.at(a).createdAt > m_items.at(b).createdAt;
    case SortOrder::oldFirst:
        return m_items.at(a).createdAt < m_items.at(b).createdAt;
    case SortOrder::alphabetical:
        break;
    }
    // Qt compares C-locale strings by UTF-16 code units, but its C sort keys are UTF-8 bytes, which
    // order surrogates differently; there, use the comparison itself.
    if (m_collator.locale() == QLocale::c())
        return m_collator.compare(m_items.at(a).title, m_items.at(b).title) < 0;
    // QCollator puts an empty title before every other, even one made only of characters the
    // collation ignores, whose sort key equals the empty one.
    const bool aEmpty = m_items.at(a).title.isEmpty(), bEmpty = m_items.at(b).title.isEmpty();
    if (aEmpty || bEmpty)
        return aEmpty && !bEmpty;
    return sortKey(a).compare(sortKey(b)) < 0;
}

const QCollatorSortKey &FilterEngine::sortKey(int index)
{
    std::optional<QCollatorSortKey> &key = m_sortKeys[std::size_t(index)];
    if (!key)
        key = m_collator.sortKey(m_items.at(index).title);
    return *key;
}

const std::vector<int> &FilterEngine::order(SortOrder sortOrder)
{
    if (sortOrder == SortOrder::alphabetical)
        waitForBackground();
    std::optional<std::vector<int>> &cached = m_orders[std::size_t(sortOrder)];
    if (cached)
        return *cached;
    std::vector<int> indexes(std::size_t(m_items.size()));
    for (std::size_t i = 0; i < indexes.size(); ++i)
        indexes[i] = int(i);
    std::stable_sort(indexes.begin(), indexes.end(),
                     [this, sortOrder](int a, int b) { return before(sortOrder, a, b); });
    cached = std::move(indexes);
    return *cached;
}

bool FilterEngine::updateOrder(SortOrder sortOrder, const std::vector<int> &previous, std::size_t oldCount,
                               const std::vector<std::uint8_t> &keyKept)
{
    std::optional<std::vector<int>> &cached = m_orders[std::size_t(sortOrder)];
    if (!cached)
        return true;
    if (!filterEngineTuning().carryOrdersOverEdits)
        return false;
    // A stable sort orders records by (key, position). Records that kept their key and their order
    // relative to each other keep their places; the few others are inserted by binary search.
    constexpr std::size_t mostReinserted = 256;
    std::vector<int> newIndexOfOld(oldCount, -1);
    std::vector<int> reinserted;
    int lastPrevious = -1;
    for (std::size_t i = 0; i < previous.size(); ++i) {
        if (previous[i] >= 0 && keyKept[i]) {
            if (previous[i] <= lastPrevious)
                return false;
            lastPrevious = previous[i];
            newIndexOfOld[std::size_t(previous[i])] = int(i);
        } else {
            reinserted.push_back(int(i));
            if (reinserted.size() > mostReinserted)
                return false;
        }
    }
    std::vector<int> order;
    order.reserve(previous.size());
    for (int old : *cached) {
        if (const int now = newIndexOfOld[std::size_t(old)]; now >= 0)
            order.push_back(now);
    }
    const auto precedes = [this, sortOrder](int a, int b) {
        return before(sortOrder, a, b) || (!before(sortOrder, b, a) && a < b);
    };
    for (int index : reinserted)
        order.insert(std::lower_bound(order.begin(), order.end(), index, precedes), index);
    cached = std::move(order);
    return true;
}

std::vector<int> FilterEngine::rows(const FilterState &state)
{
    const std::size_t n = std::size_t(m_items.size());
    const std::vector<int> *matches = textMatches(state.searchText);

    const QString category = state.selectedCategory.normalized(QString::NormalizationForm_C);
    const bool anyCategory = category == allCategoriesChoice();
    const int wantedCategory = m_categoryIdByNormalizedName.value(category, -1);
    const auto passesOthers = [&](int i) {
        const LinkItem &item = m_items.at(i);
        return (anyCategory || m_categoryIds[std::size_t(i)] == wantedCategory) &&
               (!state.showFavoritesOnly || item.isFavorite) &&
               (!state.dateFilterEnabled ||
                (state.dateFrom <= item.createdAt && item.createdAt <= state.dateTo)) &&
               (!state.showBrokenOnly || state.brokenIds.contains(item.id));
    };

    m_pass.assign(n, 0);
    if (matches) {
        for (int i : *matches)
            m_pass[std::size_t(i)] = passesOthers(i);
    } else {
        for (std::size_t i = 0; i < n; ++i)
            m_pass[i] = passesOthers(int(i));
    }

    const std::vector<int> &sorted = order(resolvedSortOrder(state.sortOrderRawValue));
    std::vector<int> result;
    result.reserve(matches ? matches->size() : n);
    for (int i : sorted) {
        if (m_pass[std::size_t(i)])
            result.push_back(i);
    }
    return result;
}

} // namespace fiva
