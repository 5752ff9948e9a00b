#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <string_view>

namespace fiva::zip {

// An owned file descriptor, closed with its owner.
class UniqueFd final
{
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : m_fd(fd) {}
    UniqueFd(UniqueFd &&other) noexcept : m_fd(other.release()) {}
    UniqueFd &operator=(UniqueFd &&other) noexcept;
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;
    ~UniqueFd();

    int get() const { return m_fd; }
    bool valid() const { return m_fd >= 0; }
    int release();

private:
    int m_fd = -1;
};

// A folder opened once, below which every path is resolved by the kernel without ever leaving it: a "..",
// an absolute link or a link climbing out fails with EXDEV however the folder's content changes meanwhile.
// Where the kernel cannot confine a lookup, paths are walked one component at a time and any link met on
// the way counts as leaving.
class ConfinedFolder final
{
public:
    // Opens the folder, following links in `folder` itself: the caller chose it.
    explicit ConfinedFolder(const std::filesystem::path &folder);
    // Takes an open folder; `path` is only for messages and for reading absolute link targets.
    ConfinedFolder(UniqueFd folder, std::filesystem::path path);

    const std::filesystem::path &path() const { return m_path; }
    int fd() const { return m_root.get(); }

    // Opens `relative` beneath the folder ("" is the folder itself). Fails with -1 and errno, EXDEV when the
    // path leads out. Never creates: `flags` must not hold O_CREAT.
    UniqueFd open(std::string_view relative, int flags) const;

    // Opens the folder at `relative` (O_PATH), creating the missing ones on the way. Throws FileSystemError
    // carrying `shown`: fileReadInvalidFileName when the path leads out, else the error of errno.
    UniqueFd makeFolders(std::string_view relative, const std::filesystem::path &shown) const;

    // True when the kernel confines lookups itself; tests turn it off to run the component walk.
    static bool kernelConfinement();
    static void setKernelConfinement(bool enabled);

private:
    UniqueFd walk(std::string_view relative, int flags) const;

    std::filesystem::path m_path;
    UniqueFd m_root;
};

// The FileSystemError for an errno met while resolving beneath a folder: EXDEV is leaving it.
[[noreturn]] void throwResolutionError(int errorNumber, const std::filesystem::path &shown);

} // namespace fiva::zip
