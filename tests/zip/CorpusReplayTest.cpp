#include "zip/ConfinedFolder.h"

#include "FuzzHarness.h"
#include "TestSupport.h"

// Every file of the fuzz corpus runs through the fuzz targets' code, so regressions show in ordinary builds.
namespace fiva::zip::test {
namespace {

TEST(FuzzCorpus, EveryFileReplaysThroughBothTargets)
{
    std::size_t replayed = 0;
    for (const auto &target : fs::directory_iterator(FIVA_FUZZ_CORPUS)) {
        for (const auto &file : fs::directory_iterator(target.path())) {
            SCOPED_TRACE(file.path().string());
            const Bytes bytes = readBytes(file.path());
            fuzz::readArchive(bytes.data(), bytes.size());
            fuzz::unzipArchive(bytes.data(), bytes.size());
            // The component walk that stands in where the kernel cannot confine lookups keeps the same
            // promise.
            ConfinedFolder::setKernelConfinement(false);
            fuzz::unzipArchive(bytes.data(), bytes.size());
            ConfinedFolder::setKernelConfinement(true);
            ++replayed;
        }
    }
    EXPECT_GE(replayed, 14u);
}

} // namespace
} // namespace fiva::zip::test
