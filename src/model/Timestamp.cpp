#include "model/Timestamp.h"

#include <chrono>

namespace fiva {

Timestamp Timestamp::now()
{
    using namespace std::chrono;
    const auto sinceUnix = duration_cast<duration<double>>(system_clock::now().time_since_epoch());
    return fromUnix(sinceUnix.count());
}

} // namespace fiva
