#pragma once

#include <cstddef>

namespace fiva {

// Switches for measuring what each part of the list engine is worth, and for checking that every
// combination lists the same records. Only benchmarks and tests change them; the defaults are what
// the program runs.
struct FilterEngineTuning
{
    bool splitScans = true;               // long scans over as many threads as cores, up to four
    std::size_t parallelThreshold = 8192; // records below which one thread is faster
    bool keepRecentMatches = true;
    bool carryOrdersOverEdits = true;
    // A whole new list of at least this many records has its text indexed on another thread.
    std::size_t leastIndexedInBackground = 4096;
    // Records per block of the text index, read when an engine is made.
    std::size_t recordsPerBlock = 1024;
};

// Read by every engine of the process at each evaluation or change of records.
const FilterEngineTuning &filterEngineTuning();
void setFilterEngineTuning(const FilterEngineTuning &tuning);

} // namespace fiva
