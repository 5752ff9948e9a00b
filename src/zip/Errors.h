#pragma once

#include <cstdint>
#include <exception>
#include <filesystem>
#include <string>

namespace fiva::zip {

// Base of every failure the ZIP library throws; `what()` names the case exactly as callers match it.
class ZipError : public std::exception
{
public:
    const char *what() const noexcept override { return m_description.c_str(); }
    const std::string &description() const noexcept { return m_description; }

protected:
    explicit ZipError(std::string description) : m_description(std::move(description)) {}

private:
    std::string m_description;
};

class ArchiveError final : public ZipError
{
public:
    enum Case : std::uint8_t {
        unreadableArchive,
        unwritableArchive,
        invalidEntryPath,
        invalidCompressionMethod,
        invalidCRC32,
        cancelledOperation,
        invalidBufferSize,
        invalidEntrySize,
        invalidLocalHeaderDataOffset,
        invalidLocalHeaderSize,
        invalidCentralDirectoryOffset,
        invalidCentralDirectorySize,
        invalidCentralDirectoryEntryCount,
        missingEndOfCentralDirectoryRecord,
        uncontainedSymlink,
    };
    explicit ArchiveError(Case c);
    Case errorCase() const noexcept { return m_case; }
    static const char *caseName(Case c) noexcept;

private:
    Case m_case;
};

class CompressionError final : public ZipError
{
public:
    enum Case : std::uint8_t { invalidStream, corruptedData };
    explicit CompressionError(Case c);
    Case errorCase() const noexcept { return m_case; }
    static const char *caseName(Case c) noexcept;

private:
    Case m_case;
};

class DataError final : public ZipError
{
public:
    enum Case : std::uint8_t { unreadableFile, unwritableFile };
    explicit DataError(Case c);
    Case errorCase() const noexcept { return m_case; }
    static const char *caseName(Case c) noexcept;

private:
    Case m_case;
};

// A failure of the file system: one of the named conditions, or `posixError` for a bare errno.
class FileSystemError final : public ZipError
{
public:
    enum Case : std::uint8_t {
        fileReadNoSuchFile,
        fileReadNoPermission,
        fileReadTooLarge,
        fileReadInvalidFileName,
        fileWriteFileExists,
        posixError,
    };
    FileSystemError(Case c, int errorNumber, std::filesystem::path path);
    // The operating system's error of an errno, carrying the path concerned.
    static FileSystemError fromErrno(int errorNumber, std::filesystem::path path);

    Case errorCase() const noexcept { return m_case; }
    int errorNumber() const noexcept { return m_errno; }
    const std::filesystem::path &path() const noexcept { return m_path; }
    static const char *caseName(Case c) noexcept;

private:
    Case m_case;
    int m_errno;
    std::filesystem::path m_path;
};

} // namespace fiva::zip
