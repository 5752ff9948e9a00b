#include "zip/Archive.h"
#include "zip/Errors.h"
#include "zip/FileCopy.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <utility>

namespace fiva::zip {

namespace {

constexpr std::uint16_t versionMadeByUnix = 789; // host 3 (UNIX), version 2.1
constexpr std::uint16_t versionDefault = 20;
constexpr std::uint16_t versionZIP64 = 45;
constexpr std::uint16_t flagUTF8 = 1u << 11;
constexpr std::size_t storedFileChunkSize = 1024 * 1024;

// Flushes the archive stream however an addition ends.
class FlushGuard
{
public:
    explicit FlushGuard(std::FILE *file) : m_file(file) {}
    ~FlushGuard()
    {
        if (m_file)
            std::fflush(m_file);
    }
    void flushNow()
    {
        std::FILE *file = std::exchange(m_file, nullptr);
        if (file && std::fflush(file) != 0)
            throw DataError(DataError::unwritableFile);
    }
    FlushGuard(const FlushGuard &) = delete;
    FlushGuard &operator=(const FlushGuard &) = delete;

private:
    std::FILE *m_file;
};

LocalFileHeader makeLocalHeader(const Bytes &name, CompressionMethod method, DOSDateTime dos,
                                std::uint32_t crc, std::uint64_t compressedSize,
                                std::uint64_t uncompressedSize, bool zip64)
{
    LocalFileHeader h;
    h.versionNeededToExtract = zip64 ? versionZIP64 : versionDefault;
    // A name taken from the disk need not be UTF-8. Marking such bytes as UTF-8 would make every reader,
    // ours included, decode them to nothing; without the mark every reader decodes them alike, by code page
    // 437, and the entry unpacks under that name.
    h.generalPurposeBitFlag = isValidUTF8(name) ? flagUTF8 : 0;
    h.compressionMethod = static_cast<std::uint16_t>(method);
    h.lastModFileTime = dos.time;
    h.lastModFileDate = dos.date;
    h.crc32 = crc;
    h.fileNameLength = static_cast<std::uint16_t>(name.size());
    h.fileNameData = name;
    if (zip64) {
        h.compressedSize = uint32Max;
        h.uncompressedSize = uint32Max;
        ZIP64ExtendedInformation field;
        field.dataSize = 16;
        field.uncompressedSize = uncompressedSize;
        field.compressedSize = compressedSize;
        h.extraFields = field;
        h.extraFieldData = field.data();
    } else {
        h.compressedSize = static_cast<std::uint32_t>(compressedSize);
        h.uncompressedSize = static_cast<std::uint32_t>(uncompressedSize);
    }
    h.extraFieldLength = static_cast<std::uint16_t>(h.extraFieldData.size());
    return h;
}

CentralDirectoryStructure makeCentralDirectoryStructure(const LocalFileHeader &local, EntryType type,
                                                        std::optional<std::uint16_t> permissions,
                                                        std::uint64_t localHeaderOffset)
{
    CentralDirectoryStructure s;
    s.versionMadeBy = versionMadeByUnix;
    s.versionNeededToExtract = local.versionNeededToExtract;
    s.generalPurposeBitFlag = local.generalPurposeBitFlag;
    s.compressionMethod = local.compressionMethod;
    s.lastModFileTime = local.lastModFileTime;
    s.lastModFileDate = local.lastModFileDate;
    s.crc32 = local.crc32;
    s.compressedSize = local.compressedSize;
    s.uncompressedSize = local.uncompressedSize;
    s.fileNameLength = local.fileNameLength;
    s.fileNameData = local.fileNameData;

    const bool sizesInZIP64 = local.uncompressedSize == uint32Max && local.extraFields;
    const bool offsetInZIP64 = localHeaderOffset >= uint32Max;
    if (sizesInZIP64 || offsetInZIP64) {
        ZIP64ExtendedInformation field;
        if (sizesInZIP64) {
            field.uncompressedSize = local.extraFields->uncompressedSize;
            field.compressedSize = local.extraFields->compressedSize;
            field.dataSize += 16;
        }
        if (offsetInZIP64) {
            field.relativeOffsetOfLocalHeader = localHeaderOffset;
            field.dataSize += 8;
        }
        s.extraFields = field;
        s.extraFieldData = field.data();
        s.extraFieldLength = static_cast<std::uint16_t>(s.extraFieldData.size());
    }
    std::uint32_t typeBits = S_IFREG;
    std::uint16_t defaultPermissions = defaultFilePermissions;
    if (type == EntryType::directory) {
        typeBits = S_IFDIR;
        defaultPermissions = defaultDirectoryPermissions;
    } else if (type == EntryType::symlink) {
        typeBits = S_IFLNK;
    }
    const auto mode = static_cast<std::uint16_t>(typeBits | permissions.value_or(defaultPermissions));
    s.externalFileAttributes = static_cast<std::uint32_t>(mode) << 16;
    s.relativeOffsetOfLocalHeader = offsetInZIP64 ? uint32Max : static_cast<std::uint32_t>(localHeaderOffset);
    return s;
}

// Reads exactly `count` bytes unless the file ends first.
std::size_t readFully(int fd, std::uint8_t *buffer, std::size_t count)
{
    std::size_t done = 0;
    while (done < count) {
        const ssize_t n = ::read(fd, buffer + done, count - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        done += static_cast<std::size_t>(n);
    }
    return done;
}

class FileDescriptor
{
public:
    explicit FileDescriptor(int fd) : m_fd(fd) {}
    ~FileDescriptor()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    FileDescriptor(const FileDescriptor &) = delete;
    FileDescriptor &operator=(const FileDescriptor &) = delete;
    int get() const { return m_fd; }

private:
    int m_fd;
};

} // namespace

void Archive::seek(std::uint64_t offset)
{
    if (offset > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max()) ||
        fseeko(m_archiveFile, static_cast<off_t>(offset), SEEK_SET) != 0)
        throw DataError(DataError::unwritableFile);
}

void Archive::write(ByteView bytes)
{
    if (!bytes.empty() && std::fwrite(bytes.data(), 1, bytes.size(), m_archiveFile) != bytes.size())
        throw DataError(DataError::unwritableFile);
}

Bytes Archive::readCentralDirectory()
{
    const Totals t = totals();
    const std::uint64_t length = fileLength();
    if (t.centralDirectoryOffset > length || t.centralDirectorySize > length - t.centralDirectoryOffset)
        throw DataError(DataError::unreadableFile);
    Bytes directory = readAt(t.centralDirectoryOffset, static_cast<std::size_t>(t.centralDirectorySize));
    if (directory.size() != t.centralDirectorySize)
        throw DataError(DataError::unreadableFile);
    return directory;
}

void Archive::writeCentralDirectoryAndEndRecords(const Bytes &centralDirectory, const Totals &t)
{
    seek(t.centralDirectoryOffset);
    write(centralDirectory);
    const std::uint64_t endRecordsOffset = t.centralDirectoryOffset + centralDirectory.size();

    EndOfCentralDirectoryRecord record = m_endOfCentralDirectoryRecord;
    record.totalNumberOfEntriesOnDisk =
        static_cast<std::uint16_t>(std::min<std::uint64_t>(t.entryCount, uint16Max));
    record.totalNumberOfEntriesInCentralDirectory = record.totalNumberOfEntriesOnDisk;
    record.sizeOfCentralDirectory =
        static_cast<std::uint32_t>(std::min<std::uint64_t>(t.centralDirectorySize, uint32Max));
    record.offsetToStartOfCentralDirectory =
        static_cast<std::uint32_t>(std::min<std::uint64_t>(t.centralDirectoryOffset, uint32Max));
    const bool needsZIP64 = record.totalNumberOfEntriesOnDisk == uint16Max ||
                            record.sizeOfCentralDirectory == uint32Max ||
                            record.offsetToStartOfCentralDirectory == uint32Max;
    std::optional<ZIP64EndOfCentralDirectory> zip64 = m_zip64EndOfCentralDirectory;
    if (needsZIP64) {
        if (!zip64)
            zip64.emplace();
        zip64->record.totalNumberOfEntriesOnDisk = t.entryCount;
        zip64->record.totalNumberOfEntriesInCentralDirectory = t.entryCount;
        zip64->record.sizeOfCentralDirectory = t.centralDirectorySize;
        zip64->record.offsetToStartOfCentralDirectory = t.centralDirectoryOffset;
        zip64->locator.relativeOffsetOfZIP64EOCDRecord = endRecordsOffset;
        write(zip64->record.data());
        write(zip64->locator.data());
    } else {
        // Records that were not written again must not stay current: the totals would be read
        // from them, pointing at the central directory this addition just replaced.
        zip64.reset();
    }
    write(record.data());
    m_endOfCentralDirectoryRecord = std::move(record);
    m_zip64EndOfCentralDirectory = std::move(zip64);
    m_endRecordOffset = needsZIP64 ? endRecordsOffset + ZIP64EndOfCentralDirectoryRecord::size +
                                         ZIP64EndOfCentralDirectoryLocator::size
                                   : endRecordsOffset;
}

Archive::EntryStart Archive::startEntry(std::string_view path, EntryType type, std::uint64_t uncompressedSize,
                                        Date modificationDate, std::optional<std::uint16_t> permissions,
                                        CompressionMethod compressionMethod, std::size_t bufferSize)
{
    if (m_accessMode == AccessMode::read)
        throw ArchiveError(ArchiveError::unwritableArchive);
    // The name length field has 16 bits: refuse before anything is written.
    if (path.size() > uint16Max)
        throw ArchiveError(ArchiveError::invalidEntryPath);
    if (bufferSize < 1)
        throw ArchiveError(ArchiveError::invalidBufferSize);
    m_placed.reset();
    EntryStart start;
    start.name = Bytes(path.begin(), path.end());
    start.type = type;
    start.method = type == EntryType::file && compressionMethod == CompressionMethod::deflate
                       ? CompressionMethod::deflate
                       : CompressionMethod::none;
    start.dos = dosDateTime(modificationDate);
    start.permissions = permissions;
    start.uncompressedSize = uncompressedSize;
    // A deflated entry just below 4 GiB may come out larger than its input; its first header reserves the
    // ZIP64 field so that the final header, written over it, can never grow into the data.
    start.firstZIP64 = uncompressedSize >= uint32Max || (start.method == CompressionMethod::deflate &&
                                                         deflateBoundFor(uncompressedSize) >= uint32Max);
    start.previous = totals();
    if (!m_deferring)
        start.centralDirectory = readCentralDirectory();
    start.headerOffset = start.previous.centralDirectoryOffset;
    // While deferring, the stream already stands where the last entry ended; seeking anyway would flush the
    // buffer once per entry.
    if (!m_deferring || m_deferredPosition != start.headerOffset)
        seek(start.headerOffset);
    m_deferredPosition.reset();
    return start;
}

void Archive::completeEntry(EntryStart &start, const LocalFileHeader &header, std::uint64_t written,
                            bool streamAtEnd)
{
    const std::uint64_t endOfData = start.headerOffset + header.data().size() + written;
    CentralDirectoryStructure structure =
        makeCentralDirectoryStructure(header, start.type, start.permissions, start.headerOffset);
    const Totals &previous = start.previous;
    if (previous.centralDirectorySize > std::numeric_limits<std::uint64_t>::max() - structure.totalSize())
        throw ArchiveError(ArchiveError::invalidCentralDirectorySize);
    if (previous.entryCount == std::numeric_limits<std::uint64_t>::max())
        throw ArchiveError(ArchiveError::invalidCentralDirectoryEntryCount);
    const Totals next{previous.entryCount + 1, previous.centralDirectorySize + structure.totalSize(),
                      endOfData};
    const Bytes structureBytes = structure.data();
    if (m_deferring) {
        if (!streamAtEnd)
            seek(endOfData);
        m_deferredCentralDirectory.insert(m_deferredCentralDirectory.end(), structureBytes.begin(),
                                          structureBytes.end());
        m_deferredTotals = next;
        m_deferredPosition = endOfData;
    } else {
        start.centralDirectory.insert(start.centralDirectory.end(), structureBytes.begin(),
                                      structureBytes.end());
        writeCentralDirectoryAndEndRecords(start.centralDirectory, next);
    }
}

void Archive::addEntry(std::string_view path, EntryType type, std::uint64_t uncompressedSize,
                       Date modificationDate, std::optional<std::uint16_t> permissions,
                       CompressionMethod compressionMethod, std::size_t bufferSize, const Provider &provider)
{
    // A deferred addition leaves no complete archive behind, so it need not reach the disk one by one.
    FlushGuard flushGuard(m_deferring ? nullptr : m_archiveFile);
    EntryStart start = startEntry(path, type, uncompressedSize, modificationDate, permissions,
                                  compressionMethod, bufferSize);
    const CompressionMethod method = start.method;
    std::uint32_t checksum = 0;
    std::uint64_t written = 0;
    LocalFileHeader header;

    // Folders, links and stored files of one chunk ask the provider once; their data is known before the
    // header is written, so the final header goes out directly in place of the placeholder.
    const bool singleChunk =
        type != EntryType::file || (method == CompressionMethod::none && uncompressedSize <= bufferSize);
    if (singleChunk) {
        ByteView data;
        if (type != EntryType::directory && uncompressedSize > 0 && provider)
            data = provider(0, static_cast<std::size_t>(uncompressedSize));
        data = data.first(std::min<std::size_t>(data.size(), uncompressedSize));
        checksum = crc32(data);
        written = data.size();
        header = makeLocalHeader(start.name, method, start.dos, checksum, written, uncompressedSize,
                                 start.firstZIP64);
        write(header.data());
        write(data);
    } else {
        const Bytes first =
            makeLocalHeader(start.name, method, start.dos, 0, 0, uncompressedSize, start.firstZIP64).data();
        write(first);
        if (method == CompressionMethod::none) {
            for (std::uint64_t position = 0; position < uncompressedSize; position += bufferSize) {
                const auto count = static_cast<std::size_t>(
                    std::min<std::uint64_t>(uncompressedSize - position, bufferSize));
                ByteView chunk = provider(position, count);
                chunk = chunk.first(std::min(chunk.size(), count));
                checksum = crc32(chunk, checksum);
                write(chunk);
                written += chunk.size();
            }
        } else {
            checksum = processDeflateStream(StreamDirection::encode, uncompressedSize, bufferSize, false,
                                            provider, [&](ByteView chunk) {
                                                write(chunk);
                                                written += chunk.size();
                                            });
        }
        const bool secondZIP64 = start.firstZIP64 || uncompressedSize >= uint32Max || written >= uint32Max;
        header =
            makeLocalHeader(start.name, method, start.dos, checksum, written, uncompressedSize, secondZIP64);
        const Bytes second = header.data();
        if (second.size() != first.size())
            throw ArchiveError(ArchiveError::invalidLocalHeaderSize);
        seek(start.headerOffset);
        write(second);
    }
    completeEntry(start, header, written, singleChunk);
    flushGuard.flushNow();
}

std::uint64_t Archive::beginPlacedEntry(std::string_view path, std::uint64_t size, Date modificationDate,
                                        std::uint16_t permissions)
{
    EntryStart start = startEntry(path, EntryType::file, size, modificationDate, permissions,
                                  CompressionMethod::none, defaultWriteChunkSize);
    const Bytes first =
        makeLocalHeader(start.name, CompressionMethod::none, start.dos, 0, 0, size, start.firstZIP64).data();
    write(first);
    // What the stream holds goes out first; the data is then written beside it at explicit offsets.
    if (std::fflush(m_archiveFile) != 0)
        throw DataError(DataError::unwritableFile);
    const std::uint64_t dataOffset = start.headerOffset + first.size();
    m_placed = PlacedEntry{std::move(start), first.size()};
    return dataOffset;
}

int Archive::placedFile() const
{
    return ::fileno(m_archiveFile);
}

void Archive::finishPlacedEntry(std::uint32_t checksum)
{
    if (!m_placed)
        throw ArchiveError(ArchiveError::unwritableArchive);
    FlushGuard flushGuard(m_deferring ? nullptr : m_archiveFile);
    PlacedEntry placed = std::move(*m_placed);
    m_placed.reset();
    EntryStart &start = placed.start;
    const std::uint64_t size = start.uncompressedSize;
    const LocalFileHeader header = makeLocalHeader(start.name, CompressionMethod::none, start.dos, checksum,
                                                   size, size, start.firstZIP64 || size >= uint32Max);
    const Bytes second = header.data();
    if (second.size() != placed.headerSize)
        throw ArchiveError(ArchiveError::invalidLocalHeaderSize);
    seek(start.headerOffset);
    write(second);
    completeEntry(start, header, size, false);
    flushGuard.flushNow();
}

void Archive::beginDeferringCentralDirectory()
{
    if (m_accessMode == AccessMode::read)
        throw ArchiveError(ArchiveError::unwritableArchive);
    if (m_deferring)
        return;
    m_deferredCentralDirectory = readCentralDirectory();
    m_deferredTotals = totals();
    m_deferring = true;
}

void Archive::writeDeferredCentralDirectory()
{
    if (!m_deferring)
        return;
    FlushGuard flushGuard(m_archiveFile);
    m_deferring = false;
    m_deferredPosition.reset();
    const Bytes directory = std::move(m_deferredCentralDirectory);
    m_deferredCentralDirectory.clear();
    writeCentralDirectoryAndEndRecords(directory, m_deferredTotals);
    flushGuard.flushNow();
}

void Archive::addEntry(std::string_view path, const std::filesystem::path &relativeTo,
                       CompressionMethod compressionMethod, std::size_t bufferSize)
{
    // Appended as text: a path beginning with "/" must still land below the base folder.
    addEntryFromFileURL(path, std::filesystem::path(relativeTo.native() + "/" + std::string(path)),
                        compressionMethod, bufferSize);
}

void Archive::addEntryFromFile(std::string_view path, int file, const std::filesystem::path &shown,
                               CompressionMethod compressionMethod, std::size_t bufferSize)
{
    if (bufferSize < 1)
        throw ArchiveError(ArchiveError::invalidBufferSize);
    struct stat status
    {
    };
    if (::fstat(file, &status) != 0)
        throw FileSystemError::fromErrno(errno, shown);
    if (!S_ISREG(status.st_mode))
        throw FileSystemError::fromErrno(ENOTSUP, shown);
    if (status.st_size < 0)
        throw FileSystemError(FileSystemError::fileReadTooLarge, 0, shown);
    const Date modificationDate{std::chrono::duration_cast<Date::duration>(
        std::chrono::seconds(status.st_mtim.tv_sec) + std::chrono::nanoseconds(status.st_mtim.tv_nsec))};
    const auto size = static_cast<std::uint64_t>(status.st_size);
    const auto permissions = static_cast<std::uint16_t>(status.st_mode & 0xFFFF);
    // Stored bytes come out exactly as they go in, however they are cut, so a stored file moves in large
    // chunks: one read and one write for most files, and no second header written over the first; a larger
    // one is copied by the kernel from the open file. Deflated data keeps the chunking it was asked for.
    const bool stored = compressionMethod == CompressionMethod::none;
    const std::size_t chunkSize = stored ? std::max(bufferSize, storedFileChunkSize) : bufferSize;
    // Only a file read in several pieces gains from the kernel reading ahead further.
    if (size > chunkSize)
        ::posix_fadvise(file, 0, 0, POSIX_FADV_SEQUENTIAL);
    if (stored && size > chunkSize) {
        const std::uint64_t offset = beginPlacedEntry(path, size, modificationDate, permissions);
        finishPlacedEntry(copyFileRange(file, 0, size, placedFile(), offset, false));
        return;
    }
    std::size_t capacity =
        static_cast<std::size_t>(std::min<std::uint64_t>(chunkSize, std::max<std::uint64_t>(size, 1)));
    auto buffer = std::make_unique_for_overwrite<std::uint8_t[]>(capacity);
    auto provider = [&](std::uint64_t, std::size_t count) {
        if (capacity < count) {
            buffer = std::make_unique_for_overwrite<std::uint8_t[]>(count);
            capacity = count;
        }
        // A file that shrinks while it is packed would leave an entry shorter than its header says.
        if (readFully(file, buffer.get(), count) != count)
            throw DataError(DataError::unreadableFile);
        return ByteView(buffer.get(), count);
    };
    addEntry(path, EntryType::file, size, modificationDate, permissions, compressionMethod, chunkSize,
             provider);
}

void Archive::addEntryFromFileURL(std::string_view path, const std::filesystem::path &fileURL,
                                  CompressionMethod compressionMethod, std::size_t bufferSize)
{
    struct stat status
    {
    };
    if (::lstat(fileURL.c_str(), &status) != 0)
        throw FileSystemError(FileSystemError::fileReadNoSuchFile, errno, fileURL);
    // A FIFO would block the read forever and a device would never end; sockets cannot be read at all. An
    // archive only holds files, folders and links, so anything else stops the packing at once.
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode) && !S_ISLNK(status.st_mode))
        throw FileSystemError::fromErrno(ENOTSUP, fileURL);
    EntryType type = EntryType::file;
    if (S_ISDIR(status.st_mode))
        type = EntryType::directory;
    else if (S_ISLNK(status.st_mode))
        type = EntryType::symlink;
    // A file's own open says whether it may be read, without a second walk of its path.
    if (type == EntryType::directory && ::access(fileURL.c_str(), R_OK) != 0)
        throw FileSystemError(FileSystemError::fileReadNoPermission, errno, fileURL);
    if (status.st_size < 0)
        throw FileSystemError(FileSystemError::fileReadTooLarge, 0, fileURL);
    const Date modificationDate{std::chrono::duration_cast<Date::duration>(
        std::chrono::seconds(status.st_mtim.tv_sec) + std::chrono::nanoseconds(status.st_mtim.tv_nsec))};
    const std::uint64_t size = type == EntryType::directory ? 0 : static_cast<std::uint64_t>(status.st_size);
    const auto permissions = static_cast<std::uint16_t>(status.st_mode & 0xFFFF);

    switch (type) {
    case EntryType::file: {
        // Not blocking and not following: what was checked above may have been swapped for a FIFO or a link.
        FileDescriptor file(::open(fileURL.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
        if (file.get() < 0) {
            const int error = errno;
            if (error == EACCES || error == EPERM)
                throw FileSystemError(FileSystemError::fileReadNoPermission, error, fileURL);
            throw FileSystemError::fromErrno(error, fileURL);
        }
        addEntryFromFile(path, file.get(), fileURL, compressionMethod, bufferSize);
        break;
    }
    case EntryType::directory: {
        std::string folderPath(path);
        if (folderPath.empty() || folderPath.back() != '/')
            folderPath += '/';
        addEntry(folderPath, type, 0, modificationDate, permissions, compressionMethod, bufferSize, {});
        break;
    }
    case EntryType::symlink: {
        Bytes target(size + 1);
        const ssize_t n = ::readlink(fileURL.c_str(), reinterpret_cast<char *>(target.data()), target.size());
        if (n < 0)
            throw FileSystemError::fromErrno(errno, fileURL);
        target.resize(static_cast<std::size_t>(n));
        auto provider = [&](std::uint64_t, std::size_t count) {
            return ByteView(target.data(), std::min(count, target.size()));
        };
        addEntry(path, type, size, modificationDate, permissions, compressionMethod, bufferSize, provider);
        break;
    }
    }
}

} // namespace fiva::zip
