#include "platform/Collation.h"

#include <QLocale>

namespace fiva {

QCollator userCollator()
{
    QLocale locale;
    if (locale.language() == QLocale::C)
        locale = QLocale(QLocale::French, QLocale::France);
    return QCollator(locale);
}

} // namespace fiva
