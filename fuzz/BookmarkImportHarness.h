#pragma once

#include "interchange/BookmarkExport.h"
#include "interchange/BookmarkImport.h"

#include <QByteArrayView>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

// What the fuzz target runs on one input; tests/interchange replays every corpus file through it too.
namespace fiva::interchange::fuzz {

// Imports any bytes, writes what came in back out and imports that again: every record must survive
// the trip. Returns what went wrong, or nothing.
inline std::optional<std::string> importExportImport(const std::uint8_t *data, std::size_t size)
{
    ImportContext context;
    context.importTime = Timestamp::fromUnix(1732000000);
    context.isDirectory = [](const QString &) { return false; };
    const ImportOptions options{.keepRoots = true, .allowDuplicates = true};

    const ImportPlan plan = planBookmarkImport(
        QByteArrayView(reinterpret_cast<const char *>(data), qsizetype(size)), context, options);
    if (!plan.recognized && !plan.records.isEmpty())
        return "records from a file that was not recognized";
    for (const LinkItem &item : plan.records) {
        if (item.path.isEmpty() || item.title.isEmpty() || item.category.isEmpty())
            return "a record without path, title or category: " + item.path.toStdString();
    }
    const QByteArray html = writeBookmarkFile(plan.records, plan.newCategories, nullptr);
    const ImportPlan again = planBookmarkImport(html, context, options);
    if (again.records.size() != plan.records.size())
        return "the export of " + std::to_string(plan.records.size()) + " records imports as " +
               std::to_string(again.records.size());
    if (!again.problems().isEmpty() && !plan.depthLimited)
        return "the export reads as damaged: " + again.problems().join(u' ').toStdString();
    return std::nullopt;
}

} // namespace fiva::interchange::fuzz
