#pragma once

#include "model/Timestamp.h"

#include <chrono>

namespace fiva {

// The current time, asked through an interface so that tests decide what "now" is.
class Clock
{
public:
    virtual ~Clock() = default;
    virtual Timestamp now() const = 0;
};

class SystemClock final : public Clock
{
public:
    Timestamp now() const override
    {
        using namespace std::chrono;
        return Timestamp::fromUnix(duration<double>(system_clock::now().time_since_epoch()).count());
    }
};

// A clock that only moves when told to.
class ManualClock final : public Clock
{
public:
    explicit ManualClock(Timestamp start) : m_now(start) {}

    Timestamp now() const override { return m_now; }
    void set(Timestamp t) { m_now = t; }
    void advance(double seconds) { m_now.seconds += seconds; }

private:
    Timestamp m_now;
};

} // namespace fiva
