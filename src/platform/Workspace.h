#pragma once

#include <QString>
#include <QUrl>

namespace fiva {

// What Fiva asks of the desktop's shell: open things with their default application and show
// files in the file manager. Each call returns false when nothing could be started.
class Workspace
{
public:
    virtual ~Workspace() = default;

    // A web address, or a file:// location, with the user's default application.
    virtual bool openUrl(const QUrl &url) = 0;
    // A local file or folder with its default application.
    virtual bool openPath(const QString &path) = 0;
    // A folder's contents in the file manager.
    virtual bool showFolder(const QString &folder) = 0;
    // The file manager's window for the item's parent, with the item (file or folder) selected.
    virtual bool revealItem(const QString &path) = 0;
};

// The freedesktop implementation: xdg-open for opening, and the file manager's
// org.freedesktop.FileManager1 D-Bus service for showing, falling back to opening the folder.
class DesktopWorkspace final : public Workspace
{
public:
    bool openUrl(const QUrl &url) override;
    bool openPath(const QString &path) override;
    bool showFolder(const QString &folder) override;
    bool revealItem(const QString &path) override;
};

} // namespace fiva
