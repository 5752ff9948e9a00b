#pragma once

#include <cstdint>

namespace fiva::zip {

// Copies `size` bytes at `fromOffset` of the file `from` to `toOffset` of the file `to` and returns their
// CRC-32 (0 with `skipCRC32`). Neither descriptor's file position moves, so a stdio stream over either stays
// in step with it. The bytes move in bounded chunks, never whole. The kernel copies them itself where it can;
// a large range then has its CRC-32 computed meanwhile on a second thread that reads the same range, while
// smaller ones pass through one buffer that is checksummed on the way. Fails with DataError: unreadableFile
// when `from` ends or fails before `size` bytes, unwritableFile when `to` refuses them. What was written
// stays.
std::uint32_t copyFileRange(int from, std::uint64_t fromOffset, std::uint64_t size, int to,
                            std::uint64_t toOffset, bool skipCRC32);

} // namespace fiva::zip
