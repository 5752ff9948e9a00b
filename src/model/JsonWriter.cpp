#include "model/JsonWriter.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstring>

namespace fiva::json {

namespace {

// For each ASCII byte: 0 when written as is, otherwise the letter after the backslash
// ('u' for the \u00XX form).
constexpr std::array<char, 128> escapeTable = [] {
    std::array<char, 128> table{};
    for (int c = 0; c < 0x20; ++c)
        table[c] = 'u';
    table['\b'] = 'b';
    table['\f'] = 'f';
    table['\n'] = 'n';
    table['\r'] = 'r';
    table['\t'] = 't';
    table['"'] = '"';
    table['\\'] = '\\';
    table['/'] = '/';
    return table;
}();

constexpr char lowerHex[] = "0123456789abcdef";
constexpr char upperHex[] = "0123456789ABCDEF";

} // namespace

JsonWriter::JsonWriter(qsizetype expectedSize)
{
    m_buffer.resize(qMax<qsizetype>(expectedSize, 256));
    m_data = m_buffer.data();
}

JsonWriter::JsonWriter(qsizetype chunkSize, Flush flush) : JsonWriter(chunkSize)
{
    m_flush = std::move(flush);
}

void JsonWriter::grow(qsizetype extra)
{
    if (m_flush && m_size > 0) {
        m_flush(QByteArrayView(m_data, m_size));
        m_size = 0;
        if (m_buffer.size() >= extra)
            return;
    }
    qsizetype capacity = m_buffer.size();
    while (capacity - m_size < extra)
        capacity = capacity + capacity / 2 + 64;
    m_buffer.resize(capacity);
    m_data = m_buffer.data();
}

void JsonWriter::raw(std::string_view text)
{
    reserve(qsizetype(text.size()));
    std::memcpy(m_data + m_size, text.data(), text.size());
    m_size += qsizetype(text.size());
}

void JsonWriter::string(QStringView text)
{
    // Worst case per UTF-16 unit is six bytes (\u00XX); quotes add two.
    reserve(text.size() * 6 + 2);
    char *out = m_data + m_size;
    *out++ = '"';
    const char16_t *p = text.utf16();
    const char16_t *const end = p + text.size();
    while (p < end) {
        const char16_t c = *p++;
        if (c < 0x80) {
            const char escape = escapeTable[c];
            if (escape == 0) {
                *out++ = char(c);
            } else if (escape != 'u') {
                *out++ = '\\';
                *out++ = escape;
            } else {
                std::memcpy(out, "\\u00", 4);
                out[4] = lowerHex[c >> 4];
                out[5] = lowerHex[c & 0xF];
                out += 6;
            }
        } else if (c < 0x800) {
            *out++ = char(0xC0 | (c >> 6));
            *out++ = char(0x80 | (c & 0x3F));
        } else if (c >= 0xD800 && c <= 0xDBFF && p < end && *p >= 0xDC00 && *p <= 0xDFFF) {
            const char32_t code = 0x10000 + ((char32_t(c) - 0xD800) << 10) + (char32_t(*p++) - 0xDC00);
            *out++ = char(0xF0 | (code >> 18));
            *out++ = char(0x80 | ((code >> 12) & 0x3F));
            *out++ = char(0x80 | ((code >> 6) & 0x3F));
            *out++ = char(0x80 | (code & 0x3F));
        } else {
            // A lone surrogate has no UTF-8 form; the replacement character keeps the file readable.
            const char32_t code = (c >= 0xD800 && c <= 0xDFFF) ? 0xFFFD : c;
            *out++ = char(0xE0 | (code >> 12));
            *out++ = char(0x80 | ((code >> 6) & 0x3F));
            *out++ = char(0x80 | (code & 0x3F));
        }
    }
    *out++ = '"';
    m_size = out - m_data;
}

void JsonWriter::uuid(const QUuid &id)
{
    reserve(38);
    char *out = m_data + m_size;
    *out++ = '"';
    auto hex = [&out](quint64 value, int digits) {
        for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4)
            *out++ = upperHex[(value >> shift) & 0xF];
    };
    hex(id.data1, 8);
    *out++ = '-';
    hex(id.data2, 4);
    *out++ = '-';
    hex(id.data3, 4);
    *out++ = '-';
    hex(id.data4[0], 2);
    hex(id.data4[1], 2);
    *out++ = '-';
    for (int i = 2; i < 8; ++i)
        hex(id.data4[i], 2);
    *out++ = '"';
    m_size = out - m_data;
}

bool JsonWriter::number(double value)
{
    if (!std::isfinite(value))
        return false;
    reserve(32);
    // Shortest text that reads back as the same double; "-0" would read back as +0, so keep the sign.
    if (value == 0.0 && std::signbit(value)) {
        raw(std::string_view("-0.0"));
        return true;
    }
    const auto result = std::to_chars(m_data + m_size, m_data + m_size + 32, value);
    m_size = result.ptr - m_data;
    return true;
}

void JsonWriter::integer(qint64 value)
{
    reserve(24);
    const auto result = std::to_chars(m_data + m_size, m_data + m_size + 24, value);
    m_size = result.ptr - m_data;
}

void JsonWriter::finish()
{
    if (m_flush && m_size > 0)
        m_flush(QByteArrayView(m_data, m_size));
    m_size = 0;
}

qsizetype JsonWriter::stringSize(QStringView text)
{
    // Mirrors string() branch for branch.
    qsizetype size = 2;
    const char16_t *p = text.utf16();
    const char16_t *const end = p + text.size();
    while (p < end) {
        const char16_t c = *p++;
        if (c < 0x80) {
            const char escape = escapeTable[c];
            size += escape == 0 ? 1 : escape != 'u' ? 2 : 6;
        } else if (c < 0x800) {
            size += 2;
        } else if (c >= 0xD800 && c <= 0xDBFF && p < end && *p >= 0xDC00 && *p <= 0xDFFF) {
            ++p;
            size += 4;
        } else {
            size += 3;
        }
    }
    return size;
}

qsizetype JsonWriter::numberSize(double value)
{
    if (!std::isfinite(value))
        return -1;
    if (value == 0.0 && std::signbit(value))
        return 4;
    char text[32];
    return std::to_chars(text, text + sizeof text, value).ptr - text;
}

QByteArray JsonWriter::take()
{
    m_buffer.truncate(m_size);
    m_data = nullptr;
    m_size = 0;
    return std::move(m_buffer);
}

} // namespace fiva::json
