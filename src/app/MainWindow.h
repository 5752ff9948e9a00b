#pragma once

#include <QMainWindow>

class QSettings;

namespace fiva {

// The main window's frame: menus, and its size and position kept from one run to the next in
// `windowState`, which must outlive the window.
class MainWindow final : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(QSettings &windowState, QWidget *parent = nullptr);

    void saveWindowState();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    QSettings &m_windowState;
};

} // namespace fiva
