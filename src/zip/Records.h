#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace fiva::zip {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;
// Yields the variable bytes that follow a record's fixed part: asked for a count, it may return fewer.
using VariableProvider = std::function<Bytes(std::size_t count)>;

// A record is built from exactly its fixed bytes plus the variable bytes that follow, and writes itself back.
template <class T>
concept DataSerializable = requires(const T record, ByteView fixed, const VariableProvider &provider)
{
    {
        T::size
        } -> std::convertible_to<std::size_t>;
    {
        T::make(fixed, provider)
        } -> std::same_as<std::optional<T>>;
    {
        record.data()
        } -> std::same_as<Bytes>;
};

inline constexpr std::uint32_t uint32Max = 0xFFFFFFFF;
inline constexpr std::uint16_t uint16Max = 0xFFFF;

std::uint16_t readUInt16(ByteView bytes, std::size_t offset);
std::uint32_t readUInt32(ByteView bytes, std::size_t offset);
std::uint64_t readUInt64(ByteView bytes, std::size_t offset);
void appendUInt16(Bytes &out, std::uint16_t value);
void appendUInt32(Bytes &out, std::uint32_t value);
void appendUInt64(Bytes &out, std::uint64_t value);

struct ZIP64ExtendedInformation
{
    static constexpr std::uint16_t headerIDValue = 0x0001;
    // Which values a ZIP64 block holds is decided by the record carrying it.
    enum Field : std::uint8_t {
        uncompressedSizeField = 1,
        compressedSizeField = 2,
        relativeOffsetOfLocalHeaderField = 4,
        diskNumberStartField = 8,
    };

    std::uint16_t headerID = headerIDValue;
    std::uint16_t dataSize = 0;
    std::uint64_t uncompressedSize = 0;
    std::uint64_t compressedSize = 0;
    std::uint64_t relativeOffsetOfLocalHeader = 0;
    std::uint32_t diskNumberStart = 0;

    // Finds the ZIP64 block among extra fields; a malformed walk or block gives none.
    static std::optional<ZIP64ExtendedInformation> scan(ByteView extra, unsigned presentFields);
    // Sizes are written if either is nonzero, then the offset and disk number if nonzero.
    Bytes data() const;
};

struct LocalFileHeader
{
    static constexpr std::uint32_t signature = 0x04034b50;
    static constexpr std::size_t size = 30;

    std::uint32_t localFileHeaderSignature = signature;
    std::uint16_t versionNeededToExtract = 0;
    std::uint16_t generalPurposeBitFlag = 0;
    std::uint16_t compressionMethod = 0;
    std::uint16_t lastModFileTime = 0;
    std::uint16_t lastModFileDate = 0;
    std::uint32_t crc32 = 0;
    std::uint32_t compressedSize = 0;
    std::uint32_t uncompressedSize = 0;
    std::uint16_t fileNameLength = 0;
    std::uint16_t extraFieldLength = 0;
    Bytes fileNameData;
    Bytes extraFieldData;
    std::optional<ZIP64ExtendedInformation> extraFields;

    static std::optional<LocalFileHeader> make(ByteView fixed, const VariableProvider &provider);
    Bytes data() const;
};

struct CentralDirectoryStructure
{
    static constexpr std::uint32_t signature = 0x02014b50;
    static constexpr std::size_t size = 46;

    std::uint32_t centralDirectorySignature = signature;
    std::uint16_t versionMadeBy = 0;
    std::uint16_t versionNeededToExtract = 0;
    std::uint16_t generalPurposeBitFlag = 0;
    std::uint16_t compressionMethod = 0;
    std::uint16_t lastModFileTime = 0;
    std::uint16_t lastModFileDate = 0;
    std::uint32_t crc32 = 0;
    std::uint32_t compressedSize = 0;
    std::uint32_t uncompressedSize = 0;
    std::uint16_t fileNameLength = 0;
    std::uint16_t extraFieldLength = 0;
    std::uint16_t fileCommentLength = 0;
    std::uint16_t diskNumberStart = 0;
    std::uint16_t internalFileAttributes = 0;
    std::uint32_t externalFileAttributes = 0;
    std::uint32_t relativeOffsetOfLocalHeader = 0;
    Bytes fileNameData;
    Bytes extraFieldData;
    Bytes fileCommentData;
    std::optional<ZIP64ExtendedInformation> extraFields;

    static std::optional<CentralDirectoryStructure> make(ByteView fixed, const VariableProvider &provider);
    Bytes data() const;
    std::size_t totalSize() const { return size + fileNameLength + extraFieldLength + fileCommentLength; }
};

// The signature is optional on disk; the two size fields are 4 bytes (plain) or 8 bytes (ZIP64) wide.
template <class SizeType> struct DataDescriptor
{
    static constexpr std::uint32_t signature = 0x08074b50;
    static constexpr std::size_t size = 8 + 2 * sizeof(SizeType);

    std::uint32_t dataDescriptorSignature = signature;
    std::uint32_t crc32 = 0;
    SizeType compressedSize = 0;
    SizeType uncompressedSize = 0;

    static std::optional<DataDescriptor> make(ByteView fixed, const VariableProvider &provider);
    Bytes data() const;
};

using ZIP32DataDescriptor = DataDescriptor<std::uint32_t>;
using ZIP64DataDescriptor = DataDescriptor<std::uint64_t>;

struct EndOfCentralDirectoryRecord
{
    static constexpr std::uint32_t signature = 0x06054b50;
    static constexpr std::size_t size = 22;

    std::uint32_t endOfCentralDirectorySignature = signature;
    std::uint16_t numberOfDisk = 0;
    std::uint16_t numberOfDiskStart = 0;
    std::uint16_t totalNumberOfEntriesOnDisk = 0;
    std::uint16_t totalNumberOfEntriesInCentralDirectory = 0;
    std::uint32_t sizeOfCentralDirectory = 0;
    std::uint32_t offsetToStartOfCentralDirectory = 0;
    std::uint16_t zipFileCommentLength = 0;
    Bytes zipFileCommentData;

    static std::optional<EndOfCentralDirectoryRecord> make(ByteView fixed, const VariableProvider &provider);
    Bytes data() const;
};

struct ZIP64EndOfCentralDirectoryRecord
{
    static constexpr std::uint32_t signature = 0x06064b50;
    static constexpr std::size_t size = 56;

    std::uint32_t zip64EOCDRecordSignature = signature;
    std::uint64_t sizeOfZIP64EndOfCentralDirectoryRecord = 44;
    std::uint16_t versionMadeBy = 789;
    std::uint16_t versionNeededToExtract = 45;
    std::uint32_t numberOfDisk = 0;
    std::uint32_t numberOfDiskStart = 0;
    std::uint64_t totalNumberOfEntriesOnDisk = 0;
    std::uint64_t totalNumberOfEntriesInCentralDirectory = 0;
    std::uint64_t sizeOfCentralDirectory = 0;
    std::uint64_t offsetToStartOfCentralDirectory = 0;
    Bytes zip64ExtensibleDataSector; // never read, always written empty

    static std::optional<ZIP64EndOfCentralDirectoryRecord> make(ByteView fixed,
                                                                const VariableProvider &provider);
    Bytes data() const;
};

struct ZIP64EndOfCentralDirectoryLocator
{
    static constexpr std::uint32_t signature = 0x07064b50;
    static constexpr std::size_t size = 20;

    std::uint32_t zip64EOCDLocatorSignature = signature;
    std::uint32_t numberOfDiskWithZIP64EOCDRecordStart = 0;
    std::uint64_t relativeOffsetOfZIP64EOCDRecord = 0;
    std::uint32_t totalNumberOfDisk = 1;

    static std::optional<ZIP64EndOfCentralDirectoryLocator> make(ByteView fixed,
                                                                 const VariableProvider &provider);
    Bytes data() const;
};

struct ZIP64EndOfCentralDirectory
{
    ZIP64EndOfCentralDirectoryRecord record;
    ZIP64EndOfCentralDirectoryLocator locator;
};

static_assert(DataSerializable<LocalFileHeader>);
static_assert(DataSerializable<CentralDirectoryStructure>);
static_assert(DataSerializable<ZIP32DataDescriptor>);
static_assert(DataSerializable<ZIP64DataDescriptor>);
static_assert(DataSerializable<EndOfCentralDirectoryRecord>);
static_assert(DataSerializable<ZIP64EndOfCentralDirectoryRecord>);
static_assert(DataSerializable<ZIP64EndOfCentralDirectoryLocator>);

} // namespace fiva::zip
