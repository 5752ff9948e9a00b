#include "ui/common/Labels.h"

#include <QFont>
#include <QLabel>

namespace fiva {

QLabel *headlineLabel(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    QFont font = label->font();
    font.setBold(true);
    label->setFont(font);
    return label;
}

} // namespace fiva
