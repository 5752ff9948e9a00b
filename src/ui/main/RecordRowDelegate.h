#pragma once

#include <QFont>
#include <QRect>
#include <QStyledItemDelegate>
#include <QUuid>

#include <functional>

namespace fiva {

// A font `factor` times as large, whether it is sized in points or in pixels.
QFont scaledFont(QFont font, double factor);

// A row of the record list: title, location and the stored notes on one line each, and the star.
// Painted rather than built from widgets so that the list stays quick with many thousand records.
// The star is a button of its own: a click on it calls `starClicked` with the row, and neither
// selects the row nor opens the record.
class RecordRowDelegate final : public QStyledItemDelegate
{
public:
    RecordRowDelegate(std::function<void(const QModelIndex &)> starClicked, QObject *parent);

    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    bool editorEvent(QEvent *event, QAbstractItemModel *model, const QStyleOptionViewItem &option,
                     const QModelIndex &index) override;

    // Where the favourite star is drawn in a row's rectangle.
    static QRect starRect(const QRect &row);

private:
    std::function<void(const QModelIndex &)> m_starClicked;
    // The record whose star the mouse went down on; the click counts only if it comes up there too.
    QUuid m_pressedStar;
};

} // namespace fiva
