#pragma once

#include <QString>

#include <optional>
#include <utility>

namespace fiva {

// A value or the description of why there is none. Used where a failure is an expected outcome
// that the caller reports (decoding a user's file), not a programming error.
template <class T> class Result final
{
public:
    Result(T value) : m_value(std::move(value)) {}
    static Result failure(QString description)
    {
        Result r;
        r.m_error = std::move(description);
        return r;
    }

    bool ok() const { return m_value.has_value(); }
    explicit operator bool() const { return ok(); }
    const T &value() const & { return *m_value; }
    T &value() & { return *m_value; }
    T &&value() && { return std::move(*m_value); }
    const QString &error() const { return m_error; }

private:
    Result() = default;
    std::optional<T> m_value;
    QString m_error;
};

} // namespace fiva
