#include "model/JsonCodec.h"

#include "model/JsonWriter.h"

#include <QFileInfo>

#include <array>
#include <cstdint>
#include <simdjson.h>
#include <string_view>

namespace fiva::json {

namespace {

namespace dom = simdjson::dom;

// ---- Writing ----

// Why an encode fails: the place and the problem, turned into the failure description.
struct EncodeFailure
{
    QString description;
};

[[noreturn]] void unwritableDate(const QString &place)
{
    throw EncodeFailure{place + QStringLiteral(": cannot write a date that is not a finite number")};
}

void writeItem(JsonWriter &w, const LinkItem &item, const QString &placePrefix, qsizetype index)
{
    w.raw(R"({"id":)");
    w.uuid(item.id);
    w.raw(R"(,"title":)");
    w.string(item.title);
    w.raw(R"(,"path":)");
    w.string(item.path);
    w.raw(R"(,"category":)");
    w.string(item.category);
    if (item.notes) {
        w.raw(R"(,"notes":)");
        w.string(*item.notes);
    }
    w.raw(R"(,"createdAt":)");
    if (!w.number(item.createdAt.seconds))
        unwritableDate(placePrefix + u'[' + QString::number(index) + QStringLiteral("].createdAt"));
    w.raw(R"(,"isFavorite":)");
    w.boolean(item.isFavorite);
    w.raw(R"(,"attachments":[)");
    bool first = true;
    for (const Attachment &a : item.attachments) {
        if (!first)
            w.raw(',');
        first = false;
        w.raw(R"({"id":)");
        w.uuid(a.id);
        w.raw(R"(,"fileName":)");
        w.string(a.fileName);
        w.raw(R"(,"filePath":)");
        w.string(a.filePath);
        w.raw('}');
    }
    w.raw(R"(],"kind":")");
    switch (item.kind) {
    case LinkKind::url:
        w.raw("url");
        break;
    case LinkKind::file:
        w.raw("file");
        break;
    case LinkKind::directory:
        w.raw("directory");
        break;
    }
    w.raw(R"("})");
}

// A guess of the output size that avoids most regrowing of the buffer.
qsizetype estimatedSize(const SavedData &data)
{
    qsizetype size = 128;
    for (const LinkItem &item : data.items) {
        size += 200 + item.title.size() + item.path.size() + item.category.size();
        if (item.notes)
            size += item.notes->size() + 16;
        for (const Attachment &a : item.attachments)
            size += 70 + a.fileName.size() + a.filePath.size();
    }
    for (const QString &c : data.categories)
        size += c.size() + 3;
    return size + size / 8;
}

// ---- Reading ----

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

struct DecodeFailure
{
    QString description;
};

[[noreturn]] void fail(const Place &place, const QString &problem)
{
    QString where = place.text();
    if (where.isEmpty())
        where = QStringLiteral("document");
    throw DecodeFailure{where + QStringLiteral(": ") + problem};
}

QString quoted(std::string_view text)
{
    constexpr std::size_t maxShown = 40;
    QString shown = QString::fromUtf8(text.data(), qsizetype(std::min(text.size(), maxShown)));
    if (text.size() > maxShown)
        shown += QStringLiteral("…");
    return u'"' + shown + u'"';
}

// The value of a key, or nothing when the key is absent or null: both mean "no value".
std::optional<dom::element> optionalField(dom::object object, std::string_view key)
{
    dom::element value;
    if (object.at_key(key).get(value) != simdjson::SUCCESS || value.is_null())
        return std::nullopt;
    return value;
}

dom::element requiredField(dom::object object, const Place &place)
{
    if (auto value = optionalField(object, place.key))
        return *value;
    fail(place, QStringLiteral("missing"));
}

dom::object readObject(dom::element value, const Place &place)
{
    dom::object object;
    if (value.get(object) != simdjson::SUCCESS)
        fail(place, QStringLiteral("expected an object"));
    return object;
}

dom::array readArray(dom::element value, const Place &place)
{
    dom::array array;
    if (value.get(array) != simdjson::SUCCESS)
        fail(place, QStringLiteral("expected an array"));
    return array;
}

std::string_view readUtf8(dom::element value, const Place &place)
{
    std::string_view text;
    if (value.get(text) != simdjson::SUCCESS)
        fail(place, QStringLiteral("expected a string"));
    return text;
}

QString readString(dom::element value, const Place &place)
{
    const std::string_view text = readUtf8(value, place);
    return QString::fromUtf8(text.data(), qsizetype(text.size()));
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

// Only the bare 36-character form, in either case: braces or other spellings are not ours.
QUuid readUuid(dom::element value, const Place &place)
{
    const std::string_view text = readUtf8(value, place);
    std::array<char, 16> bytes{};
    bool valid = text.size() == 36 && text[8] == '-' && text[13] == '-' && text[18] == '-' && text[23] == '-';
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
    if (!valid)
        fail(place, QStringLiteral("not a valid UUID: ") + quoted(text));
    return QUuid::fromRfc4122(QByteArrayView(bytes.data(), 16));
}

double readDate(dom::element value, const Place &place)
{
    switch (value.type()) {
    case dom::element_type::DOUBLE:
        return value.get_double().value_unsafe();
    case dom::element_type::INT64:
        return double(value.get_int64().value_unsafe());
    case dom::element_type::UINT64:
        return double(value.get_uint64().value_unsafe());
    default:
        fail(place, QStringLiteral("expected a number"));
    }
}

bool readBool(dom::element value, const Place &place)
{
    bool flag = false;
    if (value.get(flag) != simdjson::SUCCESS)
        fail(place, QStringLiteral("expected a boolean"));
    return flag;
}

// A size is an integer literal: 12.0 or 1e3 are numbers that merely happen to be whole, and a
// writer that produces them is not writing what this field holds.
qint64 readInteger(dom::element value, const Place &place)
{
    switch (value.type()) {
    case dom::element_type::INT64:
        return value.get_int64().value_unsafe();
    case dom::element_type::UINT64:
        fail(place, QStringLiteral("integer out of range"));
    default:
        fail(place, QStringLiteral("expected an integer"));
    }
}

LinkKind inferKind(const QString &path)
{
    if (path.startsWith(QStringLiteral("http"), Qt::CaseInsensitive))
        return LinkKind::url;
    if (QFileInfo(path).isDir())
        return LinkKind::directory;
    return LinkKind::file;
}

Attachment readAttachment(dom::element value, const Place &place)
{
    const dom::object object = readObject(value, place);
    Attachment a;
    const Place id = place.field("id");
    a.id = readUuid(requiredField(object, id), id);
    const Place fileName = place.field("fileName");
    a.fileName = readString(requiredField(object, fileName), fileName);
    const Place filePath = place.field("filePath");
    a.filePath = readString(requiredField(object, filePath), filePath);
    return a;
}

LinkItem readItem(dom::element value, const Place &place, Timestamp now)
{
    const dom::object object = readObject(value, place);
    LinkItem item;

    const Place id = place.field("id");
    if (auto v = optionalField(object, id.key))
        item.id = readUuid(*v, id);
    else
        item.id = QUuid::createUuid();

    const Place title = place.field("title");
    item.title = readString(requiredField(object, title), title);
    const Place path = place.field("path");
    item.path = readString(requiredField(object, path), path);
    const Place category = place.field("category");
    item.category = readString(requiredField(object, category), category);

    const Place notes = place.field("notes");
    if (auto v = optionalField(object, notes.key))
        item.notes = readString(*v, notes);

    const Place createdAt = place.field("createdAt");
    if (auto v = optionalField(object, createdAt.key))
        item.createdAt = Timestamp{readDate(*v, createdAt)};
    else
        item.createdAt = now;

    const Place isFavorite = place.field("isFavorite");
    if (auto v = optionalField(object, isFavorite.key))
        item.isFavorite = readBool(*v, isFavorite);

    const Place attachments = place.field("attachments");
    if (auto v = optionalField(object, attachments.key)) {
        const dom::array array = readArray(*v, attachments);
        item.attachments.reserve(qsizetype(array.size()));
        qsizetype i = 0;
        for (dom::element a : array) {
            item.attachments.append(readAttachment(a, attachments.element(i)));
            ++i;
        }
    }

    const Place kind = place.field("kind");
    if (auto v = optionalField(object, kind.key)) {
        const std::string_view name = readUtf8(*v, kind);
        if (name == "url")
            item.kind = LinkKind::url;
        else if (name == "file")
            item.kind = LinkKind::file;
        else if (name == "directory")
            item.kind = LinkKind::directory;
        else
            fail(kind, QStringLiteral("unknown kind ") + quoted(name));
    } else {
        item.kind = inferKind(item.path);
    }
    return item;
}

QList<LinkItem> readItems(dom::element value, const Place &place, Timestamp now)
{
    const dom::array array = readArray(value, place);
    QList<LinkItem> items;
    items.reserve(qsizetype(array.size()));
    qsizetype i = 0;
    for (dom::element element : array) {
        items.append(readItem(element, place.element(i), now));
        ++i;
    }
    return items;
}

BackupLog readBackupLog(dom::element value, const Place &place)
{
    const dom::object object = readObject(value, place);
    BackupLog log;
    const Place id = place.field("id");
    log.id = readUuid(requiredField(object, id), id);
    const Place date = place.field("date");
    log.date = Timestamp{readDate(requiredField(object, date), date)};
    const Place filePath = place.field("filePath");
    log.filePath = readString(requiredField(object, filePath), filePath);
    const Place fileSize = place.field("fileSize");
    log.fileSize = readInteger(requiredField(object, fileSize), fileSize);
    return log;
}

// The byte offset of the first invalid UTF-8 sequence, so that the error can point at it.
std::size_t firstInvalidUtf8(QByteArrayView bytes)
{
    const auto *p = reinterpret_cast<const unsigned char *>(bytes.data());
    const std::size_t n = std::size_t(bytes.size());
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

// Parses the whole text first, so that malformed JSON is reported as such before any field is
// looked at, then hands the root to `read`, which throws DecodeFailure at the first problem.
template <class T, class Reader> Result<T> decodeDocument(QByteArrayView bytes, Reader read)
{
    dom::parser parser;
    dom::element root;
    {
        // The padded copy is only needed while parsing; the document keeps its own strings.
        const simdjson::padded_string padded(bytes.data(), std::size_t(bytes.size()));
        const simdjson::error_code error = parser.parse(padded).get(root);
        if (error == simdjson::UTF8_ERROR) {
            return Result<T>::failure(
                QStringLiteral("malformed JSON: invalid UTF-8 at byte %1").arg(firstInvalidUtf8(bytes)));
        }
        if (error != simdjson::SUCCESS) {
            return Result<T>::failure(QStringLiteral("malformed JSON: ") +
                                      QString::fromUtf8(simdjson::error_message(error)));
        }
    }
    try {
        return read(root);
    } catch (const DecodeFailure &failure) {
        return Result<T>::failure(failure.description);
    }
}

} // namespace

Result<QByteArray> encode(const SavedData &data)
{
    try {
        JsonWriter w(estimatedSize(data));
        w.raw(R"({"items":[)");
        for (qsizetype i = 0; i < data.items.size(); ++i) {
            if (i > 0)
                w.raw(',');
            writeItem(w, data.items[i], QStringLiteral("items"), i);
        }
        w.raw(R"(],"categories":[)");
        for (qsizetype i = 0; i < data.categories.size(); ++i) {
            if (i > 0)
                w.raw(',');
            w.string(data.categories[i]);
        }
        w.raw(']');
        if (data.lastBackupDate) {
            w.raw(R"(,"lastBackupDate":)");
            if (!w.number(data.lastBackupDate->seconds))
                unwritableDate(QStringLiteral("lastBackupDate"));
        }
        w.raw('}');
        return w.take();
    } catch (const EncodeFailure &failure) {
        return Result<QByteArray>::failure(failure.description);
    }
}

Result<QByteArray> encode(const QList<BackupLog> &history)
{
    try {
        JsonWriter w(history.size() * 160 + 16);
        w.raw('[');
        for (qsizetype i = 0; i < history.size(); ++i) {
            const BackupLog &log = history[i];
            if (i > 0)
                w.raw(',');
            w.raw(R"({"id":)");
            w.uuid(log.id);
            w.raw(R"(,"date":)");
            if (!w.number(log.date.seconds))
                unwritableDate(u'[' + QString::number(i) + QStringLiteral("].date"));
            w.raw(R"(,"filePath":)");
            w.string(log.filePath);
            w.raw(R"(,"fileSize":)");
            w.integer(log.fileSize);
            w.raw('}');
        }
        w.raw(']');
        return w.take();
    } catch (const EncodeFailure &failure) {
        return Result<QByteArray>::failure(failure.description);
    }
}

Result<SavedData> decodeSavedData(QByteArrayView bytes, Timestamp now)
{
    return decodeDocument<SavedData>(bytes, [now](dom::element root) -> Result<SavedData> {
        const Place document;
        const dom::object object = readObject(root, document);
        SavedData data;
        const Place items = document.field("items");
        data.items = readItems(requiredField(object, items), items, now);
        const Place categories = document.field("categories");
        const dom::array names = readArray(requiredField(object, categories), categories);
        data.categories.reserve(qsizetype(names.size()));
        qsizetype i = 0;
        for (dom::element name : names) {
            data.categories.append(readString(name, categories.element(i)));
            ++i;
        }
        const Place lastBackupDate = document.field("lastBackupDate");
        if (auto v = optionalField(object, lastBackupDate.key))
            data.lastBackupDate = Timestamp{readDate(*v, lastBackupDate)};
        return data;
    });
}

Result<QList<BackupLog>> decodeBackupHistory(QByteArrayView bytes)
{
    return decodeDocument<QList<BackupLog>>(bytes, [](dom::element root) -> Result<QList<BackupLog>> {
        const Place document;
        const dom::array array = readArray(root, document);
        QList<BackupLog> history;
        history.reserve(qsizetype(array.size()));
        qsizetype i = 0;
        for (dom::element element : array) {
            history.append(readBackupLog(element, document.element(i)));
            ++i;
        }
        return history;
    });
}

Result<QList<LinkItem>> decodeLinkItems(QByteArrayView bytes, Timestamp now)
{
    return decodeDocument<QList<LinkItem>>(
        bytes, [now](dom::element root) -> Result<QList<LinkItem>> { return readItems(root, Place{}, now); });
}

} // namespace fiva::json
