#pragma once

#include <QDialog>
#include <QList>
#include <QUuid>

class QLabel;
class QPushButton;
class QTreeWidget;

namespace fiva {

class Dialogs;
class LinkStore;
class Settings;

// "Doublons": the records that point at the same address or path, one group per address, with a
// box to tick on each record to delete. What is ticked at first is every record of a group but its
// oldest, except records with attachments, whose copies a deletion would throw away. The list
// follows the store while it is open, keeping the user's ticks; a double click shows the record in
// the window. The ticked records go in one save, after the usual confirmation.
class DuplicatesDialog final : public QDialog
{
    Q_OBJECT

public:
    // Everything passed in must outlive the dialog.
    DuplicatesDialog(LinkStore &store, Dialogs &dialogs, Settings &settings, QWidget *parent = nullptr);

    QTreeWidget *tree() const { return m_tree; }
    int groupCount() const;
    QList<QUuid> checkedIds() const;
    // Asks "Supprimer cette fiche ?" (or its plural) while the setting askDeleteConfirmation is on,
    // then deletes the ticked records and their attachment files in one save.
    void deleteChecked();

Q_SIGNALS:
    void recordActivated(const QUuid &id);

private:
    void reload();
    void updateDeleteButton();

    LinkStore &m_store;
    Dialogs &m_dialogs;
    Settings &m_settings;
    QLabel *m_summary = nullptr;
    QTreeWidget *m_tree = nullptr;
    QPushButton *m_delete = nullptr;
};

} // namespace fiva
