#include "model/JsonCodec.h"

#include "model/LinkItem.h"
#include "model/Parallel.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <pthread.h>
#include <system_error>
#include <thread>
#include <vector>

#include "DataDecodeHarness.h"
#include "support/QtPrinting.h"

using namespace fiva;
using namespace Qt::StringLiterals;

namespace {

const char *const goodId = "0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9";
const QUuid itemId = QUuid::fromString(QString::fromLatin1(goodId));
const QUuid attachmentId = QUuid::fromString(u"00000000-0000-0000-0000-000000000001"_s);
const double notANumber = std::numeric_limits<double>::quiet_NaN();
const double infinity = std::numeric_limits<double>::infinity();

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
            {"attachments",
             R"([{"id":"00000000-0000-0000-0000-000000000001","fileName":"a.pdf","filePath":"/a.pdf"}])"},
            {"kind", R"("url")"}};
}

std::string objectText(const Fields &fields)
{
    std::string text = "{";
    for (const auto &[key, value] : fields)
        text += (text.size() > 1 ? ",\"" : "\"") + key + "\":" + value;
    return text + "}";
}

// `value` null removes the key.
Fields withField(Fields fields, const std::string &key, const char *value)
{
    auto it = std::find_if(fields.begin(), fields.end(), [&](const auto &f) { return f.first == key; });
    if (it != fields.end() && value)
        it->second = value;
    else if (it != fields.end())
        fields.erase(it);
    else if (value)
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

// `expected` is the exact message, or its start when it ends with "...".
void expectError(const QString &error, const char *expected)
{
    const QString text = QString::fromUtf8(expected);
    if (text.endsWith(u"..."_s))
        EXPECT_TRUE(error.startsWith(text.chopped(3))) << error.toStdString();
    else
        EXPECT_EQ(error, text);
}

QByteArray encoded(const SavedData &data)
{
    auto result = json::encode(data);
    EXPECT_TRUE(result.ok()) << result.error().toStdString();
    return result.ok() ? result.value() : QByteArray();
}

std::uint64_t bits(double value)
{
    std::uint64_t b;
    std::memcpy(&b, &value, sizeof b);
    return b;
}

LinkItem sampleItem()
{
    return {itemId,
            u"Élève « été »"_s,
            u"https://exemple.fr/a/b?x=1&y=2"_s,
            u"Travail / Projets"_s,
            std::nullopt,
            Timestamp{757382400},
            true,
            {Attachment{attachmentId, u"plan.pdf"_s, u"/home/u/.local/share/Fiva_Attachments/plan.pdf"_s}},
            LinkKind::url};
}

} // namespace

// Makes every new thread ask for a stack no system can map, so that starting one fails as it does when
// memory or the process limit runs out.
class NoNewThreads
{
public:
    NoNewThreads()
    {
        pthread_getattr_default_np(&m_saved);
        pthread_attr_t huge;
        pthread_attr_init(&huge);
        pthread_attr_setstacksize(&huge, std::size_t(1) << 50);
        pthread_setattr_default_np(&huge);
        pthread_attr_destroy(&huge);
        EXPECT_THROW(std::thread([] {}).join(), std::system_error) << "threads still start";
    }
    ~NoNewThreads()
    {
        pthread_setattr_default_np(&m_saved);
        pthread_attr_destroy(&m_saved);
    }
    NoNewThreads(const NoNewThreads &) = delete;
    NoNewThreads &operator=(const NoNewThreads &) = delete;

private:
    pthread_attr_t m_saved;
};

TEST(JsonDecode, FieldDefaultsAndEquivalentForms)
{
    using Check = std::function<void(const LinkItem &)>;
    struct Case
    {
        const char *key;
        std::vector<const char *> values; // null removes the key
        Check check;
    };
    const std::vector<Case> cases = {
        {"notes", {nullptr, "null"}, [](const LinkItem &i) { EXPECT_FALSE(i.notes.has_value()); }},
        {"createdAt", {nullptr, "null"}, [](const LinkItem &i) { EXPECT_EQ(i.createdAt, Timestamp{42}); }},
        {"isFavorite", {nullptr, "null"}, [](const LinkItem &i) { EXPECT_FALSE(i.isFavorite); }},
        {"attachments",
         {nullptr, "null", "[]"},
         [](const LinkItem &i) { EXPECT_TRUE(i.attachments.isEmpty()); }},
        {"id", {nullptr, "null"}, [](const LinkItem &i) { EXPECT_FALSE(i.id.isNull()); }},
        {"id",
         {"\"0a1b2c3d-4e5f-6071-8293-a4b5c6d7e8f9\""},
         [](const LinkItem &i) { EXPECT_EQ(i.id, itemId); }},
        {"path",
         {R"("https://exemple.fr")"},
         [](const LinkItem &i) { EXPECT_EQ(i.path, u"https://exemple.fr"_s); }},
        {"title",
         {R"("\u00e9t\u00C9 \ud83d\ude00 \"\/\\\b\f\n\r\t")"},
         [](const LinkItem &i) { EXPECT_EQ(i.title, u"étÉ 😀 \"/\\\b\f\n\r\t"_s); }},
        {"title", {R"("a\u0000b")"}, [](const LinkItem &i) { EXPECT_EQ(i.title.size(), 3); }},
        {"createdAt",
         {"7.573824e8"},
         [](const LinkItem &i) { EXPECT_EQ(i.createdAt, Timestamp{757382400}); }},
        {"createdAt", {"-1.5"}, [](const LinkItem &i) { EXPECT_EQ(i.createdAt, Timestamp{-1.5}); }},
        {"createdAt", {"0"}, [](const LinkItem &i) { EXPECT_EQ(i.createdAt, Timestamp{0}); }},
        {"unknownKey",
         {R"({"nested":[1,{"a":null}],"x":"y"})"},
         [](const LinkItem &i) { EXPECT_EQ(i.title, u"Titre"_s); }},
        {"notes", {R"("")"}, [](const LinkItem &i) { EXPECT_EQ(i.notes, QString()); }},
    };
    for (const Case &c : cases) {
        for (const char *value : c.values) {
            SCOPED_TRACE(std::string(c.key) + "=" + (value ? value : "(absent)"));
            c.check(decodeOne(withField(goodFields(), c.key, value)));
        }
    }
    EXPECT_NE(decodeOne(withField(goodFields(), "id", nullptr)).id,
              decodeOne(withField(goodFields(), "id", nullptr)).id)
        << "a missing id is new at every reading";

    // Key order carries no meaning; whitespace between tokens is allowed.
    Fields reversed = goodFields();
    std::reverse(reversed.begin(), reversed.end());
    EXPECT_EQ(decodeOne(reversed), decodeOne(goodFields()));
    const std::pair<const char *, SavedData> documents[] = {
        {" \n{ \"categories\" : [ ] ,\t\"items\" : [ ] }\r\n", {}},
        {R"({"items":[],"categories":[],"lastBackupDate":null})", {}},
        {R"({"lastBackupDate":-0.5,"items":[],"categories":["b","a"]})",
         {{}, {u"b"_s, u"a"_s}, Timestamp{-0.5}}},
    };
    for (const auto &[text, data] : documents) {
        auto decoded = json::decodeSavedData(text);
        ASSERT_TRUE(decoded.ok()) << text << ": " << decoded.error().toStdString();
        EXPECT_EQ(decoded.value(), data) << text;
    }
}

TEST(JsonDecode, RecordRejections)
{
    struct Case
    {
        const char *key;
        const char *value; // null removes the key
        const char *error; // null: "not a valid UUID" quoting the value
    };
    const Case cases[] = {
        {"id", "123", "items[1].id: expected a string"},
        {"id", R"("not-a-uuid")", nullptr},
        {"id", R"("{0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9}")", nullptr},
        {"id", R"("0A1B2C3D4E5F607182 93A4B5C6D7E8F9AB")", nullptr},
        {"id", R"("0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8FG")", nullptr},
        {"id", R"("0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F")", nullptr},
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
        const std::string error =
            c.error ? c.error : std::string("items[1].id: not a valid UUID: ") + c.value;
        EXPECT_EQ(decodeError(documentWith(withField(goodFields(), c.key, c.value))),
                  QString::fromStdString(error));
    }

    // Several faults at once: the one of the earliest key in reading order is reported.
    Fields record = withField(withField(goodFields(), "kind", "1"), "isFavorite", R"("oui")");
    EXPECT_EQ(decodeError(documentWith(record)), u"items[1].isFavorite: expected a boolean"_s);
    record = withField(record, "category", nullptr);
    EXPECT_EQ(decodeError(documentWith(record)), u"items[1].category: missing"_s);
    record = withField(record, "id", R"("bad")");
    EXPECT_EQ(decodeError(documentWith(record)), uR"(items[1].id: not a valid UUID: "bad")"_s);
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
        expectError(decodeError(QByteArrayView(c.json, qsizetype(std::strlen(c.json)))), c.error);
    }
}

TEST(JsonDecode, KeysAreMatchedUnescapedAndTheFirstOfTwinsWins)
{
    // "\u0074itle" is "title" once unescaped; a second "title" is ignored, but must still be JSON.
    const std::string record = objectText(withField(goodFields(), "title", nullptr));
    const std::string twins = record.substr(0, record.size() - 1) +
                              R"(,"\u0074itle":"Premier","title":"Second","kind":[1,{"x":[]}]})";
    const LinkItem item = decodeOne(withField(goodFields(), "title", R"("Premier")"));
    auto result =
        json::decodeSavedData(QByteArray::fromStdString(R"({"items":[)" + twins + R"(],"categories":[]})"));
    ASSERT_TRUE(result.ok()) << result.error().toStdString();
    EXPECT_EQ(result.value().items.at(0), item);

    const std::string broken = twins.substr(0, twins.size() - 1) + R"(,"title":[1,]})";
    EXPECT_TRUE(decodeError(QByteArray::fromStdString(R"({"items":[)" + broken + R"(],"categories":[]})"))
                    .startsWith(u"malformed JSON: "_s));
}

// Large documents are decoded in runs on several threads; the outcome must be the one of reading
// the records in order, wherever the faults lie.
TEST(JsonDecode, ManyRecordsGiveTheResultOfReadingInOrder)
{
    constexpr int count = 12000;
    std::vector<std::string> records;
    for (int i = 0; i < count; ++i) {
        char id[40];
        std::snprintf(id, sizeof id, "\"00000000-0000-0000-0000-%012d\"", i);
        records.push_back(
            objectText(withField(withField(goodFields(), "id", id), "createdAt", std::to_string(i).c_str())));
    }
    const auto document = [&](const std::vector<std::pair<int, std::string>> &changes) {
        std::vector<std::string> changed = records;
        for (const auto &[index, text] : changes)
            changed[std::size_t(index)] = text;
        std::string text = R"({"categories":[],"items":[)";
        for (std::size_t i = 0; i < changed.size(); ++i)
            text += (i ? "," : "") + changed[i];
        return QByteArray::fromStdString(text + "]}");
    };

    auto all = json::decodeSavedData(document({}));
    ASSERT_TRUE(all.ok()) << all.error().toStdString();
    ASSERT_EQ(all.value().items.size(), count);
    for (int i : {0, 1, count / 2, count - 1})
        EXPECT_EQ(all.value().items[i].createdAt, Timestamp{double(i)});
    EXPECT_EQ(json::encode(all.value()).value(),
              json::encode(json::decodeSavedData(encoded(all.value())).value()).value());
    {
        // With no thread able to start, every run is done on the caller, and nothing changes.
        const NoNewThreads noThreads;
        std::vector<std::thread::id> ranOn(4);
        EXPECT_NO_THROW(
            forEachRun(ranOn.size(), [&](std::size_t k) { ranOn[k] = std::this_thread::get_id(); }));
        EXPECT_EQ(ranOn, std::vector<std::thread::id>(4, std::this_thread::get_id()));
        auto alone = json::decodeSavedData(document({}));
        ASSERT_TRUE(alone.ok()) << alone.error().toStdString();
        EXPECT_EQ(json::encode(alone.value()).value(), json::encode(all.value()).value());
    }

    const std::string badFavorite = objectText(withField(goodFields(), "isFavorite", "0"));
    const std::string noTitle = objectText(withField(goodFields(), "title", nullptr));
    const std::string brokenSyntax = objectText(withField(goodFields(), "notes", "[1,]"));
    const struct
    {
        std::vector<std::pair<int, std::string>> changes;
        const char *error;
    } cases[] = {
        {{{count - 2, noTitle}, {count / 3, badFavorite}}, "items[4000].isFavorite: expected a boolean"},
        {{{count - 1, noTitle}}, "items[11999].title: missing"},
        {{{7, badFavorite}, {count - 5, "17"}}, "items[7].isFavorite: expected a boolean"},
        {{{count - 5, "17"}, {count - 4, badFavorite}}, "items[11995]: expected an object"},
        {{{3, badFavorite}, {count - 3, brokenSyntax}}, "malformed JSON: ..."},
        {{{count - 3, "{\"title\":\"\\q\"}"}}, "malformed JSON: ..."},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.error);
        expectError(decodeError(document(c.changes)), c.error);
    }
}

TEST(JsonDecode, KindIsInferredFromThePathWhenMissing)
{
    QTemporaryDir temp;
    const QString folder = temp.filePath(u"Dossier"_s);
    const QString file = temp.filePath(u"note.txt"_s);
    ASSERT_TRUE(QDir().mkpath(folder));
    ASSERT_TRUE(QFile(file).open(QIODevice::WriteOnly));
    const std::pair<QString, LinkKind> cases[] = {
        {u"https://exemple.fr"_s, LinkKind::url},
        {u"HTTP://EXEMPLE.FR"_s, LinkKind::url},
        {u"hTtPs://x"_s, LinkKind::url},
        {u"httpdocs/relative"_s, LinkKind::url},
        {u"ftp://exemple.fr"_s, LinkKind::file},
        {u" http://x"_s, LinkKind::file},
        {folder, LinkKind::directory},
        {folder + u'/', LinkKind::directory},
        {file, LinkKind::file},
        {temp.filePath(u"absent"_s), LinkKind::file},
        {QString(), LinkKind::file},
    };
    for (const auto &[path, kind] : cases) {
        SCOPED_TRACE(path.toStdString());
        const std::string quoted = '"' + path.toStdString() + '"';
        for (const char *kindText : {static_cast<const char *>(nullptr), "null"})
            EXPECT_EQ(
                decodeOne(withField(withField(goodFields(), "kind", kindText), "path", quoted.c_str())).kind,
                kind);
    }
    // A kind that is present wins over what the path looks like.
    const std::string quotedFolder = '"' + folder.toStdString() + '"';
    EXPECT_EQ(decodeOne(withField(goodFields(), "path", quotedFolder.c_str())).kind, LinkKind::url);
}

TEST(JsonDecode, BackupHistoryAndBareListOfRecords)
{
    auto good = json::decodeBackupHistory(
        R"([{"id":"0a1b2c3d-4e5f-6071-8293-a4b5c6d7e8f9","date":1.5,"filePath":"\/b","fileSize":9223372036854775807},)"
        R"({"fileSize":-1,"filePath":"/a","date":0,"id":"00000000-0000-0000-0000-000000000001","extra":1}])");
    ASSERT_TRUE(good.ok()) << good.error().toStdString();
    EXPECT_EQ(good.value(),
              (QList<BackupLog>{{itemId, Timestamp{1.5}, u"/b"_s, std::numeric_limits<qint64>::max()},
                                {attachmentId, Timestamp{0}, u"/a"_s, -1}}));
    EXPECT_TRUE(json::decodeBackupHistory("[]").value().isEmpty());

    const std::string entry =
        R"([{"id":"00000000-0000-0000-0000-000000000001","date":0,"filePath":"/a","fileSize":)";
    const std::pair<std::string, const char *> cases[] = {
        {"{}", "document: expected an array"},
        {"[1]", "[0]: expected an object"},
        {entry + "1}," + entry.substr(1) + "12.5}]", "[1].fileSize: expected an integer"},
        {entry + "1e-1}]", "[0].fileSize: expected an integer"},
        {entry + "1e19}]", "[0].fileSize: integer out of range"},
        {entry + "9223372036854775808.0}]", "[0].fileSize: integer out of range"},
        {entry + "-9223372036854775809e0}]", "[0].fileSize: integer out of range"},
        {entry + "\"12\"}]", "[0].fileSize: expected an integer"},
        {entry + "18446744073709551615}]", "[0].fileSize: integer out of range"},
        {entry + "9223372036854775808}]", "[0].fileSize: integer out of range"},
        {entry + "null}]", "[0].fileSize: missing"},
        {R"([{"date":0,"filePath":"/a","fileSize":1}])", "[0].id: missing"},
        {R"([{"id":"00000000-0000-0000-0000-000000000001","filePath":"/a","fileSize":1}])",
         "[0].date: missing"},
        {R"([{"id":"00000000-0000-0000-0000-000000000001","date":0,"fileSize":1}])", "[0].filePath: missing"},
        {R"([{"id":"00000000-0000-0000-0000-000000000001","date":false,"filePath":"/a","fileSize":1}])",
         "[0].date: expected a number"},
        {"[", "malformed JSON: ..."},
    };
    for (const auto &[text, error] : cases) {
        SCOPED_TRACE(text);
        auto result = json::decodeBackupHistory(QByteArray::fromStdString(text));
        ASSERT_FALSE(result.ok());
        expectError(result.error(), error);
    }
    // Any spelling of an integral value is that integer, exactly, even past what a double holds.
    const std::pair<const char *, qint64> sizes[] = {
        {"1234.0", 1234},
        {"1e3", 1000},
        {"1.234E+3", 1234},
        {"12.50e1", 125},
        {"-0.0", 0},
        {"0e99999999999", 0},
        {"9007199254740993.0", 9007199254740993},
        {"9.223372036854775807e18", std::numeric_limits<qint64>::max()},
        {"-92233720368547758080e-1", std::numeric_limits<qint64>::min()},
    };
    for (const auto &[text, size] : sizes) {
        auto result = json::decodeBackupHistory(QByteArray::fromStdString(entry + text + "}]"));
        ASSERT_TRUE(result.ok()) << text << ": " << result.error().toStdString();
        EXPECT_EQ(result.value().at(0).fileSize, size) << text;
    }

    const auto list = [](const Fields &second) {
        return json::decodeLinkItems(
            QByteArray::fromStdString("[" + objectText(goodFields()) + "," + objectText(second) + "]"));
    };
    auto items = list(withField(goodFields(), "kind", nullptr));
    ASSERT_TRUE(items.ok()) << items.error().toStdString();
    ASSERT_EQ(items.value().size(), 2);
    EXPECT_EQ(items.value()[1].kind, LinkKind::url);
    EXPECT_EQ(list(withField(goodFields(), "title", nullptr)).error(), u"[1].title: missing"_s);
    EXPECT_EQ(json::decodeLinkItems(R"({"items":[]})").error(), u"document: expected an array"_s);
}

TEST(JsonEncode, DataFileIsCompactWithEscapedSlashesAndUpperCaseIds)
{
    SavedData data{{sampleItem()}, {u"Sans catégorie"_s, u"Travail / Projets"_s}, Timestamp{757382400.5}};
    EXPECT_EQ(
        encoded(data),
        QByteArray(
            R"({"items":[{"id":"0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9","title":"Élève « été »",)"
            R"("path":"https:\/\/exemple.fr\/a\/b?x=1&y=2","category":"Travail \/ Projets",)"
            R"("createdAt":757382400,"isFavorite":true,"attachments":[{"id":"00000000-0000-0000-0000-000000000001",)"
            R"("fileName":"plan.pdf","filePath":"\/home\/u\/.local\/share\/Fiva_Attachments\/plan.pdf"}],)"
            R"("kind":"url"}],"categories":["Sans catégorie","Travail \/ Projets"],"lastBackupDate":757382400.5})"));

    // Absent optionals are omitted, never null; empty notes are still notes.
    LinkItem item = sampleItem();
    item.attachments.clear();
    item.isFavorite = false;
    item.kind = LinkKind::directory;
    const QByteArray bytes = encoded(SavedData{{item}, {}, std::nullopt});
    EXPECT_FALSE(bytes.contains("notes") || bytes.contains("lastBackupDate") || bytes.contains("null"));
    EXPECT_TRUE(
        bytes.endsWith(R"("isFavorite":false,"attachments":[],"kind":"directory"}],"categories":[]})"));
    item.notes = QString();
    EXPECT_TRUE(encoded(SavedData{{item}, {}, std::nullopt})
                    .contains(R"("category":"Travail \/ Projets","notes":"","createdAt")"));
    EXPECT_EQ(encoded(SavedData{}), QByteArray(R"({"items":[],"categories":[]})"));
}

TEST(JsonEncode, StringEscapes)
{
    const std::pair<QString, QByteArray> cases[] = {
        {u"a\"b\\c/d"_s, R"("a\"b\\c\/d")"},
        {u"\n\r\t\b\f"_s, R"("\n\r\t\b\f")"},
        {QString(QChar(0)) + QChar(1) + QChar(0x1f), R"("\u0000\u0001\u001f")"},
        {u"\x7f"_s, "\"\x7f\""},
        {u"<html>\n    <head>"_s, R"("<html>\n    <head>")"},
        {u"ça €"_s, "\"\xc3\xa7"
                    "a \xe2\x82\xac\""},
        {QString::fromUtf8("\xf0\x9f\x98\x80"), "\"\xf0\x9f\x98\x80\""},
        {u"\u2028"_s, "\"\xe2\x80\xa8\""},
        // A lone surrogate cannot be written as UTF-8: it becomes U+FFFD rather than corrupt bytes.
        {QString(QChar(0xD800)) + u'x', "\"\xef\xbf\xbdx\""},
        {QString(QChar(0xDC00)), "\"\xef\xbf\xbd\""},
    };
    for (const auto &[text, expected] : cases)
        EXPECT_EQ(encoded(SavedData{{}, {text}, std::nullopt}),
                  QByteArray(R"({"items":[],"categories":[)") + expected + "]}")
            << expected.toStdString();
}

TEST(JsonEncode, DatesAreShortestRoundTripNumbers)
{
    const std::pair<double, const char *> cases[] = {
        {757382400, "757382400"},
        {0, "0"},
        {-1.5, "-1.5"},
        {0.1 + 0.2, "0.30000000000000004"},
        {1e-7, "1e-07"},
        {757382400.123456789, "757382400.1234568"},
        {-0.0, "-0.0"},
        {1e22, "1e+22"},
        // Extremes whose text is the formatter's business; they must read back bit for bit.
        {5e-324, nullptr},
        {1.7976931348623157e308, nullptr},
        {-978307200.000001, nullptr},
        {2.2250738585072014e-308, nullptr}};
    for (const auto &[seconds, text] : cases) {
        const QByteArray bytes = encoded(SavedData{{}, {}, Timestamp{seconds}});
        if (text) {
            EXPECT_EQ(bytes, QByteArray(R"({"items":[],"categories":[],"lastBackupDate":)") + text + "}");
        }
        auto back = json::decodeSavedData(bytes);
        ASSERT_TRUE(back.ok()) << back.error().toStdString();
        ASSERT_TRUE(back.value().lastBackupDate.has_value());
        EXPECT_EQ(bits(back.value().lastBackupDate->seconds), bits(seconds)) << bytes.toStdString();
    }
}

TEST(JsonEncode, BackupHistoryAndNonFiniteDates)
{
    const QList<BackupLog> history{
        {itemId, Timestamp{757382400.25}, u"/tmp/AutoBackup-1.0.fivabackup"_s, 1234},
        {attachmentId, Timestamp{-3}, u"/x"_s, std::numeric_limits<qint64>::min()}};
    EXPECT_EQ(json::encode(history).value(),
              QByteArray(R"([{"id":"0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9","date":757382400.25,)"
                         R"("filePath":"\/tmp\/AutoBackup-1.0.fivabackup","fileSize":1234},)"
                         R"({"id":"00000000-0000-0000-0000-000000000001","date":-3,"filePath":"\/x",)"
                         R"("fileSize":-9223372036854775808}])"));
    EXPECT_EQ(json::encode(QList<BackupLog>{}).value(), QByteArray("[]"));

    // A date that is not a finite number fails with its place.
    SavedData data{{sampleItem(), sampleItem()}, {}, std::nullopt};
    data.items[1].createdAt = Timestamp{notANumber};
    ASSERT_FALSE(json::encode(data).ok());
    EXPECT_EQ(json::encode(data).error(),
              u"items[1].createdAt: cannot write a date that is not a finite number"_s);
    data.items[1].createdAt = Timestamp{0};
    data.lastBackupDate = Timestamp{-infinity};
    ASSERT_FALSE(json::encode(data).ok());
    EXPECT_TRUE(json::encode(data).error().startsWith(u"lastBackupDate: "_s));
    const QList<BackupLog> infinite{{itemId, Timestamp{1}, u"/a"_s, 1},
                                    {itemId, Timestamp{infinity}, u"/b"_s, 2}};
    ASSERT_FALSE(json::encode(infinite).ok());
    EXPECT_TRUE(json::encode(infinite).error().startsWith(u"[1].date: "_s));
}

// Every file of the data fuzz corpus runs through the fuzz target's checks in ordinary builds too.
TEST(JsonDecode, FuzzCorpusReplays)
{
    int replayed = 0;
    for (QDirIterator it(QStringLiteral(FIVA_DATA_CORPUS), QDir::Files); it.hasNext();) {
        QFile file(it.next());
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        const QByteArray bytes = file.readAll();
        const auto broken = json::fuzz::decodeData(reinterpret_cast<const std::uint8_t *>(bytes.constData()),
                                                   std::size_t(bytes.size()));
        EXPECT_FALSE(broken.has_value()) << file.fileName().toStdString() << ": " << broken.value_or("");
        ++replayed;
    }
    EXPECT_GE(replayed, 5);
}
