#include "zip/Errors.h"

#include <cstring>

namespace fiva::zip {

namespace {

template <std::size_t N> const char *nameAt(const char *const (&names)[N], std::size_t index)
{
    return index < N ? names[index] : "unknown";
}

} // namespace

const char *ArchiveError::caseName(Case c) noexcept
{
    static const char *const names[] = {
        "unreadableArchive",
        "unwritableArchive",
        "invalidEntryPath",
        "invalidCompressionMethod",
        "invalidCRC32",
        "cancelledOperation",
        "invalidBufferSize",
        "invalidEntrySize",
        "invalidLocalHeaderDataOffset",
        "invalidLocalHeaderSize",
        "invalidCentralDirectoryOffset",
        "invalidCentralDirectorySize",
        "invalidCentralDirectoryEntryCount",
        "missingEndOfCentralDirectoryRecord",
        "uncontainedSymlink",
    };
    return nameAt(names, c);
}

ArchiveError::ArchiveError(Case c) : ZipError(std::string("ArchiveError.") + caseName(c)), m_case(c) {}

const char *CompressionError::caseName(Case c) noexcept
{
    static const char *const names[] = {"invalidStream", "corruptedData"};
    return nameAt(names, c);
}

CompressionError::CompressionError(Case c)
    : ZipError(std::string("CompressionError.") + caseName(c)), m_case(c)
{
}

const char *DataError::caseName(Case c) noexcept
{
    static const char *const names[] = {"unreadableFile", "unwritableFile"};
    return nameAt(names, c);
}

DataError::DataError(Case c) : ZipError(std::string("DataError.") + caseName(c)), m_case(c) {}

const char *FileSystemError::caseName(Case c) noexcept
{
    static const char *const names[] = {
        "fileReadNoSuchFile",      "fileReadNoPermission", "fileReadTooLarge",
        "fileReadInvalidFileName", "fileWriteFileExists",  "posixError",
    };
    return nameAt(names, c);
}

namespace {

std::string describe(FileSystemError::Case c, int errorNumber, const std::filesystem::path &path)
{
    std::string text = std::string("FileSystemError.") + FileSystemError::caseName(c);
    if (errorNumber != 0)
        text += " (errno " + std::to_string(errorNumber) + ": " + std::strerror(errorNumber) + ")";
    text += ' ';
    text += path.string();
    return text;
}

} // namespace

FileSystemError::FileSystemError(Case c, int errorNumber, std::filesystem::path path)
    : ZipError(describe(c, errorNumber, path)), m_case(c), m_errno(errorNumber), m_path(std::move(path))
{
}

FileSystemError FileSystemError::fromErrno(int errorNumber, std::filesystem::path path)
{
    return {posixError, errorNumber, std::move(path)};
}

} // namespace fiva::zip
