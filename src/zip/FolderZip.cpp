#include "zip/FolderZip.h"

#include "zip/Archive.h"
#include "zip/ConfinedFolder.h"
#include "zip/Errors.h"
#include "zip/FileCopy.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <limits>
#include <memory>
#include <vector>

namespace fiva::zip {

namespace fs = std::filesystem;

namespace {

bool itemExists(const fs::path &path)
{
    struct stat status
    {
    };
    return ::lstat(path.c_str(), &status) == 0;
}

std::string withoutTrailingSlashes(std::string text)
{
    while (text.size() > 1 && text.back() == '/')
        text.pop_back();
    return text;
}

std::string absoluteText(const fs::path &path)
{
    return fs::absolute(path).string();
}

// Creates a folder and its missing parents; an existing folder is fine.
void createDirectories(const fs::path &path)
{
    std::error_code error;
    fs::create_directories(path, error);
    if (error)
        throw FileSystemError::fromErrno(error.value(), path);
}

// The items below a folder, relative to it, each folder followed by its contents. Names are sorted so that
// packing the same tree twice gives the same archive.
void listItems(const fs::path &folder, const std::string &prefix, std::vector<std::string> &items)
{
    std::unique_ptr<DIR, int (*)(DIR *)> dir(::opendir(folder.c_str()), ::closedir);
    if (!dir)
        throw FileSystemError::fromErrno(errno, folder);
    std::vector<std::pair<std::string, bool>> children;
    errno = 0;
    while (const dirent *item = ::readdir(dir.get())) {
        const std::string_view name = item->d_name;
        if (name == "." || name == "..")
            continue;
        bool isFolder = item->d_type == DT_DIR;
        if (item->d_type == DT_UNKNOWN) {
            struct stat status
            {
            };
            isFolder = ::lstat((folder / item->d_name).c_str(), &status) == 0 && S_ISDIR(status.st_mode);
        }
        children.emplace_back(std::string(name), isFolder);
    }
    if (errno != 0)
        throw FileSystemError::fromErrno(errno, folder);
    std::sort(children.begin(), children.end());
    for (const auto &[name, isFolder] : children) {
        items.push_back(prefix + name);
        if (isFolder)
            listItems(folder / name, prefix + name + "/", items);
    }
}

std::vector<std::string_view> splitComponents(std::string_view path)
{
    std::vector<std::string_view> parts;
    std::size_t start = 0;
    while (start <= path.size()) {
        const auto slash = path.find('/', start);
        const auto end = slash == std::string_view::npos ? path.size() : slash;
        parts.push_back(path.substr(start, end - start));
        if (slash == std::string_view::npos)
            break;
        start = slash + 1;
    }
    return parts;
}

void writeAll(int fd, ByteView bytes)
{
    if (writeFully(fd, bytes.data(), bytes.size()) != 0)
        throw DataError(DataError::unwritableFile);
}

timespec toTimespec(Date date)
{
    const auto since = date.time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(since);
    timespec t{};
    t.tv_sec = static_cast<time_t>(seconds.count());
    t.tv_nsec =
        static_cast<long>(std::chrono::duration_cast<std::chrono::nanoseconds>(since - seconds).count());
    return t;
}

} // namespace

std::string standardizedPath(std::string_view absolutePath)
{
    std::vector<std::string_view> segments;
    bool folder = !absolutePath.empty() && absolutePath.back() == '/';
    const auto parts = splitComponents(absolutePath);
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const std::string_view part = parts[i];
        const bool last = i + 1 == parts.size();
        if (part.empty())
            continue;
        if (part == "." || part == "..") {
            if (part == ".." && !segments.empty())
                segments.pop_back();
            if (last)
                folder = true;
            continue;
        }
        segments.push_back(part);
    }
    std::string result = "/";
    for (std::size_t i = 0; i < segments.size(); ++i) {
        result += segments[i];
        if (i + 1 < segments.size() || folder)
            result += '/';
    }
    return result;
}

bool isContained(std::string_view folder, std::string_view target)
{
    std::string prefix = standardizedPath(folder);
    if (prefix.back() != '/')
        prefix += '/';
    const std::string standardTarget = standardizedPath(target);
    return standardTarget.starts_with(prefix) || standardTarget + "/" == prefix;
}

namespace {

std::string foldSlashes(std::string text)
{
    std::string::size_type at;
    while ((at = text.find("//")) != std::string::npos)
        text.erase(at, 1);
    return text;
}

} // namespace

namespace {

bool isName(std::string_view component)
{
    return !component.empty() && component != "." && component != "..";
}

// Splits an entry's path into the folder that holds it and its last component.
std::pair<std::string_view, std::string_view> splitLeaf(std::string_view relative)
{
    const auto slash = relative.rfind('/');
    if (slash == std::string_view::npos)
        return {{}, relative};
    return {relative.substr(0, slash), relative.substr(slash + 1)};
}

// Whether a relative link target read from `linkFolder` stays beneath it, judged on disk: the existing
// components are resolved by the kernel through the links already there. From the first missing component
// on the rest is text, and a ".." there is refused: a missing name may become a link to "." later, and the
// ".." would then step out of the folder.
bool staysBeneath(const ConfinedFolder &linkFolder, std::string_view target)
{
    std::string reached;
    bool missing = false;
    for (const std::string_view part : splitComponents(target)) {
        if (part.empty() || part == ".")
            continue;
        if (missing) {
            if (part == "..")
                return false;
            continue;
        }
        std::string candidate = reached.empty() ? std::string(part) : reached + "/" + std::string(part);
        if (linkFolder.open(candidate, O_PATH).valid()) {
            reached = std::move(candidate);
            continue;
        }
        if (errno != ENOENT && errno != ENOTDIR)
            return false; // EXDEV is leaving; a loop or a refused lookup cannot be vouched for either
        if (part == "..")
            return false;
        missing = true;
    }
    return true;
}

// An absolute target is followed from the root of the system: it stays inside only when its text goes
// through the link's folder, and what follows that folder is then judged on disk like a relative target.
// The folder's text is the entry's own, "." and ".." included: the kernel then walks it exactly as the
// folder was reached, where a tidied text could name another folder once links stand on the way.
bool absoluteStaysBeneath(const ConfinedFolder &linkFolder, std::string_view folderText,
                          std::string_view target)
{
    std::string folder = foldSlashes(std::string(folderText));
    if (folder.back() != '/')
        folder += '/';
    const std::string text = foldSlashes(std::string(target));
    if (text + "/" == folder)
        return true;
    if (!text.starts_with(folder))
        return false;
    return staysBeneath(linkFolder, std::string_view(text).substr(folder.size()));
}

void setFolderAttributes(const ConfinedFolder &root, const Archive::PendingFolder &folder)
{
    const UniqueFd fd = root.open(folder.relative, O_RDONLY | O_DIRECTORY);
    if (!fd.valid())
        throwResolutionError(errno, folder.shown);
    const timespec times[2] = {{0, UTIME_OMIT}, toTimespec(folder.attributes.modificationDate)};
    if (::fchmod(fd.get(), folder.attributes.posixPermissions) != 0 || ::futimens(fd.get(), times) != 0)
        throw FileSystemError::fromErrno(errno, folder.shown);
}

// How much a file may grow: the recorded uncompressed size is not trusted, so the guard against a
// decompression bomb is the room left where it is written, keeping a sixteenth of it for everyone else.
std::uint64_t roomFor(int fd)
{
    struct statvfs space
    {
    };
    if (::fstatvfs(fd, &space) != 0)
        return std::numeric_limits<std::uint64_t>::max();
    const std::uint64_t available = static_cast<std::uint64_t>(space.f_bavail) * space.f_frsize;
    return available - available / 16;
}

} // namespace

std::uint32_t Archive::extract(const Entry &entry, const ConfinedFolder &root, std::string_view relative,
                               const fs::path &shown, std::size_t bufferSize, bool skipCRC32,
                               bool allowUncontainedSymlinks, std::vector<PendingFolder> *pendingFolders)
{
    if (bufferSize < 1)
        throw ArchiveError(ArchiveError::invalidBufferSize);
    while (!relative.empty() && relative.front() == '/')
        relative.remove_prefix(1);
    const EntryType type = entry.type();
    const FileAttributes attributes = entry.fileAttributes();
    const timespec times[2] = {{0, UTIME_OMIT}, toTimespec(attributes.modificationDate)};

    if (type == EntryType::directory) {
        const std::uint32_t checksum = extract(
            entry, [](ByteView) {}, bufferSize, skipCRC32);
        (void)root.makeFolders(relative, shown);
        PendingFolder folder{std::string(relative), shown, attributes};
        if (pendingFolders)
            pendingFolders->push_back(std::move(folder));
        else
            setFolderAttributes(root, folder);
        return checksum;
    }

    // A file or a link is made by its name inside its parent, opened beneath the root: the name itself
    // is never resolved, so whatever sits there already, even a dangling link, is an existing item.
    const auto [parentText, leaf] = splitLeaf(relative);
    if (!isName(leaf))
        throw FileSystemError(FileSystemError::fileReadInvalidFileName, 0, shown);
    const std::string name(leaf);
    const ConfinedFolder parent(root.makeFolders(parentText, shown), shown.parent_path());
    std::uint32_t checksum = 0;
    if (type == EntryType::file) {
        UniqueFd fd(
            ::openat(parent.fd(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
        if (!fd.valid()) {
            const int error = errno;
            if (error == EEXIST)
                throw FileSystemError(FileSystemError::fileWriteFileExists, error, shown);
            throw FileSystemError::fromErrno(error, shown);
        }
        if (const auto copied = copyStoredData(entry, fd.get(), skipCRC32)) {
            checksum = *copied;
        } else {
            const std::uint64_t room = roomFor(fd.get());
            std::uint64_t written = 0;
            checksum = extract(
                entry,
                [&](ByteView chunk) {
                    written += chunk.size();
                    if (written > room)
                        throw DataError(DataError::unwritableFile);
                    writeAll(fd.get(), chunk);
                },
                bufferSize, skipCRC32);
        }
        if (::fchmod(fd.get(), attributes.posixPermissions) != 0 || ::futimens(fd.get(), times) != 0)
            throw FileSystemError::fromErrno(errno, shown);
        if (::close(fd.release()) != 0)
            throw DataError(DataError::unwritableFile);
        return checksum;
    }

    struct stat status
    {
    };
    if (::fstatat(parent.fd(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0)
        throw FileSystemError(FileSystemError::fileWriteFileExists, EEXIST, shown);
    Bytes target;
    checksum = extract(
        entry,
        [&](ByteView chunk) {
            // Longer targets cannot be made into a link anyway; stop before holding a bomb in memory.
            if (target.size() + chunk.size() >= PATH_MAX)
                throw ArchiveError(ArchiveError::invalidEntryPath);
            target.insert(target.end(), chunk.begin(), chunk.end());
        },
        bufferSize, skipCRC32);
    if (target.empty() || !isValidUTF8(target) || std::find(target.begin(), target.end(), 0) != target.end())
        throw ArchiveError(ArchiveError::invalidEntryPath);
    const std::string destination(target.begin(), target.end());
    if (!allowUncontainedSymlinks) {
        const bool contained =
            destination.starts_with('/')
                ? absoluteStaysBeneath(parent,
                                       standardizedPath(root.path().string() + "/") + std::string(parentText),
                                       destination)
                : staysBeneath(parent, destination);
        if (!contained)
            throw ArchiveError(ArchiveError::uncontainedSymlink);
    }
    if (::symlinkat(destination.c_str(), parent.fd(), name.c_str()) != 0) {
        const int error = errno;
        if (error == EEXIST)
            throw FileSystemError(FileSystemError::fileWriteFileExists, error, shown);
        throw FileSystemError::fromErrno(error, shown);
    }
    // Linux has no lchmod: a link's own mode bits are never consulted, so only its date is restored.
    const timespec linkTimes[2] = {{0, UTIME_OMIT}, times[1]};
    if (::utimensat(parent.fd(), name.c_str(), linkTimes, AT_SYMLINK_NOFOLLOW) != 0)
        throw FileSystemError::fromErrno(errno, shown);
    return checksum;
}

std::uint32_t Archive::extract(const Entry &entry, const fs::path &url, std::size_t bufferSize,
                               bool skipCRC32, bool allowUncontainedSymlinks, FolderCache *knownFolders)
{
    if (bufferSize < 1)
        throw ArchiveError(ArchiveError::invalidBufferSize);
    // The caller names the item: its parent is taken as given, and only the item is made beneath it.
    const fs::path parent = url.parent_path().empty() ? fs::path(".") : url.parent_path();
    if (!knownFolders || !knownFolders->contains(parent.native())) {
        createDirectories(parent);
        if (knownFolders)
            knownFolders->insert(parent.native());
    }
    const ConfinedFolder root(parent);
    std::string leaf = withoutTrailingSlashes(url.filename().string());
    if (entry.type() == EntryType::directory && (leaf.empty() || leaf == "."))
        leaf.clear();
    return extract(entry, root, leaf, url, bufferSize, skipCRC32, allowUncontainedSymlinks, nullptr);
}

void zipItem(const fs::path &at, const fs::path &to, bool shouldKeepParent,
             CompressionMethod compressionMethod)
{
    if (!itemExists(at))
        throw FileSystemError(FileSystemError::fileReadNoSuchFile, ENOENT, at);
    if (itemExists(to))
        throw FileSystemError(FileSystemError::fileWriteFileExists, EEXIST, to);
    Archive archive(to, Archive::AccessMode::create);

    const fs::path source(withoutTrailingSlashes(at.string()));
    const std::string name = source.filename().string();
    fs::path parent = source.parent_path();
    if (parent.empty())
        parent = ".";

    struct stat status
    {
    };
    if (::lstat(source.c_str(), &status) != 0)
        throw FileSystemError(FileSystemError::fileReadNoSuchFile, errno, at);
    if (!S_ISDIR(status.st_mode)) {
        archive.addEntry(name, parent, compressionMethod, defaultWriteChunkSize);
        return;
    }
    std::vector<std::string> items;
    listItems(source, "", items);
    if (shouldKeepParent)
        items.emplace_back();
    archive.beginDeferringCentralDirectory();
    for (const std::string &item : items) {
        if (shouldKeepParent)
            archive.addEntry(name + "/" + item, parent, compressionMethod, defaultWriteChunkSize);
        else
            archive.addEntry(item, source, compressionMethod, defaultWriteChunkSize);
    }
    archive.writeDeferredCentralDirectory();
}

void unzipItem(const fs::path &at, const fs::path &to, bool skipCRC32, bool allowUncontainedSymlinks,
               std::optional<PathEncoding> pathEncoding)
{
    struct stat status
    {
    };
    if (::stat(at.c_str(), &status) != 0)
        throw FileSystemError(FileSystemError::fileReadNoSuchFile, errno, at);
    Archive archive(at, Archive::AccessMode::read, pathEncoding);
    const std::string destination = absoluteText(to);
    createDirectories(to);
    const ConfinedFolder root(to);
    std::vector<Archive::PendingFolder> folders;
    for (auto it = archive.begin(); it != archive.end(); ++it) {
        const Entry &entry = *it;
        const std::string path = pathEncoding ? entry.path(*pathEncoding) : entry.path();
        const std::string target = destination + "/" + path;
        // A name that does not decode is empty, and would stand for the destination itself. A NUL would cut
        // the path short in every system call, after the checks had judged all of it.
        if (path.empty() || path.find('\0') != std::string::npos ||
            !isContained(destination, foldSlashes(target)))
            throw FileSystemError(FileSystemError::fileReadInvalidFileName, 0, target);
        const std::uint32_t checksum =
            archive.extract(entry, root, path, fs::path(target), defaultReadChunkSize, skipCRC32,
                            allowUncontainedSymlinks, &folders);
        if (!skipCRC32 && checksum != entry.checksum())
            throw ArchiveError(ArchiveError::invalidCRC32);
    }
    // A read-only folder must still take its files, and writing them changes its date: folders get their
    // own attributes last, deepest first, so a parent is closed only after everything below it.
    const auto depth = [](const Archive::PendingFolder &folder) {
        const std::string text = standardizedPath("/" + folder.relative + "/");
        return std::count(text.begin(), text.end(), '/');
    };
    std::stable_sort(folders.begin(), folders.end(),
                     [&](const auto &a, const auto &b) { return depth(a) > depth(b); });
    for (const Archive::PendingFolder &folder : folders)
        setFolderAttributes(root, folder);
}

} // namespace fiva::zip
