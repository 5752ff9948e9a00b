#pragma once

#include <cstddef>
#include <cstdint>

namespace fiva::zip {

// Writes all `count` bytes at `offset`, or at the file's position when `offset` is negative, going on after
// short writes and interruptions. Returns 0, or the errno of the failure (EIO when the file takes no more
// bytes). Every writer of the program goes through this one loop, so that none takes a short write for a
// complete one.
int writeFully(int fd, const void *bytes, std::size_t count, std::int64_t offset = -1) noexcept;

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
