#pragma once

#include "runtime/platform/Export.h"

#include <cstdint>

namespace RuvoService {

// Where the scheduler takes the time from. Any thread.
class VORN_EXPORT RuvoTSClock {
public:
    virtual ~RuvoTSClock();

    // Milliseconds since 1970-01-01 00:00 UTC, as the machine's clock says: it
    // may be set, forwards and backwards, at any moment.
    virtual std::int64_t wallMs() const = 0;
    // Milliseconds since some moment. Only ever goes on; whether it does so
    // while the machine sleeps is the system's affair.
    virtual std::int64_t elapsedMs() const = 0;

    // The clock in use: the machine's, unless another one was put in its place.
    static RuvoTSClock& current();
    // The clock must outlive its use; null brings the machine's back.
    static void setCurrentForTest(RuvoTSClock* clock);
};

}  // namespace RuvoService
