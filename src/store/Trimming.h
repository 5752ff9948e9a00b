#pragma once

#include <QString>

namespace fiva {

// Removes spaces, tabs and other horizontal white space (Unicode Zs and U+0009) at both ends.
// Line breaks stay: a name or title that holds one keeps it.
QString trimHorizontalWhitespace(const QString &text);

} // namespace fiva
