#pragma once

#include "zip/DeflateStream.h"
#include "zip/Entry.h"
#include "zip/Records.h"

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace fiva::zip {

class ConfinedFolder;

// A ZIP file on disk, opened to read its entries or to add new ones. Not copyable; the stream closes with it.
class Archive final
{
public:
    enum class AccessMode : int { create = 0, read = 1, update = 2 };

    // Opens (read, update) or creates (create) the archive; throws on failure.
    Archive(std::filesystem::path url, AccessMode accessMode,
            std::optional<PathEncoding> pathEncoding = std::nullopt);
    ~Archive();
    Archive(const Archive &) = delete;
    Archive &operator=(const Archive &) = delete;

    const std::filesystem::path &url() const { return m_url; }
    AccessMode accessMode() const { return m_accessMode; }
    std::optional<PathEncoding> pathEncoding() const { return m_pathEncoding; }
    const EndOfCentralDirectoryRecord &endOfCentralDirectoryRecord() const
    {
        return m_endOfCentralDirectoryRecord;
    }
    const std::optional<ZIP64EndOfCentralDirectory> &zip64EndOfCentralDirectory() const
    {
        return m_zip64EndOfCentralDirectory;
    }

    struct Sentinel
    {
    };
    // Walks the central directory, re-reading the records from the file; stops silently at the first
    // unreadable record or encrypted entry.
    class Iterator
    {
    public:
        using value_type = Entry;
        using difference_type = std::ptrdiff_t;

        Iterator() = default;
        explicit Iterator(Archive *archive);
        const Entry &operator*() const { return *m_current; }
        const Entry *operator->() const { return &*m_current; }
        Iterator &operator++();
        void operator++(int) { ++*this; }
        bool operator==(Sentinel) const { return !m_current.has_value(); }

    private:
        void advance();
        // Bytes at [offset, offset + count) out of a window of the central directory read in large blocks.
        Bytes directoryBytes(std::uint64_t offset, std::size_t count);

        Archive *m_archive = nullptr;
        std::uint64_t m_offset = 0;
        std::uint64_t m_index = 0;
        std::uint64_t m_count = 0;
        std::optional<Entry> m_current;
        Bytes m_window;
        std::uint64_t m_windowOffset = 0;
    };
    Iterator begin() { return Iterator(this); }
    Sentinel end() const { return {}; }

    // The first entry whose decoded path equals `path`.
    std::optional<Entry> operator[](std::string_view path);

    // Feeds the entry's uncompressed bytes to `consumer` and returns the CRC-32 of what it produced (0 for a
    // directory, and 0 for file data with `skipCRC32`). Never compares it: that is the caller's job.
    std::uint32_t extract(const Entry &entry, const Consumer &consumer,
                          std::size_t bufferSize = defaultReadChunkSize, bool skipCRC32 = false);

    // Creates the item of one entry at `url` (parent folders included) and returns the CRC-32 of what it
    // extracted; the caller compares it. Links whose target leaves their folder are refused unless allowed.
    // `knownFolders`, when given, remembers the folders already made so that unpacking many entries does not
    // look each parent up again.
    using FolderCache = std::unordered_set<std::string>;
    std::uint32_t extract(const Entry &entry, const std::filesystem::path &url,
                          std::size_t bufferSize = defaultReadChunkSize, bool skipCRC32 = false,
                          bool allowUncontainedSymlinks = false, FolderCache *knownFolders = nullptr);

    // Creates the item of one entry at `relative` beneath `root`, which it never leaves, and returns the
    // CRC-32 of what it extracted. Errors carry `shown`. A folder's permissions and date go to
    // `pendingFolders` when given, for the caller to set once the folder's content is written
    // (setPendingFolders); else at once.
    struct PendingFolder
    {
        std::string relative;
        std::filesystem::path shown;
        FileAttributes attributes;
    };
    std::uint32_t extract(const Entry &entry, const ConfinedFolder &root, std::string_view relative,
                          const std::filesystem::path &shown, std::size_t bufferSize, bool skipCRC32,
                          bool allowUncontainedSymlinks, std::vector<PendingFolder> *pendingFolders);

    // Adds the item at relativeTo/path from the file system.
    void addEntry(std::string_view path, const std::filesystem::path &relativeTo,
                  CompressionMethod compressionMethod = CompressionMethod::none,
                  std::size_t bufferSize = defaultWriteChunkSize);
    // Adds the item at `fileURL`, stored under `path`: its type, size, date and permissions come from lstat.
    void addEntryFromFileURL(std::string_view path, const std::filesystem::path &fileURL,
                             CompressionMethod compressionMethod = CompressionMethod::none,
                             std::size_t bufferSize = defaultWriteChunkSize);
    // Adds the regular file open for reading as `file`, stored under `path`, read from its start: its size,
    // date and permissions come from fstat, exactly as addEntryFromFileURL takes them from lstat. `shown`
    // names the file in errors.
    void addEntryFromFile(std::string_view path, int file, const std::filesystem::path &shown,
                          CompressionMethod compressionMethod = CompressionMethod::none,
                          std::size_t bufferSize = defaultWriteChunkSize);

    // A stored file entry of `size` bytes that the caller writes itself, in any order and from any thread,
    // into placedFile() from the returned offset on, with pwrite: the archive's own stream is left where it
    // is. finishPlacedEntry, given the CRC-32 of those bytes, completes the entry; nothing else is added in
    // between. The entry's bytes are those addEntry would write for the same data.
    std::uint64_t beginPlacedEntry(std::string_view path, std::uint64_t size, Date modificationDate,
                                   std::uint16_t permissions);
    int placedFile() const;
    void finishPlacedEntry(std::uint32_t checksum);
    // The core addition: `provider` yields the entry's bytes; the archive is complete again afterwards.
    void addEntry(std::string_view path, EntryType type, std::uint64_t uncompressedSize,
                  Date modificationDate = std::chrono::system_clock::now(),
                  std::optional<std::uint16_t> permissions = std::nullopt,
                  CompressionMethod compressionMethod = CompressionMethod::none,
                  std::size_t bufferSize = defaultWriteChunkSize, const Provider &provider = {});

    // Packing a folder adds thousands of entries; rewriting the directory after each is quadratic. Between
    // these two calls additions only append their local headers and data, and the directory and end records
    // are written once at the end: the file then holds exactly the bytes of adding the entries one by one.
    void beginDeferringCentralDirectory();
    void writeDeferredCentralDirectory();

private:
    struct Totals
    {
        std::uint64_t entryCount = 0;
        std::uint64_t centralDirectorySize = 0;
        std::uint64_t centralDirectoryOffset = 0;
    };
    Totals totals() const;
    std::uint64_t fileLength();
    // Reads up to `count` bytes at `offset`; fewer on a short read or an error.
    Bytes readAt(std::uint64_t offset, std::size_t count);
    bool findEndRecords();
    void seek(std::uint64_t offset);
    void write(ByteView bytes);
    Bytes readCentralDirectory();
    // Copies a stored file entry's data straight from the archive file to the start of the new file `fd` and
    // returns its CRC-32 (0 with `skipCRC32`); nothing when the entry is small, not stored, or runs past the
    // end of the archive, which then take the chunked path of `extract` with its errors.
    std::optional<std::uint32_t> copyStoredData(const Entry &entry, int fd, bool skipCRC32);
    void writeCentralDirectoryAndEndRecords(const Bytes &centralDirectory, const Totals &totals);

    // An addition from its checks to its directory record: startEntry checks and places the stream where
    // the local header goes, completeEntry records the entry once its final header and data are written.
    struct EntryStart
    {
        Bytes name;
        EntryType type = EntryType::file;
        CompressionMethod method = CompressionMethod::none;
        DOSDateTime dos;
        std::optional<std::uint16_t> permissions;
        std::uint64_t uncompressedSize = 0;
        bool firstZIP64 = false;
        Totals previous;
        Bytes centralDirectory;
        std::uint64_t headerOffset = 0;
    };
    EntryStart startEntry(std::string_view path, EntryType type, std::uint64_t uncompressedSize,
                          Date modificationDate, std::optional<std::uint16_t> permissions,
                          CompressionMethod compressionMethod, std::size_t bufferSize);
    // `streamAtEnd` says whether the stream already stands at the end of the entry's data.
    void completeEntry(EntryStart &start, const LocalFileHeader &header, std::uint64_t written,
                       bool streamAtEnd);

    std::filesystem::path m_url;
    AccessMode m_accessMode;
    std::optional<PathEncoding> m_pathEncoding;
    std::FILE *m_archiveFile = nullptr;
    EndOfCentralDirectoryRecord m_endOfCentralDirectoryRecord;
    std::optional<ZIP64EndOfCentralDirectory> m_zip64EndOfCentralDirectory;
    std::uint64_t m_endRecordOffset = 0;
    std::optional<std::uint64_t> m_readLength;

    bool m_deferring = false;
    Bytes m_deferredCentralDirectory;
    Totals m_deferredTotals;
    std::optional<std::uint64_t> m_deferredPosition;

    struct PlacedEntry
    {
        EntryStart start;
        std::size_t headerSize = 0;
    };
    std::optional<PlacedEntry> m_placed;
};

} // namespace fiva::zip
