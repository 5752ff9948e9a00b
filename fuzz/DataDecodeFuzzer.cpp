#include <cstdio>
#include <cstdlib>

#include "DataDecodeHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (const auto broken = fiva::json::fuzz::decodeData(data, size)) {
        std::fprintf(stderr, "%s\n", broken->c_str());
        std::abort();
    }
    return 0;
}
