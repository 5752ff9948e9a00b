#include "zip/Entry.h"

#include "text/Utf8.h"

#include <sys/stat.h>

#include <cmath>
#include <ctime>

namespace fiva::zip {

namespace {

constexpr std::uint16_t flagDataDescriptor = 1u << 3;
constexpr std::uint16_t flagUTF8 = 1u << 11;

// Code points of IBM PC code page 437 for bytes 0x80-0xFF; the lower half is ASCII.
constexpr char16_t codePage437High[128] = {
    0x00C7, 0x00FC, 0x00E9, 0x00E2, 0x00E4, 0x00E0, 0x00E5, 0x00E7, // 80
    0x00EA, 0x00EB, 0x00E8, 0x00EF, 0x00EE, 0x00EC, 0x00C4, 0x00C5, // 88
    0x00C9, 0x00E6, 0x00C6, 0x00F4, 0x00F6, 0x00F2, 0x00FB, 0x00F9, // 90
    0x00FF, 0x00D6, 0x00DC, 0x00A2, 0x00A3, 0x00A5, 0x20A7, 0x0192, // 98
    0x00E1, 0x00ED, 0x00F3, 0x00FA, 0x00F1, 0x00D1, 0x00AA, 0x00BA, // A0
    0x00BF, 0x2310, 0x00AC, 0x00BD, 0x00BC, 0x00A1, 0x00AB, 0x00BB, // A8
    0x2591, 0x2592, 0x2593, 0x2502, 0x2524, 0x2561, 0x2562, 0x2556, // B0
    0x2555, 0x2563, 0x2551, 0x2557, 0x255D, 0x255C, 0x255B, 0x2510, // B8
    0x2514, 0x2534, 0x252C, 0x251C, 0x2500, 0x253C, 0x255E, 0x255F, // C0
    0x255A, 0x2554, 0x2569, 0x2566, 0x2560, 0x2550, 0x256C, 0x2567, // C8
    0x2568, 0x2564, 0x2565, 0x2559, 0x2558, 0x2552, 0x2553, 0x256B, // D0
    0x256A, 0x2518, 0x250C, 0x2588, 0x2584, 0x258C, 0x2590, 0x2580, // D8
    0x03B1, 0x00DF, 0x0393, 0x03C0, 0x03A3, 0x03C3, 0x00B5, 0x03C4, // E0
    0x03A6, 0x0398, 0x03A9, 0x03B4, 0x221E, 0x03C6, 0x03B5, 0x2229, // E8
    0x2261, 0x00B1, 0x2265, 0x2264, 0x2320, 0x2321, 0x00F7, 0x2248, // F0
    0x00B0, 0x2219, 0x00B7, 0x221A, 0x207F, 0x00B2, 0x25A0, 0x00A0, // F8
};

} // namespace

bool isValidUTF8(ByteView bytes)
{
    std::size_t i = 0;
    const std::size_t n = bytes.size();
    while (i < n) {
        const std::uint8_t b = bytes[i];
        if (b < 0x80) {
            ++i;
            continue;
        }
        std::size_t length;
        std::uint8_t low = 0x80, high = 0xBF; // bounds of the second byte, excluding overlongs and surrogates
        if (b >= 0xC2 && b <= 0xDF) {
            length = 2;
        } else if (b >= 0xE0 && b <= 0xEF) {
            length = 3;
            if (b == 0xE0)
                low = 0xA0;
            if (b == 0xED)
                high = 0x9F;
        } else if (b >= 0xF0 && b <= 0xF4) {
            length = 4;
            if (b == 0xF0)
                low = 0x90;
            if (b == 0xF4)
                high = 0x8F;
        } else {
            return false;
        }
        if (n - i < length || bytes[i + 1] < low || bytes[i + 1] > high)
            return false;
        for (std::size_t k = 2; k < length; ++k) {
            if ((bytes[i + k] & 0xC0) != 0x80)
                return false;
        }
        i += length;
    }
    return true;
}

std::string decodePath(ByteView bytes, PathEncoding encoding)
{
    if (encoding == PathEncoding::utf8) {
        if (!isValidUTF8(bytes))
            return {};
        return std::string(bytes.begin(), bytes.end());
    }
    std::string out;
    out.reserve(bytes.size());
    for (std::uint8_t b : bytes)
        appendUtf8(out, b < 0x80 ? char32_t{b} : char32_t{codePage437High[b - 0x80]});
    return out;
}

std::string Entry::path() const
{
    const bool utf8 = centralDirectoryStructure.generalPurposeBitFlag & flagUTF8;
    return path(utf8 ? PathEncoding::utf8 : PathEncoding::codePage437);
}

std::string Entry::path(PathEncoding encoding) const
{
    return decodePath(centralDirectoryStructure.fileNameData, encoding);
}

EntryType Entry::type() const
{
    const auto &cds = centralDirectoryStructure;
    const unsigned host = cds.versionMadeBy >> 8;
    const std::string name = path();
    const bool endsWithSlash = !name.empty() && name.back() == '/';
    if (host == 3 || host == 19) {
        switch ((cds.externalFileAttributes >> 16) & S_IFMT) {
        case S_IFREG:
            return EntryType::file;
        case S_IFDIR:
            return EntryType::directory;
        case S_IFLNK:
            return EntryType::symlink;
        default:
            return endsWithSlash ? EntryType::directory : EntryType::file;
        }
    }
    if (host == 0 && (cds.externalFileAttributes & 0xFFFFFFF0u) == 0x10)
        return EntryType::directory;
    return endsWithSlash ? EntryType::directory : EntryType::file;
}

std::uint32_t Entry::checksum() const
{
    if (!(centralDirectoryStructure.generalPurposeBitFlag & flagDataDescriptor))
        return centralDirectoryStructure.crc32;
    if (zip64DataDescriptor)
        return zip64DataDescriptor->crc32;
    if (dataDescriptor)
        return dataDescriptor->crc32;
    return 0;
}

bool Entry::isZIP64() const
{
    return (centralDirectoryStructure.versionNeededToExtract & 0xFF) >= 45 ||
           centralDirectoryStructure.extraFields.has_value();
}

std::uint64_t Entry::localHeaderOffset() const
{
    const auto &cds = centralDirectoryStructure;
    if (isZIP64() && cds.extraFields && cds.relativeOffsetOfLocalHeader == uint32Max)
        return cds.extraFields->relativeOffsetOfLocalHeader;
    return cds.relativeOffsetOfLocalHeader;
}

std::uint64_t Entry::effectiveCompressedSize() const
{
    const auto &cds = centralDirectoryStructure;
    if (isZIP64() && cds.extraFields && cds.compressedSize == uint32Max)
        return cds.extraFields->compressedSize;
    return cds.compressedSize;
}

std::uint64_t Entry::effectiveUncompressedSize() const
{
    const auto &cds = centralDirectoryStructure;
    if (isZIP64() && cds.extraFields && cds.uncompressedSize == uint32Max)
        return cds.extraFields->uncompressedSize;
    return cds.uncompressedSize;
}

std::uint64_t Entry::compressedSize() const
{
    if (isZIP64() && zip64DataDescriptor)
        return zip64DataDescriptor->compressedSize;
    if (!isZIP64() && dataDescriptor)
        return dataDescriptor->compressedSize;
    return effectiveCompressedSize();
}

std::uint64_t Entry::uncompressedSize() const
{
    if (isZIP64() && zip64DataDescriptor)
        return zip64DataDescriptor->uncompressedSize;
    if (!isZIP64() && dataDescriptor)
        return dataDescriptor->uncompressedSize;
    return effectiveUncompressedSize();
}

std::uint64_t Entry::dataOffset() const
{
    return localHeaderOffset() + LocalFileHeader::size + localFileHeader.fileNameLength +
           localFileHeader.extraFieldLength;
}

FileAttributes Entry::fileAttributes() const
{
    const auto &cds = centralDirectoryStructure;
    FileAttributes attributes;
    attributes.posixPermissions =
        type() == EntryType::directory ? defaultDirectoryPermissions : defaultFilePermissions;
    const unsigned host = cds.versionMadeBy >> 8;
    if (host == 3 || host == 19) {
        const auto permissions = static_cast<std::uint16_t>((cds.externalFileAttributes >> 16) & 07777);
        if (permissions != 0)
            attributes.posixPermissions = permissions;
    }
    attributes.modificationDate = dateFromDOS(cds.lastModFileDate, cds.lastModFileTime);
    return attributes;
}

std::uint64_t totalUnitCountForReading(const Entry &entry)
{
    return entry.type() == EntryType::directory ? 1 : entry.uncompressedSize();
}

DOSDateTime dosDateTime(Date date)
{
    const double seconds = std::chrono::duration<double>(date.time_since_epoch()).count();
    if (!std::isfinite(seconds) || std::fabs(seconds) > 1e15)
        return {};
    const auto whole = static_cast<std::time_t>(std::trunc(seconds));
    std::tm parts{};
    if (!gmtime_r(&whole, &parts))
        return {};
    int year = parts.tm_year + 1900;
    year = year < 1980 ? 1980 : (year > 2099 ? 2099 : year);
    DOSDateTime result;
    result.date =
        static_cast<std::uint16_t>(((year - 1980) << 9) | ((parts.tm_mon + 1) << 5) | parts.tm_mday);
    result.time =
        static_cast<std::uint16_t>((parts.tm_hour << 11) | (parts.tm_min << 5) | (parts.tm_sec / 2));
    return result;
}

Date dateFromDOS(std::uint16_t date, std::uint16_t time)
{
    std::tm parts{};
    parts.tm_sec = (time & 31) * 2;
    parts.tm_min = (time >> 5) & 63;
    parts.tm_hour = (time >> 11) & 31;
    parts.tm_mday = date & 31;
    parts.tm_mon = ((date >> 5) & 15) - 1;
    parts.tm_year = 1980 + (date >> 9) - 1900;
    return std::chrono::system_clock::from_time_t(timegm(&parts));
}

} // namespace fiva::zip
