#include "list/FilterEngineTuning.h"

namespace fiva {

namespace {

FilterEngineTuning currentTuning;

} // namespace

const FilterEngineTuning &filterEngineTuning()
{
    return currentTuning;
}

void setFilterEngineTuning(const FilterEngineTuning &tuning)
{
    currentTuning = tuning;
}

} // namespace fiva
