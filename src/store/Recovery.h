#pragma once

#include "store/LinkStore.h"

#include <QString>

namespace fiva {

// One line describing an automatic backup offered for recovery, the same in the window and on
// fiva-cli: its date in the user's locale, its number of records and its file.
QString recoveryOffer(const LinkStore::AutoBackupCandidate &candidate);

} // namespace fiva
