// Importing and exporting a browser bookmark file of 50,000 links, shaped like a long-lived
// Firefox or Chromium export: nested folders, favicons inlined as data URIs, descriptions, tags,
// separators and bookmarklets, and a store that already holds 10,000 records to check duplicates against.
#include "interchange/BookmarkExport.h"
#include "interchange/BookmarkImport.h"

#include <QRandomGenerator>

#include <benchmark/benchmark.h>

namespace {

using namespace fiva;
using namespace fiva::interchange;

const QByteArray icon = "data:image/png;base64," + QByteArray(1200, 'A');

QByteArray generatedFile(int links)
{
    QRandomGenerator random(42);
    const char *words[] = {"Recette",  "Café",    "Développement", "Actualités", "Vacances",
                           "Économie", "Musique", "Santé",         "Qt",         "Bibliothèque",
                           "Montagne", "Été",     "Forum",         "Cinéma"};
    const auto word = [&] { return QByteArray(words[random.bounded(int(std::size(words)))]); };

    QByteArray html =
        "<!DOCTYPE NETSCAPE-Bookmark-file-1>\n"
        "<META HTTP-EQUIV=\"Content-Type\" CONTENT=\"text/html; charset=UTF-8\">\n"
        "<TITLE>Bookmarks</TITLE>\n<H1>Menu des marque-pages</H1>\n<DL><p>\n"
        "<DT><H3 ADD_DATE=\"1600000000\" PERSONAL_TOOLBAR_FOLDER=\"true\">Barre personnelle</H3>\n"
        "<DL><p>\n";
    html.reserve(qsizetype(links) * 400);
    int depth = 1;
    for (int i = 0; i < links; ++i) {
        // About 25 links a folder, down to five levels, and back up now and then.
        if (i % 25 == 0) {
            if (depth > 1 && random.bounded(3) == 0) {
                html += "</DL><p>\n";
                --depth;
            } else if (depth < 6) {
                html += "<DT><H3 ADD_DATE=\"1600000000\" LAST_MODIFIED=\"1700000000\">" + word() + " &amp; " +
                        word() + ' ' + QByteArray::number(i) + "</H3>\n<DL><p>\n";
                ++depth;
            }
        }
        const QByteArray date = QByteArray::number(1500000000 + random.bounded(200000000));
        if (i % 500 == 0)
            html += "<HR>\n<DT><A HREF=\"javascript:alert(1)\">Bookmarklet</A>\n";
        html += "<DT><A HREF=\"https://www.example-" + QByteArray::number(i % 997) + ".fr/" + word() +
                "/page-" + QByteArray::number(i) + "?q=1&amp;r=" + QByteArray::number(i) + "\" ADD_DATE=\"" +
                date + "\" LAST_MODIFIED=\"" + date + '"';
        if (i % 3 == 0)
            html += " ICON=\"" + icon + '"';
        if (i % 7 == 0)
            html += " TAGS=\"" + word() + ',' + word() + '"';
        html += '>' + word() + " — " + word() + " n&#176;" + QByteArray::number(i) + "</A>\n";
        if (i % 5 == 0)
            html += "<DD>" + word() + " et " + word() + " &lt;à lire&gt;\n";
    }
    for (; depth > 0; --depth)
        html += "</DL><p>\n";
    return html + "</DL>\n";
}

ImportContext context()
{
    ImportContext context;
    for (int i = 0; i < 10000; ++i)
        context.existingPaths << QStringLiteral("https://deja.example.org/fiche/%1").arg(i);
    context.existingCategories = {QStringLiteral("Sans catégorie")};
    context.importTime = Timestamp::fromUnix(1732000000);
    context.notesFromPlainText = [](const QString &text) -> QString { return QStringLiteral("<p>") + text; };
    return context;
}

void importBookmarks(benchmark::State &state)
{
    const QByteArray file = generatedFile(int(state.range(0)));
    const ImportContext ctx = context();
    int records = 0;
    for (auto _ : state) {
        const ImportPlan plan = planBookmarkImport(file, ctx);
        records = int(plan.records.size());
        benchmark::DoNotOptimize(plan);
    }
    state.counters["records"] = records;
    state.counters["MB"] = double(file.size()) / 1e6;
}

void exportBookmarks(benchmark::State &state)
{
    const ImportContext ctx = context();
    const ImportPlan plan = planBookmarkImport(generatedFile(int(state.range(0))), ctx);
    for (auto _ : state)
        benchmark::DoNotOptimize(writeBookmarkFile(plan.records, plan.newCategories, nullptr));
}

} // namespace

BENCHMARK(importBookmarks)->Arg(50000)->Unit(benchmark::kMillisecond);
BENCHMARK(exportBookmarks)->Arg(50000)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
