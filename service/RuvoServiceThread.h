#pragma once

#include "runtime/support/VornThread.h"

namespace RuvoService {

class RuvoService;

// The thread on which the service does its work. Borrows the service, which
// outlives the run.
class RuvoServiceThread : public VornSupport::VornThread {
public:
    explicit RuvoServiceThread(RuvoService& service);
    ~RuvoServiceThread() override;

protected:
    // Returns 0 when the service's work ended well, else 1. Sets the service's
    // event object in either case.
    int run() override;

private:
    RuvoService* const service_;
};

}  // namespace RuvoService
