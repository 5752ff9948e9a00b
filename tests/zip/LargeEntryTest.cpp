#include "zip/Archive.h"
#include "zip/FolderZip.h"

#include <fcntl.h>

#include <vector>

#include "TestSupport.h"

// One file past 4 GiB through the ZIP64 data path: packed deflated by us and checked by Python's zipfile, and
// unpacked by us; and an archive of it made by Info-ZIP read back by us. The source is sparse, so it costs
// no disk, and deflates to a few megabytes; the unpacked copy is the one real 4 GiB file.
namespace fiva::zip::test {
namespace {

static_assert(sizeof(z_off_t) == 8, "CRC-32 combination over 4 GiB needs 64-bit zlib offsets");

constexpr std::uint64_t largeSize = (std::uint64_t{1} << 32) + 65536 + 3;

struct Mark
{
    std::uint64_t offset;
    std::uint8_t value;
};
// Non-zero bytes on both sides of every 32-bit limit a size or position could be cut at.
const std::vector<Mark> marks = {
    {0, 0x11},          {123456789, 0x22},        {0xFFFFFFFEu, 0x33},   {0xFFFFFFFFu, 0x44},
    {1ull << 32, 0x55}, {(1ull << 32) + 1, 0x66}, {largeSize - 1, 0x77},
};

// Beside the marks, where the data must stay zero.
const std::vector<std::uint64_t> zeroOffsets = {1, 123456788, 0xFFFFFFFDu, (1ull << 32) + 2, largeSize - 2};

// The CRC-32 of `count` zero bytes, by doubling, so that the expected value costs nothing to compute.
std::uint32_t zerosCRC(std::uint64_t count)
{
    const Bytef zero = 0;
    uLong block = ::crc32(0, &zero, 1);
    std::uint64_t blockLength = 1;
    uLong result = 0;
    for (; count > 0; count >>= 1) {
        if (count & 1)
            result = ::crc32_combine(result, block, static_cast<z_off_t>(blockLength));
        block = ::crc32_combine(block, block, static_cast<z_off_t>(blockLength));
        blockLength *= 2;
    }
    return static_cast<std::uint32_t>(result);
}

std::uint32_t expectedCRC()
{
    uLong crc = 0;
    std::uint64_t position = 0;
    for (const Mark &mark : marks) {
        const std::uint64_t gap = mark.offset - position;
        crc = ::crc32_combine(crc, zerosCRC(gap), static_cast<z_off_t>(gap));
        crc = ::crc32(crc, &mark.value, 1);
        position = mark.offset + 1;
    }
    const std::uint64_t tail = largeSize - position;
    return static_cast<std::uint32_t>(::crc32_combine(crc, zerosCRC(tail), static_cast<z_off_t>(tail)));
}

// The byte at `offset` of a file, or -1 when it cannot be read.
int byteAt(int fd, std::uint64_t offset)
{
    std::uint8_t byte = 0;
    return ::pread(fd, &byte, 1, static_cast<off_t>(offset)) == 1 ? byte : -1;
}

class LargeEntry : public ::testing::Test
{
protected:
    // One sparse source for the tests of a run; ctest runs them as separate processes, side by side.
    static void SetUpTestSuite()
    {
        s_dir = new TempDir;
        fs::create_directories(s_dir->path() / "Src");
        const int fd = ::open((s_dir->path() / "Src/large.bin").c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(::ftruncate(fd, static_cast<off_t>(largeSize)), 0);
        for (const Mark &mark : marks)
            ASSERT_EQ(::pwrite(fd, &mark.value, 1, static_cast<off_t>(mark.offset)), 1);
        ASSERT_EQ(::close(fd), 0);
    }
    static void TearDownTestSuite()
    {
        delete s_dir;
        s_dir = nullptr;
    }
    static const fs::path &dir() { return s_dir->path(); }

    static void expectLargeEntry(const fs::path &archivePath, const std::string &name)
    {
        Archive archive(archivePath, Archive::AccessMode::read);
        const std::optional<Entry> entry = archive[name];
        ASSERT_TRUE(entry) << archivePath;
        EXPECT_TRUE(entry->isZIP64()) << archivePath;
        EXPECT_EQ(entry->type(), EntryType::file) << archivePath;
        EXPECT_EQ(entry->uncompressedSize(), largeSize) << archivePath;
        EXPECT_EQ(entry->checksum(), expectedCRC()) << archivePath;
    }

private:
    static inline TempDir *s_dir = nullptr;
};

TEST_F(LargeEntry, PackedDeflatedItPassesPythonAndUnpacksWhole)
{
    const fs::path archive = dir() / "ours.zip";
    zipItem(dir() / "Src", archive, true, CompressionMethod::deflate);
    EXPECT_LT(fs::file_size(archive), 64u << 20);
    expectLargeEntry(archive, "Src/large.bin");

    // Python decompresses every entry and checks its CRC-32, and reports the sizes it read from our ZIP64
    // fields.
    const CommandResult python = run(
        "python3 -c \"import sys, zipfile; z = zipfile.ZipFile(sys.argv[1]); print('testzip', z.testzip())\n"
        "for i in z.infolist(): print('entry', i.filename, i.file_size, i.CRC)\" " +
        quoted(archive));
    EXPECT_EQ(python.status, 0) << python.output;
    EXPECT_NE(python.output.find("testzip None"), std::string::npos) << python.output;
    const std::string listed =
        "entry Src/large.bin " + std::to_string(largeSize) + " " + std::to_string(expectedCRC());
    EXPECT_NE(python.output.find(listed), std::string::npos) << python.output;

    const fs::path out = dir() / "out";
    unzipItem(archive, out); // checks the CRC-32 of what it wrote
    const fs::path unpacked = out / "Src/large.bin";
    EXPECT_EQ(fs::file_size(unpacked), largeSize);
    const int fd = ::open(unpacked.c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    for (const Mark &mark : marks)
        EXPECT_EQ(byteAt(fd, mark.offset), mark.value) << mark.offset;
    for (std::uint64_t offset : zeroOffsets)
        EXPECT_EQ(byteAt(fd, offset), 0) << offset;
    ::close(fd);
    fs::remove_all(out);
}

TEST_F(LargeEntry, InfoZIPArchiveReadsWhole)
{
    const fs::path archive = dir() / "infozip.zip";
    // The fastest level: what is tested is the ZIP64 layout, not the compression.
    const CommandResult made = run("cd " + quoted(dir()) + " && zip -q -fz -1 -r infozip.zip Src");
    ASSERT_EQ(made.status, 0) << made.output;
    expectLargeEntry(archive, "Src/large.bin");

    Archive reader(archive, Archive::AccessMode::read);
    const std::optional<Entry> entry = reader["Src/large.bin"];
    ASSERT_TRUE(entry);
    std::uint64_t position = 0;
    std::vector<Mark> seen;
    const std::uint32_t checksum = reader.extract(*entry, [&](ByteView chunk) {
        for (const Mark &mark : marks) {
            if (mark.offset >= position && mark.offset - position < chunk.size())
                seen.push_back({mark.offset, chunk[static_cast<std::size_t>(mark.offset - position)]});
        }
        position += chunk.size();
    });
    EXPECT_EQ(position, largeSize);
    EXPECT_EQ(checksum, expectedCRC());
    ASSERT_EQ(seen.size(), marks.size());
    for (std::size_t i = 0; i < marks.size(); ++i) {
        EXPECT_EQ(seen[i].offset, marks[i].offset);
        EXPECT_EQ(seen[i].value, marks[i].value) << marks[i].offset;
    }
}

} // namespace
} // namespace fiva::zip::test
