#pragma once

#include <cstddef>
#include <functional>

namespace fiva {

// How many runs to split `count` pieces of work into: one per core, at most four, and none of
// fewer than `leastPerRun` pieces, so that small jobs stay on the calling thread.
std::size_t runCount(std::size_t count, std::size_t leastPerRun);

// Calls work(0) … work(runs - 1), each on its own thread except the first, which runs on the
// caller's, as do the runs whose thread cannot be started. Returns when all are done; an exception
// from any run is rethrown afterwards.
void forEachRun(std::size_t runs, const std::function<void(std::size_t)> &work);

} // namespace fiva
