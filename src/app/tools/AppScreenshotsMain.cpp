// Renders the application's own windows offscreen into PNG files, beside the screens' pictures:
// fiva-app-screenshots OUTPUT_FOLDER (run with QT_QPA_PLATFORM=offscreen).
#include "app/AboutWindow.h"
#include "app/FivaApp.h"
#include "app/MainWindow.h"
#include "platform/Clock.h"
#include "platform/Dialogs.h"
#include "platform/Paths.h"
#include "platform/Settings.h"
#include "platform/Workspace.h"
#include "ui/settings/BackupConfigWindow.h"
#include "ui/settings/BackupHistoryView.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstdio>

namespace {

using namespace fiva;
using namespace Qt::StringLiterals;

class InertWorkspace final : public Workspace
{
public:
    bool openUrl(const QUrl &) override { return false; }
    bool openPath(const QString &) override { return false; }
    bool showFolder(const QString &) override { return false; }
    bool revealItem(const QString &) override { return false; }
};

class SilentDialogs final : public Dialogs
{
public:
    AlertAnswer runAlert(const AlertRequest &) override { return {}; }
    void showOpenPanel(const OpenPanelRequest &, OpenPanelDone done) override { done(std::nullopt); }
    void showSavePanel(const SavePanelRequest &, SavePanelDone done) override { done(std::nullopt); }
};

bool save(QWidget &widget, const QString &folder, const QString &name)
{
    widget.show();
    QCoreApplication::processEvents();
    const QString path = QDir(folder).filePath(name + u".png"_s);
    const bool ok = widget.grab().save(path);
    std::printf("%s %s\n", ok ? "wrote" : "could not write", qPrintable(path));
    widget.hide();
    return ok;
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: fiva-app-screenshots OUTPUT_FOLDER\n");
        return 2;
    }
    const QString folder = QString::fromLocal8Bit(argv[1]);
    QDir().mkpath(folder);

    QTemporaryDir as;
    FixedPaths paths(as.path(), as.path());
    InertWorkspace workspace;
    SystemClock clock;
    SilentDialogs dialogs;
    Settings settings(as.filePath(u"Fiva.ini"_s));
    FivaApp app(AppServices{paths, workspace, clock, dialogs, settings, Resources({})});

    // A few backups of different sizes, so the history has rows to show.
    for (int i = 0; i < 4; ++i) {
        const QString file = as.filePath(u"Fiva/AutoBackups/AutoBackup-%1.fivabackup"_s.arg(i));
        QDir().mkpath(QFileInfo(file).absolutePath());
        QFile out(file);
        if (out.open(QIODevice::WriteOnly))
            out.write(QByteArray(1000 * (i + 1) * (i + 1) * 37, 'x'));
        out.close();
        app.store().addBackupLog(file);
    }

    bool ok = true;
    {
        BackupConfigWindow window(app.store());
        ok &= save(window, folder, u"backup-configuration"_s);
    }
    {
        BackupHistoryView view(app.store(), workspace);
        ok &= save(view, folder, u"backup-history"_s);
    }
    {
        AboutWindow about;
        ok &= save(about, folder, u"about"_s);
    }
    app.mainWindow()->resize(900, 560);
    ok &= save(*app.mainWindow(), folder, u"main-window-shell"_s);
    return ok ? 0 : 1;
}
