#include "zip/FolderZip.h"

#include "zip/Archive.h"
#include "zip/ConfinedFolder.h"
#include "zip/Errors.h"

#include <sys/socket.h>
#include <sys/un.h>

#include "FuzzHarness.h"
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

RawEntry link(std::string name, std::string target)
{
    return {.name = std::move(name), .content = std::move(target), .externalAttributes = 0120777u << 16};
}

// Entries and links leaving the destination are refused, links only unless allowed, whether the kernel
// confines the lookups or the component walk does; nothing outside the destination is created or changed,
// and inside it only the expected items appear.
TEST(FolderZip, EntriesLeavingTheDestinationAreRefused)
{
    struct Case
    {
        std::vector<RawEntry> entries;
        std::string expectedError;
        std::map<std::string, std::string> expectedInside; // as described by describeTree
        bool allowUncontainedSymlinks = false;
        bool throughLinks = false; // goes through links inside, which the component walk refuses
    } cases[] = {
        {{{.name = "../x", .content = "evil"}}, "fileReadInvalidFileName", {}},
        {{{.name = "a/../../x", .content = "evil"}}, "fileReadInvalidFileName", {}},
        {{{.name = "/x", .content = "fine"}}, "", {{"x", "file fine"}}},
        {{{.name = "ok/../y", .content = "fine"}}, "", {{"ok", "dir"}, {"y", "file fine"}}},
        {{{.name = "sub/", .content = "", .externalAttributes = 040755u << 16}, link("sub/l", "../f")},
         "uncontainedSymlink",
         {{"sub", "dir"}}},
        {{link("sub/l", "../f")}, "", {{"sub", "dir"}, {"sub/l", "link ../f"}}, true},
        {{link("sub/l", "g"), link("sub/m", "./g")},
         "",
         {{"sub", "dir"}, {"sub/l", "link g"}, {"sub/m", "link ./g"}}},
        {{link("abs", "/etc/passwd")}, "uncontainedSymlink", {}},
        // $DEST stands for the destination's absolute path
        {{link("sub/l", "$DEST/sub/x"), link("sub/m", "$DEST//sub")},
         "",
         {{"sub", "dir"}, {"sub/l", "link $DEST/sub/x"}, {"sub/m", "link $DEST//sub"}}},
        {{link("sub/l", "$DEST/sub/../x")}, "uncontainedSymlink", {{"sub", "dir"}}},
        // a link to its own folder is contained, but a path through it then climbs out on disk
        {{link("l", "."), {.name = "l/../x", .content = "evil"}},
         "fileReadInvalidFileName",
         {{"l", "link ."}}},
        {{link("l", "."), {.name = "new/../l/../secret.txt", .content = "evil"}},
         "fileReadInvalidFileName",
         {{"l", "link ."}, {"new", "dir"}}},
        {{link("l", "."),
          link("n1/../l/../u1", "."),
          link("n2/../l/../u1/../u2", "."),
          {.name = "m/../l/../u1/../u2/../x", .content = "evil"}},
         "fileReadInvalidFileName",
         {{"l", "link ."}, {"n1", "dir"}}},
        {{link("l", "."),
          {.name = "m/../l/../existing/", .content = "", .externalAttributes = 040777u << 16}},
         "fileReadInvalidFileName",
         {{"l", "link ."}, {"m", "dir"}}},
        {{link("x", "."), link("y", "x/../secret.txt")}, "uncontainedSymlink", {{"x", "link ."}}},
        // judged before x exists, y would lead out once x became a link to "."
        {{link("y", "x/../secret.txt"), link("x", ".")}, "uncontainedSymlink", {}},
        {{link("l", "sub/.."), {.name = "l/../y/", .content = "", .externalAttributes = 040755u << 16}},
         "uncontainedSymlink",
         {}},
        {{{.name = std::string("nul\0/../../x", 12), .content = "evil"}}, "fileReadInvalidFileName", {}},
        {{link("self", "."),
          {.name = "docs/a.txt", .content = "a"},
          link("docs/b", "a.txt"),
          link("through", "self/docs/b"),
          link("later", "missing/x"),
          link("dl", "docs"),
          {.name = "dl/d.txt", .content = "d"}},
         "",
         {{"self", "link ."},
          {"docs", "dir"},
          {"docs/a.txt", "file a"},
          {"docs/b", "link a.txt"},
          {"through", "link self/docs/b"},
          {"later", "link missing/x"},
          {"dl", "link docs"},
          {"docs/d.txt", "file d"}},
         false,
         true},
    };
    for (const bool kernel : {true, false}) {
        ConfinedFolder::setKernelConfinement(kernel);
        for (const Case &c : cases) {
            if (c.throughLinks && !kernel)
                continue;
            SCOPED_TRACE(c.entries.back().name + (c.allowUncontainedSymlinks ? " allowed" : "") +
                         (kernel ? "" : " walking"));
            TempDir dir, input;
            const fuzz::Sandbox box(dir / "box");
            const auto placed = [&](std::string text) {
                if (const auto at = text.find("$DEST"); at != std::string::npos)
                    text.replace(at, 5, box.destination().string());
                return text;
            };
            std::vector<RawEntry> entries = c.entries;
            for (RawEntry &entry : entries)
                entry.content = placed(entry.content);
            writeBytes(input / "h.zip", buildArchive(entries));
            EXPECT_EQ(errorCaseOf([&] {
                          unzipItem(input / "h.zip", box.destination(), false, c.allowUncontainedSymlinks);
                      }),
                      c.expectedError);
            std::map<std::string, std::string> expectedInside;
            for (const auto &[path, description] : c.expectedInside)
                expectedInside[path] = placed(description);
            EXPECT_EQ(describeTree(box.destination(), false), expectedInside);
            EXPECT_EQ(box.outsideChanges(), std::vector<std::string>{});
            if (!c.allowUncontainedSymlinks) {
                EXPECT_EQ(box.linksLeavingDestination(), std::vector<std::string>{});
            }
        }
    }
    ConfinedFolder::setKernelConfinement(true);
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

    // Folders listed before their content, as Info-ZIP lists them, take it even when read-only, and keep
    // their own date.
    writeBytes(
        dir / "ro.zip",
        buildArchive({{.name = "ro/", .content = "", .date = 0x4221, .externalAttributes = 040555u << 16},
                      {.name = "ro/sub/", .content = "", .externalAttributes = 040500u << 16},
                      {.name = "ro/sub/f", .content = "f"},
                      {.name = "ro/g", .content = "g"}}));
    unzipItem(dir / "ro.zip", dir / "ro-out");
    EXPECT_EQ(describeTree(dir / "ro-out"),
              (std::map<std::string, std::string>{{"ro", "dir mode=365"},
                                                  {"ro/sub", "dir mode=320"},
                                                  {"ro/sub/f", "file f mode=420"},
                                                  {"ro/g", "file g mode=420"}}));
    struct stat status
    {
    };
    ASSERT_EQ(::stat((dir / "ro-out/ro").c_str(), &status), 0);
    EXPECT_EQ(status.st_mtim.tv_sec, 1356998400); // 2013-01-01, the entry's date

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
        {"link too long", buildArchive({link("l", std::string(5000, 'a'))}), "invalidEntryPath"},
        {"name decoding to nothing", buildArchive({{.name = "\xFF\xFE", .content = "x"}}),
         "fileReadInvalidFileName"},
        {"file named as a folder", buildArchive({{.name = "f/", .content = "x"}}), "fileReadInvalidFileName"},
        {"file named dot-dot", buildArchive({{.name = "d/..", .content = "x"}}), "fileReadInvalidFileName"},
        // the recorded uncompressed size is not checked: the data is what it is
        {"size too small",
         buildArchive({{.name = "f", .content = text, .method = 8, .uncompressedSize = 10}}), ""},
        {"size too large",
         buildArchive({{.name = "f", .content = text, .method = 8, .uncompressedSize = 90000}}), ""},
    };
    for (const Case &c : cases) {
        TempDir dir;
        writeBytes(dir / "h.zip", c.archive);
        EXPECT_EQ(errorCaseOf([&] { unzipItem(dir / "h.zip", dir / "out"); }), c.expectedError) << c.label;
        if (c.expectedError.empty()) {
            EXPECT_TRUE(readFile(dir / "out/f") == text) << c.label;
        }
    }
}

// Items an archive cannot hold stop the packing at once, naming the item; a name that is not UTF-8 is stored
// so that our own reader unpacks it, under its code page 437 reading.
TEST(FolderZip, PackingItemsOnDiskAsTheyAre)
{
    TempDir dir;
    fs::create_directories(dir / "fifo");
    ASSERT_EQ(::mkfifo((dir / "fifo/pipe").c_str(), 0644), 0);
    fs::create_directories(dir / "socket");
    const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string socketPath = (dir / "socket/s").string();
    socketPath.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    struct Case
    {
        fs::path source;
        fs::path offending;
    } cases[] = {
        {dir / "fifo", dir / "fifo/pipe"}, {dir / "socket", dir / "socket/s"}, {"/dev/null", "/dev/null"}};
    for (const Case &c : cases) {
        const fs::path archive = dir / (c.source.filename().string() + ".zip");
        try {
            zipItem(c.source, archive);
            ADD_FAILURE() << c.source << " packed";
        } catch (const FileSystemError &e) {
            EXPECT_EQ(e.path(), c.offending);
        }
    }
    ::close(listener);

    writeFile(dir / "names/caf\xE9.txt", "latin-1 name");
    zipItem(dir / "names", dir / "names.zip");
    unzipItem(dir / "names.zip", dir / "names-out");
    EXPECT_EQ(describeTree(dir / "names-out", false),
              (std::map<std::string, std::string>{{"caf\u0398.txt", "file latin-1 name"}}));
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
