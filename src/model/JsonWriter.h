#pragma once

#include <QByteArray>
#include <QStringView>
#include <QUuid>

#include <string_view>

namespace fiva::json {

// Appends Fiva's exact output form into one growing buffer: compact, raw UTF-8, "/" escaped,
// control characters escaped the way common JSON encoders do, UUIDs upper-case, numbers in their
// shortest round-trip form. Structure (braces, commas, keys) is written by the caller with raw().
class JsonWriter final
{
public:
    explicit JsonWriter(qsizetype expectedSize);

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

private:
    void reserve(qsizetype extra)
    {
        if (m_buffer.size() - m_size < extra)
            grow(extra);
    }
    void grow(qsizetype extra);

    QByteArray m_buffer;
    char *m_data = nullptr;
    qsizetype m_size = 0;
};

} // namespace fiva::json
