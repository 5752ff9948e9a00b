#pragma once

#include <QFont>
#include <QRect>
#include <QStyledItemDelegate>

namespace fiva {

// A font `factor` times as large, whether it is sized in points or in pixels.
QFont scaledFont(QFont font, double factor);

// A row of the record list: title, location and the stored notes on one line each, and the star.
// Painted rather than built from widgets so that the list stays quick with many thousand records.
class RecordRowDelegate final : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;

    // Where the favourite star is drawn in a row's rectangle.
    static QRect starRect(const QRect &row);
};

} // namespace fiva
