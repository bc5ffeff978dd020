#pragma once

// For VornEventMonitorManager only.

#include "runtime/monitor/VornEventMonitor.h"
#include "runtime/platform/Export.h"

#include <cstddef>
#include <functional>
#include <string>

namespace VornMonitor {

// A file in which other programs leave events, one line each. Those that are
// there are taken over by renaming the file to NAME.taken, so that writers can
// go on at once, and the taken file is deleted when it has been read. One that
// an earlier life of the process left unread is read first.
//
// Blank lines are passed over; of a line longer than kMaxLine bytes the rest is
// dropped. A missing file holds no events; one that cannot be taken or read is
// logged at level 2 and tried again the next time.
class VORN_EXPORT EventSpool {
public:
    static constexpr std::size_t kMaxLine = 65536;

    // `offer` must not throw.
    static void process(const std::string& fileName,
                        const std::function<void(const VornEventData&)>& offer);
};

}  // namespace VornMonitor
