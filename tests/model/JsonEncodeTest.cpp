#include "model/JsonCodec.h"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>

#include "QtPrinting.h"

using namespace fiva;

namespace {

const QUuid itemId = QUuid::fromString(QStringLiteral("0a1b2c3d-4e5f-6071-8293-a4b5c6d7e8f9"));
const QUuid attachmentId = QUuid::fromString(QStringLiteral("00000000-0000-0000-0000-000000000001"));

LinkItem sampleItem()
{
    LinkItem item;
    item.id = itemId;
    item.title = QStringLiteral("Élève « été »");
    item.path = QStringLiteral("https://exemple.fr/a/b?x=1&y=2");
    item.category = QStringLiteral("Travail / Projets");
    item.createdAt = Timestamp{757382400};
    item.isFavorite = true;
    item.attachments = {Attachment{attachmentId, QStringLiteral("plan.pdf"),
                                   QStringLiteral("/home/u/.local/share/Fiva_Attachments/plan.pdf")}};
    item.kind = LinkKind::url;
    return item;
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

} // namespace

TEST(JsonEncode, DataFileIsCompactWithEscapedSlashesAndUpperCaseIds)
{
    SavedData data;
    data.items = {sampleItem()};
    data.categories = {QStringLiteral("Sans catégorie"), QStringLiteral("Travail / Projets")};
    data.lastBackupDate = Timestamp{757382400.5};
    const QByteArray expected =
        R"({"items":[{"id":"0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9","title":"Élève « été »",)"
        R"("path":"https:\/\/exemple.fr\/a\/b?x=1&y=2","category":"Travail \/ Projets",)"
        R"("createdAt":757382400,"isFavorite":true,"attachments":[{"id":"00000000-0000-0000-0000-000000000001",)"
        R"("fileName":"plan.pdf","filePath":"\/home\/u\/.local\/share\/Fiva_Attachments\/plan.pdf"}],)"
        R"("kind":"url"}],"categories":["Sans catégorie","Travail \/ Projets"],"lastBackupDate":757382400.5})";
    EXPECT_EQ(encoded(data), expected);
}

TEST(JsonEncode, AbsentOptionalsAreOmittedNeverNull)
{
    SavedData data;
    LinkItem item = sampleItem();
    item.attachments.clear();
    item.isFavorite = false;
    item.kind = LinkKind::directory;
    data.items = {item};
    const QByteArray bytes = encoded(data);
    EXPECT_FALSE(bytes.contains("notes"));
    EXPECT_FALSE(bytes.contains("lastBackupDate"));
    EXPECT_FALSE(bytes.contains("null"));
    EXPECT_TRUE(
        bytes.endsWith(R"("isFavorite":false,"attachments":[],"kind":"directory"}],"categories":[]})"));

    item.notes = QString();
    data.items = {item};
    EXPECT_TRUE(encoded(data).contains(R"("category":"Travail \/ Projets","notes":"","createdAt")"))
        << "empty notes are still notes";
    EXPECT_EQ(encoded(SavedData{}), QByteArray(R"({"items":[],"categories":[]})"));
}

TEST(JsonEncode, StringEscapes)
{
    struct Case
    {
        QString text;
        QByteArray expected;
    };
    const Case cases[] = {
        {QStringLiteral("a\"b\\c/d"), R"("a\"b\\c\/d")"},
        {QStringLiteral("\n\r\t\b\f"), R"("\n\r\t\b\f")"},
        {QString(QChar(0)) + QChar(1) + QChar(0x1f), R"("\u0000\u0001\u001f")"},
        {QStringLiteral("\x7f"), "\"\x7f\""},
        {QStringLiteral("<html>\n    <head>"), R"("<html>\n    <head>")"},
        {QStringLiteral("ça €"), "\"\xc3\xa7"
                                 "a \xe2\x82\xac\""},
        {QString::fromUtf8("\xf0\x9f\x98\x80"), "\"\xf0\x9f\x98\x80\""},
        {QStringLiteral("\u2028"), "\"\xe2\x80\xa8\""},
        // A lone surrogate cannot be written as UTF-8: it becomes U+FFFD rather than corrupt bytes.
        {QString(QChar(0xD800)) + u'x', "\"\xef\xbf\xbdx\""},
        {QString(QChar(0xDC00)), "\"\xef\xbf\xbd\""},
    };
    for (const Case &c : cases) {
        SavedData data;
        data.categories = {c.text};
        EXPECT_EQ(encoded(data), QByteArray(R"({"items":[],"categories":[)") + c.expected + "]}")
            << c.expected.toStdString();
    }
}

TEST(JsonEncode, DatesAreShortestRoundTripNumbers)
{
    struct Case
    {
        double seconds;
        const char *text;
    };
    const Case cases[] = {
        {757382400, "757382400"}, {0, "0"},
        {-1.5, "-1.5"},           {0.1 + 0.2, "0.30000000000000004"},
        {1e-7, "1e-07"},          {757382400.123456789, "757382400.1234568"},
        {-0.0, "-0.0"},           {1e22, "1e+22"},
    };
    for (const Case &c : cases) {
        SavedData data;
        data.lastBackupDate = Timestamp{c.seconds};
        const QByteArray bytes = encoded(data);
        EXPECT_EQ(bytes, QByteArray(R"({"items":[],"categories":[],"lastBackupDate":)") + c.text + "}");
        auto back = json::decodeSavedData(bytes);
        ASSERT_TRUE(back.ok()) << back.error().toStdString();
        ASSERT_TRUE(back.value().lastBackupDate.has_value());
        EXPECT_EQ(bits(back.value().lastBackupDate->seconds), bits(c.seconds)) << c.text;
    }
}

TEST(JsonEncode, NonFiniteDatesFailWithThePlace)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();

    SavedData data;
    data.items = {sampleItem(), sampleItem()};
    data.items[1].createdAt = Timestamp{nan};
    auto result = json::encode(data);
    ASSERT_FALSE(result.ok());
    EXPECT_EQ(result.error(),
              QStringLiteral("items[1].createdAt: cannot write a date that is not a finite number"));

    data.items[1].createdAt = Timestamp{0};
    data.lastBackupDate = Timestamp{-inf};
    result = json::encode(data);
    ASSERT_FALSE(result.ok());
    EXPECT_TRUE(result.error().startsWith(QStringLiteral("lastBackupDate: ")));

    QList<BackupLog> history{BackupLog{itemId, Timestamp{1}, QStringLiteral("/a"), 1},
                             BackupLog{itemId, Timestamp{inf}, QStringLiteral("/b"), 2}};
    auto historyResult = json::encode(history);
    ASSERT_FALSE(historyResult.ok());
    EXPECT_TRUE(historyResult.error().startsWith(QStringLiteral("[1].date: ")));
}

TEST(JsonEncode, BackupHistory)
{
    QList<BackupLog> history{
        BackupLog{itemId, Timestamp{757382400.25}, QStringLiteral("/tmp/AutoBackup-1.0.fivabackup"), 1234},
        BackupLog{attachmentId, Timestamp{-3}, QStringLiteral("/x"), std::numeric_limits<qint64>::min()},
    };
    auto result = json::encode(history);
    ASSERT_TRUE(result.ok());
    EXPECT_EQ(result.value(),
              QByteArray(R"([{"id":"0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9","date":757382400.25,)"
                         R"("filePath":"\/tmp\/AutoBackup-1.0.fivabackup","fileSize":1234},)"
                         R"({"id":"00000000-0000-0000-0000-000000000001","date":-3,"filePath":"\/x",)"
                         R"("fileSize":-9223372036854775808}])"));
    EXPECT_EQ(json::encode(QList<BackupLog>{}).value(), QByteArray("[]"));
}

TEST(JsonRoundTrip, RecordsSurviveEncodeAndDecodeUnchanged)
{
    SavedData data;
    for (int i = 0; i < 50; ++i) {
        LinkItem item = sampleItem();
        item.id = QUuid::createUuid();
        item.title = QStringLiteral("Fiche n°%1 \"quotée\" \\ / \t").arg(i);
        item.kind = LinkKind(i % 3);
        item.isFavorite = i % 2;
        item.createdAt = Timestamp{i * 1234567.891 - 1e6 / 3};
        if (i % 4)
            item.notes = QStringLiteral("<html>\n<p>ligne %1<br>&amp; 😀</p>").arg(i);
        for (int a = 0; a < i % 3; ++a)
            item.attachments.append(Attachment{QUuid::createUuid(), QStringLiteral("f%1.txt").arg(a),
                                               QStringLiteral("/p/f%1.txt").arg(a)});
        data.items.append(item);
    }
    data.categories = {QStringLiteral("Zèbre"), QStringLiteral("a / b"), QString()};
    data.lastBackupDate = Timestamp{0.1 + 0.2};

    const QByteArray bytes = encoded(data);
    auto back = json::decodeSavedData(bytes);
    ASSERT_TRUE(back.ok()) << back.error().toStdString();
    EXPECT_EQ(back.value(), data);
    EXPECT_EQ(encoded(back.value()), bytes);
}
