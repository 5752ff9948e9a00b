#include "app/AppInfo.h"
#include "app/CommandLine.h"
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
#include <QTimer>

#include <cstdio>

#include "Version.h"

int main(int argc, char *argv[])
{
    fiva::restartWithTunedAllocator(argv);
    // Answered before QApplication exists, so that they need no display.
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    const fiva::CommandLine commandLine = fiva::parseCommandLine(arguments);
    switch (commandLine.action) {
    case fiva::CommandLine::Action::help:
        std::fputs(fiva::commandLineHelp().toUtf8().constData(), stdout);
        return 0;
    case fiva::CommandLine::Action::version:
        std::printf("%s\n", fiva::versionNumber);
        return 0;
    case fiva::CommandLine::Action::usageError:
        std::fprintf(stderr, "%s\nusage: fiva [BACKUP.fivabackup] | --help | --version\n",
                     commandLine.error.toUtf8().constData());
        return fiva::exitUsage;
    case fiva::CommandLine::Action::run:
        break;
    }

    QApplication application(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Fiva"));
    QApplication::setApplicationName(QStringLiteral("Fiva"));
    QApplication::setApplicationVersion(QLatin1String(fiva::versionNumber));
    // Lets the desktop match the windows with example.fiva.Fiva.desktop and its icon.
    QGuiApplication::setDesktopFileName(QStringLiteral("example.fiva.Fiva"));
    QApplication::setWindowIcon(fiva::appIcon());

    fiva::DesktopPaths paths;
    // A second start shows the running window instead of opening a second store on the same files.
    // Without a data folder there are no files to share, and nothing to key the instance on.
    const QString dataFolder = paths.applicationSupportFolder();
    fiva::SingleInstance instance(dataFolder.isEmpty() ? QString()
                                                       : QDir(dataFolder).filePath(QStringLiteral("Fiva")));
    if (!dataFolder.isEmpty() && !instance.claim(commandLine.backupFile))
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
    });
    dialogs.setParentWindow(app.mainWindow());
    fiva::watchFirstPaintIfAsked(app.mainWindow());
    app.mainWindow()->show();
    QObject::connect(
        &instance, &fiva::SingleInstance::activationRequested, &app, [&app](const QString &backupFile) {
            app.showMainWindow();
            // Asked from the event loop, not from inside the socket's signal.
            if (!backupFile.isEmpty())
                QTimer::singleShot(0, &app, [&app, backupFile] { app.offerRestore(backupFile); });
        });
    app.offerRecovery();
    // A backup archive opened from the file manager: once the window is up, its restore
    // confirmation, exactly as if it had been chosen in the restore panel.
    if (!commandLine.backupFile.isEmpty()) {
        QTimer::singleShot(0, &app, [&app, file = commandLine.backupFile] { app.offerRestore(file); });
    }
    return QApplication::exec();
}
