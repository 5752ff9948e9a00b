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

// The CRC-32 of a file as zlib computes it over the bytes read back: a few seconds over the sparse source.
std::uint32_t fileCRC(const fs::path &path)
{
    std::ifstream in(path, std::ios::binary);
    std::vector<char> buffer(1 << 20);
    uLong crc = 0;
    while (in.read(buffer.data(), static_cast<std::streamsize>(buffer.size())) || in.gcount() > 0)
        crc = ::crc32(crc, reinterpret_cast<const Bytef *>(buffer.data()), static_cast<uInt>(in.gcount()));
    return static_cast<std::uint32_t>(crc);
}

class LargeEntry : public ::testing::Test
{
protected:
    // One sparse source for the tests of a run; ctest runs them as separate processes, side by side.
    static void SetUpTestSuite()
    {
        fs::create_directories(dir() / "Src");
        const int fd = ::open((dir() / "Src/large.bin").c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(::ftruncate(fd, static_cast<off_t>(largeSize)), 0);
        for (const Mark &mark : marks)
            ASSERT_EQ(::pwrite(fd, &mark.value, 1, static_cast<off_t>(mark.offset)), 1);
        ASSERT_EQ(::close(fd), 0);
        s_crc = fileCRC(dir() / "Src/large.bin");
    }
    // Removed with everything in it when the process exits.
    static const fs::path &dir()
    {
        static const TempDir folder;
        return folder.path();
    }
    static inline std::uint32_t s_crc = 0; // of the source

    // The large entry as our reader sees it in `archive`.
    static Entry largeEntry(Archive &archive)
    {
        const std::optional<Entry> entry = archive["Src/large.bin"];
        if (!entry)
            throw std::runtime_error("no Src/large.bin in " + archive.url().string());
        EXPECT_TRUE(entry->isZIP64());
        EXPECT_EQ(entry->type(), EntryType::file);
        EXPECT_EQ(entry->uncompressedSize(), largeSize);
        EXPECT_EQ(entry->checksum(), s_crc);
        return *entry;
    }
};

TEST_F(LargeEntry, PackedDeflatedItPassesPythonAndUnpacksWhole)
{
    const fs::path archivePath = dir() / "ours.zip";
    zipItem(dir() / "Src", archivePath, true, CompressionMethod::deflate);
    EXPECT_LT(fs::file_size(archivePath), 64u << 20);
    Archive archive(archivePath, Archive::AccessMode::read);
    const Entry entry = largeEntry(archive);

    // Python decompresses every entry and checks its CRC-32, and reports the sizes it read from our ZIP64
    // fields.
    const CommandResult python = run(
        "python3 -c \"import sys, zipfile; z = zipfile.ZipFile(sys.argv[1]); print('testzip', z.testzip())\n"
        "for i in z.infolist(): print('entry', i.filename, i.file_size, i.CRC)\" " +
        quoted(archivePath));
    EXPECT_EQ(python.status, 0) << python.output;
    EXPECT_NE(python.output.find("testzip None"), std::string::npos) << python.output;
    const std::string listed =
        "entry Src/large.bin " + std::to_string(largeSize) + " " + std::to_string(s_crc);
    EXPECT_NE(python.output.find(listed), std::string::npos) << python.output;

    const fs::path out = dir() / "out";
    unzipItem(archivePath, out); // checks the CRC-32 of what it wrote
    const fs::path unpacked = out / "Src/large.bin";
    EXPECT_EQ(fs::file_size(unpacked), largeSize);
    const int fd = ::open(unpacked.c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    const auto byteAt = [fd](std::uint64_t offset) {
        std::uint8_t byte = 0;
        return ::pread(fd, &byte, 1, static_cast<off_t>(offset)) == 1 ? byte : -1;
    };
    for (const Mark &mark : marks)
        EXPECT_EQ(byteAt(mark.offset), mark.value) << mark.offset;
    for (std::uint64_t offset : zeroOffsets)
        EXPECT_EQ(byteAt(offset), 0) << offset;
    ::close(fd);
    fs::remove_all(out);
}

TEST_F(LargeEntry, InfoZIPArchiveReadsWhole)
{
    // The fastest level: what is tested is the ZIP64 layout, not the compression.
    const CommandResult made = run("cd " + quoted(dir()) + " && zip -q -fz -1 -r infozip.zip Src");
    ASSERT_EQ(made.status, 0) << made.output;
    Archive archive(dir() / "infozip.zip", Archive::AccessMode::read);
    const Entry entry = largeEntry(archive);

    std::uint64_t position = 0;
    std::size_t seen = 0;
    const std::uint32_t checksum = archive.extract(entry, [&](ByteView chunk) {
        for (const Mark &mark : marks) {
            if (mark.offset >= position && mark.offset - position < chunk.size()) {
                EXPECT_EQ(chunk[static_cast<std::size_t>(mark.offset - position)], mark.value) << mark.offset;
                ++seen;
            }
        }
        position += chunk.size();
    });
    EXPECT_EQ(position, largeSize);
    EXPECT_EQ(checksum, s_crc);
    EXPECT_EQ(seen, marks.size());
}

} // namespace
} // namespace fiva::zip::test
