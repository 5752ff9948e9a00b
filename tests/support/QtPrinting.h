#pragma once

#include <QString>
#include <QStringList>

#include <ostream>

// GoogleTest finds these beside Qt's types, in the global namespace, and prints text instead of bytes.
inline void PrintTo(const QString &s, std::ostream *os)
{
    *os << '"' << s.toStdString() << '"';
}
inline void PrintTo(const QStringList &l, std::ostream *os)
{
    *os << '[' << l.join(QStringLiteral(" | ")).toStdString() << ']';
}
