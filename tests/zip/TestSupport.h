#pragma once

#include "zip/Archive.h"
#include "zip/Errors.h"
#include "zip/Records.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <initializer_list>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "support/ProcessRun.h"

namespace fiva::zip::test {

using fiva::test::ProcessRun;
using fiva::test::runProcess;

namespace fs = std::filesystem;

// A fresh folder per test, removed afterwards.
class TempDir
{
public:
    TempDir()
    {
        std::string pattern = (fs::temp_directory_path() / "fiva-zip-XXXXXX").string();
        if (!::mkdtemp(pattern.data()))
            throw std::runtime_error("mkdtemp failed");
        m_path = pattern;
    }
    ~TempDir()
    {
        std::error_code ignored;
        fs::permissions(m_path, fs::perms::owner_all, fs::perm_options::add, ignored);
        // Unpacked read-only folders would keep their content from being removed.
        for (auto it = fs::recursive_directory_iterator(m_path, ignored);
             it != fs::recursive_directory_iterator(); it.increment(ignored))
            if (it->is_directory(ignored) && !it->is_symlink(ignored))
                fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
        fs::remove_all(m_path, ignored);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const fs::path &path() const { return m_path; }
    fs::path operator/(const std::string &name) const { return m_path / name; }

private:
    fs::path m_path;
};

inline void writeFile(const fs::path &path, const std::string &content)
{
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary);
    out << content;
}

inline std::string readFile(const fs::path &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

inline Bytes readBytes(const fs::path &path)
{
    const std::string text = readFile(path);
    return Bytes(text.begin(), text.end());
}

inline void writeBytes(const fs::path &path, const Bytes &bytes)
{
    writeFile(path, std::string(bytes.begin(), bytes.end()));
}

// Reproducible bytes: any of the 256 values, or the first `alphabet` lower-case letters.
inline std::string randomText(std::size_t size, unsigned seed, unsigned alphabet = 256)
{
    std::mt19937 random(seed);
    const char first = alphabet < 256 ? 'a' : 0;
    std::string text(size, '\0');
    for (auto &c : text)
        c = static_cast<char>(first + random() % alphabet);
    return text;
}

struct CommandResult
{
    int status = -1;
    std::string output;
};

// Runs a shell command, capturing stdout and stderr together.
inline CommandResult run(const std::string &command)
{
    const ProcessRun done = runProcess({"sh", "-c", command}, {.mergeOutput = true});
    return {done.exitCode, done.out};
}

inline std::string quoted(const fs::path &path)
{
    std::string out = "'";
    for (char c : path.string())
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

// Runs `action` and returns the name of the error case it threw ("" when it succeeded). Callers match errors
// by their message, so it must name the case too.
inline std::string errorCaseOf(const std::function<void()> &action)
{
    std::string name;
    const auto named = [&name](const auto &e) {
        name = std::decay_t<decltype(e)>::caseName(e.errorCase());
        EXPECT_NE(std::string(e.what()).find(name), std::string::npos) << e.what();
    };
    try {
        action();
    } catch (const ArchiveError &e) {
        named(e);
    } catch (const CompressionError &e) {
        named(e);
    } catch (const DataError &e) {
        named(e);
    } catch (const FileSystemError &e) {
        named(e);
    }
    return name;
}

// A description of a tree: for each relative path, its kind and content (or link target), and permissions.
inline std::map<std::string, std::string> describeTree(const fs::path &root, bool withPermissions = true)
{
    std::map<std::string, std::string> tree;
    for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator(); ++it) {
        const fs::path &p = it->path();
        const std::string rel = p.lexically_relative(root).string(); // not through links
        struct stat st
        {
        };
        ::lstat(p.c_str(), &st);
        const std::string mode = withPermissions ? " mode=" + std::to_string(st.st_mode & 07777) : "";
        if (S_ISLNK(st.st_mode))
            tree[rel] = "link " + fs::read_symlink(p).string();
        else if (S_ISDIR(st.st_mode))
            tree[rel] = "dir" + mode;
        else
            tree[rel] = "file " + readFile(p) + mode;
    }
    return tree;
}

// The paths of an archive's entries, in the order of its central directory.
inline std::vector<std::string> entryPaths(const fs::path &archivePath)
{
    Archive archive(archivePath, Archive::AccessMode::read);
    std::vector<std::string> paths;
    for (const Entry &e : archive)
        paths.push_back(e.path());
    return paths;
}

// Little-endian fields of `width` bytes each.
inline void put(Bytes &out, unsigned width, std::initializer_list<std::uint64_t> values)
{
    for (const std::uint64_t v : values) {
        for (unsigned i = 0; i < width; ++i)
            out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
    }
}

inline void putText(Bytes &out, const std::string &text)
{
    out.insert(out.end(), text.begin(), text.end());
}

inline std::uint32_t zlibCRC(const std::string &text)
{
    return static_cast<std::uint32_t>(
        ::crc32(0, reinterpret_cast<const Bytef *>(text.data()), static_cast<uInt>(text.size())));
}

// Raw DEFLATE of `text`, as a ZIP entry holds it.
inline std::string rawDeflate(const std::string &text)
{
    z_stream z{};
    deflateInit2(&z, 6, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY);
    std::string out(deflateBound(&z, text.size()), '\0');
    z.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(text.data()));
    z.avail_in = static_cast<uInt>(text.size());
    z.next_out = reinterpret_cast<Bytef *>(out.data());
    z.avail_out = static_cast<uInt>(out.size());
    deflate(&z, Z_FINISH);
    out.resize(z.total_out);
    deflateEnd(&z);
    return out;
}

// One entry of a hand-built archive, for layouts our writer never produces.
struct RawEntry
{
    std::string name;
    std::string content;      // the uncompressed bytes
    std::uint16_t method = 0; // 8 deflates `content`; anything else stores it
    std::uint16_t flags = 0x0800;
    std::uint16_t time = 0;
    std::uint16_t date = 0x5221; // 2021-01-01
    std::uint16_t versionMadeBy = 0x0315;
    std::uint32_t externalAttributes = 0100644u << 16;
    std::optional<std::uint32_t> crc{};              // defaults to the real CRC of `content`
    std::optional<std::string> rawData{};            // bytes written as the entry's data instead of `content`
    std::optional<std::uint32_t> uncompressedSize{}; // recorded instead of the size of `content`
};

// Local headers and data, central directory and end record, with an optional archive comment.
inline Bytes buildArchive(const std::vector<RawEntry> &entries, const std::string &comment = {})
{
    Bytes out;
    Bytes directory;
    for (const RawEntry &e : entries) {
        const std::string data = e.rawData.value_or(e.method == 8 ? rawDeflate(e.content) : e.content);
        const std::uint64_t offset = out.size();
        const auto common = [&](Bytes &b) {
            put(b, 2, {20, e.flags, e.method, e.time, e.date});
            put(b, 4,
                {e.crc.value_or(zlibCRC(e.content)), data.size(),
                 e.uncompressedSize.value_or(e.content.size())});
            put(b, 2, {e.name.size(), 0}); // no extra field
        };
        put(out, 4, {0x04034b50});
        common(out);
        putText(out, e.name + data);
        put(directory, 4, {0x02014b50});
        put(directory, 2, {e.versionMadeBy});
        common(directory);
        put(directory, 2, {0, 0, 0}); // comment, disk and internal attributes
        put(directory, 4, {e.externalAttributes, offset});
        putText(directory, e.name);
    }
    const std::uint64_t directoryOffset = out.size();
    out.insert(out.end(), directory.begin(), directory.end());
    put(out, 4, {0x06054b50});
    put(out, 2, {0, 0, entries.size(), entries.size()});
    put(out, 4, {directory.size(), directoryOffset});
    put(out, 2, {comment.size()});
    putText(out, comment);
    return out;
}

} // namespace fiva::zip::test
