#include "list/FilterState.h"

namespace fiva {

namespace {

Timestamp toTimestamp(const QDateTime &when)
{
    return Timestamp::fromUnix(static_cast<double>(when.toMSecsSinceEpoch()) / 1000.0);
}

} // namespace

FilterState FilterState::initial(const QDateTime &now)
{
    FilterState state;
    state.dateFrom = toTimestamp(now.addMonths(-1));
    state.dateTo = toTimestamp(now);
    return state;
}

} // namespace fiva
