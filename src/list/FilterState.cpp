#include "list/FilterState.h"

#include "model/DateTimeConversion.h"

namespace fiva {

FilterState FilterState::initial(const QDateTime &now)
{
    FilterState state;
    state.dateFrom = toTimestamp(now.addMonths(-1));
    state.dateTo = toTimestamp(now);
    return state;
}

} // namespace fiva
