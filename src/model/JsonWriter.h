#pragma once

#include <QByteArray>
#include <QStringView>
#include <QUuid>

#include <functional>
#include <string_view>

namespace fiva::json {

// Appends Fiva's exact output form into one growing buffer: compact, raw UTF-8, "/" escaped,
// control characters escaped the way common JSON encoders do, UUIDs upper-case, numbers in their
// shortest round-trip form. Structure (braces, commas, keys) is written by the caller with raw().
class JsonWriter final
{
public:
    explicit JsonWriter(qsizetype expectedSize);
    using Flush = std::function<void(QByteArrayView)>;
    // Hands what it has written to `flush` whenever about `chunkSize` bytes have gathered, so that
    // a large document never sits whole in memory; finish() hands over the rest.
    JsonWriter(qsizetype chunkSize, Flush flush);

    void raw(char c)
    {
        reserve(1);
        m_data[m_size++] = c;
    }
    void raw(std::string_view text);
    void string(QStringView text);
    void uuid(const QUuid &id);
    // Returns false, writing nothing, when the value is NaN or infinite: JSON has no form for it.
    bool number(double value);
    void integer(qint64 value);
    void boolean(bool value) { raw(value ? std::string_view("true") : std::string_view("false")); }

    QByteArray take();
    void finish();

    // The exact number of bytes string() and number() write for a value; -1 for a number that
    // has no JSON form.
    static qsizetype stringSize(QStringView text);
    static qsizetype numberSize(double value);
    static constexpr qsizetype uuidSize = 38;

private:
    void reserve(qsizetype extra)
    {
        if (m_buffer.size() - m_size < extra)
            grow(extra);
    }
    void grow(qsizetype extra);

    Flush m_flush;
    QByteArray m_buffer;
    char *m_data = nullptr;
    qsizetype m_size = 0;
};

} // namespace fiva::json
