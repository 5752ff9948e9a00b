#pragma once

#include <QString>
#include <QStringView>

namespace fiva {

// The form under which two addresses or paths count as the same link, for the bookmark import's
// duplicate check and for the duplicates of the record list alike: surrounding white space removed,
// the scheme and the host in lower case (the rest of an address is case-sensitive on most servers),
// and one final "/" dropped, so that "HTTPS://Example.org/a/" and "https://example.org/a" meet.
// A lone "/" stays as it is.
QString addressKey(QStringView address);

} // namespace fiva
