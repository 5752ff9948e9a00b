#pragma once

#include <QListView>
#include <QRect>
#include <QWidget>

class QToolButton;

namespace fiva {

struct BackupLog;
class LinkStore;
class Workspace;

// The backup history sheet: one row per entry of the store's history, newest first, redrawn
// whenever the history changes. The rows are painted rather than built from widgets because the
// history is never trimmed and grows by a hundred entries a day. The path is shown whole, over as
// many lines as it needs; the keyboard reaches the link and copies the path through the list.
class BackupHistoryView final : public QWidget
{
    Q_OBJECT

public:
    BackupHistoryView(LinkStore &store, Workspace &workspace, QWidget *parent = nullptr);

    QListView *list() const { return m_list; }
    QToolButton *closeButton() const { return m_close; }

    // What a row shows, line by line.
    static QString dateText(const BackupLog &log);
    static QString sizeText(qint64 bytes);
    // Where the "Afficher dans le Finder" link of a row is drawn.
    QRect linkRectOfRow(int row) const;

    // Shows the backup file selected in the file manager, whether or not it still exists.
    void revealBackupFile(const BackupLog &log);
    // What the current row's link and "Copier le chemin" do; both also answer Return and Ctrl+C.
    void revealCurrentBackupFile();
    void copyCurrentPath();

Q_SIGNALS:
    // The close button was pressed; whoever presented the sheet closes it.
    void dismissRequested();

private:
    LinkStore &m_store;
    Workspace &m_workspace;
    QListView *m_list = nullptr;
    QToolButton *m_close = nullptr;
};

} // namespace fiva
