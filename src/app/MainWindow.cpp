#include "app/MainWindow.h"

#include <QCloseEvent>
#include <QGuiApplication>
#include <QScreen>
#include <QSettings>

namespace fiva {

namespace {

const QString geometryKey = QStringLiteral("MainWindow/geometry");

} // namespace

MainWindow::MainWindow(QSettings &windowState, QWidget *parent)
    : QMainWindow(parent), m_windowState(windowState)
{
    setWindowTitle(QStringLiteral("Fiva"));
    setMinimumSize(640, 420);
    const QByteArray geometry = m_windowState.value(geometryKey).toByteArray();
    if (geometry.isEmpty() || !restoreGeometry(geometry)) {
        resize(1100, 700);
        if (const QScreen *screen = QGuiApplication::primaryScreen())
            move(screen->availableGeometry().center() - rect().center());
    }
}

void MainWindow::saveWindowState()
{
    m_windowState.setValue(geometryKey, saveGeometry());
    m_windowState.sync();
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    saveWindowState();
    QMainWindow::closeEvent(event);
}

} // namespace fiva
