#include "platform/Workspace.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QFileInfo>
#include <QProcess>
#include <QStringList>

namespace fiva {

namespace {

constexpr int fileManagerTimeoutMs = 3000;

bool xdgOpen(const QString &target)
{
    return QProcess::startDetached(QStringLiteral("xdg-open"), {target});
}

// Calls ShowItems or ShowFolders. A file manager that is not running is usually D-Bus
// activatable, so we call rather than ask whether the name is registered, and treat any error
// reply as "no file manager service".
bool callFileManager(const QString &method, const QString &path)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), method);
    call << QStringList{QUrl::fromLocalFile(path).toString()} << QString();
    const QDBusMessage reply = bus.call(call, QDBus::Block, fileManagerTimeoutMs);
    return reply.type() == QDBusMessage::ReplyMessage;
}

} // namespace

bool DesktopWorkspace::openUrl(const QUrl &url)
{
    if (!url.isValid())
        return false;
    return xdgOpen(url.isLocalFile() ? url.toLocalFile() : url.toString(QUrl::FullyEncoded));
}

bool DesktopWorkspace::openPath(const QString &path)
{
    if (path.isEmpty())
        return false;
    return xdgOpen(path);
}

bool DesktopWorkspace::showFolder(const QString &folder)
{
    if (folder.isEmpty())
        return false;
    return callFileManager(QStringLiteral("ShowFolders"), folder) || xdgOpen(folder);
}

bool DesktopWorkspace::revealItem(const QString &path)
{
    if (path.isEmpty())
        return false;
    if (callFileManager(QStringLiteral("ShowItems"), path))
        return true;
    const QFileInfo info(path);
    return xdgOpen(info.isDir() ? info.absoluteFilePath() : info.absolutePath());
}

} // namespace fiva
