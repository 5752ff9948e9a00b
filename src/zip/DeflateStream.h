#pragma once

#include "zip/Records.h"

#include <cstdint>
#include <functional>
#include <limits>

namespace fiva::zip {

// Hands out the next bytes of a source: given the current position and a count, returns at most that many.
using Provider = std::function<ByteView(std::uint64_t position, std::size_t count)>;
// Receives one chunk of produced bytes; it may throw to stop the operation.
using Consumer = std::function<void(ByteView chunk)>;

// The CRC-32 of ZIP, continued from `checksum` (0 to start).
std::uint32_t crc32(ByteView bytes, std::uint32_t checksum = 0);
// The CRC-32 of two runs of bytes one after the other, from the CRC-32 of each and the second's length:
// pieces checksummed apart, on several threads, give the checksum of the whole.
std::uint32_t crc32Combine(std::uint32_t first, std::uint32_t second, std::uint64_t secondLength);

enum class StreamDirection { encode, decode };

// Runs `size` input bytes through raw DEFLATE (RFC 1951, no wrapper) in chunks of `bufferSize`, handing
// every output chunk to `consumer`. Returns the CRC-32 of the uncompressed side (input when encoding,
// output when decoding), or 0 with `skipCRC32`. Decoding stops with corruptedData once the output would
// exceed `outputLimit`, which bounds what a hostile entry can make us write.
std::uint32_t processDeflateStream(StreamDirection direction, std::uint64_t size, std::size_t bufferSize,
                                   bool skipCRC32, const Provider &provider, const Consumer &consumer,
                                   std::uint64_t outputLimit = std::numeric_limits<std::uint64_t>::max());

// The largest raw DEFLATE output our encoder can produce from `size` input bytes.
std::uint64_t deflateBoundFor(std::uint64_t size);

} // namespace fiva::zip
