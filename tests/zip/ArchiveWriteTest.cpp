#include "zip/Archive.h"
#include "zip/Errors.h"

#include <random>

#include "TestSupport.h"

namespace fiva::zip::test {
namespace {

using std::chrono::seconds;

Date utc(int year, unsigned month, unsigned day, int hour, int minute, int second)
{
    using namespace std::chrono;
    return sys_days{std::chrono::year{year} / month / day} + hours{hour} + minutes{minute} + seconds{second};
}

Provider textProvider(const std::string &text)
{
    return [&text](std::uint64_t position, std::size_t count) {
        return ByteView(reinterpret_cast<const std::uint8_t *>(text.data()) + position, count);
    };
}

TEST(ArchiveWriting, HelloExampleIsWrittenByteForByte)
{
    TempDir dir;
    const std::string hello = "hello";
    {
        Archive archive(dir / "hello.zip", Archive::AccessMode::create);
        archive.addEntry("a/b.txt", EntryType::file, 5, utc(2021, 3, 4, 5, 6, 8), 0644,
                         CompressionMethod::none, defaultWriteChunkSize, textProvider(hello));
    }
    // 05:06:08 on 2021-03-04 in DOS fields, which keep the seconds halved.
    const RawEntry expected{.name = "a/b.txt",
                            .content = hello,
                            .time = (5 << 11) | (6 << 5) | 4,
                            .date = (41 << 9) | (3 << 5) | 4,
                            .crc = 0x3610A686};
    EXPECT_EQ(readBytes(dir / "hello.zip"), buildArchive({expected}));
}

// Years outside 1980 to 2099 are clamped, and odd seconds round down.
TEST(ArchiveWriting, DOSDateAndTime)
{
    struct Case
    {
        Date date;
        std::array<unsigned, 6> expected; // year, month, day, hour, minute, second
    } cases[] = {
        {utc(1975, 6, 7, 8, 9, 10), {1980, 6, 7, 8, 9, 10}},
        {utc(2150, 12, 31, 23, 59, 58), {2099, 12, 31, 23, 59, 58}},
        {utc(2024, 2, 29, 13, 14, 15), {2024, 2, 29, 13, 14, 14}},
        {utc(1980, 1, 1, 0, 0, 1), {1980, 1, 1, 0, 0, 0}},
    };
    for (const Case &c : cases) {
        const DOSDateTime dos = dosDateTime(c.date);
        const unsigned date = dos.date, time = dos.time;
        const std::array<unsigned, 6> fields = {(date >> 9) + 1980, (date >> 5) & 15, date & 31,
                                                time >> 11,         (time >> 5) & 63, (time & 31) * 2};
        EXPECT_EQ(fields, c.expected);
    }
}

TEST(ArchiveWriting, FolderPathsGetExactlyOneTrailingSlash)
{
    TempDir dir;
    fs::create_directories(dir / "base/x");
    fs::create_directories(dir / "base/y");
    {
        Archive archive(dir / "f.zip", Archive::AccessMode::create);
        archive.addEntry("x", dir / "base");
        archive.addEntry("y/", dir / "base");
    }
    EXPECT_EQ(entryPaths(dir / "f.zip"), (std::vector<std::string>{"x/", "y/"}));
    Archive archive(dir / "f.zip", Archive::AccessMode::read);
    for (const Entry &e : archive)
        EXPECT_EQ(e.type(), EntryType::directory) << e.path();
}

TEST(ArchiveWriting, RefusesWithoutTouchingTheFile)
{
    TempDir dir;
    const auto path = dir / "a.zip";
    Archive(path, Archive::AccessMode::create).addEntry("one", EntryType::file, 0);
    const Bytes before = readBytes(path);
    try {
        Archive archive(path, Archive::AccessMode::create);
        ADD_FAILURE() << "an existing file was created again";
    } catch (const FileSystemError &e) {
        EXPECT_EQ(e.errorCase(), FileSystemError::fileWriteFileExists);
        EXPECT_EQ(e.path(), path);
    }
    EXPECT_EQ(errorCaseOf([&] {
                  Archive archive(path, Archive::AccessMode::read);
                  archive.addEntry("two", EntryType::file, 0);
              }),
              "unwritableArchive");
    EXPECT_EQ(errorCaseOf([&] {
                  Archive archive(path, Archive::AccessMode::update);
                  archive.addEntry(std::string(65536, 'n'), EntryType::file, 0);
              }),
              "invalidEntryPath");
    EXPECT_EQ(readBytes(path), before);
}

// Adds a mixed set of entries: every third deflated, folders and links among the files, each with its date.
void addMixedEntries(Archive &archive, const std::vector<std::string> &contents)
{
    for (std::size_t i = 0; i < contents.size(); ++i) {
        const auto method = i % 3 == 0 ? CompressionMethod::deflate : CompressionMethod::none;
        const auto type =
            i % 7 == 6 ? EntryType::directory : (i % 11 == 10 ? EntryType::symlink : EntryType::file);
        const bool folder = type == EntryType::directory;
        archive.addEntry("entry-" + std::to_string(i) + (folder ? "/" : ""), type,
                         folder ? 0 : contents[i].size(), utc(2020, 1, 1, 0, 0, 0) + seconds(i * 2),
                         std::nullopt, method, 4096, textProvider(contents[i]));
    }
}

TEST(ArchiveWriting, DeferredDirectoryWritesTheSameBytesAsSingleAdditions)
{
    std::mt19937 random(7);
    std::vector<std::string> contents;
    for (unsigned i = 0; i < 120; ++i)
        contents.push_back(randomText(random() % 20000, i, i % 2 ? 26 : 3));
    TempDir dir;
    {
        Archive single(dir / "single.zip", Archive::AccessMode::create);
        addMixedEntries(single, contents);
        Archive deferred(dir / "deferred.zip", Archive::AccessMode::create);
        deferred.beginDeferringCentralDirectory();
        addMixedEntries(deferred, contents);
        deferred.writeDeferredCentralDirectory();
    }
    EXPECT_TRUE(readBytes(dir / "single.zip") == readBytes(dir / "deferred.zip"));

    Archive archive(dir / "single.zip", Archive::AccessMode::read);
    std::size_t index = 0;
    for (const Entry &entry : archive) {
        std::string produced;
        const std::uint32_t crc =
            archive.extract(entry, [&](ByteView chunk) { produced.append(chunk.begin(), chunk.end()); });
        EXPECT_EQ(crc, entry.checksum()) << entry.path();
        if (entry.type() != EntryType::directory) {
            EXPECT_EQ(produced, contents[index]) << entry.path();
        }
        ++index;
    }
    EXPECT_EQ(index, contents.size());
}

// Files added from the disk, whatever size their data moves in and whichever way it is copied, give the bytes
// of the core addition fed in chunks of the default size: sizes around one chunk, around the larger chunks of
// stored files, and past the size whose checksum is computed beside a kernel copy; one entry after another,
// with the directory written after each addition or once at the end. The bytes are random, so deflated data
// comes out larger than it went in, and all of it reads back with the checksum of what went in.
TEST(ArchiveWriting, FilesFromDiskWriteTheBytesOfDefaultChunks)
{
    const std::size_t mebibyte = 1024 * 1024;
    const std::size_t sizes[] = {
        0, 1, 16383, 16384, 16385, mebibyte - 1, mebibyte, mebibyte + 1, 3 * mebibyte + 5, 8 * mebibyte + 3,
        7};
    TempDir dir;
    std::vector<std::string> contents;
    for (std::size_t i = 0; i < std::size(sizes); ++i) {
        contents.push_back(randomText(sizes[i], static_cast<unsigned>(i)));
        writeFile(dir / "src" / std::to_string(i), contents.back());
    }
    for (CompressionMethod method : {CompressionMethod::none, CompressionMethod::deflate}) {
        const std::string tag = method == CompressionMethod::none ? "stored" : "deflated";
        SCOPED_TRACE(tag);
        {
            Archive core(dir / (tag + "-core.zip"), Archive::AccessMode::create);
            Archive fromDisk(dir / (tag + "-disk.zip"), Archive::AccessMode::create);
            Archive deferred(dir / (tag + "-deferred.zip"), Archive::AccessMode::create);
            deferred.beginDeferringCentralDirectory();
            for (std::size_t i = 0; i < std::size(sizes); ++i) {
                const std::string name = std::to_string(i);
                fromDisk.addEntry(name, dir / "src", method);
                deferred.addEntry(name, dir / "src", method);
                struct stat status
                {
                };
                ASSERT_EQ(::lstat((dir / "src" / name).c_str(), &status), 0);
                const Date date{std::chrono::duration_cast<Date::duration>(
                    seconds(status.st_mtim.tv_sec) + std::chrono::nanoseconds(status.st_mtim.tv_nsec))};
                core.addEntry(name, EntryType::file, sizes[i], date,
                              static_cast<std::uint16_t>(status.st_mode), method, defaultWriteChunkSize,
                              textProvider(contents[i]));
            }
            deferred.writeDeferredCentralDirectory();
        }
        const Bytes expected = readBytes(dir / (tag + "-core.zip"));
        EXPECT_TRUE(readBytes(dir / (tag + "-disk.zip")) == expected);
        EXPECT_TRUE(readBytes(dir / (tag + "-deferred.zip")) == expected);

        // A buffer of no bytes is refused before anything is written, however large the copies are.
        {
            Archive archive(dir / (tag + "-disk.zip"), Archive::AccessMode::update);
            EXPECT_EQ(errorCaseOf([&] { archive.addEntry("2", dir / "src", method, 0); }),
                      "invalidBufferSize");
        }
        EXPECT_TRUE(readBytes(dir / (tag + "-disk.zip")) == expected);

        Archive archive(dir / (tag + "-core.zip"), Archive::AccessMode::read);
        std::size_t i = 0;
        for (const Entry &entry : archive) {
            std::string out;
            const auto crc = archive.extract(entry, [&](ByteView c) { out.append(c.begin(), c.end()); });
            EXPECT_EQ(entry.isCompressed(), method == CompressionMethod::deflate) << i;
            EXPECT_EQ(entry.uncompressedSize(), sizes[i]) << i;
            EXPECT_TRUE(out == contents[i]) << i;
            EXPECT_EQ(crc, zlibCRC(contents[i])) << i;
            ++i;
        }
        EXPECT_EQ(i, contents.size());
    }
}

TEST(ArchiveWriting, EntryCountOf65535GetsZIP64EndRecords)
{
    TempDir dir;
    const auto path = dir / "many.zip";
    {
        Archive archive(path, Archive::AccessMode::create);
        archive.beginDeferringCentralDirectory();
        for (int i = 0; i < 65535; ++i)
            archive.addEntry(std::to_string(i), EntryType::file, 0);
        archive.writeDeferredCentralDirectory();
    }
    const Bytes bytes = readBytes(path);
    ASSERT_GT(bytes.size(), 98u);
    const std::size_t end = bytes.size() - 22;
    EXPECT_EQ(readUInt32(bytes, end), 0x06054b50u);
    EXPECT_EQ(readUInt16(bytes, end + 8), 0xFFFF);
    EXPECT_EQ(readUInt16(bytes, end + 10), 0xFFFF);
    EXPECT_EQ(readUInt32(bytes, end - 20), 0x07064b50u);
    EXPECT_EQ(readUInt64(bytes, end - 20 + 8), end - 76);
    EXPECT_EQ(readUInt32(bytes, end - 76), 0x06064b50u);
    EXPECT_EQ(readUInt64(bytes, end - 76 + 32), 65535u);
}

// The ZIP64 reservation for deflated entries relies on this bound never being below zlib's own.
TEST(ArchiveWriting, DeflateBoundCoversZlibs)
{
    z_stream z{};
    ASSERT_EQ(deflateInit2(&z, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY), Z_OK);
    for (std::uint64_t size : {0ull, 1ull, 16383ull, 16384ull, 1ull << 20, 0xFF000000ull, 0xFFFFFFFEull}) {
        EXPECT_GE(deflateBoundFor(size), deflateBound(&z, static_cast<uLong>(size))) << size;
    }
    deflateEnd(&z);
    EXPECT_GE(deflateBoundFor(0xFFFFFFFEull), 0xFFFFFFFFull);
}

} // namespace
} // namespace fiva::zip::test
