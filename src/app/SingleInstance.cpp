#include "app/SingleInstance.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QThread>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <memory>

namespace fiva {

SingleInstance::SingleInstance(const QString &dataFolder, QObject *parent)
    : QObject(parent), m_dataFolder(dataFolder)
{
}

SingleInstance::~SingleInstance()
{
    if (m_server)
        m_server->close();
    if (m_lockFd >= 0)
        ::close(m_lockFd);
}

QString SingleInstance::serverName(const QString &dataFolder)
{
    const QByteArray key = QFile::encodeName(QFileInfo(dataFolder).absoluteFilePath());
    const QString hash =
        QString::fromLatin1(QCryptographicHash::hash(key, QCryptographicHash::Sha256).toHex().left(16));
    QString folder = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (folder.isEmpty() || !QFileInfo(folder).isDir())
        folder = QDir::tempPath();
    return QDir(folder).filePath(QStringLiteral("fiva-%1-%2.socket").arg(::getuid()).arg(hash));
}

bool SingleInstance::claim(const QString &backupFile)
{
    QDir().mkpath(m_dataFolder);
    const QString lockFile = QDir(m_dataFolder).filePath(QStringLiteral("Fiva.instance"));
    const int fd = ::open(QFile::encodeName(lockFile).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    // Without a lock file (a read-only folder) there is nothing to share the data with safely
    // either; the window opens and its saves report the folder's problem.
    if (fd < 0 || ::flock(fd, LOCK_EX | LOCK_NB) == 0) {
        m_lockFd = fd;
        const QString name = serverName(m_dataFolder);
        // A socket left by a crashed run is stale: the lock says nobody owns it.
        QLocalServer::removeServer(name);
        m_server = new QLocalServer(this);
        m_server->setSocketOptions(QLocalServer::UserAccessOption);
        connect(m_server, &QLocalServer::newConnection, this, [this] {
            while (QLocalSocket *socket = m_server->nextPendingConnection()) {
                // The later start writes the archive's path, if any, and hangs up.
                auto received = std::make_shared<QByteArray>();
                connect(socket, &QLocalSocket::readyRead, socket,
                        [socket, received] { received->append(socket->readAll()); });
                connect(socket, &QLocalSocket::disconnected, this, [this, socket, received] {
                    received->append(socket->readAll());
                    socket->deleteLater();
                    Q_EMIT activationRequested(QString::fromUtf8(*received));
                });
            }
        });
        m_server->listen(name);
        return true;
    }
    ::close(fd);
    // The running one may still be starting: its socket appears right after its lock.
    for (int attempt = 0; attempt < 50; ++attempt) {
        QLocalSocket socket;
        socket.connectToServer(serverName(m_dataFolder));
        if (socket.waitForConnected(100)) {
            if (!backupFile.isEmpty()) {
                socket.write(backupFile.toUtf8());
                socket.waitForBytesWritten(1000);
            }
            socket.disconnectFromServer();
            if (socket.state() != QLocalSocket::UnconnectedState)
                socket.waitForDisconnected(1000);
            return false;
        }
        QThread::msleep(50);
    }
    return false;
}

} // namespace fiva
