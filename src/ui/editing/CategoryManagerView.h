#pragma once

#include <QDialog>
#include <QString>

#include <optional>

class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
class QWidget;

namespace fiva {

class Dialogs;
class LinkStore;

// The sheet that maintains the category list. Every change is a store operation, which re-labels
// the records concerned and saves; the sheet only asks, confirms and shows the list.
class CategoryManagerView final : public QDialog
{
    Q_OBJECT

public:
    // Store and dialogs must outlive the sheet.
    CategoryManagerView(LinkStore &store, Dialogs &dialogs, QWidget *parent = nullptr);
    ~CategoryManagerView() override;

    // The name last selected in the list; kept after a rename even though the list no longer
    // holds it, cleared by a delete and when the user empties the list's selection.
    std::optional<QString> selectedCategory() const { return m_selectedCategory; }
    void selectCategory(const std::optional<QString> &name);

    void addCategory();
    void addSubCategory();
    void renameSelectedCategory();
    void confirmDeleteCategory();

private:
    void reloadList();
    void refreshSections();

    LinkStore &m_store;
    Dialogs &m_dialogs;
    std::optional<QString> m_selectedCategory;

    QListWidget *m_list = nullptr;
    QLineEdit *m_newCategory = nullptr;
    QPushButton *m_addCategory = nullptr;
    QWidget *m_subCategoryRow = nullptr;
    QLineEdit *m_newSubCategory = nullptr;
    QPushButton *m_addSubCategory = nullptr;
    QLabel *m_subCategoryHint = nullptr;
    QPushButton *m_rename = nullptr;
    QLabel *m_renameHint = nullptr;
    QPushButton *m_delete = nullptr;
    QLabel *m_deleteHint = nullptr;
};

} // namespace fiva
