#include "FuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fiva::zip::fuzz::readArchive(data, size);
    return 0;
}
