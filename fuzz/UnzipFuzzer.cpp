#include "FuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fiva::zip::fuzz::unzipArchive(data, size);
    return 0;
}
