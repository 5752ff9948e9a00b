#include "zip/FileCopy.h"

#include "zip/DeflateStream.h"
#include "zip/Errors.h"

#include <errno.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <system_error>
#include <thread>

namespace fiva::zip {

namespace {

// Large enough that the system calls cost little next to the copying, small enough to stay in the cache
// between reading, checksumming and writing.
constexpr std::size_t copyChunkSize = 1024 * 1024;
// Below this a second thread costs more to start than the checksum it takes off the copying thread.
constexpr std::uint64_t parallelChecksumMinimum = 8 * 1024 * 1024;
// The kernel caps one copy_file_range call near 2 GiB anyway.
constexpr std::uint64_t kernelCopyLimit = std::uint64_t{1} << 30;

// Reads exactly `count` bytes at `offset`; false when the file ends or fails first.
bool readFullyAt(int fd, std::uint8_t *buffer, std::size_t count, std::uint64_t offset)
{
    std::size_t done = 0;
    while (done < count) {
        const ssize_t n = ::pread(fd, buffer + done, count - done, static_cast<off_t>(offset + done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += static_cast<std::size_t>(n);
    }
    return true;
}

void writeFullyAt(int fd, const std::uint8_t *bytes, std::size_t count, std::uint64_t offset)
{
    if (writeFully(fd, bytes, count, static_cast<std::int64_t>(offset)) != 0)
        throw DataError(DataError::unwritableFile);
}

// Through this process: read, fold into the CRC-32 when `checksum` is given, write.
void copyThroughBuffer(int from, std::uint64_t fromOffset, std::uint64_t size, int to, std::uint64_t toOffset,
                       std::uint32_t *checksum)
{
    const auto capacity = static_cast<std::size_t>(std::min<std::uint64_t>(size, copyChunkSize));
    // Not zeroed: every byte is read into before it is used.
    const auto buffer = std::make_unique_for_overwrite<std::uint8_t[]>(capacity);
    for (std::uint64_t position = 0; position < size;) {
        const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(size - position, capacity));
        if (!readFullyAt(from, buffer.get(), count, fromOffset + position))
            throw DataError(DataError::unreadableFile);
        if (checksum)
            *checksum = crc32(ByteView(buffer.get(), count), *checksum);
        writeFullyAt(to, buffer.get(), count, toOffset + position);
        position += count;
    }
}

// Inside the kernel as far as it will go; the rest, if it refuses or fails part-way, through a buffer, which
// then names the side at fault.
void copyInKernel(int from, std::uint64_t fromOffset, std::uint64_t size, int to, std::uint64_t toOffset)
{
    auto input = static_cast<loff_t>(fromOffset);
    auto output = static_cast<loff_t>(toOffset);
    std::uint64_t left = size;
    while (left > 0) {
        const ssize_t n = ::copy_file_range(from, &input, to, &output,
                                            static_cast<std::size_t>(std::min(left, kernelCopyLimit)), 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        left -= static_cast<std::uint64_t>(n);
    }
    const std::uint64_t done = size - left;
    if (left > 0)
        copyThroughBuffer(from, fromOffset + done, left, to, toOffset + done, nullptr);
}

} // namespace

int writeFully(int fd, const void *bytes, std::size_t count, std::int64_t offset) noexcept
{
    const auto *data = static_cast<const std::uint8_t *>(bytes);
    std::size_t done = 0;
    while (done < count) {
        const ssize_t n = offset < 0 ? ::write(fd, data + done, count - done)
                                     : ::pwrite(fd, data + done, count - done,
                                                static_cast<off_t>(offset + static_cast<std::int64_t>(done)));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return errno;
        if (n == 0)
            return EIO;
        done += static_cast<std::size_t>(n);
    }
    return 0;
}

std::uint32_t copyFileRange(int from, std::uint64_t fromOffset, std::uint64_t size, int to,
                            std::uint64_t toOffset, bool skipCRC32)
{
    if (skipCRC32) {
        copyInKernel(from, fromOffset, size, to, toOffset);
        return 0;
    }
    std::uint32_t checksum = 0;
    if (size < parallelChecksumMinimum) {
        copyThroughBuffer(from, fromOffset, size, to, toOffset, &checksum);
        return checksum;
    }

    // The checksum thread reads the range on its own; the buffer is made here so that it cannot fail there.
    const auto buffer = std::make_unique_for_overwrite<std::uint8_t[]>(copyChunkSize);
    bool readFailed = false;
    std::jthread worker;
    try {
        worker = std::jthread([&](std::stop_token stop) {
            for (std::uint64_t position = 0; position < size; position += copyChunkSize) {
                if (stop.stop_requested())
                    return;
                const auto count =
                    static_cast<std::size_t>(std::min<std::uint64_t>(size - position, copyChunkSize));
                if (!readFullyAt(from, buffer.get(), count, fromOffset + position)) {
                    readFailed = true;
                    return;
                }
                checksum = crc32(ByteView(buffer.get(), count), checksum);
            }
        });
    } catch (const std::system_error &) {
        copyThroughBuffer(from, fromOffset, size, to, toOffset, &checksum);
        return checksum;
    }
    // A failing copy throws from here; the worker's destructor then stops and joins it.
    copyInKernel(from, fromOffset, size, to, toOffset);
    worker.join();
    if (readFailed)
        throw DataError(DataError::unreadableFile);
    return checksum;
}

} // namespace fiva::zip
