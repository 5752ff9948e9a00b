#include "interchange/BookmarkImport.h"

#include "interchange/HtmlText.h"
#include "interchange/InterchangeTestSupport.h"

#include <array>

namespace fiva::interchange {
namespace {

using namespace fiva::test;
using namespace Qt::StringLiterals;

struct ExpectedRecord
{
    QString title;
    QString path;
    QString category;
    LinkKind kind;
    double createdUnix; // 0: the import time
    QString notes;      // plain text; empty: none
};

struct SampleCase
{
    const char *name;
    const char *file;
    ImportOptions options;
    QStringList existingCategories;
    QList<ExpectedRecord> records;
    QStringList newCategories;
    int duplicates;
    std::array<int, skippedKindCount> skipped; // bookmarklet, placeQuery, separator, emptyFolder, unsupported
};

void PrintTo(const SampleCase &c, std::ostream *os)
{
    *os << c.name;
}

const QString cafeNotes = u"Article sur l’histoire du café & de ses <origines>\n"
                          u"Deuxième ligne de la description\nMots-clés : boissons, histoire"_s;

QList<ExpectedRecord> firefoxRecords(bool keepRoots)
{
    const QString menu = keepRoots ? u"Menu des marque-pages"_s : u"Sans catégorie"_s;
    const QString bar = keepRoots ? u"Barre personnelle"_s : u"Sans catégorie"_s;
    const QString tools = keepRoots ? u"Barre personnelle / Outils & astuces"_s : u"Outils & astuces"_s;
    const QString other = keepRoots ? u"Autres marque-pages"_s : u"Sans catégorie"_s;
    const QString cooking = u"Cuisine & recettes"_s;
    // clang-format off
    return {
        {u"Obtenir de l’aide"_s, u"https://support.mozilla.org/fr/products/firefox"_s, menu, LinkKind::url, 1672531200, {}},
        {u"Café — Wikipédia"_s, u"https://fr.wikipedia.org/wiki/Caf%C3%A9"_s, bar, LinkKind::url, 1701234567, cafeNotes},
        {u"Recherche \"café\" <DDG>"_s, u"https://duckduckgo.com/?q=%22caf%C3%A9%22&ia=web"_s, tools, LinkKind::url, 1680000200, {}},
        {u"Rapport annuel 2023"_s, u"/home/marie/Documents/Rapport annuel 2023 été.pdf"_s, tools, LinkKind::file, 1680000400, {}},
        {u"Projets"_s, u"/home/marie/Projets"_s, tools, LinkKind::directory, 1680000500, {}},
        {u"Marmiton"_s, u"https://www.marmiton.org/"_s, cooking, LinkKind::url, 0, {}},
        {u"Crème brûlée – la vraie 🍮"_s, u"https://www.example.fr/cr%C3%A8me-br%C3%BBl%C3%A9e"_s, cooking + u" / Pâtisserie"_s, LinkKind::url, 1650000400, {}},
        {u"Le Monde.fr - Actualités et Infos en France et dans le monde"_s, u"https://www.lemonde.fr/"_s, other, LinkKind::url, 1700000000, {}},
    };
    // clang-format on
}

QList<ExpectedRecord> chromiumRecords()
{
    const QString none = u"Sans catégorie"_s;
    const QString dev = u"Développement"_s;
    // clang-format off
    return {
        {u"Boîte de réception (12) - marie.dupont@gmail.com - Gmail"_s, u"https://mail.google.com/mail/u/0/#inbox"_s, none, LinkKind::url, 1690000100, {}},
        {u"QString Class | Qt Core 6.6.0"_s, u"https://doc.qt.io/qt-6/qstring.html"_s, dev, LinkKind::url, 1690000400, {}},
        {u"std::vector - cppreference.com"_s, u"https://en.cppreference.com/w/cpp/container/vector?a=1&b=2"_s, dev, LinkKind::url, 1690000500, {}},
        {u"C'est l'accent d'un <mot> & co"_s, u"https://stackoverflow.com/questions/1/l-'accent-d'un-mot"_s, dev + u" / Archives / 2022"_s, LinkKind::url, 1690000800, {}},
        {u"Facture n°1.pdf"_s, u"/C:/Users/Marie/Documents/Facture n°1.pdf"_s, none, LinkKind::file, 1690001000, {}},
        {u"Photos de vacances"_s, u"/srv/partage/photos de vacances"_s, none, LinkKind::directory, 1690001100, {}},
        {u"Service-Public.fr | Le site officiel de l’administration française"_s, u"https://www.service-public.fr/"_s, none, LinkKind::url, 1690002000, {}},
        {u"SNCF Connect"_s, u"https://www.sncf-connect.com/"_s, none, LinkKind::url, 0, {}},
        {u"日本語のページ"_s, u"https://例え.jp/パス"_s, none, LinkKind::url, 1690002300, {}},
    };
    // clang-format on
}

const QStringList existingPaths = {u"https://www.example.com/Recettes"_s};

class SampleImport : public testing::TestWithParam<SampleCase>
{
};

TEST_P(SampleImport, GivesTheRecordsCategoriesAndCounts)
{
    const SampleCase &c = GetParam();
    const ImportPlan plan =
        planBookmarkImport(readSample(c.file), sampleContext(existingPaths, c.existingCategories), c.options);

    EXPECT_TRUE(plan.recognized);
    EXPECT_TRUE(plan.problems().isEmpty()) << plan.problems().join(u' ').toStdString();
    ASSERT_EQ(plan.records.size(), c.records.size());
    QSet<QUuid> ids;
    for (qsizetype i = 0; i < plan.records.size(); ++i) {
        const LinkItem &got = plan.records[i];
        const ExpectedRecord &want = c.records[i];
        SCOPED_TRACE(want.title.toStdString());
        EXPECT_EQ(got.title, want.title);
        EXPECT_EQ(got.path, want.path);
        EXPECT_EQ(got.category, want.category);
        EXPECT_EQ(got.kind, want.kind);
        EXPECT_EQ(got.createdAt, want.createdUnix ? Timestamp::fromUnix(want.createdUnix)
                                                  : Timestamp::fromUnix(importUnixTime));
        EXPECT_EQ(got.notes, want.notes.isEmpty() ? std::nullopt : std::optional(notesHTML(want.notes)));
        EXPECT_FALSE(got.isFavorite);
        EXPECT_TRUE(got.attachments.isEmpty());
        EXPECT_FALSE(got.id.isNull());
        ids.insert(got.id);
    }
    EXPECT_EQ(ids.size(), plan.records.size());
    EXPECT_EQ(plan.newCategories, c.newCategories);
    EXPECT_EQ(plan.duplicatesSkipped, c.duplicates);
    EXPECT_EQ(plan.skipped, c.skipped);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Samples, SampleImport, testing::Values(
    SampleCase{"FirefoxRootsDropped", "firefox-export.html", {}, {u"Sans catégorie"_s}, firefoxRecords(false),
               {u"Cuisine & recettes"_s, u"Cuisine & recettes / Pâtisserie"_s, u"Outils & astuces"_s},
               2, {1, 2, 2, 1, 1}},
    SampleCase{"FirefoxRootsKept", "firefox-export.html", {.keepRoots = true}, {u"Cuisine & recettes"_s}, firefoxRecords(true),
               {u"Autres marque-pages"_s, u"Barre personnelle"_s, u"Barre personnelle / Outils & astuces"_s,
                u"Cuisine & recettes / Pâtisserie"_s, u"Menu des marque-pages"_s},
               2, {1, 2, 2, 1, 1}},
    SampleCase{"ChromiumNoCategoryYet", "chromium-export.html", {}, {}, chromiumRecords(),
               {u"Développement"_s, u"Développement / Archives"_s, u"Développement / Archives / 2022"_s, u"Sans catégorie"_s},
               1, {1, 0, 0, 1, 1}}),
    [](const testing::TestParamInfo<SampleCase> &info) { return std::string(info.param.name); });
// clang-format on

TEST(BookmarkImport, AllowingDuplicatesKeepsEveryLink)
{
    const ImportPlan plan = planBookmarkImport(readSample("firefox-export.html"),
                                               sampleContext(existingPaths), {.allowDuplicates = true});
    EXPECT_EQ(plan.duplicatesSkipped, 0);
    ASSERT_EQ(plan.records.size(), firefoxRecords(false).size() + 2);
    EXPECT_EQ(plan.records[6].path, u"HTTPS://WWW.Example.COM/Recettes/"_s);
    EXPECT_EQ(plan.records[7].path, u"https://fr.wikipedia.org/wiki/Caf%C3%A9/"_s);
}

TEST(BookmarkImport, ReportsProgressUpToTheWholeFile)
{
    QByteArray file = "<!DOCTYPE NETSCAPE-Bookmark-file-1>\n<DL><p>\n";
    for (int i = 0; file.size() < 3 * progressStep + 1000; ++i)
        file += "<DT><A HREF=\"https://example.fr/" + QByteArray::number(i) + "\">Lien</A>\n";
    file += "</DL>\n";
    QList<std::pair<qint64, qint64>> reports;
    ImportContext context = sampleContext();
    context.progress = [&](qint64 done, qint64 total) { reports.append({done, total}); };
    const ImportPlan plan = planBookmarkImport(file, context);
    EXPECT_FALSE(plan.records.isEmpty());
    ASSERT_GE(reports.size(), 4);
    for (qsizetype i = 1; i < reports.size(); ++i) {
        EXPECT_GT(reports[i].first, reports[i - 1].first);
        EXPECT_EQ(reports[i].second, file.size());
    }
    EXPECT_EQ(reports.last().first, file.size());
}

QByteArray deeplyNested(int depth)
{
    QByteArray html = "<!DOCTYPE NETSCAPE-Bookmark-file-1>\n<DL><p>\n";
    for (int i = 0; i < depth; ++i)
        html += "<DT><H3>n" + QByteArray::number(i) + "</H3>\n<DL><p>\n";
    html += "<DT><A HREF=\"https://deep.example/\">Profond</A>\n";
    for (int i = 0; i < depth; ++i)
        html += "</DL><p>\n";
    return html + "</DL>\n";
}

struct HostileCase
{
    const char *name;
    QByteArray file;
    bool recognized;
    bool truncated;
    bool depthLimited;
    QStringList titles;
};

void PrintTo(const HostileCase &c, std::ostream *os)
{
    *os << c.name;
}

class HostileInput : public testing::TestWithParam<HostileCase>
{
};

TEST_P(HostileInput, GivesAClearResult)
{
    const HostileCase &c = GetParam();
    const ImportPlan plan = planBookmarkImport(c.file, sampleContext());
    EXPECT_EQ(plan.recognized, c.recognized);
    EXPECT_EQ(plan.truncated, c.truncated);
    EXPECT_EQ(plan.depthLimited, c.depthLimited);
    EXPECT_EQ(plan.problems().isEmpty(), c.recognized && !c.truncated && !c.depthLimited);
    QStringList titles;
    for (const LinkItem &item : plan.records)
        titles << item.title;
    EXPECT_EQ(titles, c.titles);
    // Every category a record lands in is created, and so is each of its ancestors.
    for (const LinkItem &item : plan.records) {
        const QStringList parts = item.category.split(u" / "_s);
        for (qsizetype n = 1; n <= parts.size(); ++n) {
            const QString ancestor = parts.first(n).join(u" / "_s);
            EXPECT_TRUE(plan.newCategories.contains(ancestor) || ancestor == u"Sans catégorie"_s)
                << ancestor.toStdString();
        }
        EXPECT_LT(parts.size(), maxFolderDepth);
    }
}

QByteArray firefoxCutAt(const char *marker)
{
    const QByteArray sample = readSample("firefox-export.html");
    return sample.left(sample.indexOf(marker));
}

const QByteArray header = "<!DOCTYPE NETSCAPE-Bookmark-file-1>\n<DL><p>\n";

const QByteArray latin1File = "<!DOCTYPE NETSCAPE-Bookmark-file-1>\n"
                              "<META HTTP-EQUIV=\"Content-Type\" CONTENT=\"text/html; charset=ISO-8859-1\">\n"
                              "<DL><p>\n<DT><A HREF=\"https://x.fr/\">Caf\xe9 cr\xe8me</A>\n</DL>";
const QByteArray hugeIcon = "<DT><A ICON=\"data:image/png;base64," + QByteArray(20 << 20, 'Q') +
                            "\" HREF=\"https://grosse-icone.fr/\">Grosse icône</A>\n</DL>";
const QByteArray looseMarkup =
    "<dt><a add_date=1700000000 href=https://a.fr/?x=1&amp;y=2 >  Un\n   titre  \n"
    "<dt><h3>D</h3><dl><p><dt><a href='https://b.fr'>B<dt><a href=\"https://c.fr\"></a>";

// clang-format off
INSTANTIATE_TEST_SUITE_P(Cases, HostileInput, testing::Values(
    //          name                       file                                                   recognized truncated deep  titles
    HostileCase{"Empty",                   {},                                                    false, false, false, {}},
    HostileCase{"OnlyAngleBrackets",       "<<<<>>><</<!<?",                                      false, false, false, {}},
    HostileCase{"PageWithoutList",         "<html><body><a href=\"https://x.org\">x</a></body>",  false, false, false, {}},
    HostileCase{"CutInsideAttribute",      firefoxCutAt("duckduckgo.com/?q"),                     true,  true,  false, {u"Obtenir de l’aide"_s, u"Café — Wikipédia"_s}},
    HostileCase{"CutInsideComment",        header + "<DT><A HREF=\"https://a.fr\">A</A>\n<!-- <DT><A HREF=\"https://b.fr\">",
                                                                                                  true,  true,  false, {u"A"_s}},
    HostileCase{"Nested10000Deep",         deeplyNested(10000),                                   true,  false, true,  {u"Profond"_s}},
    HostileCase{"HugeIcon",                header + hugeIcon,                                     true,  false, false, {u"Grosse icône"_s}},
    HostileCase{"InvalidUtf8",             header + "<DT><A HREF=\"https://x.fr/\xff\">caf\xe9 \xc3\x28</A>\n</DL>",
                                                                                                  true,  false, false, {u"caf\uFFFD \uFFFD("_s}},
    HostileCase{"Latin1Declared",          latin1File,                                            true,  false, false, {u"Café crème"_s}},
    HostileCase{"LowerCaseUnquotedAndUnclosed", header + looseMarkup,                             true,  true,  false, {u"Un titre"_s, u"B"_s, u"https://c.fr"_s}}),
    [](const testing::TestParamInfo<HostileCase> &info) { return std::string(info.param.name); });
// clang-format on

TEST(BookmarkImport, FolderHeadingsGiveTheCategory)
{
    const auto categoryOf = [](const QByteArray &folders, bool keepRoots) {
        const QByteArray file = "<!DOCTYPE NETSCAPE-Bookmark-file-1>\n<H1>Bookmarks</H1>\n<DL><p>\n" +
                                folders +
                                "<DL><p>\n<DT><A HREF=\"https://a.fr/\">A</A>\n</DL><p>\n</DL><p>\n";
        const ImportPlan plan = planBookmarkImport(file, sampleContext(), {.keepRoots = keepRoots});
        return plan.records.size() == 1 ? plan.records[0].category : u"(aucune fiche)"_s;
    };
    const struct
    {
        QByteArray folders;
        QString dropped;
        QString kept;
    } cases[] = {
        {"<DT><H3 PERSONAL_TOOLBAR_FOLDER=\"true\">Werkbalk</H3>\n", u"Sans catégorie"_s, u"Werkbalk"_s},
        {"<DT><H3 unfiled_bookmarks_folder=true>Andere</H3>\n", u"Sans catégorie"_s, u"Andere"_s},
        {"<DT><H3>OTHER BOOKMARKS</H3>\n", u"Sans catégorie"_s, u"OTHER BOOKMARKS"_s},
        {"<DT><H3>Voyages</H3>\n<DL><p>\n<DT><H3>Autres favoris</H3>\n", u"Voyages / Autres favoris"_s,
         u"Voyages / Autres favoris"_s},
        {"<DT><H3 PERSONAL_TOOLBAR_FOLDER=\"false\">Lectures</H3>\n", u"Lectures"_s, u"Lectures"_s},
        {"<DT><H3>TV / Radio</H3>\n", u"TV/Radio"_s, u"TV/Radio"_s},
        {"<DT><H3>  </H3>\n", u"Sans nom"_s, u"Sans nom"_s},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(categoryOf(c.folders, false), c.dropped) << c.folders.toStdString();
        EXPECT_EQ(categoryOf(c.folders, true), c.kept) << c.folders.toStdString();
    }
}

TEST(HtmlText, DecodesReferencesAndWhitespace)
{
    const struct
    {
        QByteArray html;
        Whitespace whitespace;
        QString text;
    } cases[] = {
        {"&amp;&lt;&gt;&quot;&#39;&#x27;&apos;", Whitespace::collapse, u"&<>\"'''"_s},
        {"a&copy=2&amp b&ampx", Whitespace::keep, u"a&copy=2& b&ampx"_s},
        {"&#0;&#1114112;&#xD800;&#99999999999999999999;", Whitespace::keep, u"\uFFFD\uFFFD\uFFFD\uFFFD"_s},
        {"&unknown; &eacute;t&eacute; &#x1F36E;", Whitespace::keep, u"&unknown; été 🍮"_s},
        {"  a \n\t b  &nbsp;x", Whitespace::collapse, u"a b \u00A0x"_s},
        {" l1 \r\nl2\rl3\n", Whitespace::keepLineBreaks, u"l1 \nl2\nl3"_s},
    };
    for (const auto &c : cases)
        EXPECT_EQ(decodeHtmlText(c.html, TextEncoding::utf8, c.whitespace), c.text) << c.html.toStdString();
}

} // namespace
} // namespace fiva::interchange
