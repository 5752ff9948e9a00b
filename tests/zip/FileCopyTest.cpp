#include "zip/FileCopy.h"

#include "zip/FolderZip.h"

#include <fcntl.h>

#include "TestSupport.h"

namespace fiva::zip::test {
namespace {

constexpr std::size_t mebibyte = 1024 * 1024;

// An open file descriptor, closed at the end of the scope.
struct Descriptor
{
    int fd;
    ~Descriptor()
    {
        if (fd >= 0)
            ::close(fd);
    }
};

// Empty, small and large ranges, with and without the checksum, written after the first bytes of the target.
TEST(FileCopy, CopiesEveryRangeIntactAtItsOffset)
{
    TempDir dir;
    const std::string source = randomText(9 * mebibyte + 100, 3);
    writeFile(dir / "source", source);
    const Descriptor from{::open((dir / "source").c_str(), O_RDONLY | O_CLOEXEC)};
    ASSERT_GE(from.fd, 0);
    struct Case
    {
        std::uint64_t offset;
        std::uint64_t size;
    } cases[] = {{0, 0}, {7, 16384}, {1, 9 * mebibyte + 99}};
    for (const Case &c : cases) {
        // The kernel refuses to copy into a file opened for appending, which takes the read and write loop.
        for (int flags : {0, O_APPEND}) {
            for (bool skipCRC32 : {false, true}) {
                SCOPED_TRACE(std::to_string(c.offset) + "+" + std::to_string(c.size) +
                             (flags ? " appending" : "") + (skipCRC32 ? " skipping the checksum" : ""));
                const fs::path target = dir / "target";
                fs::remove(target);
                const Descriptor to{
                    ::open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | flags, 0644)};
                ASSERT_GE(to.fd, 0);
                ASSERT_EQ(::write(to.fd, "head", 4), 4);
                const std::string expected = source.substr(c.offset, c.size);
                const std::uint32_t checksum = copyFileRange(from.fd, c.offset, c.size, to.fd, 4, skipCRC32);
                EXPECT_EQ(checksum, skipCRC32 ? 0u : zlibCRC(expected));
                EXPECT_TRUE(readFile(target) == "head" + expected);
                // Neither file position moved: a stream over either descriptor stays in step.
                EXPECT_EQ(::lseek(from.fd, 0, SEEK_CUR), 0);
                EXPECT_EQ(::lseek(to.fd, 0, SEEK_CUR), 4);
            }
        }
    }
}

TEST(FileCopy, FailuresNameTheSideAtFault)
{
    TempDir dir;
    const std::string source = randomText(9 * mebibyte, 4);
    writeFile(dir / "source", source);
    writeFile(dir / "readonly", "");
    const Descriptor from{::open((dir / "source").c_str(), O_RDONLY | O_CLOEXEC)};
    ASSERT_GE(from.fd, 0);
    struct Case
    {
        const char *label;
        fs::path target; // opened for writing; empty: a file opened read-only
        std::uint64_t offset;
        std::uint64_t size;
        std::string expectedError;
    } cases[] = {
        {"range past the end", dir / "out", 0, 9 * mebibyte + 1, "unreadableFile"},
        {"offset past the end", dir / "out", 10 * mebibyte, 20000, "unreadableFile"},
        {"read-only target", {}, 0, 9 * mebibyte, "unwritableFile"},
        {"full device", "/dev/full", 0, 9 * mebibyte, "unwritableFile"},
        {"short full device", "/dev/full", 0, 20000, "unwritableFile"},
    };
    for (const Case &c : cases) {
        if (c.target == "/dev/full" && !fs::exists(c.target))
            continue;
        for (bool skipCRC32 : {false, true}) {
            fs::remove(dir / "out");
            const Descriptor to{c.target.empty()
                                    ? ::open((dir / "readonly").c_str(), O_RDONLY | O_CLOEXEC)
                                    : ::open(c.target.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644)};
            ASSERT_GE(to.fd, 0) << c.label;
            EXPECT_EQ(errorCaseOf([&] { copyFileRange(from.fd, c.offset, c.size, to.fd, 0, skipCRC32); }),
                      c.expectedError)
                << c.label << (skipCRC32 ? " skipping the checksum" : "");
            // Whatever was written before the failure is the source's own bytes, in place.
            if (c.target == dir / "out") {
                const std::string written = readFile(dir / "out");
                EXPECT_TRUE(written ==
                            source.substr(std::min<std::uint64_t>(c.offset, source.size()), written.size()))
                    << c.label;
            }
        }
    }
}

// Small and large stored entries: the whole file is written, then a wrong checksum fails, unless checksums
// are skipped; and headers promising more bytes than the archive holds make the entry unreadable.
TEST(FolderZip, LargeStoredEntriesUnpackWholeAndTheirChecksumsAreChecked)
{
    struct Case
    {
        std::size_t size;
        bool wrongChecksum;
        bool skipCRC32;
        const char *expectedError;
        bool truncated =
            false; // only a tenth of the data follows, then the next entry, the directory and end
    } cases[] = {
        {16385, false, false, ""},
        {16385, true, false, "invalidCRC32"},
        {8 * mebibyte + 1, false, false, ""},
        {8 * mebibyte + 1, true, false, "invalidCRC32"},
        {8 * mebibyte + 1, true, true, ""},
        {40000, false, false, "unreadableFile", true},
        {9 * mebibyte, false, false, "unreadableFile", true},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::to_string(c.size) + (c.wrongChecksum ? " wrong checksum" : "") +
                     (c.skipCRC32 ? " skipped" : "") + (c.truncated ? " truncated" : ""));
        TempDir dir;
        const std::string content = randomText(c.size, static_cast<unsigned>(c.size));
        RawEntry entry{.name = "sub/f", .content = content, .externalAttributes = 0100600u << 16};
        if (c.wrongChecksum)
            entry.crc = zlibCRC(content) ^ 1u;
        if (c.truncated)
            entry.rawData = content.substr(0, c.size / 10);
        writeBytes(dir / "a.zip", buildArchive({entry, {.name = "after", .content = "next"}}));
        EXPECT_EQ(errorCaseOf([&] { unzipItem(dir / "a.zip", dir / "out", c.skipCRC32); }), c.expectedError);
        if (c.truncated) {
            EXPECT_LT(fs::file_size(dir / "out/sub/f"), c.size);
        } else {
            EXPECT_TRUE(readFile(dir / "out/sub/f") == content);
            EXPECT_EQ(static_cast<unsigned>(fs::status(dir / "out/sub/f").permissions()), 0600u);
        }
        EXPECT_EQ(fs::exists(dir / "out/after"), std::string(c.expectedError).empty());
    }
}

} // namespace
} // namespace fiva::zip::test
