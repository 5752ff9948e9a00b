#include "ui/main/RecordRowDelegate.h"

#include "ui/common/Symbols.h"
#include "ui/main/LinkListModel.h"

#include <QApplication>
#include <QMouseEvent>
#include <QPainter>

#include <algorithm>
#include <cmath>
#include <utility>

namespace fiva {

namespace {

constexpr int rowMargin = 6;
constexpr int rowLineSpacing = 2;
constexpr int starSize = 18;
constexpr int starGap = 8;

struct RowFonts
{
    QFont headline;
    QFont caption;
    QFont smallCaption;
};

RowFonts rowFonts(const QFont &base)
{
    RowFonts fonts{base, scaledFont(base, 0.85), scaledFont(base, 0.75)};
    fonts.headline.setBold(true);
    return fonts;
}

// The stored notes keep their line breaks and tabs; on a single line they read better as spaces.
QString oneLine(QString text)
{
    for (QChar &c : text) {
        if (c == u'\n' || c == u'\t' || c == u'\r')
            c = u' ';
    }
    return text;
}

} // namespace

QFont scaledFont(QFont font, double factor)
{
    if (font.pointSizeF() > 0)
        font.setPointSizeF(font.pointSizeF() * factor);
    else if (font.pixelSize() > 0)
        font.setPixelSize(std::max(1, int(std::lround(font.pixelSize() * factor))));
    return font;
}

RecordRowDelegate::RecordRowDelegate(std::function<void(const QModelIndex &)> starClicked, QObject *parent)
    : QStyledItemDelegate(parent), m_starClicked(std::move(starClicked))
{
}

QRect RecordRowDelegate::starRect(const QRect &row)
{
    return QRect(row.right() - rowMargin - starSize + 1, row.center().y() - starSize / 2, starSize, starSize);
}

void RecordRowDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                              const QModelIndex &index) const
{
    QStyleOptionViewItem background(option);
    initStyleOption(&background, index);
    background.text.clear();
    background.icon = QIcon();
    const QWidget *widget = option.widget;
    QStyle *style = widget ? widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &background, painter, widget);

    const bool selected = option.state.testFlag(QStyle::State_Selected);
    const QColor primary = option.palette.color(selected ? QPalette::HighlightedText : QPalette::Text);
    const QColor secondary =
        option.palette.color(selected ? QPalette::HighlightedText : QPalette::PlaceholderText);
    const RowFonts fonts = rowFonts(option.font);
    const QRect row = option.rect;
    // A broken record gives up some of its text's width to a warning mark beside the star.
    const bool broken = index.data(LinkListModel::HealthRole).isValid();
    const int width = std::max(0, row.width() - 2 * rowMargin - (broken ? 2 : 1) * (starSize + starGap));
    int y = row.top() + rowMargin;

    painter->save();
    const auto line = [&](const QFont &font, const QColor &color, const QString &text) {
        const QFontMetrics metrics(font);
        painter->setFont(font);
        painter->setPen(color);
        painter->drawText(QRect(row.left() + rowMargin, y, width, metrics.height()),
                          Qt::AlignLeft | Qt::AlignVCenter, metrics.elidedText(text, Qt::ElideRight, width));
        y += metrics.height() + rowLineSpacing;
    };
    line(fonts.headline, primary, index.data(LinkListModel::TitleRole).toString());
    line(fonts.caption, secondary, index.data(LinkListModel::PathRole).toString());
    const QVariant notes = index.data(LinkListModel::NotesRole);
    if (notes.isValid())
        line(fonts.smallCaption, secondary, oneLine(notes.toString()));
    painter->restore();

    const bool favorite = index.data(LinkListModel::FavoriteRole).toBool();
    symbols::icon(favorite ? QStringLiteral("star.fill") : QStringLiteral("star"))
        .paint(painter, starRect(row));
    if (broken)
        style->standardIcon(QStyle::SP_MessageBoxWarning, nullptr, widget)
            .paint(painter, starRect(row).translated(-(starSize + starGap), 0));
}

QSize RecordRowDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    // Heights only: measuring each record's text would cost too much on a long list.
    const RowFonts fonts = rowFonts(option.font);
    int height = 2 * rowMargin + QFontMetrics(fonts.headline).height() + rowLineSpacing +
                 QFontMetrics(fonts.caption).height();
    if (index.data(LinkListModel::NotesRole).isValid())
        height += rowLineSpacing + QFontMetrics(fonts.smallCaption).height();
    return QSize(option.rect.width() > 0 ? option.rect.width() : 200, height);
}

bool RecordRowDelegate::editorEvent(QEvent *event, QAbstractItemModel *, const QStyleOptionViewItem &option,
                                    const QModelIndex &index)
{
    const QEvent::Type type = event->type();
    if (type != QEvent::MouseButtonPress && type != QEvent::MouseButtonRelease &&
        type != QEvent::MouseButtonDblClick)
        return false;
    const auto *mouse = static_cast<QMouseEvent *>(event);
    if (mouse->button() != Qt::LeftButton || !starRect(option.rect).contains(mouse->position().toPoint()))
        return false;
    const QUuid id = index.data(LinkListModel::IdRole).toUuid();
    if (type == QEvent::MouseButtonPress) {
        m_pressedStar = id;
    } else if (type == QEvent::MouseButtonRelease) {
        if (!m_pressedStar.isNull() && id == m_pressedStar)
            m_starClicked(index);
        m_pressedStar = QUuid();
    }
    return true;
}

} // namespace fiva
