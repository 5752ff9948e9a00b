#include "model/Parallel.h"

#include <algorithm>
#include <exception>
#include <system_error>
#include <thread>
#include <vector>

namespace fiva {

std::size_t runCount(std::size_t count, std::size_t leastPerRun)
{
    const std::size_t cores = std::max(1u, std::thread::hardware_concurrency());
    return std::clamp<std::size_t>(count / std::max<std::size_t>(leastPerRun, 1), 1,
                                   std::min<std::size_t>(cores, 4));
}

void forEachRun(std::size_t runs, const std::function<void(std::size_t)> &work)
{
    std::vector<std::exception_ptr> errors(runs);
    const auto guarded = [&](std::size_t k) {
        try {
            work(k);
        } catch (...) {
            errors[k] = std::current_exception();
        }
    };
    std::vector<std::thread> threads;
    threads.reserve(runs);
    // A thread that cannot be started (no memory for its stack, a process limit) is no reason to fail: the
    // runs left are done here, one after the other, and give the same result.
    try {
        for (std::size_t k = 1; k < runs; ++k)
            threads.emplace_back(guarded, k);
    } catch (const std::system_error &) {
    }
    if (runs > 0)
        guarded(0);
    for (std::size_t k = threads.size() + 1; k < runs; ++k)
        guarded(k);
    for (std::thread &thread : threads)
        thread.join();
    for (const std::exception_ptr &error : errors)
        if (error)
            std::rethrow_exception(error);
}

} // namespace fiva
