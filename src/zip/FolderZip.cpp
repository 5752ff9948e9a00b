#include "zip/FolderZip.h"

#include "zip/Archive.h"
#include "zip/Errors.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <unordered_set>
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

std::string lexicalParent(std::string_view standardizedFile)
{
    const auto slash = standardizedFile.rfind('/');
    return std::string(standardizedFile.substr(0, slash + 1));
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

// Follows an entry's parent folders on disk as the kernel will, so that a link unpacked earlier (say l ->
// ".") cannot carry a later path such as "l/../x" out of the destination although its text stays inside.
class PhysicalContainment
{
public:
    explicit PhysicalContainment(const fs::path &destination)
    {
        std::error_code error;
        m_root = fs::weakly_canonical(fs::absolute(destination), error).string();
        if (error)
            m_root = absoluteText(destination);
        m_root = withoutTrailingSlashes(m_root);
    }

    // `components` are the entry path's folders (all of them for a folder entry).
    bool check(const std::vector<std::string_view> &components, const std::string &key)
    {
        if (m_verified.contains(key))
            return true;
        std::string current = m_root;
        bool fresh = false; // below a folder that does not exist yet, text and disk agree
        for (std::string_view component : components) {
            if (component.empty() || component == ".")
                continue;
            if (component == "..") {
                const auto slash = current.rfind('/');
                current = slash == 0 ? "/" : current.substr(0, slash);
            } else {
                std::string candidate = (current == "/" ? "" : current) + "/" + std::string(component);
                struct stat status
                {
                };
                if (!fresh && ::lstat(candidate.c_str(), &status) == 0) {
                    if (S_ISLNK(status.st_mode)) {
                        char *resolved = ::realpath(candidate.c_str(), nullptr);
                        if (!resolved)
                            return false;
                        candidate = resolved;
                        std::free(resolved);
                    } else if (!S_ISDIR(status.st_mode)) {
                        break; // creating the folder will fail on its own with a clear error
                    }
                } else {
                    fresh = true;
                }
                current = std::move(candidate);
            }
            if (current != m_root && !current.starts_with(m_root + "/"))
                return false;
        }
        m_verified.insert(key);
        return true;
    }

private:
    std::string m_root;
    std::unordered_set<std::string> m_verified;
};

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
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            throw DataError(DataError::unwritableFile);
        done += static_cast<std::size_t>(n);
    }
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

std::uint32_t Archive::extract(const Entry &entry, const fs::path &url, std::size_t bufferSize,
                               bool skipCRC32, bool allowUncontainedSymlinks, FolderCache *knownFolders)
{
    if (bufferSize < 1)
        throw ArchiveError(ArchiveError::invalidBufferSize);
    const EntryType type = entry.type();
    const FileAttributes attributes = entry.fileAttributes();
    auto makeParent = [&] {
        const fs::path parent = url.parent_path();
        if (knownFolders && knownFolders->contains(parent.native()))
            return;
        createDirectories(parent);
        if (knownFolders)
            knownFolders->insert(parent.native());
    };
    std::uint32_t checksum = 0;
    switch (type) {
    case EntryType::file: {
        // O_EXCL is the existence test: whatever is at the target, even a dangling link, makes it fail.
        makeParent();
        const int fd = ::open(url.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
        if (fd < 0) {
            const int error = errno;
            if (error == EEXIST)
                throw FileSystemError(FileSystemError::fileWriteFileExists, error, url);
            throw FileSystemError::fromErrno(error, url);
        }
        try {
            if (const auto copied = copyStoredData(entry, fd, skipCRC32))
                checksum = *copied;
            else
                checksum = extract(
                    entry, [fd](ByteView chunk) { writeAll(fd, chunk); }, bufferSize, skipCRC32);
            const timespec times[2] = {{0, UTIME_OMIT}, toTimespec(attributes.modificationDate)};
            if (::fchmod(fd, attributes.posixPermissions) != 0 || ::futimens(fd, times) != 0)
                throw FileSystemError::fromErrno(errno, url);
        } catch (...) {
            ::close(fd);
            throw;
        }
        if (::close(fd) != 0)
            throw DataError(DataError::unwritableFile);
        return checksum;
    }
    case EntryType::directory:
        checksum = extract(
            entry, [](ByteView) {}, bufferSize, skipCRC32);
        createDirectories(url);
        if (knownFolders)
            knownFolders->insert(withoutTrailingSlashes(url.native()));
        break;
    case EntryType::symlink: {
        if (itemExists(url))
            throw FileSystemError(FileSystemError::fileWriteFileExists, EEXIST, url);
        Bytes target;
        checksum = extract(
            entry, [&](ByteView chunk) { target.assign(chunk.begin(), chunk.end()); }, bufferSize, skipCRC32);
        if (!isValidUTF8(target) || std::find(target.begin(), target.end(), 0) != target.end())
            throw ArchiveError(ArchiveError::invalidEntryPath);
        const std::string destination(target.begin(), target.end());
        if (!allowUncontainedSymlinks) {
            const std::string linkPath = standardizedPath(foldSlashes(absoluteText(url)));
            const std::string folder = lexicalParent(withoutTrailingSlashes(linkPath));
            const std::string resolved =
                destination.starts_with('/') ? destination : folder + "/" + destination;
            if (!isContained(folder, foldSlashes(resolved)))
                throw ArchiveError(ArchiveError::uncontainedSymlink);
        }
        makeParent();
        if (::symlink(destination.c_str(), url.c_str()) != 0)
            throw FileSystemError::fromErrno(errno, url);
        break;
    }
    }

    if (type == EntryType::symlink) {
        // Linux has no lchmod: a link's own mode bits are never consulted, so only its date is restored.
        struct stat status
        {
        };
        if (::lstat(url.c_str(), &status) != 0)
            throw FileSystemError::fromErrno(errno, url);
        const timespec times[2] = {status.st_atim, toTimespec(attributes.modificationDate)};
        if (::utimensat(AT_FDCWD, url.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0)
            throw FileSystemError::fromErrno(errno, url);
    } else {
        if (::chmod(url.c_str(), attributes.posixPermissions) != 0)
            throw FileSystemError::fromErrno(errno, url);
        const timespec times[2] = {{0, UTIME_OMIT}, toTimespec(attributes.modificationDate)};
        if (::utimensat(AT_FDCWD, url.c_str(), times, 0) != 0)
            throw FileSystemError::fromErrno(errno, url);
    }
    return checksum;
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
    PhysicalContainment physical(to);
    Archive::FolderCache knownFolders;
    for (auto it = archive.begin(); it != archive.end(); ++it) {
        const Entry &entry = *it;
        const std::string path = pathEncoding ? entry.path(*pathEncoding) : entry.path();
        const std::string target = destination + "/" + path;
        // A NUL would cut the path short in every system call, after the checks below had judged all of it.
        if (path.find('\0') != std::string::npos || !isContained(destination, foldSlashes(target)))
            throw FileSystemError(FileSystemError::fileReadInvalidFileName, 0, target);
        if (!allowUncontainedSymlinks) {
            auto components = splitComponents(path);
            const bool walkAll = entry.type() == EntryType::directory || components.back().empty() ||
                                 components.back() == "." || components.back() == "..";
            if (!walkAll)
                components.pop_back();
            const std::string key = walkAll ? path : path.substr(0, path.rfind('/') + 1);
            if (!physical.check(components, key))
                throw FileSystemError(FileSystemError::fileReadInvalidFileName, 0, target);
        }
        const std::uint32_t checksum = archive.extract(entry, fs::path(target), defaultReadChunkSize,
                                                       skipCRC32, allowUncontainedSymlinks, &knownFolders);
        if (!skipCRC32 && checksum != entry.checksum())
            throw ArchiveError(ArchiveError::invalidCRC32);
    }
}

} // namespace fiva::zip
