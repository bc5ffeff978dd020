#include "runtime/support/VornService.h"

#include <vector>

namespace VornSupport {

VornService::VornService(bool stoppable, const std::string& argument)
    : stoppable_(stoppable), argument_(argument) {}

VornService::~VornService() = default;

bool VornService::run() {
    if (!startIt(argument_)) return false;
    std::vector<VornEvent*> events{&stopRequested_, &finished_};
    VornEvent::wait(events, false, VornEvent::kForever);
    return stopIt();
}

void VornService::stop() { stopRequested_.set(); }
bool VornService::isStopping() { return stopRequested_.wait(0) != 0; }

}  // namespace VornSupport
