#pragma once

#include "zip/Errors.h"
#include "zip/Records.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace fiva::zip::test {

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

struct CommandResult
{
    int status = -1;
    std::string output;
};

// Runs a shell command, capturing stdout and stderr together.
inline CommandResult run(const std::string &command)
{
    CommandResult result;
    std::unique_ptr<FILE, int (*)(FILE *)> pipe(::popen((command + " 2>&1").c_str(), "r"), ::pclose);
    if (!pipe)
        return result;
    std::array<char, 4096> buffer{};
    std::size_t n;
    while ((n = std::fread(buffer.data(), 1, buffer.size(), pipe.get())) > 0)
        result.output.append(buffer.data(), n);
    const int status = ::pclose(pipe.release());
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

inline std::string quoted(const fs::path &path)
{
    std::string out = "'";
    for (char c : path.string()) {
        if (c == '\'')
            out += "'\\''";
        else
            out += c;
    }
    return out + "'";
}

// Runs `action` and returns the name of the error case it threw ("" when it succeeded).
inline std::string errorCaseOf(const std::function<void()> &action)
{
    try {
        action();
    } catch (const ArchiveError &e) {
        return ArchiveError::caseName(e.errorCase());
    } catch (const CompressionError &e) {
        return CompressionError::caseName(e.errorCase());
    } catch (const DataError &e) {
        return DataError::caseName(e.errorCase());
    } catch (const FileSystemError &e) {
        return FileSystemError::caseName(e.errorCase());
    }
    return "";
}

// A description of a tree: for each relative path, its kind and content (or link target), and permissions.
inline std::map<std::string, std::string> describeTree(const fs::path &root, bool withPermissions = true)
{
    std::map<std::string, std::string> tree;
    for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator(); ++it) {
        const fs::path &p = it->path();
        const std::string rel = fs::relative(p, root).string();
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

} // namespace fiva::zip::test

#include <zlib.h>

#include <vector>

namespace fiva::zip::test {

inline void put16(Bytes &out, unsigned v)
{
    out.push_back(static_cast<std::uint8_t>(v));
    out.push_back(static_cast<std::uint8_t>(v >> 8));
}

inline void put32(Bytes &out, std::uint32_t v)
{
    put16(out, v & 0xFFFF);
    put16(out, v >> 16);
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
    std::uint16_t versionMadeBy = 0x0315;
    std::uint32_t externalAttributes = 0100644u << 16;
    std::optional<std::uint32_t> crc{};   // defaults to the real CRC of `content`
    std::optional<std::string> rawData{}; // bytes written as the entry's data instead of `content`
};

// Local headers and data, central directory and end record, with an optional archive comment.
inline Bytes buildArchive(const std::vector<RawEntry> &entries, const std::string &comment = {})
{
    Bytes out;
    Bytes directory;
    for (const RawEntry &e : entries) {
        const std::string data = e.rawData ? *e.rawData : (e.method == 8 ? rawDeflate(e.content) : e.content);
        const std::uint32_t crc = e.crc.value_or(zlibCRC(e.content));
        const auto offset = static_cast<std::uint32_t>(out.size());
        auto common = [&](Bytes &b) {
            put16(b, 20);
            put16(b, e.flags);
            put16(b, e.method);
            put16(b, 0);      // time
            put16(b, 0x5221); // 2021-01-01
            put32(b, crc);
            put32(b, static_cast<std::uint32_t>(data.size()));
            put32(b, static_cast<std::uint32_t>(e.content.size()));
            put16(b, static_cast<unsigned>(e.name.size()));
            put16(b, 0);
        };
        put32(out, 0x04034b50);
        common(out);
        putText(out, e.name);
        putText(out, data);
        put32(directory, 0x02014b50);
        put16(directory, e.versionMadeBy);
        common(directory);
        put16(directory, 0); // comment
        put16(directory, 0); // disk
        put16(directory, 0); // internal
        put32(directory, e.externalAttributes);
        put32(directory, offset);
        putText(directory, e.name);
    }
    const auto directoryOffset = static_cast<std::uint32_t>(out.size());
    out.insert(out.end(), directory.begin(), directory.end());
    put32(out, 0x06054b50);
    put16(out, 0);
    put16(out, 0);
    put16(out, static_cast<unsigned>(entries.size()));
    put16(out, static_cast<unsigned>(entries.size()));
    put32(out, static_cast<std::uint32_t>(directory.size()));
    put32(out, directoryOffset);
    put16(out, static_cast<unsigned>(comment.size()));
    putText(out, comment);
    return out;
}

} // namespace fiva::zip::test
