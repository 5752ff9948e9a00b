#pragma once

#include <QObject>
#include <QString>
#include <QUuid>

#include <optional>
#include <thread>

class QProgressDialog;
class QWidget;

namespace fiva {

class Dialogs;
class LinkStore;
struct Attachment;
struct LinkItem;

// "Rechercher…" for one lost record or attachment copy: asks for a folder, looks below it on a
// worker thread behind a progress dialog that can be cancelled, proposes what it found and, once
// the user agrees, repairs the record in one store operation. Deletes itself when done.
class RelocationSearch final : public QObject
{
    Q_OBJECT
public:
    // Searches for the record's own file or folder.
    static RelocationSearch *forRecord(LinkStore &store, Dialogs &dialogs, const LinkItem &item,
                                       QWidget *parent);
    // Searches for an attachment's copy, of the same name and, when known, the same size.
    static RelocationSearch *forAttachment(LinkStore &store, Dialogs &dialogs, const QUuid &itemId,
                                           const Attachment &attachment, std::optional<qint64> size,
                                           QWidget *parent);
    ~RelocationSearch() override;

Q_SIGNALS:
    // The search ended, whether something was repaired or not.
    void finished();

private:
    RelocationSearch(LinkStore &store, Dialogs &dialogs, QWidget *parent);
    void askForFolder();
    void search(const QString &root);
    void found(const QStringList &candidates, const QString &root);
    void end();

    LinkStore &m_store;
    Dialogs &m_dialogs;
    QWidget *m_parent;
    QUuid m_itemId;
    std::optional<QUuid> m_attachmentId;
    QString m_name;
    bool m_isFolder = false;
    std::optional<qint64> m_size;
    QProgressDialog *m_progress = nullptr;
    std::jthread m_worker;
};

} // namespace fiva
