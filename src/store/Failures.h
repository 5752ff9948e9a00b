#pragma once

#include <QString>

namespace fiva {

// The failures a desktop user would otherwise never see, since their reason goes to standard
// output: the main window shows them in its banner.
enum class FailureKind { save, autoBackup, exportBackup, dataFileSetAside, dataFileKept };

// What failed, why (`detail`), and what to do next, in French.
QString failureSentence(FailureKind kind, const QString &detail);

// Why nothing can be read or written when the desktop names no folder for the program's data.
QString noDataFolder();

} // namespace fiva
