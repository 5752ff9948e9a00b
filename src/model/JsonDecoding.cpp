// Decoding of Fiva's documents in one forward pass over the text, straight into the records.
//
// The parser only indexes the text; this reader walks every value, including those of keys it
// does not know, so that any malformed JSON anywhere is still rejected as such. A problem of
// meaning (a wrong type, a missing key) is remembered and the walk goes on checking the syntax of
// the rest: malformed JSON is what gets reported when both are present, as a parser that checks
// the whole text before reading it would. Within a record, keys are met in the file's order but
// their problems are ranked in the fixed reading order, so the error names the same key whatever
// the order in the file.
#include "model/JsonCodec.h"
#include "model/Parallel.h"
#include "text/Utf8.h"

#include <QFileInfo>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <optional>
#include <simdjson.h>
#include <string>
#include <string_view>
#include <vector>

namespace fiva::json {

namespace {

namespace od = simdjson::ondemand;
using simdjson::error_code;

// Where in the document a value sits, kept as a chain on the stack and turned into text
// ("items[3].attachments[0].id") only when something goes wrong.
struct Place
{
    const Place *parent = nullptr;
    std::string_view key;
    qsizetype index = -1;

    Place field(std::string_view name) const { return Place{this, name, -1}; }
    Place element(qsizetype i) const { return Place{this, {}, i}; }

    QString text() const
    {
        QString result = parent ? parent->text() : QString();
        if (index >= 0) {
            result += u'[' + QString::number(index) + u']';
        } else if (!key.empty()) {
            if (!result.isEmpty())
                result += u'.';
            result += QString::fromUtf8(key.data(), qsizetype(key.size()));
        }
        return result;
    }
};

QString describe(const Place &place, const QString &problem)
{
    QString where = place.text();
    if (where.isEmpty())
        where = QStringLiteral("document");
    return where + QStringLiteral(": ") + problem;
}

// The first problem of one value; empty while there is none.
struct Problem
{
    QString description;
    explicit operator bool() const { return !description.isNull(); }
    void set(const Place &place, const QString &problem)
    {
        if (description.isNull())
            description = describe(place, problem);
    }
};

QString quoted(std::string_view text)
{
    constexpr std::size_t maxShown = 40;
    QString shown = QString::fromUtf8(text.data(), qsizetype(std::min(text.size(), maxShown)));
    if (text.size() > maxShown)
        shown += QStringLiteral("…");
    return u'"' + shown + u'"';
}

// Thrown at the first syntax error: the text is not JSON, nothing else matters.
struct SyntaxFailure
{
    error_code code;
};

void check(error_code code)
{
    if (code != simdjson::SUCCESS)
        throw SyntaxFailure{code};
}

template <class T, class Source> T take(Source source)
{
    T value{};
    check(std::move(source).get(value));
    return value;
}

// True when the text is one JSON number: -?(0|[1-9][0-9]*)(.[0-9]+)?([eE][+-]?[0-9]+)?
bool isJsonNumberText(std::string_view t)
{
    std::size_t i = 0;
    const auto digits = [&] {
        const std::size_t from = i;
        while (i < t.size() && t[i] >= '0' && t[i] <= '9')
            ++i;
        return i - from;
    };
    if (i < t.size() && t[i] == '-')
        ++i;
    if (i < t.size() && t[i] == '0')
        ++i;
    else if (digits() == 0)
        return false;
    if (i < t.size() && t[i] == '.') {
        ++i;
        if (digits() == 0)
            return false;
    }
    if (i < t.size() && (t[i] == 'e' || t[i] == 'E')) {
        ++i;
        if (i < t.size() && (t[i] == '+' || t[i] == '-'))
            ++i;
        if (digits() == 0)
            return false;
    }
    return i == t.size();
}

// The on-demand reader refuses an exponent of very many digits, which JSON allows and a full parser
// reads: as the number it is once its leading zeros are gone, else as zero when it is negative and as
// out of range when it is not. Such a number is read here
// from its text, which the reader then has not passed; any other failure stays a syntax failure.
template <class Source> double jsonDouble(Source &source, bool *readFromText = nullptr)
{
    double value = 0;
    const simdjson::error_code error = source.get_double().get(value);
    if (error != simdjson::NUMBER_ERROR) {
        check(error);
        return value;
    }
    std::string_view token = source.raw_json_token();
    while (!token.empty() &&
           (token.back() == ' ' || token.back() == '\t' || token.back() == '\n' || token.back() == '\r'))
        token.remove_suffix(1);
    const std::size_t exponent = token.find_first_of("eE");
    if (!isJsonNumberText(token) || exponent == std::string_view::npos)
        throw SyntaxFailure{error};
    const bool zero = token.substr(0, exponent).find_first_of("123456789") == std::string_view::npos;
    std::string_view power = token.substr(exponent + 1);
    const bool negative = power.front() == '-';
    if (power.front() == '+' || power.front() == '-')
        power.remove_prefix(1);
    // Leading zeros change nothing (5E0000 is 5): an exponent that is short once they are gone is read
    // as written.
    const std::size_t significant = power.find_first_not_of('0');
    power = significant == std::string_view::npos ? std::string_view("0") : power.substr(significant);
    if (!zero && power.size() <= 6) {
        std::string text(token.substr(0, exponent));
        text += negative ? "e-" : "e";
        text += power;
        double read = 0;
        const auto [end, result] = std::from_chars(text.data(), text.data() + text.size(), read);
        if (result == std::errc() && end == text.data() + text.size() && std::isfinite(read)) {
            if (readFromText)
                *readFromText = true;
            return read;
        }
        if (result != std::errc::result_out_of_range || !negative)
            throw SyntaxFailure{error};
    } else if (!zero && !negative) {
        throw SyntaxFailure{error};
    }
    if (readFromText)
        *readFromText = true;
    return token.front() == '-' ? -0.0 : 0.0;
}

// Hex digit values, -1 for every other byte.
constexpr std::array<signed char, 256> hexValues = [] {
    std::array<signed char, 256> table{};
    table.fill(-1);
    for (int c = '0'; c <= '9'; ++c)
        table[std::size_t(c)] = static_cast<signed char>(c - '0');
    for (int c = 'a'; c <= 'f'; ++c) {
        table[std::size_t(c)] = static_cast<signed char>(c - 'a' + 10);
        table[std::size_t(c - 'a' + 'A')] = static_cast<signed char>(c - 'a' + 10);
    }
    return table;
}();

int hex4(const char *p)
{
    int value = 0;
    for (int i = 0; i < 4; ++i) {
        const int digit = hexValues[static_cast<unsigned char>(p[i])];
        if (digit < 0)
            throw SyntaxFailure{simdjson::STRING_ERROR};
        value = value << 4 | digit;
    }
    return value;
}

// The text of a string's content with its escapes resolved. The content's UTF-8 and the absence of
// raw control characters were checked by the parser when it indexed the text; the escapes are
// checked here, surrogates included: a lone one is not text.
void unescape(std::string_view content, std::string &out)
{
    out.clear();
    const char *p = content.data();
    const char *const end = p + content.size();
    while (p < end) {
        const char *slash = static_cast<const char *>(std::memchr(p, '\\', std::size_t(end - p)));
        if (!slash) {
            out.append(p, std::size_t(end - p));
            return;
        }
        out.append(p, std::size_t(slash - p));
        if (slash + 1 >= end)
            throw SyntaxFailure{simdjson::STRING_ERROR};
        p = slash + 2;
        switch (slash[1]) {
        case '"':
        case '\\':
        case '/':
            out += slash[1];
            break;
        case 'b':
            out += '\b';
            break;
        case 'f':
            out += '\f';
            break;
        case 'n':
            out += '\n';
            break;
        case 'r':
            out += '\r';
            break;
        case 't':
            out += '\t';
            break;
        case 'u': {
            if (end - p < 4)
                throw SyntaxFailure{simdjson::STRING_ERROR};
            char32_t code = char32_t(hex4(p));
            p += 4;
            if (code >= 0xDC00 && code <= 0xDFFF)
                throw SyntaxFailure{simdjson::STRING_ERROR};
            if (code >= 0xD800 && code <= 0xDBFF) {
                if (end - p < 6 || p[0] != '\\' || p[1] != 'u')
                    throw SyntaxFailure{simdjson::STRING_ERROR};
                const char32_t low = char32_t(hex4(p + 2));
                if (low < 0xDC00 || low > 0xDFFF)
                    throw SyntaxFailure{simdjson::STRING_ERROR};
                code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
                p += 6;
            }
            appendUtf8(out, code);
            break;
        }
        default:
            throw SyntaxFailure{simdjson::STRING_ERROR};
        }
    }
}

bool isJsonSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// The text of each record of an array, in order; an empty view stands for an element that is
// not an object.
using RecordTexts = std::vector<std::string_view>;

// The known keys of one object, by their place in the reading order: which were given a value
// (null counts as absent) and the problem of each.
template <std::size_t N> struct KnownKeys
{
    const std::array<std::string_view, N> &names;
    std::array<bool, N> present{};
    std::array<Problem, N> problems{};

    // The problem of the earliest key in reading order, a missing required key counting as one.
    // `required` has bit k set when key k must be present.
    bool firstProblem(const Place &place, std::uint32_t required, Problem &problem) const
    {
        for (std::size_t k = 0; k < N; ++k) {
            if (problems[k]) {
                problem.description = problems[k].description;
                return true;
            }
            if ((required >> k & 1u) && !present[k]) {
                problem.set(place.field(names[k]), QStringLiteral("missing"));
                return true;
            }
        }
        return false;
    }
};

template <std::size_t N> int indexOf(const std::array<std::string_view, N> &names, std::string_view name)
{
    for (std::size_t k = 0; k < N; ++k)
        if (names[k] == name)
            return int(k);
    return -1;
}

// What the walk over a data file found, before its records are decoded.
struct SavedDataWalk
{
    enum Slot { items, categories, lastBackupDate };
    static constexpr std::array<std::string_view, 3> names = {"items", "categories", "lastBackupDate"};

    SavedData data;
    RecordTexts records;
    Problem rootProblem;
    KnownKeys<3> keys{names};
};

enum class JsonType { array, object, number, string, boolean, null };

class Reader final
{
public:
    explicit Reader(Timestamp now) : m_now(now) {}

    JsonType typeOf(od::value &value)
    {
        switch (take<od::json_type>(value.type())) {
        case od::json_type::array:
            return JsonType::array;
        case od::json_type::object:
            return JsonType::object;
        case od::json_type::number:
            return JsonType::number;
        case od::json_type::string:
            return JsonType::string;
        case od::json_type::boolean:
            return JsonType::boolean;
        case od::json_type::null:
            // The type is guessed from the first letter: "nul" or "nullx" are not null.
            if (!take<bool>(value.is_null()))
                throw SyntaxFailure{simdjson::N_ATOM_ERROR};
            return JsonType::null;
        }
        throw SyntaxFailure{simdjson::TAPE_ERROR};
    }

    // The content between a string's quotes, as it stands in the text; consumes the value.
    std::string_view rawString(od::value &value)
    {
        std::string_view token = value.raw_json_token();
        take<od::raw_json_string>(value.get_raw_json_string());
        // The token runs to the next structural character and may carry spaces before it.
        while (!token.empty() && isJsonSpace(token.back()))
            token.remove_suffix(1);
        if (token.size() < 2 || token.front() != '"' || token.back() != '"')
            throw SyntaxFailure{simdjson::STRING_ERROR};
        return token.substr(1, token.size() - 2);
    }

    // A string's text as UTF-8, escapes resolved; valid until the next string is read.
    std::string_view utf8(std::string_view content)
    {
        if (!std::memchr(content.data(), '\\', content.size()))
            return content;
        unescape(content, m_scratch);
        return m_scratch;
    }

    QString string(od::value &value) { return toQString(utf8(rawString(value))); }

    static QString toQString(std::string_view text)
    {
        return QString::fromUtf8(text.data(), qsizetype(text.size()));
    }

    // Walks a value of no interest only to check that it is well-formed JSON.
    void skip(od::value &value, int depth = 0)
    {
        if (depth > int(simdjson::DEFAULT_MAX_DEPTH))
            throw SyntaxFailure{simdjson::DEPTH_ERROR};
        switch (typeOf(value)) {
        case JsonType::array:
            for (auto element : take<od::array>(value.get_array())) {
                od::value item = take<od::value>(element);
                skip(item, depth + 1);
            }
            break;
        case JsonType::object:
            for (auto field : take<od::object>(value.get_object())) {
                od::field f = take<od::field>(field);
                key(f);
                od::value item = f.value();
                skip(item, depth + 1);
            }
            break;
        case JsonType::number:
            jsonDouble(value);
            break;
        case JsonType::string:
            utf8(rawString(value));
            break;
        case JsonType::boolean:
            take<bool>(value.get_bool());
            break;
        case JsonType::null:
            break;
        }
    }

    // A field's name, escapes resolved; valid until the next string is read.
    std::string_view key(od::field &field)
    {
        const char *start = field.key().raw();
        const char *p = start;
        while (*p != '"')
            p += *p == '\\' ? 2 : 1;
        return utf8(std::string_view(start, std::size_t(p - start)));
    }

    // Reads a value of the expected type through `read`; any other type is a problem at `place`
    // (and the value is still checked). Null counts as absent: the caller sees false.
    template <class Read>
    bool expect(od::value &value, JsonType expected, const Place &place, const QString &what,
                Problem &problem, Read read)
    {
        const JsonType type = typeOf(value);
        if (type == JsonType::null)
            return false;
        if (type == expected && !problem) {
            read(value);
        } else {
            if (type != expected)
                problem.set(place, what);
            skip(value);
        }
        return true;
    }

    static const QString &expectedString()
    {
        static const QString text = QStringLiteral("expected a string");
        return text;
    }
    static const QString &expectedNumber()
    {
        static const QString text = QStringLiteral("expected a number");
        return text;
    }

    QUuid uuid(od::value &value, const Place &place, Problem &problem)
    {
        const std::string_view text = utf8(rawString(value));
        std::array<char, 16> bytes{};
        bool valid =
            text.size() == 36 && text[8] == '-' && text[13] == '-' && text[18] == '-' && text[23] == '-';
        if (valid) {
            // Offsets of the 16 two-digit groups between the dashes.
            static constexpr std::array<std::uint8_t, 16> offsets = {0,  2,  4,  6,  9,  11, 14, 16,
                                                                     19, 21, 24, 26, 28, 30, 32, 34};
            int bad = 0;
            for (std::size_t i = 0; i < 16; ++i) {
                const int high = hexValues[static_cast<unsigned char>(text[offsets[i]])];
                const int low = hexValues[static_cast<unsigned char>(text[offsets[i] + 1u])];
                bad |= high | low;
                bytes[i] = char(high << 4 | low);
            }
            valid = bad >= 0;
        }
        if (!valid) {
            // Only the bare 36-character form, in either case: braces or other spellings are not ours.
            problem.set(place, QStringLiteral("not a valid UUID: ") + quoted(text));
            return {};
        }
        return QUuid::fromRfc4122(QByteArrayView(bytes.data(), 16));
    }

    // Present and of the right type, or a problem; `missing` when absent or null.
    bool requiredString(od::value &value, const Place &place, Problem &problem, QString &out)
    {
        return expect(value, JsonType::string, place, expectedString(), problem,
                      [&](od::value &v) { out = string(v); });
    }

    double date(od::value &value) { return jsonDouble(value); }

    // A size is an integer, however it is written: 1234, 1234.0 and 1.234e3 are the same value, and JSON
    // readers accept any spelling of a value. Judged on the token's decimal digits, never through a
    // double, so a size past 2^53 is read exactly or refused; 12.5 is not an integer and is refused.
    qint64 integer(od::value &value, const Place &place, Problem &problem)
    {
        std::string_view token = value.raw_json_token();
        while (!token.empty() &&
               (token.back() == ' ' || token.back() == '\t' || token.back() == '\n' || token.back() == '\r'))
            token.remove_suffix(1);
        const bool literal = token.find_first_of(".eE") == std::string_view::npos;
        std::int64_t result = 0;
        if (literal && value.get_int64().get(result) == simdjson::SUCCESS)
            return qint64(result);
        // Checks the number's syntax before judging it, and consumes it.
        jsonDouble(value);
        bool outOfRange = literal;
        if (!literal && exactInteger(token, result, outOfRange))
            return qint64(result);
        problem.set(place, outOfRange ? QStringLiteral("integer out of range")
                                      : QStringLiteral("expected an integer"));
        return 0;
    }

    // The integer a well-formed JSON number denotes, when it is one and fits in 64 bits.
    static bool exactInteger(std::string_view token, std::int64_t &out, bool &outOfRange)
    {
        const bool negative = token.starts_with('-');
        if (negative)
            token.remove_prefix(1);
        const auto e = token.find_first_of("eE");
        std::string_view mantissa = token.substr(0, e);
        std::int64_t exponent = 0;
        if (e != std::string_view::npos) {
            std::string_view text = token.substr(e + 1);
            const bool down = text.starts_with('-');
            if (text.starts_with('-') || text.starts_with('+'))
                text.remove_prefix(1);
            for (const char c : text)
                exponent = std::min<std::int64_t>(exponent * 10 + (c - '0'), 100000);
            if (down)
                exponent = -exponent;
        }
        std::string digits;
        const auto point = mantissa.find('.');
        digits.append(mantissa.substr(0, point));
        if (point != std::string_view::npos) {
            digits.append(mantissa.substr(point + 1));
            exponent -= std::int64_t(mantissa.size() - point - 1);
        }
        digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size()));
        while (!digits.empty() && digits.back() == '0') {
            digits.pop_back();
            ++exponent;
        }
        if (digits.empty()) {
            out = 0;
            return true;
        }
        if (exponent < 0)
            return false;
        if (std::int64_t(digits.size()) + exponent > 19) {
            outOfRange = true;
            return false;
        }
        digits.append(std::size_t(exponent), '0');
        // The magnitude of the smallest int64 is one more than the largest: unsigned arithmetic holds both.
        std::uint64_t magnitude = 0;
        const std::uint64_t limit = negative ? std::uint64_t(1) << 63 : (std::uint64_t(1) << 63) - 1;
        for (const char c : digits) {
            const auto digit = std::uint64_t(c - '0');
            if (magnitude > (limit - digit) / 10) {
                outOfRange = true;
                return false;
            }
            magnitude = magnitude * 10 + digit;
        }
        out = negative ? std::int64_t(0 - magnitude) : std::int64_t(magnitude);
        return true;
    }

    bool boolean(od::value &value) { return take<bool>(value.get_bool()); }

    static LinkKind inferKind(const QString &path)
    {
        if (path.startsWith(QStringLiteral("http"), Qt::CaseInsensitive))
            return LinkKind::url;
        if (QFileInfo(path).isDir())
            return LinkKind::directory;
        return LinkKind::file;
    }

    // Reads the first occurrence of each known key of an object with read(k, value, place,
    // problem), which answers whether the key has a value; every other field is only checked.
    template <std::size_t N, class KeyIndex, class Read>
    void readKeys(od::value &object, const Place &place, KnownKeys<N> &keys, KeyIndex keyIndex, Read read)
    {
        std::array<bool, N> seen{};
        for (auto field : take<od::object>(object.get_object())) {
            od::field f = take<od::field>(field);
            const int k = keyIndex(key(f));
            od::value v = f.value();
            if (k < 0 || seen[std::size_t(k)]) {
                skip(v);
                continue;
            }
            seen[std::size_t(k)] = true;
            const Place at = place.field(keys.names[std::size_t(k)]);
            keys.present[std::size_t(k)] = read(k, v, at, keys.problems[std::size_t(k)]);
        }
    }

    Attachment attachment(od::value &value, const Place &place, Problem &problem)
    {
        Attachment a;
        if (typeOf(value) != JsonType::object) {
            problem.set(place, QStringLiteral("expected an object"));
            skip(value);
            return a;
        }
        static constexpr std::array<std::string_view, 3> names = {"id", "fileName", "filePath"};
        KnownKeys<3> keys{names};
        readKeys(
            value, place, keys, [](std::string_view name) { return indexOf(names, name); },
            [&](int k, od::value &v, const Place &at, Problem &p) {
                if (k == 0)
                    return expect(v, JsonType::string, at, expectedString(), p,
                                  [&](od::value &s) { a.id = uuid(s, at, p); });
                return requiredString(v, at, p, k == 1 ? a.fileName : a.filePath);
            });
        keys.firstProblem(place, 0b111, problem);
        return a;
    }

    // Reads one record; on a problem, `problem` holds the one of the earliest key in reading order.
    LinkItem item(od::value &value, const Place &place, Problem &problem)
    {
        LinkItem item;
        if (typeOf(value) != JsonType::object) {
            problem.set(place, QStringLiteral("expected an object"));
            skip(value);
            return item;
        }
        enum { id, title, path, category, notes, createdAt, isFavorite, attachments, kind };
        static constexpr std::array<std::string_view, 9> names = {
            "id", "title", "path", "category", "notes", "createdAt", "isFavorite", "attachments", "kind"};
        KnownKeys<9> keys{names};
        readKeys(value, place, keys, slotOf, [&](int k, od::value &v, const Place &at, Problem &p) {
            switch (k) {
            case id:
                return expect(v, JsonType::string, at, expectedString(), p,
                              [&](od::value &s) { item.id = uuid(s, at, p); });
            case title:
                return requiredString(v, at, p, item.title);
            case path:
                return requiredString(v, at, p, item.path);
            case category:
                return requiredString(v, at, p, item.category);
            case notes:
                return expect(v, JsonType::string, at, expectedString(), p,
                              [&](od::value &s) { item.notes = string(s); });
            case createdAt:
                return expect(v, JsonType::number, at, expectedNumber(), p,
                              [&](od::value &n) { item.createdAt = Timestamp{date(n)}; });
            case isFavorite:
                return expect(v, JsonType::boolean, at, QStringLiteral("expected a boolean"), p,
                              [&](od::value &b) { item.isFavorite = boolean(b); });
            case attachments:
                return expect(v, JsonType::array, at, QStringLiteral("expected an array"), p,
                              [&](od::value &a) {
                                  qsizetype i = 0;
                                  for (auto element : take<od::array>(a.get_array())) {
                                      od::value e = take<od::value>(element);
                                      if (p) {
                                          skip(e);
                                      } else {
                                          Attachment attachment = this->attachment(e, at.element(i), p);
                                          if (!p)
                                              item.attachments.append(std::move(attachment));
                                      }
                                      ++i;
                                  }
                              });
            default:
                return expect(v, JsonType::string, at, expectedString(), p, [&](od::value &s) {
                    const std::string_view name = utf8(rawString(s));
                    if (name == "url")
                        item.kind = LinkKind::url;
                    else if (name == "file")
                        item.kind = LinkKind::file;
                    else if (name == "directory")
                        item.kind = LinkKind::directory;
                    else
                        p.set(at, QStringLiteral("unknown kind ") + quoted(name));
                });
            }
        });
        if (keys.firstProblem(place, 1u << title | 1u << path | 1u << category, problem))
            return item;
        if (!keys.present[id])
            item.id = QUuid::createUuid();
        if (!keys.present[createdAt])
            item.createdAt = m_now;
        if (!keys.present[kind])
            item.kind = inferKind(item.path);
        return item;
    }

    static int slotOf(std::string_view name)
    {
        // Switching on the length first keeps this to one comparison for Fiva's own keys.
        switch (name.size()) {
        case 2:
            return name == "id" ? 0 : -1;
        case 4:
            return name == "path" ? 2 : name == "kind" ? 8 : -1;
        case 5:
            return name == "title" ? 1 : name == "notes" ? 4 : -1;
        case 8:
            return name == "category" ? 3 : -1;
        case 9:
            return name == "createdAt" ? 5 : -1;
        case 10:
            return name == "isFavorite" ? 6 : -1;
        case 11:
            return name == "attachments" ? 7 : -1;
        default:
            return -1;
        }
    }

    // The records of an array are only delimited here, in one quick pass; they are decoded later
    // by decodeRecords, once the parser's index of the whole text is gone, on several threads.
    RecordTexts recordTexts(od::value &value)
    {
        RecordTexts texts;
        for (auto element : take<od::array>(value.get_array())) {
            od::value e = take<od::value>(element);
            if (typeOf(e) == JsonType::object) {
                texts.push_back(take<std::string_view>(take<od::object>(e.get_object()).raw_json()));
            } else {
                // Not a record: decodeRecords reports it in its place; it must still be JSON.
                skip(e);
                texts.emplace_back();
            }
        }
        return texts;
    }

    QList<BackupLog> backupLogs(od::value &value, Problem &problem)
    {
        static constexpr std::array<std::string_view, 4> names = {"id", "date", "filePath", "fileSize"};
        const Place document;
        QList<BackupLog> history;
        qsizetype i = 0;
        for (auto element : take<od::array>(value.get_array())) {
            od::value e = take<od::value>(element);
            const Place place = document.element(i++);
            if (problem) {
                skip(e);
                continue;
            }
            if (typeOf(e) != JsonType::object) {
                problem.set(place, QStringLiteral("expected an object"));
                skip(e);
                continue;
            }
            BackupLog log;
            KnownKeys<4> keys{names};
            readKeys(
                e, place, keys, [](std::string_view name) { return indexOf(names, name); },
                [&](int k, od::value &v, const Place &at, Problem &p) {
                    switch (k) {
                    case 0:
                        return expect(v, JsonType::string, at, expectedString(), p,
                                      [&](od::value &s) { log.id = uuid(s, at, p); });
                    case 1:
                        return expect(v, JsonType::number, at, expectedNumber(), p,
                                      [&](od::value &n) { log.date = Timestamp{date(n)}; });
                    case 2:
                        return requiredString(v, at, p, log.filePath);
                    default:
                        return expect(v, JsonType::number, at, QStringLiteral("expected an integer"), p,
                                      [&](od::value &n) { log.fileSize = integer(n, at, p); });
                    }
                });
            if (!keys.firstProblem(place, 0b1111, problem))
                history.append(std::move(log));
        }
        if (problem)
            history = {};
        return history;
    }

    // The root object of a data file; the records are left as texts for decodeRecords.
    void savedData(od::value &root, SavedDataWalk &walk)
    {
        const Place document;
        SavedData &data = walk.data;
        if (typeOf(root) != JsonType::object) {
            walk.rootProblem.set(document, QStringLiteral("expected an object"));
            skip(root);
            return;
        }
        readKeys(
            root, document, walk.keys,
            [](std::string_view name) { return indexOf(SavedDataWalk::names, name); },
            [&](int k, od::value &v, const Place &at, Problem &p) {
                switch (k) {
                case SavedDataWalk::items:
                    return expect(v, JsonType::array, at, QStringLiteral("expected an array"), p,
                                  [&](od::value &a) { walk.records = recordTexts(a); });
                case SavedDataWalk::categories:
                    return expect(v, JsonType::array, at, QStringLiteral("expected an array"), p,
                                  [&](od::value &a) { data.categories = strings(a, at, p); });
                default:
                    return expect(v, JsonType::number, at, expectedNumber(), p,
                                  [&](od::value &n) { data.lastBackupDate = Timestamp{date(n)}; });
                }
            });
    }

    QStringList strings(od::value &array, const Place &place, Problem &problem)
    {
        QStringList list;
        qsizetype i = 0;
        for (auto element : take<od::array>(array.get_array())) {
            od::value e = take<od::value>(element);
            const Place entry = place.element(i++);
            QString text;
            if (problem)
                skip(e);
            else if (requiredString(e, entry, problem, text) && !problem)
                list.append(std::move(text));
            else
                problem.set(entry, expectedString());
        }
        return list;
    }

private:
    Timestamp m_now;
    std::string m_scratch;
};

// The byte offset of the first invalid UTF-8 sequence, so that the error can point at it.
std::size_t firstInvalidUtf8(const char *data, std::size_t n)
{
    const auto *p = reinterpret_cast<const unsigned char *>(data);
    std::size_t i = 0;
    while (i < n) {
        const unsigned char c = p[i];
        if (c < 0x80) {
            ++i;
            continue;
        }
        std::size_t length = 0;
        char32_t code = 0;
        char32_t minimum = 0;
        if ((c & 0xE0) == 0xC0) {
            length = 2, code = c & 0x1F, minimum = 0x80;
        } else if ((c & 0xF0) == 0xE0) {
            length = 3, code = c & 0x0F, minimum = 0x800;
        } else if ((c & 0xF8) == 0xF0) {
            length = 4, code = c & 0x07, minimum = 0x10000;
        } else {
            return i;
        }
        if (i + length > n)
            return i;
        for (std::size_t k = 1; k < length; ++k) {
            if ((p[i + k] & 0xC0) != 0x80)
                return i;
            code = (code << 6) | (p[i + k] & 0x3F);
        }
        if (code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
            return i;
        i += length;
    }
    return n;
}

QString malformed(error_code code)
{
    return QStringLiteral("malformed JSON: ") + QString::fromUtf8(simdjson::error_message(code));
}

// True when the value was judged on its text, which then ran to the end of the document.
// True when the value was judged on its text, which then ran to the end of the document `whole`.
bool checkScalarRoot(od::document &document, std::string_view whole)
{
    const auto space = [](char c) { return isJsonSpace(c); };
    const auto first = std::find_if_not(whole.begin(), whole.end(), space);
    const auto last = std::find_if_not(whole.rbegin(), whole.rend(), space).base();
    const std::string_view atom = first < last ? std::string_view(first, last) : std::string_view();
    switch (take<od::json_type>(document.type())) {
    case od::json_type::number: {
        // The reader misjudges a number followed by a long run of spaces: a plain one is judged on its
        // text, the rest as any other number.
        double value = 0;
        const auto [end, result] = std::from_chars(atom.data(), atom.data() + atom.size(), value);
        if (isJsonNumberText(atom) && end == atom.data() + atom.size() &&
            ((result == std::errc() && std::isfinite(value)) ||
             (result == std::errc::result_out_of_range && atom.find("e-") != std::string_view::npos) ||
             (result == std::errc::result_out_of_range && atom.find("E-") != std::string_view::npos)))
            return true;
        bool readFromText = false;
        jsonDouble(document, &readFromText);
        if (!readFromText)
            return false;
        // Judged on its text: only spaces may follow it.
        const std::string_view token = take<std::string_view>(document.raw_json_token());
        if (!std::all_of(token.data() + token.size(), whole.data() + whole.size(), space))
            throw SyntaxFailure{simdjson::TRAILING_CONTENT};
        return true;
    }
    case od::json_type::string:
        take<std::string_view>(document.get_string());
        return false;
    case od::json_type::boolean:
    case od::json_type::null: {
        // The reader takes "false2" for false and refuses "null " at the end: an atom is judged on the
        // text, which must be the atom alone between spaces.
        if (atom != "true" && atom != "false" && atom != "null") {
            throw SyntaxFailure{atom.starts_with('t')   ? simdjson::T_ATOM_ERROR
                                : atom.starts_with('f') ? simdjson::F_ATOM_ERROR
                                                        : simdjson::N_ATOM_ERROR};
        }
        return true;
    }
    default:
        throw SyntaxFailure{simdjson::TAPE_ERROR};
    }
}

// Input pages are given back a few megabytes at a time: rare system calls, whole large pages.
constexpr std::ptrdiff_t releaseStep = std::ptrdiff_t(4) << 20;

// Records decode on several threads when there are enough of them to pay for starting one.
constexpr std::size_t recordsPerThreadAtLeast = 2048;

// Decodes the records delimited by the walk. Each thread takes a run of consecutive records,
// checks their syntax and gives back the input pages it has passed; the problem reported is the
// one of the lowest index, as if the records had been read in order.
QList<LinkItem> decodeRecords(const RecordTexts &texts, const Place &place, Problem &problem,
                              InputBuffer &input, Timestamp now)
{
    const std::size_t count = texts.size();
    const std::size_t threads = runCount(count, recordsPerThreadAtLeast);

    // Runs of about equal bytes.
    std::vector<std::size_t> bounds{0};
    std::size_t total = 0;
    for (std::string_view text : texts)
        total += text.size();
    std::size_t sum = 0;
    for (std::size_t i = 0; i < count && bounds.size() < threads; ++i) {
        sum += texts[i].size();
        if (sum >= total / threads * bounds.size())
            bounds.push_back(i + 1);
    }
    bounds.push_back(count);

    QList<LinkItem> items(qsizetype(count), LinkItem{});
    LinkItem *out = items.data();
    struct Share
    {
        Problem problem;
        std::optional<error_code> syntax;
    };
    std::vector<Share> shares(bounds.size() - 1);
    const auto work = [&](std::size_t k) {
        Share &share = shares[k];
        try {
            Reader reader(now);
            od::parser parser;
            // The page where the previous run ends stays: its reader may still look past its end.
            const char *released = nullptr;
            for (std::size_t i = bounds[k]; i < bounds[k + 1]; ++i) {
                const std::string_view text = texts[i];
                if (text.data() == nullptr) {
                    share.problem.set(place.element(qsizetype(i)), QStringLiteral("expected an object"));
                    continue;
                }
                if (!released)
                    released = text.data() + InputBuffer::pageSize();
                od::document document;
                check(parser.iterate(text.data(), text.size(), text.size() + simdjson::SIMDJSON_PADDING)
                          .get(document));
                od::value value = take<od::value>(document.get_value());
                if (share.problem) {
                    reader.skip(value);
                } else {
                    LinkItem item = reader.item(value, place.element(qsizetype(i)), share.problem);
                    if (!share.problem)
                        out[i] = std::move(item);
                }
                if (text.data() - released > releaseStep) {
                    input.release(released, text.data());
                    released = text.data();
                }
            }
        } catch (const SyntaxFailure &failure) {
            share.syntax = failure.code;
        }
    };
    forEachRun(shares.size(), work);

    for (const Share &share : shares)
        if (share.syntax)
            throw SyntaxFailure{*share.syntax};
    for (const Share &share : shares) {
        if (share.problem) {
            problem.description = share.problem.description;
            return {};
        }
    }
    return items;
}

// Parses the text and walks it with `document.walk`, then lets the parser go before
// `document.finish` turns what the walk found into the result.
template <class T, class Document>
Result<T> decodeDocument(InputBuffer input, Timestamp now, Document document)
{
    typename Document::State state;
    try {
        {
            const std::size_t size = input.size();
            od::parser parser;
            od::document text;
            const error_code code =
                parser.iterate(input.data(), size, size + simdjson::SIMDJSON_PADDING).get(text);
            if (code == simdjson::UTF8_ERROR) {
                return Result<T>::failure(QStringLiteral("malformed JSON: invalid UTF-8 at byte %1")
                                              .arg(firstInvalidUtf8(input.data(), size)));
            }
            check(code);
            Reader reader(now);
            bool readToTheEnd = false;
            switch (take<od::json_type>(text.type())) {
            case od::json_type::array:
            case od::json_type::object: {
                od::value root = take<od::value>(text.get_value());
                document.walk(reader, root, state);
                break;
            }
            default:
                // A bare scalar is valid JSON but never one of our documents; it is still checked.
                readToTheEnd = checkScalarRoot(
                    text, std::string_view(reinterpret_cast<const char *>(input.data()), size));
                document.rootProblem(state).set(Place{}, document.expectedRoot());
                break;
            }
            // Anything after the root value, even another valid value, makes the text malformed.
            if (!readToTheEnd && text.current_location().error() != simdjson::OUT_OF_BOUNDS)
                throw SyntaxFailure{simdjson::TRAILING_CONTENT};
        }
        return document.finish(state, input, now);
    } catch (const SyntaxFailure &failure) {
        return Result<T>::failure(malformed(failure.code));
    }
}

struct SavedDataDocument
{
    using State = SavedDataWalk;
    static QString expectedRoot() { return QStringLiteral("expected an object"); }
    static Problem &rootProblem(State &state) { return state.rootProblem; }
    static void walk(Reader &reader, od::value &root, State &state) { reader.savedData(root, state); }

    static Result<SavedData> finish(State &state, InputBuffer &input, Timestamp now)
    {
        const Place document;
        if (state.rootProblem)
            return Result<SavedData>::failure(state.rootProblem.description);
        Problem &items = state.keys.problems[State::items];
        if (!items && state.keys.present[State::items])
            state.data.items = decodeRecords(state.records, document.field("items"), items, input, now);
        Problem problem;
        if (state.keys.firstProblem(document, 1u << State::items | 1u << State::categories, problem))
            return Result<SavedData>::failure(problem.description);
        return std::move(state.data);
    }
};

// A document whose root is an array, walked by `ReadArray`.
struct RootArrayState
{
    Problem problem;
    bool isArray = false;
};

struct LinkItemsDocument
{
    struct State : RootArrayState
    {
        RecordTexts records;
    };
    static QString expectedRoot() { return QStringLiteral("expected an array"); }
    static Problem &rootProblem(State &state) { return state.problem; }
    static void walk(Reader &reader, od::value &root, State &state)
    {
        if (reader.typeOf(root) != JsonType::array) {
            state.problem.set(Place{}, expectedRoot());
            reader.skip(root);
            return;
        }
        state.records = reader.recordTexts(root);
    }
    static Result<QList<LinkItem>> finish(State &state, InputBuffer &input, Timestamp now)
    {
        if (!state.problem) {
            QList<LinkItem> items = decodeRecords(state.records, Place{}, state.problem, input, now);
            if (!state.problem)
                return items;
        }
        return Result<QList<LinkItem>>::failure(state.problem.description);
    }
};

struct BackupHistoryDocument
{
    struct State : RootArrayState
    {
        QList<BackupLog> history;
    };
    static QString expectedRoot() { return QStringLiteral("expected an array"); }
    static Problem &rootProblem(State &state) { return state.problem; }
    static void walk(Reader &reader, od::value &root, State &state)
    {
        if (reader.typeOf(root) != JsonType::array) {
            state.problem.set(Place{}, expectedRoot());
            reader.skip(root);
            return;
        }
        state.history = reader.backupLogs(root, state.problem);
    }
    static Result<QList<BackupLog>> finish(State &state, InputBuffer &, Timestamp)
    {
        if (state.problem)
            return Result<QList<BackupLog>>::failure(state.problem.description);
        return std::move(state.history);
    }
};

} // namespace

Result<SavedData> decodeSavedData(InputBuffer input, Timestamp now)
{
    return decodeDocument<SavedData>(std::move(input), now, SavedDataDocument{});
}

Result<SavedData> decodeSavedData(QByteArrayView bytes, Timestamp now)
{
    return decodeSavedData(InputBuffer::copyOf(bytes), now);
}

Result<QList<BackupLog>> decodeBackupHistory(QByteArrayView bytes)
{
    return decodeDocument<QList<BackupLog>>(InputBuffer::copyOf(bytes), Timestamp::now(),
                                            BackupHistoryDocument{});
}

Result<QList<LinkItem>> decodeLinkItems(QByteArrayView bytes, Timestamp now)
{
    return decodeDocument<QList<LinkItem>>(InputBuffer::copyOf(bytes), now, LinkItemsDocument{});
}

} // namespace fiva::json
