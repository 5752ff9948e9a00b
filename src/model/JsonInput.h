#pragma once

#include <QByteArrayView>

#include <cstddef>

namespace fiva::json {

// The bytes of one document followed by the zeroed margin the parser may read past the end, in
// memory of their own. Decoding gives the pages it has passed back to the system as it goes, so
// that a large data file and the records made from it are never both held whole.
class InputBuffer final
{
public:
    InputBuffer() = default;
    // Room for `size` bytes, content unspecified. Throws std::bad_alloc when there is no memory.
    explicit InputBuffer(std::size_t size);
    static InputBuffer copyOf(QByteArrayView bytes);
    InputBuffer(InputBuffer &&other) noexcept;
    InputBuffer &operator=(InputBuffer &&other) noexcept;
    InputBuffer(const InputBuffer &) = delete;
    InputBuffer &operator=(const InputBuffer &) = delete;
    ~InputBuffer();

    char *data() { return m_data; }
    const char *data() const { return m_data; }
    std::size_t size() const { return m_size; }
    // Keeps the first min(size, newSize) bytes; used while a file is read whose size was a guess.
    void resize(std::size_t newSize);

    // Gives back the whole pages between the two positions: they read as zeros afterwards. Safe
    // from several threads at once for ranges that do not overlap.
    void release(const char *from, const char *to);

    static std::size_t pageSize();

private:
    void unmap();

    char *m_data = nullptr;
    std::size_t m_size = 0;
    std::size_t m_mapped = 0;
};

} // namespace fiva::json
