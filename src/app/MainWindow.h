#pragma once

#include <QMainWindow>

namespace fiva {

class Settings;

// The main window's frame: menus, and its size and position kept from one run to the next in
// `settings`, which must outlive the window.
class MainWindow final : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(Settings &settings, QWidget *parent = nullptr);

    void saveWindowState();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    Settings &m_settings;
};

} // namespace fiva
