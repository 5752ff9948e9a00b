#include "zip/FolderZip.h"

#include "zip/Archive.h"
#include "zip/Errors.h"

#include "TestSupport.h"

namespace fiva::zip::test {
namespace {

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

// Entries and links leaving the destination are refused, links only unless allowed; nothing appears beside
// the destination, and inside it only the expected items.
TEST(FolderZip, EntriesLeavingTheDestinationAreRefused)
{
    struct Case
    {
        std::vector<RawEntry> entries;
        std::string expectedError;
        std::map<std::string, std::string> expectedInside; // as described by describeTree
        bool allowUncontainedSymlinks = false;
    } cases[] = {
        {{{.name = "../x", .content = "evil"}}, "fileReadInvalidFileName", {}},
        {{{.name = "a/../../x", .content = "evil"}}, "fileReadInvalidFileName", {}},
        {{{.name = "/x", .content = "fine"}}, "", {{"x", "file fine"}}},
        {{{.name = "ok/../y", .content = "fine"}}, "", {{"ok", "dir"}, {"y", "file fine"}}},
        {{{.name = "sub/", .content = "", .externalAttributes = 040755u << 16},
          {.name = "sub/l", .content = "../f", .externalAttributes = 0120777u << 16}},
         "uncontainedSymlink",
         {{"sub", "dir"}}},
        {{{.name = "sub/l", .content = "../f", .externalAttributes = 0120777u << 16}},
         "",
         {{"sub", "dir"}, {"sub/l", "link ../f"}},
         true},
        {{{.name = "sub/l", .content = "g", .externalAttributes = 0120777u << 16},
          {.name = "sub/m", .content = "./g", .externalAttributes = 0120777u << 16}},
         "",
         {{"sub", "dir"}, {"sub/l", "link g"}, {"sub/m", "link ./g"}}},
        {{{.name = "abs", .content = "/etc/passwd", .externalAttributes = 0120777u << 16}},
         "uncontainedSymlink",
         {}},
        // a link to its own folder is contained, but a path through it then climbs out on disk
        {{{.name = "l", .content = ".", .externalAttributes = 0120777u << 16},
          {.name = "l/../x", .content = "evil"}},
         "fileReadInvalidFileName",
         {{"l", "link ."}}},
        {{{.name = "l", .content = "sub/..", .externalAttributes = 0120777u << 16},
          {.name = "l/../y/", .content = "", .externalAttributes = 040755u << 16}},
         "fileReadInvalidFileName",
         {{"l", "link sub/.."}}},
        {{{.name = std::string("nul\0/../../x", 12), .content = "evil"}}, "fileReadInvalidFileName", {}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.entries.front().name + (c.allowUncontainedSymlinks ? " allowed" : ""));
        TempDir dir;
        writeBytes(dir / "h.zip", buildArchive(c.entries));
        fs::create_directories(dir / "outer/dest");
        EXPECT_EQ(errorCaseOf([&] {
                      unzipItem(dir / "h.zip", dir / "outer/dest", false, c.allowUncontainedSymlinks);
                  }),
                  c.expectedError);
        std::map<std::string, std::string> expected{{"dest", "dir"}};
        for (const auto &[path, description] : c.expectedInside)
            expected["dest/" + path] = description;
        EXPECT_EQ(describeTree(dir / "outer", false), expected);
    }
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
