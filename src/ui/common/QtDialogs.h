#pragma once

#include "platform/Dialogs.h"

#include <QPointer>
#include <QWidget>

namespace fiva {

class Paths;
class Settings;

// The desktop's dialogs: QMessageBox for alerts, QFileDialog for the panels. Alerts are
// application-modal; panels are window-modal over the parent and answer through their callback.
class QtDialogs final : public Dialogs
{
public:
    explicit QtDialogs(QWidget *parentWindow = nullptr);

    // The window the dialogs are centred on and, for panels, modal to.
    void setParentWindow(QWidget *parentWindow) { m_parentWindow = parentWindow; }
    QWidget *parentWindow() const { return m_parentWindow; }
    // The desktop's own file chooser (through the platform theme or portal) or Qt's. Tests use
    // Qt's, which they can find and drive.
    void setUseNativePanels(bool useNative) { m_useNativePanels = useNative; }
    // Open and save panels each start in the folder where the last one of their kind was confirmed,
    // kept in the settings from one launch to the next, else in the documents folder. Without this
    // they start in the working folder. Both must outlive the dialogs.
    void setStartFolders(const Paths &paths, Settings &settings);

    AlertAnswer runAlert(const AlertRequest &request) override;
    void showOpenPanel(const OpenPanelRequest &request, OpenPanelDone done) override;
    void showSavePanel(const SavePanelRequest &request, SavePanelDone done) override;

    // The name filter a panel offers for these extensions, for example "*.fivabackup"; empty for none.
    static QStringList nameFilters(const QStringList &extensions);

private:
    QPointer<QWidget> m_parentWindow;
    bool m_useNativePanels = true;
    const Paths *m_paths = nullptr;
    QPointer<Settings> m_settings;
};

} // namespace fiva
