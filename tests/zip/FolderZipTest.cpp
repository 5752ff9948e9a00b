#include "zip/FolderZip.h"

#include "zip/Archive.h"
#include "zip/Errors.h"

#include "TestSupport.h"

namespace fiva::zip::test {
namespace {

std::vector<std::string> entryPaths(const fs::path &archivePath)
{
    Archive archive(archivePath, Archive::AccessMode::read);
    std::vector<std::string> names;
    for (const Entry &e : archive)
        names.push_back(e.path());
    return names;
}

TEST(FolderZip, PackingOrderWithAndWithoutParent)
{
    TempDir dir;
    writeFile(dir / "Data/a.txt", "a");
    writeFile(dir / "Data/sub/b.txt", "b");
    zipItem(dir / "Data", dir / "kept.zip", true);
    zipItem(dir / "Data/", dir / "bare.zip", false);
    EXPECT_EQ(entryPaths(dir / "kept.zip"),
              (std::vector<std::string>{"Data/a.txt", "Data/sub/", "Data/sub/b.txt", "Data/"}));
    EXPECT_EQ(entryPaths(dir / "bare.zip"), (std::vector<std::string>{"a.txt", "sub/", "sub/b.txt"}));

    fs::create_directory(dir / "Empty");
    zipItem(dir / "Empty", dir / "empty.zip", true);
    EXPECT_EQ(entryPaths(dir / "empty.zip"), std::vector<std::string>{"Empty/"});

    zipItem(dir / "Data/a.txt", dir / "single.zip", true);
    EXPECT_EQ(entryPaths(dir / "single.zip"), std::vector<std::string>{"a.txt"});
}

TEST(FolderZip, PackingRefusesMissingSourceAndExistingDestination)
{
    TempDir dir;
    writeFile(dir / "Data/a.txt", "a");
    writeFile(dir / "old.zip", "previous archive");
    EXPECT_EQ(errorCaseOf([&] { zipItem(dir / "Data", dir / "old.zip"); }), "fileWriteFileExists");
    EXPECT_EQ(readFile(dir / "old.zip"), "previous archive");
    EXPECT_EQ(errorCaseOf([&] { zipItem(dir / "Nothing", dir / "new.zip"); }), "fileReadNoSuchFile");
    EXPECT_FALSE(fs::exists(dir / "new.zip"));
    EXPECT_EQ(errorCaseOf([&] { unzipItem(dir / "none.zip", dir / "out"); }), "fileReadNoSuchFile");
}

TEST(FolderZip, RoundTripKeepsContentLinksPermissionsAndDates)
{
    TempDir dir;
    writeFile(dir / "Src/plain.txt", "plain");
    writeFile(dir / "Src/empty", "");
    writeFile(dir / "Src/deep/er/big.bin", std::string(100000, 'z') + "tail");
    writeFile(dir / "Src/caf\xC3\xA9 \xE2\x82\xAC.txt", "accent");
    fs::create_directories(dir / "Src/hollow");
    fs::create_symlink("plain.txt", dir / "Src/link");
    fs::create_symlink("deep/er", dir / "Src/dirlink");
    fs::permissions(dir / "Src/plain.txt", fs::perms(0600));
    fs::permissions(dir / "Src/deep", fs::perms(0750));
    const auto date = fs::file_time_type::clock::now() - std::chrono::hours(24 * 400);
    fs::last_write_time(dir / "Src/plain.txt", date);
    // An empty folder and a link itself (not its target) get their dates back too.
    const auto secondsOf = [](const fs::path &path) {
        struct stat info
        {
        };
        return ::lstat(path.c_str(), &info) == 0 ? info.st_mtim.tv_sec : -1;
    };
    const struct timespec old[2] = {{1000000000, 0}, {1000000000, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (dir / "Src/hollow").c_str(), old, 0), 0);
    ASSERT_EQ(::utimensat(AT_FDCWD, (dir / "Src/link").c_str(), old, AT_SYMLINK_NOFOLLOW), 0);

    for (CompressionMethod method : {CompressionMethod::none, CompressionMethod::deflate}) {
        const std::string tag = method == CompressionMethod::none ? "stored" : "deflated";
        zipItem(dir / "Src", dir / (tag + ".zip"), true, method);
        unzipItem(dir / (tag + ".zip"), dir / tag);
        EXPECT_EQ(describeTree(dir / tag / "Src"), describeTree(dir / "Src")) << tag;
        const auto restored = fs::last_write_time(dir / tag / "Src/plain.txt");
        EXPECT_LE(std::chrono::abs(restored - date), std::chrono::seconds(2)) << tag;
        EXPECT_EQ(secondsOf(dir / tag / "Src/hollow"), 1000000000) << tag;
        EXPECT_EQ(secondsOf(dir / tag / "Src/link"), 1000000000) << tag;
    }
}

TEST(FolderZip, EntriesLeavingTheDestinationAreRefused)
{
    struct Case
    {
        std::vector<RawEntry> entries;
        std::string expectedError;
        std::vector<std::string> expectedInside; // relative to the destination
    } cases[] = {
        {{{.name = "../x", .content = "evil"}}, "fileReadInvalidFileName", {}},
        {{{.name = "a/../../x", .content = "evil"}}, "fileReadInvalidFileName", {}},
        {{{.name = "/x", .content = "fine"}}, "", {"x"}},
        {{{.name = "ok/../y", .content = "fine"}}, "", {"ok", "y"}},
        {{{.name = "sub/", .content = "", .externalAttributes = 040755u << 16},
          {.name = "sub/l", .content = "../f", .externalAttributes = 0120777u << 16}},
         "uncontainedSymlink",
         {"sub"}},
        {{{.name = "sub/l", .content = "g", .externalAttributes = 0120777u << 16},
          {.name = "sub/m", .content = "./g", .externalAttributes = 0120777u << 16}},
         "",
         {"sub/l", "sub/m"}},
        {{{.name = "abs", .content = "/etc/passwd", .externalAttributes = 0120777u << 16}},
         "uncontainedSymlink",
         {}},
        // a link to its own folder is contained, but a path through it then climbs out on disk
        {{{.name = "l", .content = ".", .externalAttributes = 0120777u << 16},
          {.name = "l/../x", .content = "evil"}},
         "fileReadInvalidFileName",
         {"l"}},
        {{{.name = "l", .content = "sub/..", .externalAttributes = 0120777u << 16},
          {.name = "l/../y/", .content = "", .externalAttributes = 040755u << 16}},
         "fileReadInvalidFileName",
         {"l"}},
        {{{.name = std::string("nul\0/../../x", 12), .content = "evil"}}, "fileReadInvalidFileName", {}},
    };
    for (const Case &c : cases) {
        TempDir dir;
        writeBytes(dir / "h.zip", buildArchive(c.entries));
        fs::create_directories(dir / "outer/dest");
        const std::string error = errorCaseOf([&] { unzipItem(dir / "h.zip", dir / "outer/dest"); });
        EXPECT_EQ(error, c.expectedError) << c.entries.front().name;
        // Nothing may appear beside the destination, and only the expected items inside it.
        std::vector<std::string> outside;
        for (const auto &item : fs::directory_iterator(dir / "outer"))
            outside.push_back(item.path().filename().string());
        EXPECT_EQ(outside, std::vector<std::string>{"dest"}) << c.entries.front().name;
        std::vector<std::string> inside;
        for (const auto &item : fs::directory_iterator(dir / "outer/dest"))
            inside.push_back(item.path().filename().string());
        std::vector<std::string> expectedTop;
        for (const auto &p : c.expectedInside)
            expectedTop.push_back(p.substr(0, p.find('/')));
        std::sort(expectedTop.begin(), expectedTop.end());
        expectedTop.erase(std::unique(expectedTop.begin(), expectedTop.end()), expectedTop.end());
        std::sort(inside.begin(), inside.end());
        EXPECT_EQ(inside, expectedTop) << c.entries.front().name;
        for (const auto &p : c.expectedInside)
            EXPECT_TRUE(fs::exists(fs::symlink_status(dir / "outer/dest" / p))) << p;
    }
}

TEST(FolderZip, UncontainedLinksAreCreatedWhenAllowed)
{
    TempDir dir;
    writeBytes(dir / "l.zip",
               buildArchive({{.name = "sub/l", .content = "../f", .externalAttributes = 0120777u << 16}}));
    unzipItem(dir / "l.zip", dir / "out", false, true);
    EXPECT_EQ(fs::read_symlink(dir / "out/sub/l"), "../f");
}

TEST(FolderZip, ExistingItemsAndAttributes)
{
    TempDir dir;
    writeBytes(
        dir / "a.zip",
        buildArchive({{.name = "folder/", .content = "", .externalAttributes = 040700u << 16},
                      {.name = "folder/file", .content = "new"},
                      {.name = "zero", .content = "z", .externalAttributes = 0100000u << 16},
                      {.name = "dosfile", .content = "d", .versionMadeBy = 0x0014, .externalAttributes = 0},
                      {.name = "dosdir/", .content = "", .versionMadeBy = 0x0014, .externalAttributes = 0x10},
                      {.name = "setid", .content = "s", .externalAttributes = 0104755u << 16}}));
    fs::create_directories(dir / "out/folder");
    unzipItem(dir / "a.zip", dir / "out");
    auto mode = [&](const char *name) {
        return static_cast<unsigned>(fs::status(dir / "out" / name).permissions());
    };
    EXPECT_EQ(mode("folder"), 0700u);
    EXPECT_EQ(mode("zero"), 0644u);
    EXPECT_EQ(mode("dosfile"), 0644u);
    EXPECT_EQ(mode("dosdir"), 0755u);
    EXPECT_EQ(mode("setid"), 04755u);

    writeBytes(dir / "b.zip", buildArchive({{.name = "folder/file", .content = "again"}}));
    EXPECT_EQ(errorCaseOf([&] { unzipItem(dir / "b.zip", dir / "out"); }), "fileWriteFileExists");
    EXPECT_EQ(readFile(dir / "out/folder/file"), "new");
}

TEST(FolderZip, HostileDataGivesNamedErrors)
{
    const std::string text(40000, 'w');
    std::string corrupt = rawDeflate(text);
    corrupt[0] = static_cast<char>(0xFF);
    const Bytes good = buildArchive({{.name = "f", .content = text}});
    struct Case
    {
        const char *label;
        Bytes archive;
        std::string expectedError;
    } cases[] = {
        {"crc", buildArchive({{.name = "f", .content = text, .crc = 1234}}), "invalidCRC32"},
        {"folder crc",
         buildArchive({{.name = "d/", .content = "", .externalAttributes = 040755u << 16, .crc = 5}}),
         "invalidCRC32"},
        {"method", buildArchive({{.name = "f", .content = text, .method = 99}}), "invalidCompressionMethod"},
        {"corrupt", buildArchive({{.name = "f", .content = text, .method = 8, .rawData = corrupt}}),
         "corruptedData"},
        {"truncated", Bytes(good.begin(), good.begin() + 1000), "missingEndOfCentralDirectoryRecord"},
        {"link not UTF-8",
         buildArchive({{.name = "l", .content = "\xFF\xFE", .externalAttributes = 0120777u << 16}}),
         "invalidEntryPath"},
    };
    for (const Case &c : cases) {
        TempDir dir;
        writeBytes(dir / "h.zip", c.archive);
        EXPECT_EQ(errorCaseOf([&] { unzipItem(dir / "h.zip", dir / "out"); }), c.expectedError) << c.label;
    }
    // The data is written out in full before the checksum disagrees, and it stays.
    TempDir dir;
    writeBytes(dir / "crc.zip", cases[0].archive);
    EXPECT_EQ(errorCaseOf([&] { unzipItem(dir / "crc.zip", dir / "out"); }), "invalidCRC32");
    EXPECT_EQ(readFile(dir / "out/f"), text);
    EXPECT_EQ(errorCaseOf([&] { unzipItem(dir / "crc.zip", dir / "skip", true); }), "");
}

TEST(FolderZip, ContainmentOnText)
{
    struct Case
    {
        const char *folder;
        const char *target;
        bool contained;
    } cases[] = {
        {"/d", "/d/x", true},       {"/d/", "/d/x/", true},
        {"/d", "/d/../x", false},   {"/d", "/d/a/../../x", false},
        {"/d", "/dx", false},       {"/d", "/d/.", true},
        {"/d", "/d", true},         {"/d/sub", "/d/f", false},
        {"/", "/anything", true},   {"/d", "/d/a/./b/../c", true},
        {"/d", "/../../d/x", true},
    };
    for (const Case &c : cases)
        EXPECT_EQ(isContained(c.folder, c.target), c.contained) << c.folder << " " << c.target;
}

} // namespace
} // namespace fiva::zip::test
