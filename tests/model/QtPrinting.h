#pragma once

#include <QString>

#include <ostream>

// Lets failing expectations show QStrings as text instead of arrays of UTF-16 units.
inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}
