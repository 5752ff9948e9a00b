#include "app/AppInfo.h"
#include "app/FirstPaintProbe.h"
#include "app/FivaApp.h"
#include "app/MainWindow.h"
#include "app/Resources.h"
#include "app/SingleInstance.h"
#include "platform/AllocatorTuning.h"
#include "platform/Clock.h"
#include "platform/Paths.h"
#include "platform/Settings.h"
#include "platform/Workspace.h"
#include "ui/common/QtDialogs.h"

#include <QApplication>
#include <QDir>

int main(int argc, char *argv[])
{
    fiva::restartWithTunedAllocator(argv);
    QApplication application(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Fiva"));
    QApplication::setApplicationName(QStringLiteral("Fiva"));
    QApplication::setApplicationVersion(QStringLiteral("3.0.11.25"));
    // Lets the desktop match the windows with fiva.desktop and its icon.
    QGuiApplication::setDesktopFileName(QStringLiteral("fiva"));
    QApplication::setWindowIcon(fiva::appIcon());

    fiva::DesktopPaths paths;
    // A second start shows the running window instead of opening a second store on the same files.
    // Without a data folder there are no files to share, and nothing to key the instance on.
    const QString dataFolder = paths.applicationSupportFolder();
    fiva::SingleInstance instance(dataFolder.isEmpty() ? QString()
                                                       : QDir(dataFolder).filePath(QStringLiteral("Fiva")));
    if (!dataFolder.isEmpty() && !instance.claim())
        return 0;
    fiva::DesktopWorkspace workspace;
    fiva::SystemClock clock;
    fiva::QtDialogs dialogs;
    fiva::Settings settings;
    dialogs.setStartFolders(paths, settings);
    fiva::FivaApp app(fiva::AppServices{
        paths,
        workspace,
        clock,
        dialogs,
        settings,
        fiva::Resources(fiva::Resources::besideProgram(QCoreApplication::applicationDirPath())),
        {}});
    dialogs.setParentWindow(app.mainWindow());
    fiva::watchFirstPaintIfAsked(app.mainWindow());
    app.mainWindow()->show();
    QObject::connect(&instance, &fiva::SingleInstance::activationRequested, &app,
                     [&app] { app.showMainWindow(); });
    app.offerRecovery();
    return QApplication::exec();
}
