#include "interchange/BookmarkExport.h"
#include "interchange/BookmarkImport.h"
#include "interchange/InterchangeTestSupport.h"

#include <QDir>

#include <algorithm>
#include <tuple>

#include "BookmarkImportHarness.h"

namespace fiva::interchange {
namespace {

using namespace fiva::test;
using namespace Qt::StringLiterals;

// Everything but the identity, which every import makes anew, and the order: the file groups the
// records by folder.
void expectSameRecords(QList<LinkItem> got, QList<LinkItem> want)
{
    const auto byContent = [](const LinkItem &a, const LinkItem &b) {
        return std::tie(a.category, a.title, a.path) < std::tie(b.category, b.title, b.path);
    };
    std::sort(got.begin(), got.end(), byContent);
    std::sort(want.begin(), want.end(), byContent);
    ASSERT_EQ(got.size(), want.size());
    for (qsizetype i = 0; i < got.size(); ++i) {
        got[i].id = want[i].id;
        EXPECT_EQ(got[i], want[i]);
        EXPECT_EQ(got[i].notes, want[i].notes);
    }
}

// What Chromium's importer needs, as it reads line by line: each folder heading on its own line and
// followed by the line opening its list, and every list closed.
void expectBrowserShape(const QByteArray &html)
{
    const QStringList lines = QString::fromUtf8(html).split(u'\n');
    ASSERT_GE(lines.size(), 6);
    EXPECT_EQ(lines[0], u"<!DOCTYPE NETSCAPE-Bookmark-file-1>"_s);
    EXPECT_TRUE(html.contains("<META HTTP-EQUIV=\"Content-Type\" CONTENT=\"text/html; charset=UTF-8\">"));
    int open = 0;
    int close = 0;
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const QString line = lines[i].trimmed();
        if (line.startsWith(u"<DT><H3"_s)) {
            EXPECT_TRUE(line.endsWith(u"</H3>"_s)) << line.toStdString();
            ASSERT_LT(i + 1, lines.size());
            EXPECT_EQ(lines[i + 1].trimmed(), u"<DL><p>"_s);
        }
        if (line.startsWith(u"<DT><A"_s)) {
            EXPECT_TRUE(line.endsWith(u"</A>"_s)) << line.toStdString();
        }
        open += line == u"<DL><p>"_s;
        close += line == u"</DL><p>"_s;
    }
    EXPECT_EQ(open, close);
}

struct SampleRoundTrip
{
    const char *file;
    ImportOptions options;
};

class ImportExportImport : public testing::TestWithParam<SampleRoundTrip>
{
};

TEST_P(ImportExportImport, GivesTheSameRecords)
{
    const auto &[file, options] = GetParam();
    const ImportPlan first = planBookmarkImport(readSample(file), sampleContext(), options);
    ASSERT_FALSE(first.records.isEmpty());

    const QByteArray html = writeBookmarkFile(first.records, first.newCategories, &notesPlainText);
    expectBrowserShape(html);
    const ImportPlan second = planBookmarkImport(html, sampleContext(), options);
    EXPECT_TRUE(second.problems().isEmpty());
    expectSameRecords(second.records, first.records);
    EXPECT_EQ(second.newCategories, first.newCategories);
    EXPECT_EQ(second.skippedTotal(), 0);
    EXPECT_EQ(second.duplicatesSkipped, 0);
}

INSTANTIATE_TEST_SUITE_P(Samples, ImportExportImport,
                         testing::Values(SampleRoundTrip{"firefox-export.html", {}},
                                         SampleRoundTrip{"firefox-export.html", {.keepRoots = true}},
                                         SampleRoundTrip{"chromium-export.html", {}},
                                         SampleRoundTrip{"chromium-export.html", {.keepRoots = true}}));

LinkItem record(QString title, QString path, QString category, LinkKind kind, double unix,
                std::optional<QString> notes = std::nullopt)
{
    return LinkItem{QUuid::createUuid(),
                    std::move(title),
                    std::move(path),
                    std::move(category),
                    notes ? std::optional(notesHTML(*notes)) : std::nullopt,
                    Timestamp::fromUnix(unix),
                    false,
                    {},
                    kind};
}

TEST(BookmarkExport, RecordsOfTheStoreComeBackWhole)
{
    const QList<LinkItem> records = {
        record(u"Guillemets \"doubles\" & <balises>"_s, u"https://example.com/?a=1&b=\"2\"&c=<3>"_s,
               u"Travail / Projets / 2024"_s, LinkKind::url, 1700000000,
               u"Ligne 1 avec <b>gras</b> & co\nLigne 2\nMots-clés : a, b c"_s),
        record(u"Sans catégorie, avec notes vides"_s, u"https://example.org/"_s, u"Sans catégorie"_s,
               LinkKind::url, 1600000000, u""_s),
        record(u"Dossier #1 à 100 %"_s, u"/home/marie/Dossier #1 à 100 %"_s, u"Travail"_s,
               LinkKind::directory, 1650000000),
        record(u"Fiche.pdf"_s, u"/tmp/a?b;c d%20e.pdf"_s, u"Travail / Projets / 2024"_s, LinkKind::file,
               1650000001, u"Seulement des notes"_s),
        record(u"Sous une catégorie absente de la liste"_s, u"mailto:jean@example.fr"_s,
               u"Perso / Courriel"_s, LinkKind::url, 1650000002),
    };
    const QStringList categories = {u"Sans catégorie"_s, u"Travail"_s, u"Travail / Projets"_s,
                                    u"Travail / Projets / 2024"_s, u"Vide"_s};

    const QByteArray html = writeBookmarkFile(records, categories, &notesPlainText);
    expectBrowserShape(html);
    EXPECT_TRUE(html.contains("TAGS=\"a,b c\"")) << html.toStdString();

    ImportContext context = sampleContext();
    context.isDirectory = [](const QString &path) { return path == u"/home/marie/Dossier #1 à 100 %"_s; };
    const ImportPlan plan = planBookmarkImport(html, context);
    EXPECT_TRUE(plan.problems().isEmpty());

    QList<LinkItem> expected = records;
    expected[1].notes.reset(); // empty notes have nothing to write
    expectSameRecords(plan.records, expected);
    EXPECT_EQ(plan.newCategories, (QStringList{u"Perso"_s, u"Perso / Courriel"_s, u"Travail"_s,
                                               u"Travail / Projets"_s, u"Travail / Projets / 2024"_s}));
    EXPECT_EQ(plan.skippedCount(SkippedKind::emptyFolder), 1);
    EXPECT_EQ(plan.skippedTotal(), 1);
}

TEST(BookmarkFuzzCorpus, EveryFileAndSampleSurvivesTheTrip)
{
    QStringList files;
    const QStringList folders = {QStringLiteral(FIVA_BOOKMARK_CORPUS),
                                 qEnvironmentVariable("FIVA_TEST_DATA") + u"/bookmarks"_s};
    for (const QString &folder : folders) {
        for (const QFileInfo &info : QDir(folder).entryInfoList(QDir::Files))
            files << info.filePath();
    }
    EXPECT_GE(files.size(), 4);
    for (const QString &path : files) {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
        const QByteArray bytes = file.readAll();
        const auto broken = fuzz::importExportImport(reinterpret_cast<const std::uint8_t *>(bytes.data()),
                                                     std::size_t(bytes.size()));
        EXPECT_FALSE(broken) << path.toStdString() << ": " << broken.value_or(std::string());
    }
}

} // namespace
} // namespace fiva::interchange
