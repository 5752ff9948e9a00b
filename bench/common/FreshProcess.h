#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

namespace fiva::bench {

// Writes `bytes` as the data file of the application-support folder `asFolder`; false on failure.
bool writeDataFolder(const QString &asFolder, const QByteArray &bytes);

// Runs this program again as "PROGRAM --measure ARGS…", so that a measurement starts with memory
// the process has never touched, as at a real start. Its output's space-separated fields, or none
// when it failed.
QList<QByteArray> measureInFreshProcess(const QStringList &args);

} // namespace fiva::bench
