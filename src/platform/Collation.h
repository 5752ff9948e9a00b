#pragma once

#include <QCollator>
#include <QLocale>

namespace fiva {

// The user's locale, for what the interface shows in it (dates, collation). A locale that names
// no language (C, POSIX, as minimal systems and scripts run with) would bring English month names
// and code point order into a French interface, so French stands in for it.
QLocale userLocale();

// The collation of the user's locale, in which accented letters sort with their base letters.
// A locale that names no language (C, POSIX) would compare code points and put "École" after
// "Zèbre"; the interface is French, so French collation stands in for it.
QCollator userCollator();

} // namespace fiva
