#pragma once

#include <QWidget>

namespace fiva {

class LinkStore;
class Workspace;

// Stands in the main window until the record list and detail view take its place: says so, and
// opens the backup history sheet so that it can be reached meanwhile.
class MainWindowPlaceholder final : public QWidget
{
    Q_OBJECT

public:
    MainWindowPlaceholder(LinkStore &store, Workspace &workspace, QWidget *parent = nullptr);

    // The history sheet, window-modal over this window; closed by its own close button.
    void showBackupHistory();

private:
    LinkStore &m_store;
    Workspace &m_workspace;
};

} // namespace fiva
