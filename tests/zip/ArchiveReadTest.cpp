#include "zip/Archive.h"
#include "zip/Errors.h"

#include <numeric>

#include "TestSupport.h"

namespace fiva::zip::test {
namespace {

// An archive opens only where its end record is whole, and its walk stops where the directory stops making
// sense or at the first encrypted entry.
TEST(ArchiveReading, FindsTheEndRecordOnlyWhereItIsWhole)
{
    const Bytes plain = buildArchive({{.name = "a", .content = "x"}});
    Bytes commentPastEnd = plain;
    commentPastEnd[commentPastEnd.size() - 2] = 9; // declares a 9-byte comment that is not there
    Bytes junkFirst = plain;
    junkFirst.insert(junkFirst.begin(), 1000, 'j'); // offsets now point 1000 bytes early
    struct Case
    {
        const char *name;
        Bytes bytes;
        bool opens;
        std::vector<std::string> paths;
    } cases[] = {
        {"empty file", {}, false, {}},
        {"21 bytes", Bytes(21, 0), false, {}},
        {"no signature", Bytes(500, 'z'), false, {}},
        {"plain", plain, true, {"a"}},
        {"long comment",
         buildArchive({{.name = "a", .content = "x"}}, std::string(70000 % 65535, 'c')),
         true,
         {"a"}},
        {"comment past end", commentPastEnd, false, {}},
        // A signature inside the comment is the candidate nearest the end; it reads as an empty archive.
        {"signature in comment",
         buildArchive({{.name = "a", .content = "x"}}, "PK\x05\x06" + std::string(18, '\0')),
         true,
         {}},
        {"junk before archive", junkFirst, true, {}},
        {"encrypted second entry",
         buildArchive({{.name = "first", .content = "1"},
                       {.name = "second", .content = "2", .flags = 0x0801},
                       {.name = "third", .content = "3"}}),
         true,
         {"first"}},
    };
    TempDir dir;
    for (const Case &c : cases) {
        writeBytes(dir / "t.zip", c.bytes);
        std::vector<std::string> paths;
        EXPECT_EQ(errorCaseOf([&] { paths = entryPaths(dir / "t.zip"); }),
                  c.opens ? "" : "missingEndOfCentralDirectoryRecord")
            << c.name;
        EXPECT_EQ(paths, c.paths) << c.name;
    }
}

TEST(ArchiveReading, ZIP64EndRecordNeedsVersion45)
{
    for (std::uint16_t version : {44, 45}) {
        // An archive of one entry followed by ZIP64 end records claiming 7 entries, then the plain end
        // record.
        Bytes bytes = buildArchive({{.name = "only", .content = "data"}});
        const Bytes end(bytes.end() - 22, bytes.end());
        bytes.resize(bytes.size() - 22);
        const std::uint64_t recordOffset = bytes.size();
        put(bytes, 4, {0x06064b50});
        put(bytes, 8, {44});
        put(bytes, 2, {789, version});
        put(bytes, 4, {0, 0});
        put(bytes, 8, {7, 7, readUInt32(end, 12), readUInt32(end, 16)});
        put(bytes, 4, {0x07064b50, 0});
        put(bytes, 8, {recordOffset + 1000}); // wrong on purpose: the record is found where it must sit
        put(bytes, 4, {1});
        bytes.insert(bytes.end(), end.begin(), end.end());
        TempDir dir;
        writeBytes(dir / "z.zip", bytes);
        EXPECT_EQ(Archive(dir / "z.zip", Archive::AccessMode::read).zip64EndOfCentralDirectory().has_value(),
                  version == 45);
        // The walk stops at the end of the directory either way.
        EXPECT_EQ(entryPaths(dir / "z.zip"), std::vector<std::string>{"only"}) << version;
    }
}

TEST(ArchiveReading, PathDecoding)
{
    // Python's codec is the reference for code page 437.
    const CommandResult python = run("python3 -c \"import sys; sys.stdout.buffer.write(bytes(range(128, "
                                     "256)).decode('cp437').encode())\"");
    ASSERT_EQ(python.status, 0);
    Bytes high(128);
    std::iota(high.begin(), high.end(), 128);
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
        EXPECT_EQ(entryPaths(dir / "p.zip"), std::vector<std::string>{c.expected}) << c.name;
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

TEST(ArchiveReading, ExtractionToAConsumer)
{
    const std::string abc = "abc";
    EXPECT_EQ(crc32(ByteView(reinterpret_cast<const std::uint8_t *>(abc.data()), abc.size())), zlibCRC(abc));
    const std::string text(50000, 'q');
    const std::string deflated = rawDeflate(text);
    std::string corrupt = deflated;
    corrupt[0] = static_cast<char>(0xFF); // reserved block type
    TempDir dir;
    writeBytes(
        dir / "c.zip",
        buildArchive({{.name = "empty", .content = ""},
                      {.name = "big", .content = text},
                      {.name = "squeezed", .content = text, .method = 8},
                      {.name = "method", .content = text, .method = 12},
                      {.name = "corrupt", .content = text, .method = 8, .rawData = corrupt},
                      {.name = "short", .content = text, .method = 8, .rawData = deflated.substr(0, 5)}}));
    Archive archive(dir / "c.zip", Archive::AccessMode::read);
    const auto ignore = [](ByteView) {};
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
        SCOPED_TRACE(c.name + " " + std::to_string(c.bufferSize));
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
        EXPECT_EQ(out, c.name == "empty" ? "" : text);
        EXPECT_EQ(crc, c.name == "empty" ? 0u : zlibCRC(text));
        if (c.expectedCalls != 0) {
            EXPECT_EQ(calls, c.expectedCalls);
        }
        EXPECT_EQ(archive.extract(*entry, ignore, c.bufferSize, true), 0u) << "CRC computed when skipped";
    }
    EXPECT_EQ(errorCaseOf([&] {
                  archive.extract(
                      *archive["big"], [](ByteView) {}, 0);
              }),
              "invalidBufferSize");
    const std::pair<const char *, const char *> failures[] = {
        {"method", "invalidCompressionMethod"}, {"corrupt", "corruptedData"}, {"short", "corruptedData"}};
    for (const auto &[name, expectedError] : failures)
        EXPECT_EQ(errorCaseOf([&] { archive.extract(*archive[name], ignore); }), expectedError) << name;
}

} // namespace
} // namespace fiva::zip::test
