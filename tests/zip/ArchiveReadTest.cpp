#include "zip/Archive.h"
#include "zip/Errors.h"

#include "TestSupport.h"

namespace fiva::zip::test {
namespace {

std::vector<std::string> listPaths(const fs::path &path)
{
    Archive archive(path, Archive::AccessMode::read);
    std::vector<std::string> names;
    for (const Entry &e : archive)
        names.push_back(e.path());
    return names;
}

bool opens(const fs::path &path)
{
    try {
        Archive archive(path, Archive::AccessMode::read);
        return true;
    } catch (const ArchiveError &e) {
        EXPECT_EQ(e.errorCase(), ArchiveError::missingEndOfCentralDirectoryRecord);
        EXPECT_NE(std::string(e.what()).find("missingEndOfCentralDirectoryRecord"), std::string::npos);
        return false;
    }
}

TEST(ArchiveReading, FindsTheEndRecordOnlyWhereItIsWhole)
{
    const Bytes plain = buildArchive({{.name = "a", .content = "x"}});
    const Bytes longComment = buildArchive({{.name = "a", .content = "x"}}, std::string(70000 % 65535, 'c'));
    Bytes commentPastEnd = plain;
    commentPastEnd[commentPastEnd.size() - 2] = 9; // declares a 9-byte comment that is not there
    // A signature inside the comment is the candidate nearest the end; it reads as an empty archive.
    Bytes fakeInComment = buildArchive({{.name = "a", .content = "x"}}, "PK\x05\x06" + std::string(18, '\0'));
    Bytes junkFirst = plain;
    junkFirst.insert(junkFirst.begin(), 1000, 'j'); // offsets now point 1000 bytes early
    struct Case
    {
        const char *name;
        Bytes bytes;
        bool opens;
        std::size_t entries;
    } cases[] = {
        {"empty file", {}, false, 0},
        {"21 bytes", Bytes(21, 0), false, 0},
        {"no signature", Bytes(500, 'z'), false, 0},
        {"plain", plain, true, 1},
        {"long comment", longComment, true, 1},
        {"comment past end", commentPastEnd, false, 0},
        {"signature in comment", fakeInComment, true, 0},
        {"junk before archive", junkFirst, true, 0},
    };
    TempDir dir;
    for (const Case &c : cases) {
        const auto path = dir / "t.zip";
        writeBytes(path, c.bytes);
        ASSERT_EQ(opens(path), c.opens) << c.name;
        if (c.opens) {
            EXPECT_EQ(listPaths(path).size(), c.entries) << c.name;
        }
        fs::remove(path);
    }
}

TEST(ArchiveReading, ZIP64EndRecordNeedsVersion45)
{
    // An archive of one entry followed by ZIP64 end records claiming 7 entries, then the plain end record.
    for (std::uint16_t version : {44, 45}) {
        Bytes bytes = buildArchive({{.name = "only", .content = "data"}});
        Bytes end(bytes.end() - 22, bytes.end());
        bytes.resize(bytes.size() - 22);
        const auto recordOffset = static_cast<std::uint32_t>(bytes.size());
        const std::uint32_t directorySize = readUInt32(end, 12);
        const std::uint32_t directoryOffset = readUInt32(end, 16);
        put32(bytes, 0x06064b50);
        put32(bytes, 44);
        put32(bytes, 0);
        put16(bytes, 789);
        put16(bytes, version);
        put32(bytes, 0);
        put32(bytes, 0);
        for (int i = 0; i < 2; ++i) {
            put32(bytes, 7);
            put32(bytes, 0);
        }
        put32(bytes, directorySize);
        put32(bytes, 0);
        put32(bytes, directoryOffset);
        put32(bytes, 0);
        put32(bytes, 0x07064b50);
        put32(bytes, 0);
        put32(bytes, recordOffset + 1000); // wrong on purpose: the record is found where it must sit
        put32(bytes, 0);
        put32(bytes, 1);
        bytes.insert(bytes.end(), end.begin(), end.end());
        TempDir dir;
        writeBytes(dir / "z.zip", bytes);
        Archive archive(dir / "z.zip", Archive::AccessMode::read);
        EXPECT_EQ(archive.zip64EndOfCentralDirectory().has_value(), version == 45);
        std::size_t count = 0;
        for (const Entry &e : archive) {
            EXPECT_EQ(e.path(), "only");
            ++count;
        }
        EXPECT_EQ(count, 1u); // the walk stops at the end of the directory either way
    }
}

TEST(ArchiveReading, WalkStopsAtTheFirstEncryptedEntry)
{
    TempDir dir;
    writeBytes(dir / "e.zip", buildArchive({{.name = "first", .content = "1"},
                                            {.name = "second", .content = "2", .flags = 0x0801},
                                            {.name = "third", .content = "3"}}));
    EXPECT_EQ(listPaths(dir / "e.zip"), std::vector<std::string>{"first"});
}

TEST(ArchiveReading, PathDecoding)
{
    // Python's codec is the reference for code page 437.
    const CommandResult python = run("python3 -c \"import sys; sys.stdout.buffer.write(bytes(range(128, "
                                     "256)).decode('cp437').encode())\"");
    ASSERT_EQ(python.status, 0);
    Bytes high;
    for (int b = 128; b < 256; ++b)
        high.push_back(static_cast<std::uint8_t>(b));
    EXPECT_EQ(decodePath(high, PathEncoding::codePage437), python.output);

    struct Case
    {
        std::string name;
        std::uint16_t flags;
        std::string expected;
    } cases[] = {
        {"\x81", 0, "\xC3\xBC"},
        {"\x81", 0x0800, ""},
        {"caf\xC3\xA9", 0x0800, "caf\xC3\xA9"},
        {"caf\xC3\xA9", 0, "caf\xE2\x94\x9C\xE2\x8C\x90"},
        {"\xC0\xAF", 0x0800, ""},         // overlong "/"
        {"\xED\xA0\x80", 0x0800, ""},     // surrogate
        {"\xF4\x90\x80\x80", 0x0800, ""}, // beyond U+10FFFF
        {"plain/ascii", 0, "plain/ascii"},
    };
    TempDir dir;
    for (const Case &c : cases) {
        writeBytes(dir / "p.zip", buildArchive({{.name = c.name, .content = "", .flags = c.flags}}));
        EXPECT_EQ(listPaths(dir / "p.zip"), std::vector<std::string>{c.expected}) << c.name;
    }
}

TEST(ArchiveReading, EntryTypeFromHostAndAttributes)
{
    struct Case
    {
        std::string name;
        std::uint16_t versionMadeBy;
        std::uint32_t external;
        EntryType expected;
    } cases[] = {
        {"f", 0x0315, 0100644u << 16, EntryType::file},
        {"d", 0x0315, 040755u << 16, EntryType::directory},
        {"l", 0x1315, 0120777u << 16, EntryType::symlink},
        {"fifo/", 0x0315, 010644u << 16, EntryType::directory},
        {"fifo", 0x0315, 010644u << 16, EntryType::file},
        {"dosdir", 0x0014, 0x10, EntryType::directory},
        {"dosfile", 0x0014, 0x20, EntryType::file},
        {"dos/", 0x0014, 0, EntryType::directory},
        {"ntfs", 0x0a14, 040755u << 16, EntryType::file},
    };
    TempDir dir;
    for (const Case &c : cases) {
        writeBytes(dir / "t.zip", buildArchive({{.name = c.name,
                                                 .content = "",
                                                 .versionMadeBy = c.versionMadeBy,
                                                 .externalAttributes = c.external}}));
        Archive archive(dir / "t.zip", Archive::AccessMode::read);
        auto entry = archive[c.name];
        ASSERT_TRUE(entry) << c.name;
        EXPECT_EQ(entry->type(), c.expected) << c.name;
    }
}

TEST(ArchiveReading, ConsumerCallsAndChecksums)
{
    EXPECT_EQ(crc32(ByteView(reinterpret_cast<const std::uint8_t *>("abc"), 3)), 0x352441C2u);
    const std::string text(50000, 'q');
    const std::string deflated = rawDeflate(text);
    TempDir dir;
    writeBytes(dir / "c.zip", buildArchive({{.name = "empty", .content = ""},
                                            {.name = "big", .content = text},
                                            {.name = "squeezed", .content = text, .method = 8}}));
    Archive archive(dir / "c.zip", Archive::AccessMode::read);
    struct Case
    {
        std::string name;
        std::size_t bufferSize;
        std::size_t expectedCalls;
    } cases[] = {
        {"empty", 16384, 1},
        {"big", 16384, 4},
        {"big", 50000, 1},
        // compressed data an exact multiple of the buffer: the stream ends on a call with no new input
        {"squeezed", deflated.size(), 0},
        {"squeezed", 7, 0},
    };
    for (const Case &c : cases) {
        auto entry = archive[c.name];
        ASSERT_TRUE(entry);
        std::string out;
        std::size_t calls = 0;
        const std::uint32_t crc = archive.extract(
            *entry,
            [&](ByteView chunk) {
                ++calls;
                out.append(chunk.begin(), chunk.end());
            },
            c.bufferSize);
        EXPECT_EQ(out, c.name == "empty" ? "" : text) << c.name;
        EXPECT_EQ(crc, c.name == "empty" ? 0u : zlibCRC(text)) << c.name;
        if (c.expectedCalls != 0) {
            EXPECT_EQ(calls, c.expectedCalls) << c.name << " " << c.bufferSize;
        }
        EXPECT_EQ(archive.extract(
                      *entry, [](ByteView) {}, c.bufferSize, true),
                  0u)
            << "CRC computed when skipped";
    }
    try {
        archive.extract(
            *archive["big"], [](ByteView) {}, 0);
        ADD_FAILURE() << "a buffer size of 0 was accepted";
    } catch (const ArchiveError &e) {
        EXPECT_EQ(e.errorCase(), ArchiveError::invalidBufferSize);
    }
}

TEST(ArchiveReading, BadEntryDataGivesTypedErrors)
{
    const std::string text = "some text that deflates well well well well well";
    std::string corrupt = rawDeflate(text);
    corrupt[0] = static_cast<char>(0xFF); // reserved block type
    const std::string truncated = rawDeflate(text).substr(0, 5);
    TempDir dir;
    writeBytes(dir / "b.zip",
               buildArchive({{.name = "method", .content = text, .method = 12},
                             {.name = "corrupt", .content = text, .method = 8, .rawData = corrupt},
                             {.name = "short", .content = text, .method = 8, .rawData = truncated}}));
    Archive archive(dir / "b.zip", Archive::AccessMode::read);
    try {
        archive.extract(*archive["method"], [](ByteView) {});
        ADD_FAILURE();
    } catch (const ArchiveError &e) {
        EXPECT_EQ(e.errorCase(), ArchiveError::invalidCompressionMethod);
    }
    for (const char *name : {"corrupt", "short"}) {
        try {
            archive.extract(*archive[name], [](ByteView) {});
            ADD_FAILURE() << name;
        } catch (const CompressionError &e) {
            EXPECT_EQ(e.errorCase(), CompressionError::corruptedData) << name;
        }
    }
}

} // namespace
} // namespace fiva::zip::test
