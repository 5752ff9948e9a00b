#include "common/FreshProcess.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>

namespace fiva::bench {

bool writeDataFolder(const QString &asFolder, const QByteArray &bytes)
{
    QDir().mkpath(asFolder + QStringLiteral("/Fiva"));
    QFile file(asFolder + QStringLiteral("/Fiva/FivaData.json"));
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush();
}

QList<QByteArray> measureInFreshProcess(const QStringList &args)
{
    QProcess child;
    child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    child.start(QCoreApplication::applicationFilePath(), QStringList{QStringLiteral("--measure")} + args);
    child.waitForFinished(-1);
    if (child.exitStatus() != QProcess::NormalExit || child.exitCode() != 0)
        return {};
    return child.readAllStandardOutput().trimmed().split(' ');
}

} // namespace fiva::bench
