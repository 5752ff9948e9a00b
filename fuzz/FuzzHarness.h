#pragma once

#include "zip/Archive.h"
#include "zip/Errors.h"
#include "zip/FolderZip.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <new>
#include <string>
#include <vector>

// What the fuzz targets run on one input; the replay test in tests/zip runs the same on every corpus file.
namespace fiva::zip::fuzz {

namespace fs = std::filesystem;

// One scratch folder per process, in memory when the system offers it, removed when the process exits. The
// path is never destroyed: a static one would be destroyed before the exit handler, registered while it was
// being made, got to read it, and every folder would stay behind.
inline const fs::path &scratchFolder()
{
    static const fs::path &folder = *[] {
        const fs::path base = fs::exists("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path();
        auto *f = new fs::path(base / ("fiva-zip-fuzz-" + std::to_string(::getpid())));
        fs::create_directories(*f);
        std::atexit([] {
            std::error_code ignored;
            fs::remove_all(scratchFolder(), ignored);
        });
        return f;
    }();
    return folder;
}

inline fs::path writeInput(const std::uint8_t *data, std::size_t size)
{
    const fs::path path = scratchFolder() / "input.zip";
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(data), static_cast<std::streamsize>(size));
    return path;
}

// Opens, walks and reads every entry through a consumer that throws the bytes away.
inline void readArchive(const std::uint8_t *data, std::size_t size)
{
    const fs::path input = writeInput(data, size);
    try {
        Archive archive(input, Archive::AccessMode::read);
        for (const Entry &entry : archive) {
            (void)entry.path();
            (void)entry.type();
            (void)entry.fileAttributes();
            try {
                archive.extract(
                    entry, [](ByteView) {}, 4096);
            } catch (const ZipError &) {
            }
        }
        (void)archive[std::string("a")];
    } catch (const ZipError &) {
    }
}

// A destination three folders down in a box whose every level also holds files and folders, with odd modes
// and old dates, so that an archive writing, chmod-ing or touching anything outside the destination shows.
class Sandbox
{
public:
    explicit Sandbox(fs::path box) : m_box(std::move(box)), m_destination(m_box / "up1/up2/up3/dest")
    {
        clear();
        fs::create_directories(m_destination);
        fs::path level = m_box;
        for (const char *name : {"up1", "up2", "up3", ""}) {
            writeText(level / "secret.txt", "secret", 0600);
            fs::create_directories(level / "existing/inner");
            writeText(level / "existing/inner/kept.txt", "kept", 0640);
            ::chmod((level / "existing").c_str(), 0750);
            level /= name;
        }
        fs::path folder = m_destination;
        while (folder != m_box.parent_path()) {
            for (const auto &item : fs::recursive_directory_iterator(folder))
                if (!item.path().string().starts_with(m_destination.string()))
                    age(item.path());
            age(folder);
            folder = folder.parent_path();
        }
        m_before = outside();
    }
    ~Sandbox() { clear(); }
    Sandbox(const Sandbox &) = delete;
    Sandbox &operator=(const Sandbox &) = delete;

    const fs::path &destination() const { return m_destination; }

    // What differs outside the destination since the box was made, one line per item.
    std::vector<std::string> outsideChanges() const
    {
        std::vector<std::string> changes;
        const auto now = outside();
        for (const auto &[path, before] : m_before) {
            const auto after = now.find(path);
            if (after == now.end())
                changes.push_back(path + ": gone");
            else if (after->second != before)
                changes.push_back(path + ": " + before + " -> " + after->second);
        }
        for (const auto &[path, description] : now)
            if (!m_before.contains(path))
                changes.push_back(path + ": new " + description);
        return changes;
    }

    // Links inside the destination that lead out of it, resolving what exists on disk and the rest as text.
    // Opens every folder of the destination to its owner first, so that nothing stays hidden from the walk.
    std::vector<std::string> linksLeavingDestination() const
    {
        std::vector<std::string> leaving;
        std::error_code error;
        const fs::path root = fs::canonical(m_destination, error);
        if (error)
            return {"destination unreadable: " + error.message()};
        openToOwner(m_destination);
        for (auto it = fs::recursive_directory_iterator(m_destination, error);
             !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
            if (!it->is_symlink(error))
                continue;
            std::error_code loop;
            const fs::path resolved = fs::weakly_canonical(it->path(), loop);
            if (loop)
                continue; // a loop leads nowhere
            const auto [end, _] = std::mismatch(root.begin(), root.end(), resolved.begin(), resolved.end());
            if (end != root.end())
                leaving.push_back(it->path().string() + " -> " + resolved.string());
        }
        return leaving;
    }

private:
    static void writeText(const fs::path &path, const std::string &text, mode_t mode)
    {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
        ::chmod(path.c_str(), mode);
    }
    static void age(const fs::path &path)
    {
        const timespec old[2] = {{1000000000, 0}, {1000000000, 0}};
        ::utimensat(AT_FDCWD, path.c_str(), old, AT_SYMLINK_NOFOLLOW);
    }
    // Every item of the box but the destination's content, and every item beside the box.
    std::map<std::string, std::string> outside() const
    {
        std::map<std::string, std::string> items;
        const auto describe = [&](const fs::path &path) {
            struct stat status
            {
            };
            if (::lstat(path.c_str(), &status) != 0)
                return;
            std::string text = std::to_string(status.st_mode) + " " + std::to_string(status.st_mtim.tv_sec) +
                               "." + std::to_string(status.st_mtim.tv_nsec);
            if (S_ISREG(status.st_mode)) {
                std::ifstream in(path, std::ios::binary);
                text += " " + std::string(std::istreambuf_iterator<char>(in), {});
            } else if (S_ISLNK(status.st_mode)) {
                text += " -> " + fs::read_symlink(path).string();
            }
            items[path.lexically_relative(m_box.parent_path()).string()] = text;
        };
        std::error_code ignored;
        for (const auto &item : fs::directory_iterator(m_box.parent_path(), ignored))
            describe(item.path());
        std::error_code error;
        for (auto it = fs::recursive_directory_iterator(m_box, error);
             !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
            // The destination itself changes as it fills; only what lies beside and above it must not.
            if (it->path() == m_destination)
                it.disable_recursion_pending();
            else
                describe(it->path());
        }
        return items;
    }
    static void openToOwner(const fs::path &folder)
    {
        std::error_code ignored;
        fs::permissions(folder, fs::perms::owner_all, fs::perm_options::add, ignored);
        for (auto it = fs::recursive_directory_iterator(folder, ignored);
             it != fs::recursive_directory_iterator(); it.increment(ignored)) {
            if (it->is_directory(ignored) && !it->is_symlink(ignored))
                fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
        }
    }
    void clear() const
    {
        std::error_code ignored;
        if (!fs::exists(m_box, ignored))
            return;
        openToOwner(m_box);
        fs::remove_all(m_box, ignored);
    }

    fs::path m_box;
    fs::path m_destination;
    std::map<std::string, std::string> m_before;
};

// Unpacks into a destination deep in a sandbox and aborts if anything outside it was created or changed, or
// if a link left inside leads out.
inline void unzipArchive(const std::uint8_t *data, std::size_t size)
{
    const fs::path input = writeInput(data, size);
    const Sandbox box(scratchFolder() / "box");
    try {
        unzipItem(input, box.destination());
    } catch (const ZipError &) {
    } catch (const std::bad_alloc &) {
        std::abort();
    }
    auto problems = box.outsideChanges();
    for (std::string &link : box.linksLeavingDestination())
        problems.push_back("link leaving the destination: " + std::move(link));
    for (const std::string &problem : problems)
        std::fprintf(stderr, "unzip broke its promise: %s\n", problem.c_str());
    if (!problems.empty())
        std::abort();
}

} // namespace fiva::zip::fuzz
