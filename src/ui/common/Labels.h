#pragma once

#include <QString>

class QLabel;
class QWidget;

namespace fiva {

// A section heading: the body font in bold, as every screen titles its groups.
QLabel *headlineLabel(const QString &text, QWidget *parent);

} // namespace fiva
