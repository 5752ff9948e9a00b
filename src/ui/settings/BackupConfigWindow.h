#pragma once

#include <QPointer>
#include <QWidget>

class QCheckBox;
class QComboBox;
class QPushButton;

namespace fiva {

class LinkStore;

// Switches the automatic backup on and off, picks its interval and opens the folder of automatic
// backups. It holds nothing of its own: both controls write the store at once and follow it.
class BackupConfigWindow final : public QWidget
{
    Q_OBJECT

public:
    explicit BackupConfigWindow(LinkStore &store, QWidget *parent = nullptr);

    // The one configuration window of the program: `shared` is the caller's reference to it,
    // empty at first and emptied again when the window closes (the window is deleted then).
    // Creates the window when there is none, then brings it to the front either way.
    static BackupConfigWindow *showShared(QPointer<BackupConfigWindow> &shared, LinkStore &store);

private:
    void refresh();

    LinkStore &m_store;
    QCheckBox *m_enabled = nullptr;
    QComboBox *m_interval = nullptr;
    QPushButton *m_openFolder = nullptr;
};

} // namespace fiva
