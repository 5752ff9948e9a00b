#include <cstdio>
#include <cstdlib>

#include "BookmarkImportHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (const auto broken = fiva::interchange::fuzz::importExportImport(data, size)) {
        std::fprintf(stderr, "%s\n", broken->c_str());
        std::abort();
    }
    return 0;
}
