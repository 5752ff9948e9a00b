#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <vector>

#include "FuzzHarness.h"

// Every file of the fuzz corpus runs through the fuzz targets' code, so regressions show in ordinary builds.
namespace {

namespace fs = std::filesystem;

TEST(FuzzCorpus, EveryFileReplaysThroughBothTargets)
{
    std::size_t replayed = 0;
    for (const auto &target : fs::directory_iterator(FIVA_FUZZ_CORPUS)) {
        for (const auto &file : fs::directory_iterator(target.path())) {
            std::ifstream in(file.path(), std::ios::binary);
            const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(in), {}};
            SCOPED_TRACE(file.path().string());
            fiva::zip::fuzz::readArchive(bytes.data(), bytes.size());
            fiva::zip::fuzz::unzipArchive(bytes.data(), bytes.size());
            ++replayed;
        }
    }
    EXPECT_GE(replayed, 14u);
}

} // namespace
