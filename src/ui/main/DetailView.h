#pragma once

#include <QHash>
#include <QString>
#include <QUuid>
#include <QWidget>

#include <functional>
#include <memory>

class QLabel;
class QPushButton;
class QTextBrowser;
class QTextDocument;
class QVBoxLayout;

namespace fiva {

class Dialogs;
class LinkStore;
class Settings;
class Workspace;
struct Attachment;
struct LinkItem;

// The right-hand column: every field of the selected record, its notes in the user's notes font,
// its attached files, and editing and deletion of the record. It shows the store's current version
// of the record, falling back to the copy it was opened with once the store no longer has it.
class DetailView final : public QWidget
{
    Q_OBJECT

public:
    // Everything passed in must outlive the view. `item` is copied.
    DetailView(LinkStore &store, Dialogs &dialogs, Workspace &workspace, const Settings &settings,
               const LinkItem &item, QWidget *parent = nullptr);
    ~DetailView() override;

    // Called by "Fermer" and after the record is deleted.
    void setOnClose(std::function<void()> onClose) { m_onClose = std::move(onClose); }
    // Called by "Modifier" with the record as the store has it now.
    void setOnEdit(std::function<void(const LinkItem &)> onEdit) { m_onEdit = std::move(onEdit); }

    QUuid itemId() const;
    LinkItem currentItem() const;
    // Shows the record again, notes included, reading the notes font anew.
    void refresh();
    // Marks what the latest health pass found wrong: beside "Lien :" (`linkProblem`, empty when the
    // link is fine) and on each attachment whose copy is missing, by attachment id. The tooltips say
    // what is wrong.
    // `attachmentSizes` are the sizes the missing copies had, to search for them by size as well.
    void setProblems(const QString &linkProblem, const QHash<QUuid, QString> &attachmentProblems,
                     const QHash<QUuid, qint64> &attachmentSizes = {});

    void openLink();
    void addAttachment();
    void previewAttachment(const Attachment &attachment);
    void openAttachment(const Attachment &attachment);
    void deleteAttachment(const Attachment &attachment);
    void confirmDeleteItem();
    // Local files dropped on the view become attachments, copied and named as "Ajouter" does;
    // folders and anything else are left out.
    void attachFiles(const QStringList &paths);

    // The stored notes as a document in the notes font, keeping bold and italic runs; null when
    // the text cannot be read.
    // "Supprimer cette fiche ?", asked wherever a record is deleted; true on "Supprimer".
    static bool confirmRecordDeletion(Dialogs &dialogs);
    static std::unique_ptr<QTextDocument> renderNotes(const QString &html, const QString &fontName,
                                                      double pointSize);

protected:
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dropEvent(QDropEvent *event) override;

private:
    void build();
    void rebuildAttachments(const LinkItem &item);
    void copyAttachment(const QString &source);

    LinkStore &m_store;
    Dialogs &m_dialogs;
    Workspace &m_workspace;
    const Settings &m_settings;
    std::unique_ptr<LinkItem> m_item;
    std::function<void()> m_onClose;
    std::function<void(const LinkItem &)> m_onEdit;

    QLabel *m_title = nullptr;
    QLabel *m_path = nullptr;
    QPushButton *m_openLink = nullptr;
    QLabel *m_kind = nullptr;
    QLabel *m_category = nullptr;
    QLabel *m_favorite = nullptr;
    QLabel *m_createdAt = nullptr;
    QTextBrowser *m_notes = nullptr;
    QLabel *m_noNotes = nullptr;
    QVBoxLayout *m_attachmentsLayout = nullptr;
    QWidget *m_attachmentRows = nullptr;
    QLabel *m_linkProblem = nullptr;
    QPushButton *m_searchLink = nullptr;
    QHash<QUuid, QString> m_attachmentProblems;
    QHash<QUuid, qint64> m_attachmentSizes;
};

} // namespace fiva
