#pragma once

#include <QIcon>
#include <QString>

namespace fiva {

// The maker's web site: the base of the help menu's pages and of the About window's link.
QString siteAddress();
QString authorName();
// The application icon, compiled into the program so that every window has it.
QIcon appIcon();

} // namespace fiva
