#pragma once

#include "zip/Entry.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace fiva::zip {

// Packs the folder, file or link at `at` into a new archive `to`, which must not exist. With
// `shouldKeepParent` the folder itself is the archive's top level (and its entry comes last).
void zipItem(const std::filesystem::path &at, const std::filesystem::path &to, bool shouldKeepParent = false,
             CompressionMethod compressionMethod = CompressionMethod::none);

// Unpacks the archive `at` into the folder `to`, in central-directory order. Every path is resolved beneath
// an open handle on `to`, through the links already unpacked: an entry that would land outside, by its text
// or on disk, fails with fileReadInvalidFileName; a link whose target leads out of its folder on disk fails
// with uncontainedSymlink unless allowed (and even then nothing is written through it). Folders get their
// permissions and dates after their content is written. Every entry's CRC-32 is checked unless skipped.
void unzipItem(const std::filesystem::path &at, const std::filesystem::path &to, bool skipCRC32 = false,
               bool allowUncontainedSymlinks = false,
               std::optional<PathEncoding> pathEncoding = std::nullopt);

// Resolves "." and ".." and folds empty components of an absolute path, keeping a trailing "/" when the
// path names a folder. Only text is looked at, never the disk.
std::string standardizedPath(std::string_view absolutePath);
// True when `target` lies inside `folder` (or is the folder itself), judged on standardized text.
bool isContained(std::string_view folder, std::string_view target);

} // namespace fiva::zip
