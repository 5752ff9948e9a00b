#include "zip/Archive.h"

#include "zip/Errors.h"
#include "zip/FileCopy.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <limits>

namespace fiva::zip {

namespace {

constexpr std::uint16_t flagEncrypted = 1u << 0;
constexpr std::uint16_t flagDataDescriptor = 1u << 3;
// The central directory is read in blocks this large while walking, rather than record by record.
constexpr std::size_t directoryWindowSize = 256 * 1024;
constexpr std::size_t endRecordSearchBlock = 64 * 1024;

VariableProvider providerFrom(Bytes bytes)
{
    return [bytes = std::move(bytes)](std::size_t count) {
        return Bytes(bytes.begin(),
                     bytes.begin() + static_cast<std::ptrdiff_t>(std::min(count, bytes.size())));
    };
}

void createEmptyArchive(const std::filesystem::path &url)
{
    const int fd = ::open(url.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0) {
        const int error = errno;
        if (error == EEXIST)
            throw FileSystemError(FileSystemError::fileWriteFileExists, error, url);
        throw FileSystemError::fromErrno(error, url);
    }
    const Bytes record = EndOfCentralDirectoryRecord{}.data();
    const ssize_t written = ::write(fd, record.data(), record.size());
    const int writeError = errno;
    if (::close(fd) != 0 || written != static_cast<ssize_t>(record.size()))
        throw FileSystemError::fromErrno(written < 0 ? writeError : EIO, url);
}

} // namespace

Archive::Archive(std::filesystem::path url, AccessMode accessMode, std::optional<PathEncoding> pathEncoding)
    : m_url(std::move(url)), m_accessMode(accessMode), m_pathEncoding(pathEncoding)
{
    if (accessMode == AccessMode::create)
        createEmptyArchive(m_url);
    m_archiveFile = std::fopen(m_url.c_str(), accessMode == AccessMode::read ? "rbe" : "rb+e");
    if (!m_archiveFile)
        throw FileSystemError::fromErrno(errno, m_url);
    std::setvbuf(m_archiveFile, nullptr, _IOFBF, defaultReadChunkSize);
    if (!findEndRecords()) {
        std::fclose(m_archiveFile);
        m_archiveFile = nullptr;
        throw ArchiveError(ArchiveError::missingEndOfCentralDirectoryRecord);
    }
    if (accessMode != AccessMode::read)
        seek(0);
}

Archive::~Archive()
{
    if (m_archiveFile)
        std::fclose(m_archiveFile);
}

std::uint64_t Archive::fileLength()
{
    // A read-only archive never changes size; asking again would also throw away the stream's buffer.
    if (m_accessMode == AccessMode::read && m_readLength)
        return *m_readLength;
    if (fseeko(m_archiveFile, 0, SEEK_END) != 0)
        return 0;
    const off_t length = ftello(m_archiveFile);
    const std::uint64_t result = length < 0 ? 0 : static_cast<std::uint64_t>(length);
    if (m_accessMode == AccessMode::read)
        m_readLength = result;
    return result;
}

Bytes Archive::readAt(std::uint64_t offset, std::size_t count)
{
    if (offset > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max()) ||
        fseeko(m_archiveFile, static_cast<off_t>(offset), SEEK_SET) != 0)
        return {};
    Bytes bytes(count);
    const std::size_t got = std::fread(bytes.data(), 1, count, m_archiveFile);
    if (got != count) {
        std::clearerr(m_archiveFile);
        bytes.resize(got);
    }
    return bytes;
}

bool Archive::findEndRecords()
{
    const std::uint64_t length = fileLength();
    if (length < EndOfCentralDirectoryRecord::size)
        return false;
    // Backwards over the whole file, so a comment of any length is skipped; the nearest candidate to the
    // end is the only one tried.
    std::optional<std::uint64_t> candidate;
    std::uint64_t high = length - EndOfCentralDirectoryRecord::size;
    while (!candidate) {
        const std::uint64_t low = high >= endRecordSearchBlock ? high - endRecordSearchBlock + 1 : 0;
        const Bytes block = readAt(low, static_cast<std::size_t>(high - low + 4));
        if (block.size() != high - low + 4)
            return false;
        for (std::uint64_t p = high + 1; p-- > low;) {
            if (readUInt32(block, static_cast<std::size_t>(p - low)) ==
                EndOfCentralDirectoryRecord::signature) {
                candidate = p;
                break;
            }
        }
        if (!candidate) {
            if (low == 0)
                return false;
            high = low - 1;
        }
    }
    const std::uint64_t e = *candidate;
    const Bytes fixed = readAt(e, EndOfCentralDirectoryRecord::size);
    auto record = EndOfCentralDirectoryRecord::make(
        fixed, [&](std::size_t count) { return readAt(e + EndOfCentralDirectoryRecord::size, count); });
    if (!record)
        return false;
    m_endOfCentralDirectoryRecord = std::move(*record);
    m_endRecordOffset = e;
    m_zip64EndOfCentralDirectory.reset();

    const std::uint64_t locatorOffset = e - ZIP64EndOfCentralDirectoryLocator::size;
    if (e > ZIP64EndOfCentralDirectoryLocator::size &&
        locatorOffset > ZIP64EndOfCentralDirectoryRecord::size) {
        // The record is taken from where it must sit, directly before the locator, not from the locator.
        auto locator = ZIP64EndOfCentralDirectoryLocator::make(
            readAt(locatorOffset, ZIP64EndOfCentralDirectoryLocator::size), providerFrom({}));
        auto zip64Record = ZIP64EndOfCentralDirectoryRecord::make(
            readAt(locatorOffset - ZIP64EndOfCentralDirectoryRecord::size,
                   ZIP64EndOfCentralDirectoryRecord::size),
            providerFrom({}));
        if (locator && zip64Record && zip64Record->versionNeededToExtract >= 45)
            m_zip64EndOfCentralDirectory = ZIP64EndOfCentralDirectory{*zip64Record, *locator};
    }
    return true;
}

Archive::Totals Archive::totals() const
{
    if (m_deferring)
        return m_deferredTotals;
    if (m_zip64EndOfCentralDirectory) {
        const auto &r = m_zip64EndOfCentralDirectory->record;
        return {r.totalNumberOfEntriesInCentralDirectory, r.sizeOfCentralDirectory,
                r.offsetToStartOfCentralDirectory};
    }
    const auto &r = m_endOfCentralDirectoryRecord;
    return {r.totalNumberOfEntriesInCentralDirectory, r.sizeOfCentralDirectory,
            r.offsetToStartOfCentralDirectory};
}

Archive::Iterator::Iterator(Archive *archive) : m_archive(archive)
{
    const Totals totals = archive->totals();
    m_offset = totals.centralDirectoryOffset;
    m_count = totals.entryCount;
    advance();
}

Archive::Iterator &Archive::Iterator::operator++()
{
    advance();
    return *this;
}

Bytes Archive::Iterator::directoryBytes(std::uint64_t offset, std::size_t count)
{
    const bool inWindow = offset >= m_windowOffset && offset - m_windowOffset <= m_window.size() &&
                          m_window.size() - (offset - m_windowOffset) >= count;
    if (!inWindow) {
        m_window = m_archive->readAt(offset, std::max(count, directoryWindowSize));
        m_windowOffset = offset;
    }
    const std::size_t start = static_cast<std::size_t>(offset - m_windowOffset);
    const std::size_t available = std::min(count, m_window.size() - std::min(start, m_window.size()));
    const auto first = m_window.begin() + static_cast<std::ptrdiff_t>(std::min(start, m_window.size()));
    return Bytes(first, first + static_cast<std::ptrdiff_t>(available));
}

void Archive::Iterator::advance()
{
    m_current.reset();
    if (m_index >= m_count)
        return;
    auto structure = CentralDirectoryStructure::make(
        directoryBytes(m_offset, CentralDirectoryStructure::size),
        [&](std::size_t count) { return directoryBytes(m_offset + CentralDirectoryStructure::size, count); });
    if (!structure)
        return;
    Entry entry;
    entry.centralDirectoryStructure = std::move(*structure);
    const auto &cds = entry.centralDirectoryStructure;
    const std::uint64_t headerOffset = entry.localHeaderOffset();
    auto header =
        LocalFileHeader::make(m_archive->readAt(headerOffset, LocalFileHeader::size), [&](std::size_t n) {
            return m_archive->readAt(headerOffset + LocalFileHeader::size, n);
        });
    if (!header)
        return;
    entry.localFileHeader = std::move(*header);
    if (cds.generalPurposeBitFlag & flagDataDescriptor) {
        const std::uint64_t dataSize =
            cds.compressionMethod != 0 ? entry.effectiveCompressedSize() : entry.effectiveUncompressedSize();
        const std::uint64_t descriptorOffset = headerOffset + LocalFileHeader::size +
                                               entry.localFileHeader.fileNameLength +
                                               entry.localFileHeader.extraFieldLength + dataSize;
        if (entry.isZIP64()) {
            entry.zip64DataDescriptor = ZIP64DataDescriptor::make(
                m_archive->readAt(descriptorOffset, ZIP64DataDescriptor::size), providerFrom({}));
        } else {
            entry.dataDescriptor = ZIP32DataDescriptor::make(
                m_archive->readAt(descriptorOffset, ZIP32DataDescriptor::size), providerFrom({}));
        }
    }
    if (cds.generalPurposeBitFlag & flagEncrypted)
        return;
    m_offset += cds.totalSize();
    ++m_index;
    m_current = std::move(entry);
}

std::optional<Entry> Archive::operator[](std::string_view path)
{
    for (auto it = begin(); it != end(); ++it) {
        const std::string name = m_pathEncoding ? it->path(*m_pathEncoding) : it->path();
        if (name == path)
            return *it;
    }
    return std::nullopt;
}

std::uint32_t Archive::extract(const Entry &entry, const Consumer &consumer, std::size_t bufferSize,
                               bool skipCRC32)
{
    if (bufferSize < 1)
        throw ArchiveError(ArchiveError::invalidBufferSize);
    const std::uint64_t length = fileLength();
    const std::uint64_t dataOffset = entry.dataOffset();
    if (dataOffset > length || fseeko(m_archiveFile, static_cast<off_t>(dataOffset), SEEK_SET) != 0)
        throw DataError(DataError::unreadableFile);
    const std::uint64_t available = length - dataOffset;

    switch (entry.type()) {
    case EntryType::directory:
        consumer({});
        return 0;
    case EntryType::symlink: {
        // The central directory's size, not the local header's: streamed archives leave 0 there and ZIP64
        // ones 0xFFFFFFFF, and either would lose the link's target.
        const std::uint64_t size = entry.compressedSize();
        if (size > available)
            throw DataError(DataError::unreadableFile);
        Bytes target(static_cast<std::size_t>(size));
        if (std::fread(target.data(), 1, target.size(), m_archiveFile) != size)
            throw DataError(DataError::unreadableFile);
        const std::uint32_t checksum = crc32(target);
        consumer(target);
        return checksum;
    }
    case EntryType::file:
        break;
    }

    Bytes buffer(bufferSize);
    switch (entry.localFileHeader.compressionMethod) {
    case static_cast<std::uint16_t>(CompressionMethod::none): {
        const std::uint64_t size = entry.effectiveUncompressedSize();
        if (size == 0) {
            consumer({});
            return 0;
        }
        std::uint32_t checksum = 0;
        for (std::uint64_t position = 0; position < size;) {
            const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(size - position, bufferSize));
            if (std::fread(buffer.data(), 1, count, m_archiveFile) != count)
                throw DataError(DataError::unreadableFile);
            const ByteView chunk(buffer.data(), count);
            if (!skipCRC32)
                checksum = crc32(chunk, checksum);
            consumer(chunk);
            position += count;
        }
        return checksum;
    }
    case static_cast<std::uint16_t>(CompressionMethod::deflate): {
        auto provider = [&](std::uint64_t, std::size_t count) {
            const std::size_t got = std::fread(buffer.data(), 1, count, m_archiveFile);
            return ByteView(buffer.data(), got);
        };
        // The recorded uncompressed size is not checked: the stream's end decides. Whoever writes the output
        // bounds it by the room it has.
        return processDeflateStream(StreamDirection::decode, entry.effectiveCompressedSize(), bufferSize,
                                    skipCRC32, provider, consumer);
    }
    default:
        throw ArchiveError(ArchiveError::invalidCompressionMethod);
    }
}

std::optional<std::uint32_t> Archive::copyStoredData(const Entry &entry, int fd, bool skipCRC32)
{
    // Only a read-only archive has no bytes waiting in the stream's buffer that the file does not hold yet.
    if (m_accessMode != AccessMode::read || entry.type() != EntryType::file ||
        entry.localFileHeader.compressionMethod != static_cast<std::uint16_t>(CompressionMethod::none))
        return std::nullopt;
    const std::uint64_t size = entry.effectiveUncompressedSize();
    const std::uint64_t length = fileLength();
    const std::uint64_t dataOffset = entry.dataOffset();
    // An entry of one chunk usually sits in the stream's buffer already, read along with its local header.
    if (size <= defaultReadChunkSize || dataOffset > length || size > length - dataOffset)
        return std::nullopt;
    return copyFileRange(::fileno(m_archiveFile), dataOffset, size, fd, 0, skipCRC32);
}

} // namespace fiva::zip
