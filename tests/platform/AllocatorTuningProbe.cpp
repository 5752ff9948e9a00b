// Prints what a program sees after restartWithTunedAllocator: whether its allocator grows the heap
// in the large steps it was asked for, the GLIBC_TUNABLES it passes on, and its arguments.
#include "platform/AllocatorTuning.h"

#include <cstdio>
#include <cstdlib>
#include <malloc.h>

int main(int argc, char **argv)
{
    fiva::restartWithTunedAllocator(argv);
    void *block = std::malloc(1000);
    const bool tuned = mallinfo2().arena >= std::size_t(64) << 20;
    std::free(block);
    const char *passedOn = std::getenv("GLIBC_TUNABLES");
    std::printf("%s|%s|%s", tuned ? "tuned" : "plain", passedOn ? passedOn : "(unset)",
                std::getenv("FIVA_SAVED_GLIBC_TUNABLES") ? "saved left" : "");
    for (int i = 1; i < argc; ++i)
        std::printf("|%s", argv[i]);
    return 0;
}
