#include "zip/DeflateStream.h"

#include "zip/Errors.h"

#include <zlib.h>

#include <algorithm>

namespace fiva::zip {

std::uint32_t crc32(ByteView bytes, std::uint32_t checksum)
{
    // zlib answers 0 for a null buffer, which would drop the running value on an empty chunk.
    if (bytes.empty())
        return checksum;
    return static_cast<std::uint32_t>(::crc32_z(checksum, bytes.data(), bytes.size()));
}

std::uint32_t crc32Combine(std::uint32_t first, std::uint32_t second, std::uint64_t secondLength)
{
    return static_cast<std::uint32_t>(::crc32_combine(first, second, static_cast<z_off_t>(secondLength)));
}

namespace {

constexpr int rawDeflateWindowBits = -15;

class ZStream
{
public:
    explicit ZStream(StreamDirection direction) : m_direction(direction)
    {
        const int status = direction == StreamDirection::encode
                               ? deflateInit2(&m_stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED,
                                              rawDeflateWindowBits, 8, Z_DEFAULT_STRATEGY)
                               : inflateInit2(&m_stream, rawDeflateWindowBits);
        if (status != Z_OK)
            throw CompressionError(CompressionError::invalidStream);
    }
    ~ZStream()
    {
        if (m_direction == StreamDirection::encode)
            deflateEnd(&m_stream);
        else
            inflateEnd(&m_stream);
    }
    ZStream(const ZStream &) = delete;
    ZStream &operator=(const ZStream &) = delete;

    z_stream *get() { return &m_stream; }
    int process(bool finalize)
    {
        return m_direction == StreamDirection::encode ? deflate(&m_stream, finalize ? Z_FINISH : Z_NO_FLUSH)
                                                      : inflate(&m_stream, Z_NO_FLUSH);
    }

private:
    StreamDirection m_direction;
    z_stream m_stream{};
};

} // namespace

std::uint64_t deflateBoundFor(std::uint64_t size)
{
    // zlib's bound for default parameters, widened to 64 bits: stored blocks cost 5 bytes per 16383.
    return size + (size >> 12) + (size >> 14) + (size >> 25) + 13 + 5 * (size / 16383 + 1) + 6;
}

std::uint32_t processDeflateStream(StreamDirection direction, std::uint64_t size, std::size_t bufferSize,
                                   bool skipCRC32, const Provider &provider, const Consumer &consumer,
                                   std::uint64_t outputLimit)
{
    Bytes output(bufferSize);
    ZStream stream(direction);
    z_stream *z = stream.get();
    std::uint64_t position = 0;
    std::uint64_t produced = 0;
    std::uint32_t checksum = 0;
    bool finalize = false;
    ByteView input;
    while (true) {
        if (z->avail_in == 0) {
            const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(size - position, bufferSize));
            input = count ? provider(position, count) : ByteView{};
            position += input.size();
            finalize = input.size() < bufferSize;
            if (direction == StreamDirection::encode && !skipCRC32)
                checksum = crc32(input, checksum);
            z->next_in = const_cast<Bytef *>(input.data());
            z->avail_in = static_cast<uInt>(input.size());
        }
        z->next_out = output.data();
        z->avail_out = static_cast<uInt>(bufferSize);
        const uInt availableInBefore = z->avail_in;
        const int status = stream.process(finalize);
        const std::size_t count = bufferSize - z->avail_out;
        if (status != Z_OK && status != Z_STREAM_END && status != Z_BUF_ERROR)
            throw CompressionError(CompressionError::corruptedData);
        // Decoding with every byte given and nothing moving means the data ends too early.
        if (status == Z_BUF_ERROR && finalize && count == 0 && z->avail_in == availableInBefore)
            throw CompressionError(CompressionError::corruptedData);
        produced += count;
        if (direction == StreamDirection::decode && produced > outputLimit)
            throw CompressionError(CompressionError::corruptedData);
        const ByteView chunk(output.data(), count);
        if (direction == StreamDirection::decode && !skipCRC32)
            checksum = crc32(chunk, checksum);
        consumer(chunk);
        if (status == Z_STREAM_END)
            return checksum;
    }
}

} // namespace fiva::zip
