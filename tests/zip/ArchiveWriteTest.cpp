#include "zip/Archive.h"
#include "zip/Errors.h"

#include <random>

#include "TestSupport.h"

namespace fiva::zip::test {
namespace {

using std::chrono::seconds;

Date utc(int year, int month, int day, int hour, int minute, int second)
{
    std::tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    return std::chrono::system_clock::from_time_t(timegm(&parts));
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
    const auto path = dir / "hello.zip";
    const std::string hello = "hello";
    {
        Archive archive(path, Archive::AccessMode::create);
        archive.addEntry("a/b.txt", EntryType::file, 5, utc(2021, 3, 4, 5, 6, 8), 0644,
                         CompressionMethod::none, defaultWriteChunkSize, textProvider(hello));
    }
    const unsigned dosTime = (5 << 11) | (6 << 5) | 4;
    const unsigned dosDate = (41 << 9) | (3 << 5) | 4;
    Bytes expected;
    put32(expected, 0x04034b50);
    put16(expected, 20);
    put16(expected, 0x0800);
    put16(expected, 0);
    put16(expected, dosTime);
    put16(expected, dosDate);
    put32(expected, 0x3610A686);
    put32(expected, 5);
    put32(expected, 5);
    put16(expected, 7);
    put16(expected, 0);
    putText(expected, "a/b.txt");
    putText(expected, "hello");
    put32(expected, 0x02014b50);
    put16(expected, 789);
    put16(expected, 20);
    put16(expected, 0x0800);
    put16(expected, 0);
    put16(expected, dosTime);
    put16(expected, dosDate);
    put32(expected, 0x3610A686);
    put32(expected, 5);
    put32(expected, 5);
    put16(expected, 7);
    put16(expected, 0);
    put16(expected, 0);
    put16(expected, 0);
    put16(expected, 0);
    put32(expected, (0x8000u | 0644u) << 16);
    put32(expected, 0);
    putText(expected, "a/b.txt");
    put32(expected, 0x06054b50);
    put16(expected, 0);
    put16(expected, 0);
    put16(expected, 1);
    put16(expected, 1);
    put32(expected, 46 + 7);
    put32(expected, 30 + 7 + 5);
    put16(expected, 0);
    EXPECT_EQ(readBytes(path), expected);
}

TEST(ArchiveWriting, DOSDateAndTime)
{
    struct Case
    {
        Date date;
        unsigned year, month, day, hour, minute, second;
    } cases[] = {
        {utc(1975, 6, 7, 8, 9, 10), 1980, 6, 7, 8, 9, 10},
        {utc(2150, 12, 31, 23, 59, 58), 2099, 12, 31, 23, 59, 58},
        {utc(2024, 2, 29, 13, 14, 15), 2024, 2, 29, 13, 14, 14},
        {utc(1980, 1, 1, 0, 0, 1), 1980, 1, 1, 0, 0, 0},
    };
    for (const Case &c : cases) {
        const DOSDateTime dos = dosDateTime(c.date);
        EXPECT_EQ(dos.date >> 9, c.year - 1980);
        EXPECT_EQ((dos.date >> 5) & 15, c.month);
        EXPECT_EQ(dos.date & 31, c.day);
        EXPECT_EQ(dos.time >> 11, c.hour);
        EXPECT_EQ((dos.time >> 5) & 63, c.minute);
        EXPECT_EQ((dos.time & 31) * 2, c.second);
    }
}

TEST(ArchiveWriting, FolderPathsGetExactlyOneTrailingSlash)
{
    TempDir dir;
    fs::create_directories(dir / "base/x");
    fs::create_directories(dir / "base/y");
    const auto path = dir / "f.zip";
    {
        Archive archive(path, Archive::AccessMode::create);
        archive.addEntry("x", dir / "base");
        archive.addEntry("y/", dir / "base");
    }
    Archive archive(path, Archive::AccessMode::read);
    std::vector<std::string> names;
    for (const Entry &e : archive) {
        names.push_back(e.path());
        EXPECT_EQ(e.type(), EntryType::directory);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"x/", "y/"}));
}

TEST(ArchiveWriting, RefusesWithoutTouchingTheFile)
{
    TempDir dir;
    const auto path = dir / "a.zip";
    {
        Archive archive(path, Archive::AccessMode::create);
        archive.addEntry("one", EntryType::file, 0);
    }
    const Bytes before = readBytes(path);

    EXPECT_THROW(
        {
            try {
                Archive archive(path, Archive::AccessMode::create);
            } catch (const FileSystemError &e) {
                EXPECT_EQ(e.errorCase(), FileSystemError::fileWriteFileExists);
                EXPECT_EQ(e.path(), path);
                throw;
            }
        },
        FileSystemError);
    try {
        Archive archive(path, Archive::AccessMode::read);
        archive.addEntry("two", EntryType::file, 0);
        ADD_FAILURE() << "adding to a read archive succeeded";
    } catch (const ArchiveError &e) {
        EXPECT_EQ(e.errorCase(), ArchiveError::unwritableArchive);
    }
    try {
        Archive archive(path, Archive::AccessMode::update);
        archive.addEntry(std::string(65536, 'n'), EntryType::file, 0);
        ADD_FAILURE() << "a 65536-byte name was accepted";
    } catch (const ArchiveError &e) {
        EXPECT_EQ(e.errorCase(), ArchiveError::invalidEntryPath);
    }
    EXPECT_EQ(readBytes(path), before);
}

// Adds a mixed set of entries, either one complete archive per addition or with the directory deferred.
void addMixedEntries(Archive &archive, const std::vector<std::string> &contents)
{
    for (std::size_t i = 0; i < contents.size(); ++i) {
        const auto method = i % 3 == 0 ? CompressionMethod::deflate : CompressionMethod::none;
        const auto type =
            i % 7 == 6 ? EntryType::directory : (i % 11 == 10 ? EntryType::symlink : EntryType::file);
        const std::string name = "entry-" + std::to_string(i) + (type == EntryType::directory ? "/" : "");
        const std::string &content = type == EntryType::directory ? contents[0].substr(0, 0) : contents[i];
        archive.addEntry(name, type, content.size(), utc(2020, 1, 1, 0, 0, 0) + seconds(i * 2), std::nullopt,
                         method, 4096, textProvider(content));
    }
}

TEST(ArchiveWriting, DeferredDirectoryWritesTheSameBytesAsSingleAdditions)
{
    std::mt19937 random(7);
    std::vector<std::string> contents;
    for (int i = 0; i < 120; ++i) {
        std::string text(random() % 20000, 'x');
        for (auto &c : text)
            c = static_cast<char>('a' + random() % (i % 2 ? 26 : 3));
        contents.push_back(text);
    }
    TempDir dir;
    {
        Archive single(dir / "single.zip", Archive::AccessMode::create);
        addMixedEntries(single, contents);
        Archive deferred(dir / "deferred.zip", Archive::AccessMode::create);
        deferred.beginDeferringCentralDirectory();
        addMixedEntries(deferred, contents);
        deferred.writeDeferredCentralDirectory();
    }
    const Bytes single = readBytes(dir / "single.zip");
    EXPECT_EQ(single.size(), readBytes(dir / "deferred.zip").size());
    EXPECT_TRUE(single == readBytes(dir / "deferred.zip"));

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
// with the directory written after each addition or once at the end.
TEST(ArchiveWriting, FilesFromDiskWriteTheBytesOfDefaultChunks)
{
    const std::size_t mebibyte = 1024 * 1024;
    const std::size_t sizes[] = {
        0, 1, 16383, 16384, 16385, mebibyte - 1, mebibyte, mebibyte + 1, 3 * mebibyte + 5, 8 * mebibyte + 3,
        7};
    std::mt19937 random(9);
    TempDir dir;
    std::vector<std::string> contents;
    for (std::size_t i = 0; i < std::size(sizes); ++i) {
        std::string text(sizes[i], '\0');
        for (auto &c : text)
            c = static_cast<char>('a' + random() % 4);
        contents.push_back(text);
        writeFile(dir / "src" / std::to_string(i), text);
    }
    for (CompressionMethod method : {CompressionMethod::none, CompressionMethod::deflate}) {
        const std::string tag = method == CompressionMethod::none ? "stored" : "deflated";
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
        for (const char *variant : {"-disk.zip", "-deferred.zip"}) {
            const Bytes written = readBytes(dir / (tag + variant));
            EXPECT_EQ(written.size(), expected.size()) << tag << variant;
            EXPECT_TRUE(written == expected) << tag << variant;
        }

        // A buffer of no bytes is refused before anything is written, however large the copies are.
        {
            Archive archive(dir / (tag + "-disk.zip"), Archive::AccessMode::update);
            EXPECT_EQ(errorCaseOf([&] { archive.addEntry("2", dir / "src", method, 0); }),
                      "invalidBufferSize")
                << tag;
        }
        EXPECT_TRUE(readBytes(dir / (tag + "-disk.zip")) == expected) << tag;
    }
}

// Info-ZIP's -fz writes ZIP64 end records that no total needs; additions write only the plain end
// record, and the next addition must find the central directory through it.
TEST(ArchiveWriting, UpdatingAnArchiveWithUnneededZIP64EndRecords)
{
    TempDir dir;
    writeFile(dir / "In/a.txt", "alpha");
    ASSERT_EQ(run("cd " + quoted(dir.path()) + " && zip -q -fz -r out.zip In").status, 0);
    const auto path = dir / "out.zip";
    const std::string one = "one", two = "second";
    {
        Archive archive(path, Archive::AccessMode::update);
        ASSERT_TRUE(archive.zip64EndOfCentralDirectory());
        archive.addEntry("one.txt", EntryType::file, one.size(), utc(2020, 1, 1, 0, 0, 0), std::nullopt,
                         CompressionMethod::none, 16384, textProvider(one));
        EXPECT_FALSE(archive.zip64EndOfCentralDirectory());
        archive.addEntry("two.txt", EntryType::file, two.size(), utc(2020, 1, 1, 0, 0, 0), std::nullopt,
                         CompressionMethod::none, 16384, textProvider(two));
    }
    EXPECT_EQ(run("unzip -tq " + quoted(path)).status, 0);
    Archive archive(path, Archive::AccessMode::read);
    std::vector<std::string> names;
    for (const Entry &e : archive)
        names.push_back(e.path());
    EXPECT_EQ(names, (std::vector<std::string>{"In/", "In/a.txt", "one.txt", "two.txt"}));
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

    Archive archive(path, Archive::AccessMode::read);
    ASSERT_TRUE(archive.zip64EndOfCentralDirectory());
    std::size_t count = 0;
    for (auto it = archive.begin(); it != archive.end(); ++it)
        ++count;
    EXPECT_EQ(count, 65535u);
}

TEST(ArchiveWriting, DeflatedEntriesRoundTripAtChunkBoundaries)
{
    TempDir dir;
    std::mt19937 random(3);
    std::vector<std::string> contents;
    for (std::size_t size : {0u, 1u, 16383u, 16384u, 16385u, 100000u}) {
        std::string text(size, '\0');
        for (auto &c : text)
            c = static_cast<char>(random() % 256);
        contents.push_back(text);
    }
    const auto path = dir / "d.zip";
    {
        Archive archive(path, Archive::AccessMode::create);
        for (std::size_t i = 0; i < contents.size(); ++i)
            archive.addEntry("f" + std::to_string(i), EntryType::file, contents[i].size(),
                             utc(2022, 1, 1, 0, 0, 0), std::nullopt, CompressionMethod::deflate,
                             defaultWriteChunkSize, textProvider(contents[i]));
    }
    Archive archive(path, Archive::AccessMode::read);
    std::size_t i = 0;
    for (const Entry &entry : archive) {
        EXPECT_TRUE(entry.isCompressed());
        EXPECT_EQ(entry.uncompressedSize(), contents[i].size());
        std::string out;
        const auto crc = archive.extract(entry, [&](ByteView c) { out.append(c.begin(), c.end()); });
        EXPECT_EQ(out, contents[i]);
        EXPECT_EQ(crc, zlibCRC(contents[i]));
        ++i;
    }
    EXPECT_EQ(i, contents.size());
}

} // namespace
} // namespace fiva::zip::test

namespace fiva::zip::test {
namespace {

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
