#include "model/LinkItem.h"
#include "platform/Clock.h"
#include "platform/Paths.h"
#include "platform/Settings.h"
#include "platform/Workspace.h"
#include "store/LinkStore.h"
#include "store/StoredNotes.h"
#include "ui/common/QtDialogs.h"
#include "ui/editing/CategoryManagerView.h"
#include "ui/editing/EditLinkView.h"
#include "ui/main/AttachmentPreviewWindow.h"
#include "ui/main/ContentView.h"
#include "ui/main/DetailView.h"
#include "ui/settings/PreferencesView.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QPixmap>
#include <QTemporaryDir>
#include <QTextStream>
#include <QWidget>

#include <cstdio>

namespace {

using namespace fiva;
using namespace Qt::StringLiterals;

// Nothing is opened while taking pictures.
class InertWorkspace final : public Workspace
{
public:
    bool openUrl(const QUrl &) override { return false; }
    bool openPath(const QString &) override { return false; }
    bool showFolder(const QString &) override { return false; }
    bool revealItem(const QString &) override { return false; }
};

LinkItem demoItem(const QString &title, const QString &path, const QString &category, LinkKind kind,
                  const QString &notes, double createdAt, bool favourite)
{
    LinkItem item;
    item.id = QUuid::createUuid();
    item.title = title;
    item.path = path;
    item.category = category;
    item.kind = kind;
    item.notes = notesHTML(notes);
    item.createdAt = Timestamp{createdAt};
    item.isFavorite = favourite;
    return item;
}

void fillDemoData(LinkStore &store)
{
    for (const QString &name : {u"Travail"_s, u"Loisirs"_s, u"Administratif"_s})
        store.addCategory(name);
    store.addSubCategory(u"Travail"_s, u"Projets"_s);
    store.addSubCategory(u"Loisirs"_s, u"Randonnée"_s);
    store.appendItem(demoItem(u"Documentation Qt"_s, u"https://doc.qt.io"_s, u"Travail"_s, LinkKind::url,
                              u"Référence des classes.\nVoir surtout QWidget et les layouts."_s, 780000000,
                              true));
    store.appendItem(demoItem(u"Contrat de location"_s, u"/home/camille/Documents/bail.pdf"_s,
                              u"Administratif"_s, LinkKind::file, u"Renouvellement en juin."_s, 781000000,
                              false));
    store.save();
}

bool save(QWidget &widget, const QString &folder, const QString &name, bool keepSize = false)
{
    widget.show();
    if (!keepSize)
        widget.adjustSize();
    widget.resize(widget.size().expandedTo(widget.minimumSize()));
    QApplication::processEvents();
    const QString path = QDir(folder).filePath(name + u".png"_s);
    const bool ok = widget.grab().save(path);
    std::printf("%s %s\n", ok ? "wrote" : "could not write", qPrintable(path));
    widget.close();
    return ok;
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    const QStringList arguments = QApplication::arguments();
    if (arguments.size() != 2) {
        std::fprintf(stderr, "usage: fiva-screenshots OUTPUT_FOLDER\n");
        return 2;
    }
    const QString folder = arguments[1];
    if (!QDir().mkpath(folder)) {
        std::fprintf(stderr, "cannot create %s\n", qPrintable(folder));
        return 1;
    }

    QTemporaryDir work;
    FixedPaths paths(work.path(), work.path());
    InertWorkspace workspace;
    SystemClock clock;
    LinkStore store(paths, workspace, clock);
    fillDemoData(store);
    Settings settings(work.filePath(u"Fiva.ini"_s));
    QtDialogs dialogs;

    bool ok = true;
    {
        PreferencesView view(settings);
        ok &= save(view, folder, u"preferences"_s);
    }
    {
        EditLinkView view(store, dialogs, clock, nullptr);
        ok &= save(view, folder, u"edit-new"_s);
    }
    {
        const LinkItem item = store.items().at(1);
        EditLinkView view(store, dialogs, clock, &item);
        ok &= save(view, folder, u"edit-existing"_s);
    }
    {
        CategoryManagerView view(store, dialogs);
        ok &= save(view, folder, u"categories-none-selected"_s);
        view.selectCategory(u"Travail"_s);
        ok &= save(view, folder, u"categories"_s);
    }
    {
        // A record with rich notes and two attachments, one of them a real file to preview.
        const QString attachment = QDir(store.attachmentsFolderURL()).filePath(u"lisez-moi.txt"_s);
        QFile file(attachment);
        if (file.open(QIODevice::WriteOnly))
            file.write("Bail signé le 3 mars.\nPréavis de trois mois.\n");
        file.close();
        const QUuid id = store.items().at(1).id;
        store.updateItem(id, [&](LinkItem &item) {
            item.notes = notesHTML(u"Renouvellement en <b>juin</b>.\nPenser à l'<i>état des lieux</i>."_s);
            item.attachments = {
                Attachment{QUuid::createUuid(), u"lisez-moi.txt"_s, attachment},
                Attachment{QUuid::createUuid(), u"quittance-mars.pdf"_s,
                           QDir(store.attachmentsFolderURL()).filePath(u"quittance-mars.pdf"_s)}};
        });
        DetailView view(store, dialogs, workspace, settings, store.items().at(1));
        view.resize(640, 760);
        ok &= save(view, folder, u"detail"_s, true);
        AttachmentPreviewWindow preview(attachment, workspace);
        ok &= save(preview, folder, u"attachment-preview"_s, true);
    }
    {
        // No old-backup alert: it would wait for a click that never comes.
        settings.setWarnOldBackup(false);
        ContentView view(store, dialogs, workspace, settings, clock);
        view.resize(1100, 700);
        view.setSelectedItemID(store.items().at(1).id);
        ok &= save(view, folder, u"content"_s, true);
    }
    return ok ? 0 : 1;
}
