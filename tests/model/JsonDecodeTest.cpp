#include "model/JsonCodec.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstring>
#include <gtest/gtest.h>
#include <vector>

#include "QtPrinting.h"

using namespace fiva;

namespace {

const char *const goodId = "0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9";
const char *const goodAttachment =
    R"({"id":"00000000-0000-0000-0000-000000000001","fileName":"a.pdf","filePath":"/a.pdf"})";

// A record's keys with their JSON text; a case replaces one value or removes the key.
using Fields = std::vector<std::pair<std::string, std::string>>;

Fields goodFields()
{
    return {{"id", std::string("\"") + goodId + "\""},
            {"title", R"("Titre")"},
            {"path", R"("https:\/\/exemple.fr")"},
            {"category", R"("Sans catégorie")"},
            {"notes", R"("<p>n</p>")"},
            {"createdAt", "757382400"},
            {"isFavorite", "true"},
            {"attachments", std::string("[") + goodAttachment + "]"},
            {"kind", R"("url")"}};
}

std::string objectText(const Fields &fields)
{
    std::string text = "{";
    for (const auto &[key, value] : fields) {
        if (text.size() > 1)
            text += ',';
        text += '"' + key + "\":" + value;
    }
    return text + "}";
}

// `value` null removes the key.
Fields withField(Fields fields, const std::string &key, const char *value)
{
    for (auto it = fields.begin(); it != fields.end(); ++it) {
        if (it->first == key) {
            if (value)
                it->second = value;
            else
                fields.erase(it);
            return fields;
        }
    }
    if (value)
        fields.emplace_back(key, value);
    return fields;
}

// The record under test is the second one, so that errors must carry its index.
QByteArray documentWith(const Fields &record)
{
    return QByteArray::fromStdString(R"({"items":[)" + objectText(goodFields()) + "," + objectText(record) +
                                     R"(],"categories":["Sans catégorie"]})");
}

LinkItem decodeOne(const Fields &record, Timestamp now = Timestamp{42})
{
    auto result = json::decodeSavedData(documentWith(record), now);
    EXPECT_TRUE(result.ok()) << result.error().toStdString();
    return result.ok() ? result.value().items.at(1) : LinkItem{};
}

QString decodeError(QByteArrayView bytes)
{
    auto result = json::decodeSavedData(bytes);
    EXPECT_FALSE(result.ok()) << std::string(bytes.data(), std::size_t(bytes.size()));
    return result.ok() ? QString() : result.error();
}

std::uint64_t bits(double value)
{
    std::uint64_t b;
    std::memcpy(&b, &value, sizeof b);
    return b;
}

} // namespace

TEST(JsonDecode, CompleteRecordReadsEveryField)
{
    const LinkItem item = decodeOne(goodFields());
    EXPECT_EQ(item.id, QUuid::fromString(QString::fromLatin1(goodId)));
    EXPECT_EQ(item.title, QStringLiteral("Titre"));
    EXPECT_EQ(item.path, QStringLiteral("https://exemple.fr"));
    EXPECT_EQ(item.category, QStringLiteral("Sans catégorie"));
    EXPECT_EQ(item.notes, QStringLiteral("<p>n</p>"));
    EXPECT_EQ(item.createdAt, Timestamp{757382400});
    EXPECT_TRUE(item.isFavorite);
    ASSERT_EQ(item.attachments.size(), 1);
    EXPECT_EQ(item.attachments[0].filePath, QStringLiteral("/a.pdf"));
    EXPECT_EQ(item.kind, LinkKind::url);
}

TEST(JsonDecode, MissingOrNullOptionalKeysTakeTheirDefaults)
{
    struct Case
    {
        const char *key;
        const char *value; // null removes the key
    };
    const Case cases[] = {
        {"notes", nullptr},      {"notes", "null"},      {"createdAt", nullptr},   {"createdAt", "null"},
        {"isFavorite", nullptr}, {"isFavorite", "null"}, {"attachments", nullptr}, {"attachments", "null"},
        {"id", nullptr},         {"id", "null"}};
    const Timestamp now{123.456};
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.key) + "=" + (c.value ? c.value : "(absent)"));
        const LinkItem item = decodeOne(withField(goodFields(), c.key, c.value), now);
        const std::string key = c.key;
        if (key == "notes") {
            EXPECT_FALSE(item.notes.has_value());
        } else if (key == "createdAt") {
            EXPECT_EQ(item.createdAt, now);
        } else if (key == "isFavorite") {
            EXPECT_FALSE(item.isFavorite);
        } else if (key == "attachments") {
            EXPECT_TRUE(item.attachments.isEmpty());
        } else {
            EXPECT_FALSE(item.id.isNull());
            EXPECT_NE(item.id, decodeOne(withField(goodFields(), c.key, c.value)).id)
                << "a missing id is new at every reading";
        }
    }
}

TEST(JsonDecode, AcceptsEquivalentJsonForms)
{
    struct Case
    {
        const char *key;
        const char *value;
        void (*check)(const LinkItem &);
    };
    const Case cases[] = {
        {"id", "\"0a1b2c3d-4e5f-6071-8293-a4b5c6d7e8f9\"",
         [](const LinkItem &i) { EXPECT_EQ(i.id, QUuid::fromString(QString::fromLatin1(goodId))); }},
        {"path", R"("https://exemple.fr")",
         [](const LinkItem &i) { EXPECT_EQ(i.path, QStringLiteral("https://exemple.fr")); }},
        {"title", R"("\u00e9t\u00C9 \ud83d\ude00 \"\/\\\b\f\n\r\t")",
         [](const LinkItem &i) { EXPECT_EQ(i.title, QStringLiteral("étÉ 😀 \"/\\\b\f\n\r\t")); }},
        {"title", R"("a\u0000b")", [](const LinkItem &i) { EXPECT_EQ(i.title.size(), 3); }},
        {"createdAt", "7.573824e8", [](const LinkItem &i) { EXPECT_EQ(i.createdAt, Timestamp{757382400}); }},
        {"createdAt", "-1.5", [](const LinkItem &i) { EXPECT_EQ(i.createdAt, Timestamp{-1.5}); }},
        {"createdAt", "0", [](const LinkItem &i) { EXPECT_EQ(i.createdAt, Timestamp{0}); }},
        {"unknownKey", R"({"nested":[1,{"a":null}],"x":"y"})",
         [](const LinkItem &i) { EXPECT_EQ(i.title, QStringLiteral("Titre")); }},
        {"attachments", "[]", [](const LinkItem &i) { EXPECT_TRUE(i.attachments.isEmpty()); }},
        {"notes", R"("")", [](const LinkItem &i) { EXPECT_EQ(i.notes, QString()); }},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.key) + "=" + c.value);
        c.check(decodeOne(withField(goodFields(), c.key, c.value)));
    }

    // Key order carries no meaning; whitespace between tokens is allowed.
    Fields reversed = goodFields();
    std::reverse(reversed.begin(), reversed.end());
    EXPECT_EQ(decodeOne(reversed), decodeOne(goodFields()));
    auto spaced = json::decodeSavedData(" \n{ \"categories\" : [ ] ,\t\"items\" : [ ] }\r\n");
    ASSERT_TRUE(spaced.ok()) << spaced.error().toStdString();
    EXPECT_TRUE(spaced.value().items.isEmpty());
    EXPECT_TRUE(spaced.value().categories.isEmpty());
    EXPECT_FALSE(spaced.value().lastBackupDate.has_value());
}

TEST(JsonDecode, RecordRejections)
{
    struct Case
    {
        const char *key;
        const char *value; // null removes the key
        const char *error;
    };
    const Case cases[] = {
        {"id", "123", "items[1].id: expected a string"},
        {"id", R"("not-a-uuid")", R"(items[1].id: not a valid UUID: "not-a-uuid")"},
        {"id", R"("{0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9}")",
         R"(items[1].id: not a valid UUID: "{0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9}")"},
        {"id", R"("0A1B2C3D4E5F607182 93A4B5C6D7E8F9AB")",
         R"(items[1].id: not a valid UUID: "0A1B2C3D4E5F607182 93A4B5C6D7E8F9AB")"},
        {"id", R"("0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8FG")",
         R"(items[1].id: not a valid UUID: "0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8FG")"},
        {"id", R"("0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F")",
         R"(items[1].id: not a valid UUID: "0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F")"},
        {"title", nullptr, "items[1].title: missing"},
        {"title", "null", "items[1].title: missing"},
        {"title", "5", "items[1].title: expected a string"},
        {"path", nullptr, "items[1].path: missing"},
        {"path", "[]", "items[1].path: expected a string"},
        {"category", nullptr, "items[1].category: missing"},
        {"notes", "false", "items[1].notes: expected a string"},
        {"createdAt", R"("757382400")", "items[1].createdAt: expected a number"},
        {"createdAt", "true", "items[1].createdAt: expected a number"},
        {"isFavorite", R"("true")", "items[1].isFavorite: expected a boolean"},
        {"isFavorite", "1", "items[1].isFavorite: expected a boolean"},
        {"attachments", "{}", "items[1].attachments: expected an array"},
        {"attachments", "[1]", "items[1].attachments[0]: expected an object"},
        {"attachments", R"([{"id":"00000000-0000-0000-0000-000000000001","fileName":"a"}])",
         "items[1].attachments[0].filePath: missing"},
        {"attachments",
         R"([{"id":"00000000-0000-0000-0000-000000000001","fileName":"a","filePath":"/a"},{"fileName":"b","filePath":"/b"}])",
         "items[1].attachments[1].id: missing"},
        {"attachments", R"([{"id":"x","fileName":"a","filePath":"/a"}])",
         R"(items[1].attachments[0].id: not a valid UUID: "x")"},
        {"attachments", R"([{"id":"00000000-0000-0000-0000-000000000001","fileName":7,"filePath":"/a"}])",
         "items[1].attachments[0].fileName: expected a string"},
        {"kind", R"("URL")", R"(items[1].kind: unknown kind "URL")"},
        {"kind", R"("")", R"(items[1].kind: unknown kind "")"},
        {"kind", "0", "items[1].kind: expected a string"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.key) + "=" + (c.value ? c.value : "(absent)"));
        EXPECT_EQ(decodeError(documentWith(withField(goodFields(), c.key, c.value))),
                  QString::fromUtf8(c.error));
    }
}

TEST(JsonDecode, KeysAreCheckedInTheirReadingOrder)
{
    // Several faults at once: the one of the earliest key in reading order is reported.
    Fields record = withField(goodFields(), "kind", "1");
    record = withField(record, "isFavorite", R"("oui")");
    EXPECT_EQ(decodeError(documentWith(record)), QStringLiteral("items[1].isFavorite: expected a boolean"));
    record = withField(record, "category", nullptr);
    EXPECT_EQ(decodeError(documentWith(record)), QStringLiteral("items[1].category: missing"));
    record = withField(record, "id", R"("bad")");
    EXPECT_EQ(decodeError(documentWith(record)), QStringLiteral(R"(items[1].id: not a valid UUID: "bad")"));
}

TEST(JsonDecode, DocumentRejections)
{
    struct Case
    {
        const char *json;
        const char *error; // exact, or a prefix when it ends with "..."
    };
    const Case cases[] = {
        {"[]", "document: expected an object"},
        {"null", "document: expected an object"},
        {"{}", "items: missing"},
        {R"({"categories":[]})", "items: missing"},
        {R"({"items":[]})", "categories: missing"},
        {R"({"items":null,"categories":[]})", "items: missing"},
        {R"({"items":{},"categories":[]})", "items: expected an array"},
        {R"({"items":[1],"categories":[]})", "items[0]: expected an object"},
        {R"({"items":[],"categories":"a"})", "categories: expected an array"},
        {R"({"items":[],"categories":["a",1]})", "categories[1]: expected a string"},
        {R"({"items":[],"categories":[],"lastBackupDate":"2025"})", "lastBackupDate: expected a number"},
        {R"({"items":[],"categories":[],"lastBackupDate":{}})", "lastBackupDate: expected a number"},
        {"", "malformed JSON: ..."},
        {"{", "malformed JSON: ..."},
        {R"({"items":[],"categories":[],})", "malformed JSON: ..."},
        {R"({"items":[],"categories":[]} {})", "malformed JSON: ..."},
        {R"({"items":[],"categories":[],"other":[1,,2]})", "malformed JSON: ..."},
        {R"({"items":[],"categories":["\x"]})", "malformed JSON: ..."},
        {R"({"items":[],"categories":["\ud800"]})", "malformed JSON: ..."},
        {R"({"items":[],"categories":[],"lastBackupDate":1e400})", "malformed JSON: ..."},
        {R"({"items":[],"categories":[],"lastBackupDate":NaN})", "malformed JSON: ..."},
        {R"({"items":[],"categories":[],"lastBackupDate":01})", "malformed JSON: ..."},
        {"{\"items\":[],\"categories\":[\"a\tb\"]}", "malformed JSON: ..."},
        {"{\"items\":[],\"categories\":[\"caf\xc3\"]}", "malformed JSON: invalid UTF-8 at byte 30"},
        {"{\"items\":[],\"categories\":[\"\xed\xa0\x80\"]}", "malformed JSON: invalid UTF-8 at byte 27"},
        {"{\"items\":[],\"categories\":[\"\xc0\xaf\"]}", "malformed JSON: invalid UTF-8 at byte 27"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.json);
        const QString error = decodeError(QByteArrayView(c.json, qsizetype(std::strlen(c.json))));
        const QString expected = QString::fromUtf8(c.error);
        if (expected.endsWith(QStringLiteral("...")))
            EXPECT_TRUE(error.startsWith(expected.chopped(3))) << error.toStdString();
        else
            EXPECT_EQ(error, expected);
    }
}

TEST(JsonDecode, DocumentLevelDefaults)
{
    auto empty = json::decodeSavedData(R"({"items":[],"categories":[],"lastBackupDate":null})");
    ASSERT_TRUE(empty.ok());
    EXPECT_EQ(empty.value(), SavedData{});

    auto dated = json::decodeSavedData(R"({"lastBackupDate":-0.5,"items":[],"categories":["b","a"]})");
    ASSERT_TRUE(dated.ok());
    EXPECT_EQ(dated.value().lastBackupDate, Timestamp{-0.5});
    EXPECT_EQ(dated.value().categories, (QStringList{QStringLiteral("b"), QStringLiteral("a")}));
}

TEST(JsonDecode, AwkwardDatesAreReadBackBitForBit)
{
    for (double value : {0.1 + 0.2, 1e-7, -1.5, 757382400.123456789, 5e-324, 1.7976931348623157e308,
                         -978307200.000001, 2.2250738585072014e-308}) {
        SavedData data;
        data.lastBackupDate = Timestamp{value};
        const QByteArray bytes = json::encode(data).value();
        auto back = json::decodeSavedData(bytes);
        ASSERT_TRUE(back.ok()) << back.error().toStdString();
        EXPECT_EQ(bits(back.value().lastBackupDate->seconds), bits(value)) << bytes.toStdString();
    }
}

TEST(JsonDecode, KindIsInferredFromThePathWhenMissing)
{
    QTemporaryDir temp;
    ASSERT_TRUE(temp.isValid());
    const QString folder = temp.filePath(QStringLiteral("Dossier"));
    ASSERT_TRUE(QDir().mkpath(folder));
    const QString file = temp.filePath(QStringLiteral("note.txt"));
    QFile f(file);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.close();

    struct Case
    {
        QString path;
        LinkKind kind;
    };
    const Case cases[] = {
        {QStringLiteral("https://exemple.fr"), LinkKind::url},
        {QStringLiteral("HTTP://EXEMPLE.FR"), LinkKind::url},
        {QStringLiteral("hTtPs://x"), LinkKind::url},
        {QStringLiteral("httpdocs/relative"), LinkKind::url},
        {QStringLiteral("ftp://exemple.fr"), LinkKind::file},
        {QStringLiteral(" http://x"), LinkKind::file},
        {folder, LinkKind::directory},
        {folder + u'/', LinkKind::directory},
        {file, LinkKind::file},
        {temp.filePath(QStringLiteral("absent")), LinkKind::file},
        {QString(), LinkKind::file},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.path.toStdString());
        const std::string path = '"' + c.path.toStdString() + '"';
        for (const char *kind : {static_cast<const char *>(nullptr), "null"}) {
            Fields record = withField(goodFields(), "kind", kind);
            record = withField(record, "path", path.c_str());
            EXPECT_EQ(decodeOne(record).kind, c.kind);
        }
    }
    // A kind that is present wins over what the path looks like.
    Fields record = withField(goodFields(), "path", ('"' + folder.toStdString() + '"').c_str());
    EXPECT_EQ(decodeOne(withField(record, "kind", R"("url")")).kind, LinkKind::url);
}

TEST(JsonDecode, BackupHistory)
{
    auto good = json::decodeBackupHistory(
        R"([{"id":"0a1b2c3d-4e5f-6071-8293-a4b5c6d7e8f9","date":1.5,"filePath":"\/b","fileSize":9223372036854775807},)"
        R"({"fileSize":-1,"filePath":"/a","date":0,"id":"00000000-0000-0000-0000-000000000001","extra":1}])");
    ASSERT_TRUE(good.ok()) << good.error().toStdString();
    ASSERT_EQ(good.value().size(), 2);
    EXPECT_EQ(good.value()[0].fileSize, std::numeric_limits<qint64>::max());
    EXPECT_EQ(good.value()[0].date, Timestamp{1.5});
    EXPECT_EQ(good.value()[0].filePath, QStringLiteral("/b"));
    EXPECT_EQ(good.value()[1].fileSize, -1);
    EXPECT_TRUE(json::decodeBackupHistory("[]").value().isEmpty());

    const char *const entry =
        R"({"id":"00000000-0000-0000-0000-000000000001","date":0,"filePath":"/a","fileSize":)";
    struct Case
    {
        std::string json;
        const char *error;
    };
    const Case cases[] = {
        {"{}", "document: expected an array"},
        {"[1]", "[0]: expected an object"},
        {std::string("[") + entry + "1}," + entry + "12.0}]", "[1].fileSize: expected an integer"},
        {std::string("[") + entry + "1e3}]", "[0].fileSize: expected an integer"},
        {std::string("[") + entry + "\"12\"}]", "[0].fileSize: expected an integer"},
        {std::string("[") + entry + "18446744073709551615}]", "[0].fileSize: integer out of range"},
        {std::string("[") + entry + "9223372036854775808}]", "[0].fileSize: integer out of range"},
        {std::string("[") + entry + "null}]", "[0].fileSize: missing"},
        {R"([{"date":0,"filePath":"/a","fileSize":1}])", "[0].id: missing"},
        {R"([{"id":"00000000-0000-0000-0000-000000000001","filePath":"/a","fileSize":1}])",
         "[0].date: missing"},
        {R"([{"id":"00000000-0000-0000-0000-000000000001","date":0,"fileSize":1}])", "[0].filePath: missing"},
        {R"([{"id":"00000000-0000-0000-0000-000000000001","date":false,"filePath":"/a","fileSize":1}])",
         "[0].date: expected a number"},
        {"[", nullptr},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.json);
        auto result = json::decodeBackupHistory(QByteArray::fromStdString(c.json));
        ASSERT_FALSE(result.ok());
        if (c.error)
            EXPECT_EQ(result.error(), QString::fromUtf8(c.error));
        else
            EXPECT_TRUE(result.error().startsWith(QStringLiteral("malformed JSON: ")))
                << result.error().toStdString();
    }
}

TEST(JsonDecode, BareListOfRecords)
{
    const std::string two =
        "[" + objectText(goodFields()) + "," + objectText(withField(goodFields(), "kind", nullptr)) + "]";
    auto items = json::decodeLinkItems(QByteArray::fromStdString(two));
    ASSERT_TRUE(items.ok()) << items.error().toStdString();
    ASSERT_EQ(items.value().size(), 2);
    EXPECT_EQ(items.value()[1].kind, LinkKind::url);

    const std::string bad =
        "[" + objectText(goodFields()) + "," + objectText(withField(goodFields(), "title", nullptr)) + "]";
    auto failed = json::decodeLinkItems(QByteArray::fromStdString(bad));
    ASSERT_FALSE(failed.ok());
    EXPECT_EQ(failed.error(), QStringLiteral("[1].title: missing"));
    EXPECT_EQ(json::decodeLinkItems(R"({"items":[]})").error(),
              QStringLiteral("document: expected an array"));
}

TEST(JsonDecode, DamagedDocumentsFailCleanly)
{
    SavedData data;
    LinkItem item = decodeOne(goodFields());
    data.items = {item, item};
    data.categories = {QStringLiteral("Été / Notes")};
    data.lastBackupDate = Timestamp{0.5};
    const QByteArray good = json::encode(data).value();

    // Every truncation is malformed; none may crash or yield a partial document.
    for (qsizetype n = 0; n < good.size(); ++n) {
        auto result = json::decodeSavedData(QByteArrayView(good.constData(), n));
        ASSERT_FALSE(result.ok()) << n;
        EXPECT_TRUE(result.error().startsWith(QStringLiteral("malformed JSON: "))) << n;
    }
    // Every single-byte replacement either still decodes or fails with a description.
    for (qsizetype i = 0; i < good.size(); ++i) {
        for (char c : {'"', '\\', '{', ']', ',', '0', 'x', '\x01', '\xff'}) {
            QByteArray damaged = good;
            damaged[i] = c;
            auto result = json::decodeSavedData(damaged);
            if (!result.ok()) {
                EXPECT_FALSE(result.error().isEmpty());
            }
        }
    }
}
