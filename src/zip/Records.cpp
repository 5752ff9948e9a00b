#include "zip/Records.h"

namespace fiva::zip {

std::uint16_t readUInt16(ByteView bytes, std::size_t offset)
{
    return static_cast<std::uint16_t>(bytes[offset] | (bytes[offset + 1] << 8));
}

std::uint32_t readUInt32(ByteView bytes, std::size_t offset)
{
    return static_cast<std::uint32_t>(bytes[offset]) | (static_cast<std::uint32_t>(bytes[offset + 1]) << 8) |
           (static_cast<std::uint32_t>(bytes[offset + 2]) << 16) |
           (static_cast<std::uint32_t>(bytes[offset + 3]) << 24);
}

std::uint64_t readUInt64(ByteView bytes, std::size_t offset)
{
    return static_cast<std::uint64_t>(readUInt32(bytes, offset)) |
           (static_cast<std::uint64_t>(readUInt32(bytes, offset + 4)) << 32);
}

void appendUInt16(Bytes &out, std::uint16_t value)
{
    out.push_back(static_cast<std::uint8_t>(value));
    out.push_back(static_cast<std::uint8_t>(value >> 8));
}

void appendUInt32(Bytes &out, std::uint32_t value)
{
    for (int shift = 0; shift < 32; shift += 8)
        out.push_back(static_cast<std::uint8_t>(value >> shift));
}

void appendUInt64(Bytes &out, std::uint64_t value)
{
    for (int shift = 0; shift < 64; shift += 8)
        out.push_back(static_cast<std::uint8_t>(value >> shift));
}

namespace {

void appendBytes(Bytes &out, const Bytes &bytes)
{
    out.insert(out.end(), bytes.begin(), bytes.end());
}

std::optional<ZIP64ExtendedInformation> makeZIP64Block(ByteView block, unsigned present)
{
    using Z = ZIP64ExtendedInformation;
    std::size_t expected = 4;
    expected += (present & Z::uncompressedSizeField) ? 8 : 0;
    expected += (present & Z::compressedSizeField) ? 8 : 0;
    expected += (present & Z::relativeOffsetOfLocalHeaderField) ? 8 : 0;
    expected += (present & Z::diskNumberStartField) ? 4 : 0;
    if (block.size() != expected)
        return std::nullopt;
    Z field;
    field.headerID = readUInt16(block, 0);
    field.dataSize = readUInt16(block, 2);
    std::size_t offset = 4;
    if (present & Z::uncompressedSizeField) {
        field.uncompressedSize = readUInt64(block, offset);
        offset += 8;
    }
    if (present & Z::compressedSizeField) {
        field.compressedSize = readUInt64(block, offset);
        offset += 8;
    }
    if (present & Z::relativeOffsetOfLocalHeaderField) {
        field.relativeOffsetOfLocalHeader = readUInt64(block, offset);
        offset += 8;
    }
    if (present & Z::diskNumberStartField)
        field.diskNumberStart = readUInt32(block, offset);
    return field;
}

} // namespace

std::optional<ZIP64ExtendedInformation> ZIP64ExtendedInformation::scan(ByteView extra, unsigned presentFields)
{
    if (extra.size() <= 4)
        return std::nullopt;
    std::size_t offset = 0;
    while (offset < extra.size() - 4) {
        const std::uint16_t id = readUInt16(extra, offset);
        const std::uint16_t blockDataSize = readUInt16(extra, offset + 2);
        const std::size_t end = offset + 4 + blockDataSize;
        if (end > extra.size())
            return std::nullopt;
        if (id == headerIDValue)
            return makeZIP64Block(extra.subspan(offset, end - offset), presentFields);
        offset = end;
    }
    return std::nullopt;
}

Bytes ZIP64ExtendedInformation::data() const
{
    Bytes out;
    appendUInt16(out, headerID);
    appendUInt16(out, dataSize);
    if (uncompressedSize != 0 || compressedSize != 0) {
        appendUInt64(out, uncompressedSize);
        appendUInt64(out, compressedSize);
    }
    if (relativeOffsetOfLocalHeader != 0)
        appendUInt64(out, relativeOffsetOfLocalHeader);
    if (diskNumberStart != 0)
        appendUInt32(out, diskNumberStart);
    return out;
}

std::optional<LocalFileHeader> LocalFileHeader::make(ByteView fixed, const VariableProvider &provider)
{
    if (fixed.size() != size || readUInt32(fixed, 0) != signature)
        return std::nullopt;
    LocalFileHeader h;
    h.versionNeededToExtract = readUInt16(fixed, 4);
    h.generalPurposeBitFlag = readUInt16(fixed, 6);
    h.compressionMethod = readUInt16(fixed, 8);
    h.lastModFileTime = readUInt16(fixed, 10);
    h.lastModFileDate = readUInt16(fixed, 12);
    h.crc32 = readUInt32(fixed, 14);
    h.compressedSize = readUInt32(fixed, 18);
    h.uncompressedSize = readUInt32(fixed, 22);
    h.fileNameLength = readUInt16(fixed, 26);
    h.extraFieldLength = readUInt16(fixed, 28);
    const std::size_t variableSize = std::size_t{h.fileNameLength} + h.extraFieldLength;
    Bytes variable = variableSize ? provider(variableSize) : Bytes{};
    if (variable.size() != variableSize)
        return std::nullopt;
    h.fileNameData.assign(variable.begin(), variable.begin() + h.fileNameLength);
    h.extraFieldData.assign(variable.begin() + h.fileNameLength, variable.end());
    unsigned present = 0;
    if (h.uncompressedSize == uint32Max)
        present |= ZIP64ExtendedInformation::uncompressedSizeField;
    if (h.compressedSize == uint32Max)
        present |= ZIP64ExtendedInformation::compressedSizeField;
    h.extraFields = ZIP64ExtendedInformation::scan(h.extraFieldData, present);
    return h;
}

Bytes LocalFileHeader::data() const
{
    Bytes out;
    out.reserve(size + fileNameData.size() + extraFieldData.size());
    appendUInt32(out, localFileHeaderSignature);
    appendUInt16(out, versionNeededToExtract);
    appendUInt16(out, generalPurposeBitFlag);
    appendUInt16(out, compressionMethod);
    appendUInt16(out, lastModFileTime);
    appendUInt16(out, lastModFileDate);
    appendUInt32(out, crc32);
    appendUInt32(out, compressedSize);
    appendUInt32(out, uncompressedSize);
    appendUInt16(out, fileNameLength);
    appendUInt16(out, extraFieldLength);
    appendBytes(out, fileNameData);
    appendBytes(out, extraFieldData);
    return out;
}

std::optional<CentralDirectoryStructure> CentralDirectoryStructure::make(ByteView fixed,
                                                                         const VariableProvider &provider)
{
    if (fixed.size() != size || readUInt32(fixed, 0) != signature)
        return std::nullopt;
    CentralDirectoryStructure s;
    s.versionMadeBy = readUInt16(fixed, 4);
    s.versionNeededToExtract = readUInt16(fixed, 6);
    s.generalPurposeBitFlag = readUInt16(fixed, 8);
    s.compressionMethod = readUInt16(fixed, 10);
    s.lastModFileTime = readUInt16(fixed, 12);
    s.lastModFileDate = readUInt16(fixed, 14);
    s.crc32 = readUInt32(fixed, 16);
    s.compressedSize = readUInt32(fixed, 20);
    s.uncompressedSize = readUInt32(fixed, 24);
    s.fileNameLength = readUInt16(fixed, 28);
    s.extraFieldLength = readUInt16(fixed, 30);
    s.fileCommentLength = readUInt16(fixed, 32);
    s.diskNumberStart = readUInt16(fixed, 34);
    s.internalFileAttributes = readUInt16(fixed, 36);
    s.externalFileAttributes = readUInt32(fixed, 38);
    s.relativeOffsetOfLocalHeader = readUInt32(fixed, 42);
    const std::size_t variableSize = std::size_t{s.fileNameLength} + s.extraFieldLength + s.fileCommentLength;
    Bytes variable = variableSize ? provider(variableSize) : Bytes{};
    if (variable.size() != variableSize)
        return std::nullopt;
    auto it = variable.begin();
    s.fileNameData.assign(it, it + s.fileNameLength);
    it += s.fileNameLength;
    s.extraFieldData.assign(it, it + s.extraFieldLength);
    it += s.extraFieldLength;
    s.fileCommentData.assign(it, variable.end());
    unsigned present = 0;
    if (s.uncompressedSize == uint32Max)
        present |= ZIP64ExtendedInformation::uncompressedSizeField;
    if (s.compressedSize == uint32Max)
        present |= ZIP64ExtendedInformation::compressedSizeField;
    if (s.relativeOffsetOfLocalHeader == uint32Max)
        present |= ZIP64ExtendedInformation::relativeOffsetOfLocalHeaderField;
    if (s.diskNumberStart == uint16Max)
        present |= ZIP64ExtendedInformation::diskNumberStartField;
    s.extraFields = ZIP64ExtendedInformation::scan(s.extraFieldData, present);
    return s;
}

Bytes CentralDirectoryStructure::data() const
{
    Bytes out;
    out.reserve(totalSize());
    appendUInt32(out, centralDirectorySignature);
    appendUInt16(out, versionMadeBy);
    appendUInt16(out, versionNeededToExtract);
    appendUInt16(out, generalPurposeBitFlag);
    appendUInt16(out, compressionMethod);
    appendUInt16(out, lastModFileTime);
    appendUInt16(out, lastModFileDate);
    appendUInt32(out, crc32);
    appendUInt32(out, compressedSize);
    appendUInt32(out, uncompressedSize);
    appendUInt16(out, fileNameLength);
    appendUInt16(out, extraFieldLength);
    appendUInt16(out, fileCommentLength);
    appendUInt16(out, diskNumberStart);
    appendUInt16(out, internalFileAttributes);
    appendUInt32(out, externalFileAttributes);
    appendUInt32(out, relativeOffsetOfLocalHeader);
    appendBytes(out, fileNameData);
    appendBytes(out, extraFieldData);
    appendBytes(out, fileCommentData);
    return out;
}

template <class SizeType>
std::optional<DataDescriptor<SizeType>> DataDescriptor<SizeType>::make(ByteView fixed,
                                                                       const VariableProvider &)
{
    if (fixed.size() != size)
        return std::nullopt;
    DataDescriptor d;
    std::size_t offset = readUInt32(fixed, 0) == signature ? 4 : 0;
    d.crc32 = readUInt32(fixed, offset);
    offset += 4;
    if constexpr (sizeof(SizeType) == 8) {
        d.compressedSize = readUInt64(fixed, offset);
        d.uncompressedSize = readUInt64(fixed, offset + 8);
    } else {
        d.compressedSize = readUInt32(fixed, offset);
        d.uncompressedSize = readUInt32(fixed, offset + 4);
    }
    return d;
}

template <class SizeType> Bytes DataDescriptor<SizeType>::data() const
{
    Bytes out;
    appendUInt32(out, dataDescriptorSignature);
    appendUInt32(out, crc32);
    if constexpr (sizeof(SizeType) == 8) {
        appendUInt64(out, compressedSize);
        appendUInt64(out, uncompressedSize);
    } else {
        appendUInt32(out, compressedSize);
        appendUInt32(out, uncompressedSize);
    }
    return out;
}

template struct DataDescriptor<std::uint32_t>;
template struct DataDescriptor<std::uint64_t>;

std::optional<EndOfCentralDirectoryRecord> EndOfCentralDirectoryRecord::make(ByteView fixed,
                                                                             const VariableProvider &provider)
{
    if (fixed.size() != size || readUInt32(fixed, 0) != signature)
        return std::nullopt;
    EndOfCentralDirectoryRecord r;
    r.numberOfDisk = readUInt16(fixed, 4);
    r.numberOfDiskStart = readUInt16(fixed, 6);
    r.totalNumberOfEntriesOnDisk = readUInt16(fixed, 8);
    r.totalNumberOfEntriesInCentralDirectory = readUInt16(fixed, 10);
    r.sizeOfCentralDirectory = readUInt32(fixed, 12);
    r.offsetToStartOfCentralDirectory = readUInt32(fixed, 16);
    r.zipFileCommentLength = readUInt16(fixed, 20);
    if (r.zipFileCommentLength) {
        r.zipFileCommentData = provider(r.zipFileCommentLength);
        if (r.zipFileCommentData.size() != r.zipFileCommentLength)
            return std::nullopt;
    }
    return r;
}

Bytes EndOfCentralDirectoryRecord::data() const
{
    Bytes out;
    out.reserve(size + zipFileCommentData.size());
    appendUInt32(out, endOfCentralDirectorySignature);
    appendUInt16(out, numberOfDisk);
    appendUInt16(out, numberOfDiskStart);
    appendUInt16(out, totalNumberOfEntriesOnDisk);
    appendUInt16(out, totalNumberOfEntriesInCentralDirectory);
    appendUInt32(out, sizeOfCentralDirectory);
    appendUInt32(out, offsetToStartOfCentralDirectory);
    appendUInt16(out, zipFileCommentLength);
    appendBytes(out, zipFileCommentData);
    return out;
}

std::optional<ZIP64EndOfCentralDirectoryRecord>
ZIP64EndOfCentralDirectoryRecord::make(ByteView fixed, const VariableProvider &)
{
    if (fixed.size() != size || readUInt32(fixed, 0) != signature)
        return std::nullopt;
    ZIP64EndOfCentralDirectoryRecord r;
    r.sizeOfZIP64EndOfCentralDirectoryRecord = readUInt64(fixed, 4);
    r.versionMadeBy = readUInt16(fixed, 12);
    r.versionNeededToExtract = readUInt16(fixed, 14);
    r.numberOfDisk = readUInt32(fixed, 16);
    r.numberOfDiskStart = readUInt32(fixed, 20);
    r.totalNumberOfEntriesOnDisk = readUInt64(fixed, 24);
    r.totalNumberOfEntriesInCentralDirectory = readUInt64(fixed, 32);
    r.sizeOfCentralDirectory = readUInt64(fixed, 40);
    r.offsetToStartOfCentralDirectory = readUInt64(fixed, 48);
    return r;
}

Bytes ZIP64EndOfCentralDirectoryRecord::data() const
{
    Bytes out;
    out.reserve(size);
    appendUInt32(out, zip64EOCDRecordSignature);
    appendUInt64(out, sizeOfZIP64EndOfCentralDirectoryRecord);
    appendUInt16(out, versionMadeBy);
    appendUInt16(out, versionNeededToExtract);
    appendUInt32(out, numberOfDisk);
    appendUInt32(out, numberOfDiskStart);
    appendUInt64(out, totalNumberOfEntriesOnDisk);
    appendUInt64(out, totalNumberOfEntriesInCentralDirectory);
    appendUInt64(out, sizeOfCentralDirectory);
    appendUInt64(out, offsetToStartOfCentralDirectory);
    appendBytes(out, zip64ExtensibleDataSector);
    return out;
}

std::optional<ZIP64EndOfCentralDirectoryLocator>
ZIP64EndOfCentralDirectoryLocator::make(ByteView fixed, const VariableProvider &)
{
    if (fixed.size() != size || readUInt32(fixed, 0) != signature)
        return std::nullopt;
    ZIP64EndOfCentralDirectoryLocator l;
    l.numberOfDiskWithZIP64EOCDRecordStart = readUInt32(fixed, 4);
    l.relativeOffsetOfZIP64EOCDRecord = readUInt64(fixed, 8);
    l.totalNumberOfDisk = readUInt32(fixed, 16);
    return l;
}

Bytes ZIP64EndOfCentralDirectoryLocator::data() const
{
    Bytes out;
    out.reserve(size);
    appendUInt32(out, zip64EOCDLocatorSignature);
    appendUInt32(out, numberOfDiskWithZIP64EOCDRecordStart);
    appendUInt64(out, relativeOffsetOfZIP64EOCDRecord);
    appendUInt32(out, totalNumberOfDisk);
    return out;
}

} // namespace fiva::zip
