#pragma once

#include <QString>

namespace fiva {

// Removes a user's file the way a file manager does: into the desktop's trash (the
// freedesktop.org trash of the user's data folder), from where it can be brought back. Where no
// trash can take it (another file system without a trash of its own, a sandbox without a data
// folder), the file is deleted. Folders are never touched. True when the file is gone from `path`.
bool discardFile(const QString &path);

} // namespace fiva
