#include "platform/AllocatorTuning.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace fiva {

namespace {

constexpr const char *tunablesVariable = "GLIBC_TUNABLES";
// The user's own GLIBC_TUNABLES across the restart: "=" and the value when it was set, empty when not.
constexpr const char *savedVariable = "FIVA_SAVED_GLIBC_TUNABLES";
constexpr const char *tunedAllocator = "glibc.malloc.hugetlb=1:glibc.malloc.top_pad=67108864";

void restoreTunables(const char *saved)
{
    if (saved[0] == '=')
        ::setenv(tunablesVariable, saved + 1, 1);
    else
        ::unsetenv(tunablesVariable);
    ::unsetenv(savedVariable);
}

} // namespace

void restartWithTunedAllocator(char **argv)
{
#if defined(__linux__) && defined(__GLIBC__)
    if (const char *saved = std::getenv(savedVariable)) {
        restoreTunables(saved);
        return;
    }
    const char *own = std::getenv(tunablesVariable);
    if (own && std::strstr(own, "glibc.malloc."))
        return;
    const std::string saved = own ? std::string("=") + own : std::string();
    const std::string tunables = own && *own ? std::string(own) + ':' + tunedAllocator : tunedAllocator;
    if (::setenv(savedVariable, saved.c_str(), 1) == 0 &&
        ::setenv(tunablesVariable, tunables.c_str(), 1) == 0)
        ::execv("/proc/self/exe", argv);
    // Still here: no restart (no /proc, say), so run as things are.
    restoreTunables(saved.c_str());
#else
    (void)argv;
#endif
}

} // namespace fiva
