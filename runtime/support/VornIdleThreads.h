#pragma once

#include "runtime/platform/Export.h"

namespace VornSupport {

// Has the threads that ran receivers of timers, and are kept for the next ones,
// end now instead of after some seconds: for who was refused a thread. Does not
// wait for their end. Any thread.
VORN_EXPORT void endIdleTimerThreads() noexcept;

}  // namespace VornSupport
