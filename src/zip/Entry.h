#pragma once

#include "zip/Records.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace fiva::zip {

inline constexpr std::size_t defaultReadChunkSize = 16384;
inline constexpr std::size_t defaultWriteChunkSize = 16384;
inline constexpr std::uint16_t defaultFilePermissions = 0644;
inline constexpr std::uint16_t defaultDirectoryPermissions = 0755;

enum class EntryType : int { file = 0, directory = 1, symlink = 2 };

enum class CompressionMethod : std::uint16_t { none = 0, deflate = 8 };

// Text encodings an archive's entry names can be decoded with.
enum class PathEncoding { utf8, codePage437 };

using Date = std::chrono::system_clock::time_point;

struct FileAttributes
{
    std::uint16_t posixPermissions = 0;
    Date modificationDate;
};

// Decodes name bytes; invalid bytes give the empty text. The result is UTF-8.
std::string decodePath(ByteView bytes, PathEncoding encoding);
bool isValidUTF8(ByteView bytes);

struct Entry
{
    CentralDirectoryStructure centralDirectoryStructure;
    LocalFileHeader localFileHeader;
    std::optional<ZIP32DataDescriptor> dataDescriptor;
    std::optional<ZIP64DataDescriptor> zip64DataDescriptor;

    // UTF-8 when bit 11 of the flag is set, code page 437 otherwise.
    std::string path() const;
    std::string path(PathEncoding encoding) const;
    EntryType type() const;
    std::uint32_t checksum() const;
    std::uint64_t compressedSize() const;
    std::uint64_t uncompressedSize() const;
    bool isCompressed() const { return localFileHeader.compressionMethod != 0; }
    FileAttributes fileAttributes() const;

    bool isZIP64() const;
    std::uint64_t localHeaderOffset() const;
    // Sizes and offset from the central directory, taken from its ZIP64 field wherever the 32-bit field says
    // 0xFFFFFFFF, even when the wide value is 0: Info-ZIP's `-fz` writes exactly that for empty files and for
    // the entry at offset 0, and falling back to 0xFFFFFFFF there would misread them.
    std::uint64_t effectiveCompressedSize() const;
    std::uint64_t effectiveUncompressedSize() const;
    std::uint64_t dataOffset() const;
};

// The progress units of reading an entry: 1 for a directory, else its uncompressed size.
std::uint64_t totalUnitCountForReading(const Entry &entry);

// MS-DOS date and time, both ways, in UTC.
struct DOSDateTime
{
    std::uint16_t date = 0;
    std::uint16_t time = 0;
};
DOSDateTime dosDateTime(Date date);
Date dateFromDOS(std::uint16_t date, std::uint16_t time);

} // namespace fiva::zip
