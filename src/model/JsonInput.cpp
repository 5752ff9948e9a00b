#include "model/JsonInput.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <new>
#include <simdjson.h>
#include <utility>

namespace fiva::json {

namespace {

std::size_t mappedSizeFor(std::size_t size)
{
    const std::size_t page = InputBuffer::pageSize();
    return (size + simdjson::SIMDJSON_PADDING + page - 1) / page * page;
}

char *mapAnonymous(std::size_t length)
{
    void *memory = ::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        throw std::bad_alloc();
#ifdef MADV_HUGEPAGE
    // A data file of tens of megabytes costs thousands of page faults in small pages; a hint, so
    // its failure does not matter.
    ::madvise(memory, length, MADV_HUGEPAGE);
#endif
    return static_cast<char *>(memory);
}

} // namespace

std::size_t InputBuffer::pageSize()
{
    static const std::size_t size = std::size_t(::sysconf(_SC_PAGESIZE));
    return size;
}

InputBuffer::InputBuffer(std::size_t size)
    : m_data(mapAnonymous(mappedSizeFor(size))), m_size(size), m_mapped(mappedSizeFor(size))
{
    // Fresh anonymous pages are zeros, so the margin after the content already is.
}

InputBuffer InputBuffer::copyOf(QByteArrayView bytes)
{
    InputBuffer buffer(std::size_t(bytes.size()));
    if (!bytes.isEmpty())
        std::memcpy(buffer.m_data, bytes.data(), std::size_t(bytes.size()));
    return buffer;
}

InputBuffer::InputBuffer(InputBuffer &&other) noexcept
    : m_data(std::exchange(other.m_data, nullptr)), m_size(std::exchange(other.m_size, 0)),
      m_mapped(std::exchange(other.m_mapped, 0))
{
}

InputBuffer &InputBuffer::operator=(InputBuffer &&other) noexcept
{
    if (this != &other) {
        unmap();
        m_data = std::exchange(other.m_data, nullptr);
        m_size = std::exchange(other.m_size, 0);
        m_mapped = std::exchange(other.m_mapped, 0);
    }
    return *this;
}

InputBuffer::~InputBuffer()
{
    unmap();
}

void InputBuffer::unmap()
{
    if (m_data)
        ::munmap(m_data, m_mapped);
    m_data = nullptr;
}

void InputBuffer::resize(std::size_t newSize)
{
    const std::size_t needed = mappedSizeFor(newSize);
    if (!m_data) {
        *this = InputBuffer(newSize);
        return;
    }
    if (needed > m_mapped) {
        void *moved = ::mremap(m_data, m_mapped, needed, MREMAP_MAYMOVE);
        if (moved == MAP_FAILED)
            throw std::bad_alloc();
        m_data = static_cast<char *>(moved);
        m_mapped = needed;
    }
    // A shrink leaves old bytes where the margin now starts; the parser needs zeros there.
    if (newSize < m_size)
        std::memset(m_data + newSize, 0, std::min(m_size - newSize, m_mapped - newSize));
    m_size = newSize;
}

void InputBuffer::release(const char *from, const char *to)
{
    if (!m_data || to <= from || from < m_data)
        return;
    const std::size_t page = pageSize();
    const std::size_t begin = (std::size_t(from - m_data) + page - 1) / page * page;
    const std::size_t end = std::min(std::size_t(to - m_data), m_size) / page * page;
    if (begin < end)
        ::madvise(m_data + begin, end - begin, MADV_DONTNEED);
}

} // namespace fiva::json
