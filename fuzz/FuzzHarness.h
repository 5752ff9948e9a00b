#pragma once

#include "zip/Archive.h"
#include "zip/Errors.h"
#include "zip/FolderZip.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <string>

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

// Unpacks into a fresh folder and aborts if anything appeared beside it.
inline void unzipArchive(const std::uint8_t *data, std::size_t size)
{
    const fs::path input = writeInput(data, size);
    const fs::path box = scratchFolder() / "box";
    std::error_code ignored;
    fs::remove_all(box, ignored);
    fs::create_directories(box / "dest");
    try {
        unzipItem(input, box / "dest");
    } catch (const ZipError &) {
    } catch (const std::bad_alloc &) {
        std::abort();
    }
    for (const auto &item : fs::directory_iterator(box)) {
        if (item.path().filename() != "dest") {
            std::fprintf(stderr, "unzip wrote outside its destination: %s\n", item.path().c_str());
            std::abort();
        }
    }
    fs::permissions(box, fs::perms::owner_all, fs::perm_options::add, ignored);
    for (auto it = fs::recursive_directory_iterator(box, fs::directory_options::none, ignored);
         it != fs::recursive_directory_iterator(); it.increment(ignored)) {
        if (it->is_directory(ignored) && !it->is_symlink(ignored))
            fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
    }
    fs::remove_all(box, ignored);
}

} // namespace fiva::zip::fuzz
