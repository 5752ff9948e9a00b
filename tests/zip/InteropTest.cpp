#include "zip/Archive.h"
#include "zip/FolderZip.h"

#include "TestSupport.h"

// Archives we write must satisfy tools that no one here wrote, and theirs must unpack with our code.
namespace fiva::zip::test {
namespace {

const std::string nonASCIIName = "\xC3\xA9t\xC3\xA9 \xE2\x82\xAC.txt";

void makeTree(const fs::path &root, bool withLinks, bool withNonASCII)
{
    writeFile(root / "a.txt", "alpha\n");
    writeFile(root / "empty", "");
    writeFile(root / "bin/random.bin", randomText(300000, 11));
    writeFile(root / "deep/x/y/z.txt", std::string(70000, 'z'));
    fs::create_directories(root / "hollow");
    if (withNonASCII)
        writeFile(root / nonASCIIName, "accent\n");
    if (withLinks) {
        fs::create_symlink("a.txt", root / "link");
        fs::create_symlink("y/z.txt", root / "deep/x/l");
    }
}

void expectTool(const std::string &command, const std::string &expectInOutput = {})
{
    const CommandResult result = run(command);
    EXPECT_EQ(result.status, 0) << command << "\n" << result.output;
    if (!expectInOutput.empty()) {
        EXPECT_NE(result.output.find(expectInOutput), std::string::npos) << command << "\n" << result.output;
    }
}

std::string pythonTestzip(const fs::path &archive)
{
    return "python3 -c \"import sys, zipfile; z = zipfile.ZipFile(sys.argv[1]); "
           "bad = z.testzip(); print('entries', len(z.infolist())); sys.exit(1 if bad else 0)\" " +
           quoted(archive);
}

// Every extractor, ours included, gives back the tree we packed, links to files and folders and permissions
// too; ours also gives back dates, those of an empty folder and of a link itself included.
TEST(Interop, OurArchivesPassTheToolsAndExtractIdentically)
{
    TempDir dir;
    makeTree(dir / "Src", true, true);
    fs::create_symlink("deep/x", dir / "Src/dirlink");
    fs::permissions(dir / "Src/a.txt", fs::perms(0600));
    fs::permissions(dir / "Src/deep", fs::perms(0750));
    const auto date = fs::file_time_type::clock::now() - std::chrono::hours(24 * 400);
    fs::last_write_time(dir / "Src/a.txt", date);
    const struct timespec old[2] = {{1000000000, 0}, {1000000000, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (dir / "Src/hollow").c_str(), old, 0), 0);
    ASSERT_EQ(::utimensat(AT_FDCWD, (dir / "Src/link").c_str(), old, AT_SYMLINK_NOFOLLOW), 0);
    const auto secondsOf = [](const fs::path &path) {
        struct stat info
        {
        };
        return ::lstat(path.c_str(), &info) == 0 ? info.st_mtim.tv_sec : -1;
    };
    for (CompressionMethod method : {CompressionMethod::none, CompressionMethod::deflate}) {
        const std::string tag = method == CompressionMethod::none ? "stored" : "deflated";
        SCOPED_TRACE(tag);
        const fs::path archive = dir / (tag + ".zip");
        zipItem(dir / "Src", archive, true, method);
        expectTool("unzip -t " + quoted(archive), "No errors detected");
        expectTool("zipinfo " + quoted(archive), "Src/bin/random.bin");
        expectTool(pythonTestzip(archive), "entries 14");
        expectTool("bsdtar -tf " + quoted(archive), "Src/deep/x/l");

        const auto expected = describeTree(dir / "Src");
        fs::create_directories(dir / (tag + "-unzip"));
        expectTool("unzip -q " + quoted(archive) + " -d " + quoted(dir / (tag + "-unzip")));
        EXPECT_EQ(describeTree(dir / (tag + "-unzip/Src")), expected) << "unzip";
        fs::create_directories(dir / (tag + "-bsdtar"));
        expectTool("bsdtar -xf " + quoted(archive) + " -C " + quoted(dir / (tag + "-bsdtar")));
        EXPECT_EQ(describeTree(dir / (tag + "-bsdtar/Src")), expected) << "bsdtar";
        unzipItem(archive, dir / (tag + "-ours"));
        EXPECT_EQ(describeTree(dir / (tag + "-ours/Src")), expected) << "ours";
        EXPECT_LE(std::chrono::abs(fs::last_write_time(dir / (tag + "-ours/Src/a.txt")) - date),
                  std::chrono::seconds(2));
        EXPECT_EQ(secondsOf(dir / (tag + "-ours/Src/hollow")), 1000000000);
        EXPECT_EQ(secondsOf(dir / (tag + "-ours/Src/link")), 1000000000);
    }
}

TEST(Interop, SeventyThousandEntriesGetZIP64EndRecordsTheToolsAccept)
{
    TempDir dir;
    for (int folder = 0; folder < 70; ++folder) {
        const fs::path sub = dir / "Many" / ("d" + std::to_string(folder));
        fs::create_directories(sub);
        for (int i = 0; i < 1000; ++i) {
            std::ofstream(sub / std::to_string(i)) << i;
        }
    }
    const fs::path archive = dir / "many.zip";
    zipItem(dir / "Many", archive, false);
    {
        Archive reader(archive, Archive::AccessMode::read);
        ASSERT_TRUE(reader.zip64EndOfCentralDirectory());
        EXPECT_EQ(reader.zip64EndOfCentralDirectory()->record.totalNumberOfEntriesInCentralDirectory, 70070u);
        EXPECT_EQ(reader.endOfCentralDirectoryRecord().totalNumberOfEntriesInCentralDirectory, 0xFFFF);
    }
    expectTool("unzip -tq " + quoted(archive), "No errors detected");
    expectTool("zipinfo -t " + quoted(archive), "70070 files");
    expectTool(pythonTestzip(archive), "entries 70070");
    expectTool("bsdtar -tf " + quoted(archive) + " | wc -l", "70070");
    unzipItem(archive, dir / "out");
    EXPECT_EQ(readFile(dir / "out/d69/999"), "999");
}

TEST(Interop, ToolArchivesUnpackIdentically)
{
    TempDir dir;
    makeTree(dir / "Full", true, false);
    makeTree(dir / "Plain", false, true);
    // Info-ZIP cannot write links into a pipe.
    makeTree(dir / "Unlinked", false, false);
    const std::string python =
        "python3 -c \"import os, sys, zipfile\n"
        "method = zipfile.ZIP_DEFLATED if sys.argv[3] == 'deflate' else zipfile.ZIP_STORED\n"
        "with zipfile.ZipFile(sys.argv[2], 'w', method) as z:\n"
        "    z.comment = b'made by python'\n"
        "    os.chdir(sys.argv[1])\n"
        "    for base, dirs, files in os.walk('Plain'):\n"
        "        for name in dirs + files:\n"
        "            z.write(os.path.join(base, name))\n\" " +
        quoted(dir.path()) + " ";
    struct Case
    {
        const char *label;
        const char *source;
        std::string command; // run in the temporary folder, writing out.zip
        bool comparePermissions;
    } cases[] = {
        {"zip -r", "Full", "zip -q -r -y out.zip Full", true},
        {"zip -0", "Full", "zip -q -0 -r -y out.zip Full", true},
        {"zip -fz", "Full", "zip -q -fz -r -y out.zip Full", true},
        {"zip streamed", "Full", "zip -q -r -y - Full > out.zip", true},
        {"zip -fd streamed", "Unlinked", "bash -o pipefail -c 'zip -q -fd -r - Unlinked | cat > out.zip'",
         true},
        {"python stored", "Plain", python + "out.zip stored", true},
        {"python deflated", "Plain", python + "out.zip deflate", true},
        {"bsdtar", "Full", "bsdtar -a -cf out.zip Full", true},
        {"bsdtar stored", "Plain", "bsdtar --format zip --options zip:compression=store -cf out.zip Plain",
         true},
        {"7z", "Plain", "7z a -tzip -mx=5 out.zip Plain > /dev/null", false},
    };
    for (const Case &c : cases) {
        fs::remove(dir / "out.zip");
        const CommandResult made = run("cd " + quoted(dir.path()) + " && " + c.command);
        ASSERT_EQ(made.status, 0) << c.label << "\n" << made.output;
        const fs::path out = dir / "unpacked";
        fs::remove_all(out);
        fs::create_directories(out);
        unzipItem(dir / "out.zip", out);
        EXPECT_EQ(describeTree(out / c.source, c.comparePermissions),
                  describeTree(dir / c.source, c.comparePermissions))
            << c.label;
    }
}

// Info-ZIP sets no UTF-8 flag, so its names decode as code page 437. Its -fz writes ZIP64 end records that no
// total needs; additions write only the plain end record, and the next addition must find the central
// directory through it.
TEST(Interop, InfoZIPArchivesReadAndTakeAdditions)
{
    TempDir dir;
    writeFile(dir / "In/caf\xC3\xA9", "x");
    writeFile(dir / "one.txt", "one");
    writeFile(dir / "two.txt", "second");
    ASSERT_EQ(run("cd " + quoted(dir.path()) + " && zip -q -fz -r out.zip In").status, 0);
    const auto path = dir / "out.zip";
    {
        Archive archive(path, Archive::AccessMode::update);
        ASSERT_TRUE(archive.zip64EndOfCentralDirectory());
        archive.addEntry("one.txt", dir.path());
        EXPECT_FALSE(archive.zip64EndOfCentralDirectory());
        archive.addEntry("two.txt", dir.path());
    }
    EXPECT_EQ(run("unzip -tq " + quoted(path)).status, 0);
    // C3 A9 read as code page 437.
    EXPECT_EQ(entryPaths(path),
              (std::vector<std::string>{"In/", "In/caf\xE2\x94\x9C\xE2\x8C\x90", "one.txt", "two.txt"}));
}

} // namespace
} // namespace fiva::zip::test
