#pragma once

#include <QCollator>

namespace fiva {

// The collation of the user's locale, in which accented letters sort with their base letters.
// A locale that names no language (C, POSIX) would compare code points and put "École" after
// "Zèbre"; the interface is French, so French collation stands in for it.
QCollator userCollator();

} // namespace fiva
