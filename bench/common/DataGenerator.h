#pragma once

#include "model/SavedData.h"

#include <cstdint>

namespace fiva::bench {

// A realistic data set: French titles with accents, HTML notes in the form the edit form stores,
// about 30 % of records with 1-3 attachments, a few dozen categories and sub-categories, creation
// dates spread over several years. The same seed gives the same data.
SavedData generateSavedData(int itemCount, std::uint32_t seed = 42);

} // namespace fiva::bench
