#pragma once

#include "interchange/BookmarkImport.h"
#include "model/LinkItem.h"

#include <QByteArray>
#include <QDialog>
#include <QList>
#include <QStringList>

class QCheckBox;
class QLabel;
class QPushButton;

namespace fiva {

class Clock;
class LinkStore;

// What a browser bookmark file would add, before anything is written: the number of records, the
// new categories, the duplicates and the skipped items, with the two choices that change them
// (keep the browser's root folders, import duplicates anyway). "Importer" adds them in one save.
class BookmarkImportDialog final : public QDialog
{
    Q_OBJECT

public:
    // `file` is the whole bookmark file; the store and clock must outlive the dialog.
    BookmarkImportDialog(LinkStore &store, const Clock &clock, QByteArray file, const QString &fileName,
                         QWidget *parent = nullptr);

    const interchange::ImportPlan &plan() const { return m_plan; }
    // Adds the records under the store's lock; what was actually saved, or nothing.
    std::optional<int> importNow();

private:
    interchange::ImportOptions options() const;
    interchange::ImportContext context(const QList<LinkItem> &items, const QStringList &categories) const;
    // Plans against the store as it is now, with a progress bar if the file takes long to read.
    void preview();

    LinkStore &m_store;
    const Clock &m_clock;
    QByteArray m_file;
    interchange::ImportPlan m_plan;
    // What the preview was planned against; when the store still holds exactly this at save time,
    // the preview is what gets saved and the file is not read a second time.
    QList<LinkItem> m_plannedItems;
    QStringList m_plannedCategories;

    QCheckBox *m_keepRoots = nullptr;
    QCheckBox *m_allowDuplicates = nullptr;
    QLabel *m_summary = nullptr;
    QLabel *m_problems = nullptr;
    QPushButton *m_import = nullptr;
};

} // namespace fiva
