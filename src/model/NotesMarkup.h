#pragma once

#include <QStringView>

namespace fiva {

// The head and tail that the edit form wraps around every stored note. The search's fast path
// matches against them too, so they live here once. Both are ASCII without line-feed pairs, so no
// grapheme cluster crosses their edges except through the first or last character.
inline constexpr QStringView notesHead =
    u"<html>\n    <head>\n        <meta charset=\"UTF-8\">\n    </head>\n    <body>\n        <p>";
inline constexpr QStringView notesTail = u"</p>\n    </body>\n</html>";

} // namespace fiva
