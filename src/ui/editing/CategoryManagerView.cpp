#include "ui/editing/CategoryManagerView.h"

#include "platform/Dialogs.h"
#include "store/LinkStore.h"
#include "store/Trimming.h"
#include "ui/common/Labels.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QScrollArea>
#include <QSignalBlocker>
#include <QVBoxLayout>

namespace fiva {

namespace {

QLabel *hint(const QString &text, const QString &objectName, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setObjectName(objectName);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

QFrame *divider(QFrame::Shape shape, QWidget *parent)
{
    auto *line = new QFrame(parent);
    line->setFrameShape(shape);
    line->setFrameShadow(QFrame::Sunken);
    return line;
}

QString quoted(const QString &prefix, const QString &name)
{
    return prefix + QStringLiteral(" « ") + name + QStringLiteral(" »");
}

} // namespace

CategoryManagerView::CategoryManagerView(LinkStore &store, Dialogs &dialogs, QWidget *parent)
    : QDialog(parent), m_store(store), m_dialogs(dialogs)
{
    // A sheet: modal to the window that presents it, not to the whole application.
    setWindowModality(Qt::WindowModal);
    setWindowTitle(QStringLiteral("Gestion des catégories"));
    setMinimumSize(700, 600);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 20);
    layout->setSpacing(20);

    auto *heading = new QLabel(QStringLiteral("Gestion des catégories"), this);
    QFont headingFont = heading->font();
    headingFont.setPointSizeF(headingFont.pointSizeF() * 2.0);
    headingFont.setBold(true);
    heading->setFont(headingFont);
    heading->setContentsMargins(0, 10, 0, 0);
    layout->addWidget(heading, 0, Qt::AlignHCenter);

    auto *row = new QHBoxLayout;
    row->setSpacing(30);

    auto *left = new QVBoxLayout;
    left->setSpacing(12);
    left->addWidget(headlineLabel(QStringLiteral("Catégories existantes"), this));
    m_list = new QListWidget(this);
    m_list->setObjectName(QStringLiteral("categoryList"));
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setMinimumWidth(240);
    left->addWidget(m_list, 1);
    row->addLayout(left);
    row->addWidget(divider(QFrame::VLine, this));

    auto *scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    scroll->setFrameShape(QFrame::NoFrame);
    auto *sections = new QWidget(scroll);
    auto *sectionsLayout = new QVBoxLayout(sections);
    sectionsLayout->setContentsMargins(0, 10, 0, 10);
    sectionsLayout->setSpacing(30);

    auto addSection = [&](const QString &title) {
        auto *section = new QVBoxLayout;
        section->setSpacing(12);
        section->addWidget(headlineLabel(title, sections));
        sectionsLayout->addLayout(section);
        return section;
    };

    QVBoxLayout *addSectionLayout = addSection(QStringLiteral("Ajouter une catégorie"));
    auto *addRow = new QHBoxLayout;
    m_newCategory = new QLineEdit(sections);
    m_newCategory->setObjectName(QStringLiteral("newCategory"));
    m_newCategory->setPlaceholderText(QStringLiteral("Nom…"));
    m_newCategory->setFixedWidth(200);
    addRow->addWidget(m_newCategory);
    m_addCategory = new QPushButton(QStringLiteral("Ajouter"), sections);
    m_addCategory->setObjectName(QStringLiteral("addCategory"));
    m_addCategory->setAutoDefault(false);
    addRow->addWidget(m_addCategory);
    addRow->addStretch(1);
    addSectionLayout->addLayout(addRow);
    sectionsLayout->addWidget(divider(QFrame::HLine, sections));

    QVBoxLayout *subSection = addSection(QStringLiteral("Ajouter une sous-catégorie"));
    m_subCategoryRow = new QWidget(sections);
    auto *subRow = new QHBoxLayout(m_subCategoryRow);
    subRow->setContentsMargins(0, 0, 0, 0);
    m_newSubCategory = new QLineEdit(m_subCategoryRow);
    m_newSubCategory->setObjectName(QStringLiteral("newSubCategory"));
    m_newSubCategory->setPlaceholderText(QStringLiteral("Sous-catégorie…"));
    m_newSubCategory->setFixedWidth(200);
    subRow->addWidget(m_newSubCategory);
    m_addSubCategory = new QPushButton(QStringLiteral("Ajouter"), m_subCategoryRow);
    m_addSubCategory->setObjectName(QStringLiteral("addSubCategory"));
    m_addSubCategory->setAutoDefault(false);
    subRow->addWidget(m_addSubCategory);
    subRow->addStretch(1);
    subSection->addWidget(m_subCategoryRow);
    m_subCategoryHint = hint(QStringLiteral("Sélectionnez une catégorie à gauche."),
                             QStringLiteral("subCategoryHint"), sections);
    subSection->addWidget(m_subCategoryHint);
    sectionsLayout->addWidget(divider(QFrame::HLine, sections));

    QVBoxLayout *renameSection = addSection(QStringLiteral("Renommer la catégorie sélectionnée"));
    m_rename = new QPushButton(sections);
    m_rename->setObjectName(QStringLiteral("rename"));
    m_rename->setAutoDefault(false);
    renameSection->addWidget(m_rename, 0, Qt::AlignLeft);
    m_renameHint = hint(QStringLiteral("Sélectionnez une catégorie pour la renommer."),
                        QStringLiteral("renameHint"), sections);
    renameSection->addWidget(m_renameHint);
    sectionsLayout->addWidget(divider(QFrame::HLine, sections));

    QVBoxLayout *deleteSection = addSection(QStringLiteral("Supprimer la catégorie"));
    m_delete = new QPushButton(sections);
    m_delete->setObjectName(QStringLiteral("delete"));
    m_delete->setAutoDefault(false);
    // The destructive role, as the desktop has no such role for push buttons: red text.
    QPalette destructive = m_delete->palette();
    destructive.setColor(QPalette::ButtonText, QColor(0xc0, 0x1c, 0x28));
    m_delete->setPalette(destructive);
    deleteSection->addWidget(m_delete, 0, Qt::AlignLeft);
    m_deleteHint = hint(QStringLiteral("Sélectionnez une catégorie à supprimer."),
                        QStringLiteral("deleteHint"), sections);
    deleteSection->addWidget(m_deleteHint);
    sectionsLayout->addStretch(1);

    scroll->setWidget(sections);
    row->addWidget(scroll, 1);
    layout->addLayout(row, 1);

    layout->addWidget(divider(QFrame::HLine, this));
    auto *bottom = new QHBoxLayout;
    bottom->setContentsMargins(0, 0, 0, 10);
    bottom->addStretch(1);
    auto *close = new QPushButton(QStringLiteral("Fermer"), this);
    close->setObjectName(QStringLiteral("close"));
    close->setAutoDefault(false);
    bottom->addWidget(close);
    layout->addLayout(bottom);

    reloadList();
    refreshSections();

    // Only the user changes the list's selection here (reloadList blocks the signal): a Ctrl-click
    // that clears it leaves nothing for the rename and delete sections to act on.
    connect(m_list, &QListWidget::itemSelectionChanged, this, [this] {
        const QList<QListWidgetItem *> selected = m_list->selectedItems();
        m_selectedCategory =
            selected.isEmpty() ? std::nullopt : std::optional<QString>(selected.first()->text());
        refreshSections();
    });
    connect(m_newCategory, &QLineEdit::textChanged, this, &CategoryManagerView::refreshSections);
    connect(m_newSubCategory, &QLineEdit::textChanged, this, &CategoryManagerView::refreshSections);
    connect(m_addCategory, &QPushButton::clicked, this, &CategoryManagerView::addCategory);
    connect(m_newCategory, &QLineEdit::returnPressed, this, [this] {
        if (m_addCategory->isEnabled())
            addCategory();
    });
    connect(m_addSubCategory, &QPushButton::clicked, this, &CategoryManagerView::addSubCategory);
    connect(m_newSubCategory, &QLineEdit::returnPressed, this, [this] {
        if (m_addSubCategory->isEnabled() && m_subCategoryRow->isVisible())
            addSubCategory();
    });
    connect(m_rename, &QPushButton::clicked, this, &CategoryManagerView::renameSelectedCategory);
    connect(m_delete, &QPushButton::clicked, this, &CategoryManagerView::confirmDeleteCategory);
    connect(close, &QPushButton::clicked, this, &QDialog::reject);
    connect(&m_store, &LinkStore::categoriesChanged, this, &CategoryManagerView::reloadList);
}

CategoryManagerView::~CategoryManagerView() = default;

void CategoryManagerView::selectCategory(const std::optional<QString> &name)
{
    m_selectedCategory = name;
    reloadList();
    refreshSections();
}

void CategoryManagerView::reloadList()
{
    // Rebuilding must not touch the selected name: after a rename it stays the old one although
    // no line shows it any more.
    const QSignalBlocker blocker(m_list);
    m_list->clear();
    m_list->addItems(m_store.categories());
    if (m_selectedCategory) {
        const QList<QListWidgetItem *> matches = m_list->findItems(*m_selectedCategory, Qt::MatchExactly);
        if (!matches.isEmpty()) {
            m_list->setCurrentItem(matches.first());
            matches.first()->setSelected(true);
        }
    }
}

void CategoryManagerView::refreshSections()
{
    const bool selected = m_selectedCategory.has_value();
    m_addCategory->setEnabled(!trimHorizontalWhitespace(m_newCategory->text()).isEmpty());
    m_addSubCategory->setEnabled(!trimHorizontalWhitespace(m_newSubCategory->text()).isEmpty());
    m_subCategoryRow->setVisible(selected);
    m_subCategoryHint->setVisible(!selected);
    m_rename->setVisible(selected);
    m_renameHint->setVisible(!selected);
    m_delete->setVisible(selected);
    m_deleteHint->setVisible(!selected);
    if (selected) {
        m_rename->setText(quoted(QStringLiteral("Renommer"), *m_selectedCategory));
        m_delete->setText(quoted(QStringLiteral("Supprimer"), *m_selectedCategory));
    }
}

void CategoryManagerView::addCategory()
{
    m_store.addCategory(m_newCategory->text());
    // Emptied also when the store ignored the name as a duplicate.
    m_newCategory->clear();
}

void CategoryManagerView::addSubCategory()
{
    if (!m_selectedCategory)
        return;
    m_store.addSubCategory(*m_selectedCategory, m_newSubCategory->text());
    m_newSubCategory->clear();
}

void CategoryManagerView::renameSelectedCategory()
{
    if (!m_selectedCategory)
        return;
    const QString oldName = *m_selectedCategory;
    AlertRequest request;
    request.message = QStringLiteral("Renommer la catégorie");
    request.informativeText = QStringLiteral("Entrez le nouveau nom :");
    request.style = AlertStyle::informational;
    request.buttons = {QStringLiteral("OK"), QStringLiteral("Annuler")};
    request.textField = oldName;
    const AlertAnswer answer = m_dialogs.runAlert(request);
    if (answer.button != 0)
        return;
    m_store.renameCategory(oldName, trimHorizontalWhitespace(answer.text));
}

void CategoryManagerView::confirmDeleteCategory()
{
    if (!m_selectedCategory)
        return;
    const QString name = *m_selectedCategory;
    AlertRequest request;
    request.message = QStringLiteral("Supprimer la catégorie « ") + name + QStringLiteral(" » ?");
    request.informativeText =
        QStringLiteral("Cette action supprimera la catégorie dans toutes les fiches qui l’utilisent.");
    request.style = AlertStyle::warning;
    request.buttons = {QStringLiteral("Supprimer"), QStringLiteral("Annuler")};
    const AlertAnswer answer = m_dialogs.runAlert(request);
    if (answer.button != 0)
        return;
    m_store.deleteCategory(name);
    selectCategory(std::nullopt);
}

} // namespace fiva
