#include "app/MainWindow.h"

#include "platform/Settings.h"

#include <QCloseEvent>
#include <QGuiApplication>
#include <QScreen>

namespace fiva {

MainWindow::MainWindow(Settings &settings, QWidget *parent) : QMainWindow(parent), m_settings(settings)
{
    setWindowTitle(QStringLiteral("Fiva"));
    setMinimumSize(640, 420);
    const QByteArray geometry = m_settings.value(Settings::Key::mainWindowGeometry).toByteArray();
    if (geometry.isEmpty() || !restoreGeometry(geometry)) {
        resize(1100, 700);
        if (const QScreen *screen = QGuiApplication::primaryScreen())
            move(screen->availableGeometry().center() - rect().center());
    }
}

void MainWindow::saveWindowState()
{
    m_settings.setValue(Settings::Key::mainWindowGeometry, saveGeometry());
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    saveWindowState();
    QMainWindow::closeEvent(event);
}

} // namespace fiva
