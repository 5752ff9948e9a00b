#pragma once

#include <QObject>
#include <QString>

class QLocalServer;

namespace fiva {

// One window per user and data folder. The first process to start holds a lock on a file in the
// data folder for as long as it runs and listens on a local socket; a later start finds the lock
// taken, asks the running one to come to the front through the socket, handing it the backup
// archive it was started with if any, and ends. Keyed on the
// data folder, so that two test runs with folders of their own never meet.
class SingleInstance final : public QObject
{
    Q_OBJECT

public:
    // `dataFolder` is AS/Fiva.
    explicit SingleInstance(const QString &dataFolder, QObject *parent = nullptr);
    ~SingleInstance() override;

    // True when this process is the one to run; false when another already runs, which has then
    // been asked to show its window and, when `backupFile` is given, to offer restoring it.
    bool claim(const QString &backupFile = {});

    // The local socket's name (a full path) for this data folder.
    static QString serverName(const QString &dataFolder);

Q_SIGNALS:
    // A later start asked for the window; `backupFile` is empty when it was given none.
    void activationRequested(const QString &backupFile);

private:
    QString m_dataFolder;
    int m_lockFd = -1;
    QLocalServer *m_server = nullptr;
};

} // namespace fiva
