#include "ui/settings/BackupHistoryView.h"

#include "model/BackupLog.h"
#include "platform/Workspace.h"
#include "store/LinkStore.h"
#include "ui/common/DateText.h"
#include "ui/common/Symbols.h"

#include <QAbstractListModel>
#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QFontMetrics>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QMouseEvent>
#include <QPainter>
#include <QStyledItemDelegate>
#include <QTextLayout>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>
#include <array>
#include <cmath>

namespace fiva {

namespace {

const QString revealLabel = QStringLiteral("Afficher dans le Finder");
constexpr int lineSpacing = 6;
constexpr int rowPadding = 4;
constexpr int sideMargin = 6;

enum Role { logRole = Qt::UserRole + 1 };

// The store's history as a list model; it copies nothing and resets whenever the history changes.
class HistoryModel final : public QAbstractListModel
{
public:
    HistoryModel(LinkStore &store, QObject *parent) : QAbstractListModel(parent), m_store(store)
    {
        connect(&m_store, &LinkStore::backupHistoryChanged, this, [this] {
            beginResetModel();
            endResetModel();
        });
    }

    int rowCount(const QModelIndex &parent = {}) const override
    {
        return parent.isValid() ? 0 : static_cast<int>(m_store.backupHistory().size());
    }

    QVariant data(const QModelIndex &index, int role) const override
    {
        if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
            return {};
        const BackupLog &log = m_store.backupHistory().at(index.row());
        switch (role) {
        case Qt::DisplayRole:
            return BackupHistoryView::dateText(log);
        case Qt::ToolTipRole:
            return log.filePath;
        case logRole:
            return QVariant::fromValue(index.row());
        default:
            return {};
        }
    }

    const BackupLog &log(int row) const { return m_store.backupHistory().at(row); }

private:
    LinkStore &m_store;
};

struct RowFonts
{
    QFont headline;
    QFont caption;
    QFont caption2;
    QFont link;
};

RowFonts rowFonts(const QFont &base)
{
    RowFonts fonts{base, base, base, base};
    fonts.headline.setBold(true);
    const double size = base.pointSizeF() > 0 ? base.pointSizeF() : 10.0;
    fonts.caption.setPointSizeF(size * 0.9);
    fonts.caption2.setPointSizeF(size * 0.85);
    return fonts;
}

// Lays the path out in lines of at most `width`, breaking between words where it can and inside
// one where it must, as a path is mostly one long word. Returns the height of the lines.
int layOutPath(QTextLayout &layout, int width)
{
    QTextOption option;
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    layout.setTextOption(option);
    qreal height = 0;
    layout.beginLayout();
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLineWidth(std::max(width, 1));
        line.setPosition(QPointF(0, height));
        height += line.height();
    }
    layout.endLayout();
    return static_cast<int>(std::ceil(height));
}

// The four parts' heights, top to bottom, for a row whose text is `width` wide.
std::array<int, 4> lineHeights(const QFont &base, const QString &path, int width)
{
    const RowFonts fonts = rowFonts(base);
    QTextLayout layout(path, fonts.caption);
    const int pathHeight = std::max(layOutPath(layout, width), QFontMetrics(fonts.caption).height());
    return {QFontMetrics(fonts.headline).height(), pathHeight, QFontMetrics(fonts.caption2).height(),
            QFontMetrics(fonts.link).height()};
}

// Where the link of `row` lies, for a row whose text is `width` wide.
QRect linkRect(const QFont &base, const QString &path, const QRect &row, int width)
{
    const auto heights = lineHeights(base, path, width);
    const int top = row.top() + rowPadding + heights[0] + heights[1] + heights[2] + 3 * lineSpacing;
    const int linkWidth = QFontMetrics(base).horizontalAdvance(revealLabel) + 2;
    return {row.left() + sideMargin, top, linkWidth, heights[3]};
}

class HistoryDelegate final : public QStyledItemDelegate
{
public:
    HistoryDelegate(HistoryModel &model, BackupHistoryView &view)
        : QStyledItemDelegate(&view), m_model(model), m_view(view)
    {
    }

    // The viewport's width rather than the option's, which is not the row's when sizes are asked.
    int textWidth() const { return m_view.list()->viewport()->width() - 2 * sideMargin; }

    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override
    {
        int height = 2 * rowPadding + 3 * lineSpacing;
        for (int line : lineHeights(option.font, m_model.log(index.row()).filePath, textWidth()))
            height += line;
        return {m_view.list()->viewport()->width(), height};
    }

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override
    {
        QStyleOptionViewItem background = option;
        initStyleOption(&background, index);
        background.text.clear();
        const QWidget *widget = option.widget;
        QStyle *style = widget ? widget->style() : QApplication::style();
        style->drawControl(QStyle::CE_ItemViewItem, &background, painter, widget);

        const BackupLog &log = m_model.log(index.row());
        const RowFonts fonts = rowFonts(option.font);
        const int width = textWidth();
        const auto heights = lineHeights(option.font, log.filePath, width);
        const bool selected = option.state & QStyle::State_Selected;
        const QPalette &palette = option.palette;
        const QColor primary = palette.color(selected ? QPalette::HighlightedText : QPalette::Text);
        QColor secondary = primary;
        secondary.setAlphaF(0.6f);

        const int left = option.rect.left() + sideMargin;
        int top = option.rect.top() + rowPadding;
        const auto line = [&](const QFont &font, const QColor &colour, const QString &text, int height) {
            painter->setFont(font);
            painter->setPen(colour);
            const QRect rect(left, top, width, height);
            painter->drawText(rect, Qt::AlignLeft | Qt::AlignVCenter,
                              QFontMetrics(font).elidedText(text, Qt::ElideMiddle, width));
            top += height + lineSpacing;
        };
        painter->save();
        line(fonts.headline, primary, BackupHistoryView::dateText(log), heights[0]);
        painter->setPen(secondary);
        QTextLayout path(log.filePath, fonts.caption);
        layOutPath(path, width);
        path.draw(painter, QPointF(left, top));
        top += heights[1] + lineSpacing;
        line(fonts.caption2, secondary,
             QStringLiteral("Taille : ") + BackupHistoryView::sizeText(log.fileSize), heights[2]);
        QFont link = fonts.link;
        link.setUnderline(true);
        painter->setFont(link);
        painter->setPen(selected ? primary : palette.color(QPalette::Link));
        painter->drawText(linkRect(option.font, log.filePath, option.rect, width),
                          Qt::AlignLeft | Qt::AlignVCenter, revealLabel);
        painter->restore();
    }

    bool editorEvent(QEvent *event, QAbstractItemModel *, const QStyleOptionViewItem &option,
                     const QModelIndex &index) override
    {
        if (event->type() != QEvent::MouseButtonRelease)
            return false;
        const auto *mouse = static_cast<QMouseEvent *>(event);
        if (mouse->button() != Qt::LeftButton ||
            !linkRect(option.font, m_model.log(index.row()).filePath, option.rect, textWidth())
                 .contains(mouse->position().toPoint()))
            return false;
        m_view.revealBackupFile(m_model.log(index.row()));
        return true;
    }

private:
    HistoryModel &m_model;
    BackupHistoryView &m_view;
};

} // namespace

BackupHistoryView::BackupHistoryView(LinkStore &store, Workspace &workspace, QWidget *parent)
    : QWidget(parent), m_store(store), m_workspace(workspace)
{
    setWindowTitle(QStringLiteral("Historique des sauvegardes"));
    setFixedSize(500, 420);

    auto *layout = new QVBoxLayout(this);

    auto *header = new QHBoxLayout;
    auto *title = new QLabel(QStringLiteral("Historique des sauvegardes"), this);
    title->setObjectName(QStringLiteral("historyTitle"));
    QFont titleFont = title->font();
    titleFont.setPointSizeF((titleFont.pointSizeF() > 0 ? titleFont.pointSizeF() : 10.0) * 2.0);
    title->setFont(titleFont);
    title->setContentsMargins(0, 0, 0, 10);
    header->addWidget(title);
    header->addStretch(1);
    m_close = new QToolButton(this);
    m_close->setObjectName(QStringLiteral("closeHistory"));
    m_close->setAutoRaise(true);
    m_close->setIcon(symbols::icon(QStringLiteral("xmark.circle.fill")));
    m_close->setIconSize(QSize(22, 22));
    m_close->setToolTip(QStringLiteral("Fermer"));
    m_close->setAccessibleName(QStringLiteral("Fermer"));
    header->addWidget(m_close, 0, Qt::AlignTop);
    layout->addLayout(header);

    auto *model = new HistoryModel(store, this);
    m_list = new QListView(this);
    m_list->setObjectName(QStringLiteral("historyList"));
    m_list->setModel(model);
    m_list->setItemDelegate(new HistoryDelegate(*model, *this));
    // Rows are as tall as their path needs. A fixed scroll bar keeps the width they were measured
    // at, and long histories are measured a batch at a time.
    m_list->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    m_list->setResizeMode(QListView::Adjust);
    m_list->setLayoutMode(QListView::Batched);
    m_list->setMouseTracking(true);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_list->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    layout->addWidget(m_list, 1);

    // The list takes the keyboard focus; these act on its current row, from the keyboard or from
    // the row's context menu.
    auto *reveal = new QAction(revealLabel, m_list);
    reveal->setObjectName(QStringLiteral("revealCurrent"));
    reveal->setShortcuts({QKeySequence(Qt::Key_Return), QKeySequence(Qt::Key_Enter)});
    reveal->setShortcutContext(Qt::WidgetShortcut);
    connect(reveal, &QAction::triggered, this, &BackupHistoryView::revealCurrentBackupFile);
    auto *copy = new QAction(QStringLiteral("Copier le chemin"), m_list);
    copy->setObjectName(QStringLiteral("copyPath"));
    copy->setShortcut(QKeySequence::Copy);
    copy->setShortcutContext(Qt::WidgetShortcut);
    connect(copy, &QAction::triggered, this, &BackupHistoryView::copyCurrentPath);
    m_list->addActions({reveal, copy});
    m_list->setContextMenuPolicy(Qt::ActionsContextMenu);

    connect(m_close, &QToolButton::clicked, this, &BackupHistoryView::dismissRequested);
}

QString BackupHistoryView::dateText(const BackupLog &log)
{
    return dateTimeText(log.date);
}

QString BackupHistoryView::sizeText(qint64 bytes)
{
    // Decimal units, as desktop file managers show file sizes: whole kilobytes, then one decimal.
    return QLocale().formattedDataSize(bytes, bytes < 1'000'000 ? 0 : 1, QLocale::DataSizeSIFormat);
}

QRect BackupHistoryView::linkRectOfRow(int row) const
{
    return linkRect(m_list->font(), m_store.backupHistory().at(row).filePath,
                    m_list->visualRect(m_list->model()->index(row, 0)),
                    m_list->viewport()->width() - 2 * sideMargin);
}

void BackupHistoryView::revealBackupFile(const BackupLog &log)
{
    m_workspace.revealItem(log.filePath);
}

void BackupHistoryView::revealCurrentBackupFile()
{
    if (const QModelIndex current = m_list->currentIndex(); current.isValid())
        revealBackupFile(m_store.backupHistory().at(current.row()));
}

void BackupHistoryView::copyCurrentPath()
{
    if (const QModelIndex current = m_list->currentIndex(); current.isValid())
        QGuiApplication::clipboard()->setText(m_store.backupHistory().at(current.row()).filePath);
}

} // namespace fiva
