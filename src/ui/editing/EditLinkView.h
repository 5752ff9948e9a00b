#pragma once

#include <QDialog>
#include <QString>
#include <QUuid>

class QButtonGroup;
class QComboBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;

namespace fiva {

class Clock;
enum class LinkKind;
class Dialogs;
class LinkStore;
struct LinkItem;

// The sheet that creates a record or changes one. It edits its own copy of the fields; the store
// sees nothing until "Ajouter" or "Enregistrer" passes validation, and then the record is written
// into the store's items and saved.
class EditLinkView final : public QDialog
{
    Q_OBJECT

public:
    // The form's kinds, in the order of its segmented control; they match LinkKind by position.
    enum class LinkType { url, file, directory };

    // `itemToEdit` is copied; null means a new record. Store, dialogs and clock must outlive the
    // form.
    EditLinkView(LinkStore &store, Dialogs &dialogs, const Clock &clock, const LinkItem *itemToEdit,
                 QWidget *parent = nullptr);
    ~EditLinkView() override;

    static QString linkTypeLabel(LinkType type);
    // The same label for a stored record's kind, as the detail view shows it.
    static QString linkKindLabel(LinkKind kind);

    LinkType linkType() const { return m_linkType; }
    void setLinkType(LinkType type);
    QString category() const { return m_category; }
    // Validates, writes the record and closes; on empty title or location it shows "Champs requis"
    // and stays open.
    void saveItem();
    // Fills a new record's title, location and kind, as a dropped or pasted link does.
    void prefill(const QString &title, const QString &path, LinkType type);
    // Asks for a file (or a folder) and takes it as the location.
    void chooseLocation(bool filesAllowed, bool foldersAllowed, LinkType typeToSet);

private:
    void populateForm(const LinkItem *itemToEdit);
    void showLocationBlock();
    QString editorText() const;

    LinkStore &m_store;
    Dialogs &m_dialogs;
    const Clock &m_clock;
    bool m_editing = false;
    QUuid m_editedId;

    QString m_category;
    LinkType m_linkType = LinkType::url;

    QLineEdit *m_title = nullptr;
    QButtonGroup *m_linkTypeGroup = nullptr;
    QLabel *m_locationLabel = nullptr;
    QLineEdit *m_path = nullptr;
    QPushButton *m_choose = nullptr;
    QComboBox *m_categoryPicker = nullptr;
    QPlainTextEdit *m_notes = nullptr;
    QPushButton *m_confirm = nullptr;
};

} // namespace fiva
