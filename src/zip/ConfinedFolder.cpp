#include "zip/ConfinedFolder.h"

#include "zip/Errors.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <linux/openat2.h>
#include <vector>

namespace fiva::zip {

namespace fs = std::filesystem;

UniqueFd &UniqueFd::operator=(UniqueFd &&other) noexcept
{
    if (this != &other) {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = other.release();
    }
    return *this;
}

UniqueFd::~UniqueFd()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

int UniqueFd::release()
{
    const int fd = m_fd;
    m_fd = -1;
    return fd;
}

namespace {

// 1: openat2 confines lookups; 0: walk by hand; -1: not probed yet.
std::atomic<int> kernelState{-1};

int openBeneath(int root, const char *path, int flags)
{
    open_how how{};
    how.flags = static_cast<std::uint64_t>(flags | O_CLOEXEC);
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    for (;;) {
        const long fd = ::syscall(SYS_openat2, root, path, &how, sizeof how);
        // EAGAIN: a rename elsewhere raced the lookup, which the kernel then refuses to vouch for.
        if (fd < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        return static_cast<int>(fd);
    }
}

bool probeKernel(int root)
{
    int state = kernelState.load();
    if (state < 0) {
        const int fd = openBeneath(root, ".", O_PATH | O_DIRECTORY);
        // Container filters answer an unknown system call with ENOSYS or EPERM.
        state = fd >= 0 ? 1 : (errno == ENOSYS || errno == EPERM ? 0 : 1);
        if (fd >= 0)
            ::close(fd);
        kernelState.store(state);
    }
    return state == 1;
}

std::vector<std::string_view> components(std::string_view path)
{
    std::vector<std::string_view> parts;
    std::size_t start = 0;
    while (start < path.size()) {
        auto slash = path.find('/', start);
        if (slash == std::string_view::npos)
            slash = path.size();
        if (slash > start)
            parts.push_back(path.substr(start, slash - start));
        start = slash + 1;
    }
    return parts;
}

std::string joined(const std::vector<std::string_view> &parts, std::size_t count)
{
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        if (i > 0)
            text += '/';
        text += parts[i];
    }
    return text;
}

} // namespace

ConfinedFolder::ConfinedFolder(const fs::path &folder) : m_path(fs::absolute(folder))
{
    m_root = UniqueFd(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!m_root.valid())
        throw FileSystemError::fromErrno(errno, folder);
}

ConfinedFolder::ConfinedFolder(UniqueFd folder, fs::path path)
    : m_path(std::move(path)), m_root(std::move(folder))
{
}

bool ConfinedFolder::kernelConfinement()
{
    return kernelState.load() != 0;
}

void ConfinedFolder::setKernelConfinement(bool enabled)
{
    kernelState.store(enabled ? -1 : 0);
}

UniqueFd ConfinedFolder::open(std::string_view relative, int flags) const
{
    while (!relative.empty() && relative.front() == '/')
        relative.remove_prefix(1);
    const std::string path = relative.empty() ? std::string(".") : std::string(relative);
    if (probeKernel(m_root.get()))
        return UniqueFd(openBeneath(m_root.get(), path.c_str(), flags));
    return walk(path, flags);
}

// Each step opens one name relative to the folder reached so far, refusing links, so nothing but the
// components' own folders is ever entered; ".." steps back along the folders entered, never above the root.
UniqueFd ConfinedFolder::walk(std::string_view relative, int flags) const
{
    std::vector<UniqueFd> entered;
    const auto current = [&] { return entered.empty() ? m_root.get() : entered.back().get(); };
    const auto parts = components(relative);
    std::string_view last = ".";
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const std::string_view part = parts[i];
        if (part == ".")
            continue;
        if (part == "..") {
            if (entered.empty()) {
                errno = EXDEV;
                return UniqueFd();
            }
            entered.pop_back();
            continue;
        }
        const std::string name(part);
        struct stat status
        {
        };
        if (::fstatat(current(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
            return UniqueFd();
        if (S_ISLNK(status.st_mode)) {
            errno = EXDEV;
            return UniqueFd();
        }
        if (i + 1 == parts.size()) {
            last = part;
            break;
        }
        UniqueFd next(::openat(current(), name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!next.valid())
            return UniqueFd();
        entered.push_back(std::move(next));
    }
    const std::string name(last);
    return UniqueFd(::openat(current(), name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC));
}

UniqueFd ConfinedFolder::makeFolders(std::string_view relative, const fs::path &shown) const
{
    UniqueFd folder = open(relative, O_PATH | O_DIRECTORY);
    if (folder.valid())
        return folder;
    if (errno != ENOENT)
        throwResolutionError(errno, shown);
    // Create one level at a time, each beneath the folder as it is on disk now, so a ".." after a new
    // folder steps back the way the kernel will and a link made by an earlier entry is judged where it leads.
    const auto parts = components(relative);
    for (std::size_t i = 1; i <= parts.size(); ++i) {
        const std::string prefix = joined(parts, i);
        folder = open(prefix, O_PATH | O_DIRECTORY);
        if (folder.valid())
            continue;
        const std::string_view name = parts[i - 1];
        if (errno != ENOENT || name == "." || name == "..")
            throwResolutionError(errno, shown);
        const UniqueFd parent = open(joined(parts, i - 1), O_PATH | O_DIRECTORY);
        if (!parent.valid())
            throwResolutionError(errno, shown);
        if (::mkdirat(parent.get(), std::string(name).c_str(), 0777) != 0 && errno != EEXIST)
            throwResolutionError(errno, shown);
        folder = open(prefix, O_PATH | O_DIRECTORY);
        if (!folder.valid())
            throwResolutionError(errno, shown);
    }
    return folder;
}

void throwResolutionError(int errorNumber, const fs::path &shown)
{
    if (errorNumber == EXDEV)
        throw FileSystemError(FileSystemError::fileReadInvalidFileName, 0, shown);
    throw FileSystemError::fromErrno(errorNumber, shown);
}

} // namespace fiva::zip
