#pragma once

#include "model/Timestamp.h"

#include <QString>
#include <QUuid>

namespace fiva {

enum class WebOutcome {
    reachable,       // a 2xx or 3xx answer at the end of the redirects
    notFound,        // 404
    gone,            // 410
    httpError,       // any other status of 400 or more
    hostNotFound,    // the name does not resolve
    timedOut,        // no answer within the time-out
    tlsError,        // the secure connection could not be made
    connectionError, // refused, reset, too many redirects, not a web address…
    cancelled,       // stopped by the user before an answer came
};

struct WebCheckResult
{
    QUuid id;
    QString address;      // as checked
    QString finalAddress; // after the redirects; empty when none was followed
    WebOutcome outcome = WebOutcome::reachable;
    int httpStatus = 0; // 0 when no status arrived
    QString errorText;  // the network layer's own words, for the details
    Timestamp checkedAt;

    bool isBroken() const { return outcome != WebOutcome::reachable && outcome != WebOutcome::cancelled; }
    bool wasRedirected() const { return !finalAddress.isEmpty() && finalAddress != address; }
    // One French sentence saying what went wrong, or that the page answered.
    QString description() const;

    friend bool operator==(const WebCheckResult &, const WebCheckResult &) = default;
};

} // namespace fiva
