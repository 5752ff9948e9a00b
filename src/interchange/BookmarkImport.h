#pragma once

#include "interchange/NotesConversion.h"
#include "model/LinkItem.h"
#include "model/Timestamp.h"

#include <QByteArrayView>
#include <QString>
#include <QStringList>

#include <array>
#include <functional>

namespace fiva::interchange {

// What a bookmark file holds that does not become a record.
enum class SkippedKind {
    bookmarklet, // javascript: addresses
    placeQuery,  // place: queries, the browser's smart folders
    separator,   // <HR>
    emptyFolder, // a folder with no link anywhere beneath it
    unsupported, // no address, or one only the browser can open (about:, data:, chrome:…)
};
inline constexpr int skippedKindCount = 5;

// French label of a kind, for counts shown to the user.
QString skippedKindLabel(SkippedKind kind);

struct ImportOptions
{
    // Keep the browser's own top folders (bookmarks bar, other bookmarks, menu) as categories.
    bool keepRoots = false;
    // Import links whose address is already a record's path or came earlier in the file.
    bool allowDuplicates = false;
};

struct ImportContext
{
    QStringList existingPaths;
    QStringList existingCategories;
    // Creation date of records whose ADD_DATE is missing or not a plausible date.
    Timestamp importTime;
    // Plain text to stored notes; when null the text is stored as it is.
    NotesConversion notesFromPlainText = nullptr;
    // Whether a local path is a folder; when empty, the file system is asked.
    std::function<bool(const QString &path)> isDirectory;
    // Told how far the reading has come, at most once per progressStep bytes and once at the end, so
    // that a long import can show a progress bar.
    std::function<void(qint64 bytesRead, qint64 bytesTotal)> progress;
};

inline constexpr qint64 progressStep = 1 << 20;

struct ImportPlan
{
    QList<LinkItem> records;
    // Categories the records need that the caller does not have yet, ancestors included, sorted.
    QStringList newCategories;
    int duplicatesSkipped = 0;
    std::array<int, skippedKindCount> skipped{};

    // The file had no list of bookmarks at all: it is not a bookmark file.
    bool recognized = false;
    // The file ended inside a tag or an open folder: it was probably cut short.
    bool truncated = false;
    // Folders nested deeper than maxFolderDepth were merged into their ancestor at that depth.
    bool depthLimited = false;

    int skippedCount(SkippedKind kind) const { return skipped[std::size_t(kind)]; }
    int skippedTotal() const;
    // "Éléments ignorés : N", with the count of each kind after it when there are any.
    QString skippedSummary() const;
    // French sentences for a file that is not, or not wholly, a bookmark file; empty when all is well.
    QStringList problems() const;
};

inline constexpr int maxFolderDepth = 64;

inline const QString uncategorized = QStringLiteral("Sans catégorie");
// Browsers' tags come in as the notes' last line, after this, separated by ", ".
inline const QString keywordsLinePrefix = QStringLiteral("Mots-clés : ");

// Reads a NETSCAPE-Bookmark-file-1 document (what browsers export) and works out what importing it
// would add, without changing anything. Any bytes are accepted; the worst is an empty plan.
ImportPlan planBookmarkImport(QByteArrayView file, const ImportContext &context,
                              const ImportOptions &options = {});

// The context for importing into these records and categories: their paths and category names.
ImportContext importContextFor(const QList<LinkItem> &items, const QStringList &categories);

} // namespace fiva::interchange
