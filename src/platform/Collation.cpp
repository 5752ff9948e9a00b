#include "platform/Collation.h"

#include <QLocale>

namespace fiva {

QLocale userLocale()
{
    QLocale locale;
    if (locale.language() == QLocale::C)
        locale = QLocale(QLocale::French, QLocale::France);
    return locale;
}

QCollator userCollator()
{
    return QCollator(userLocale());
}

} // namespace fiva
