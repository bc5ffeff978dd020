#pragma once

#include "engines/RuvoClientAcceptor.h"
#include "runtime/support/VornMutex.h"

namespace RuvoService {

class RuvoServiceClientThreadPool;

// Gives every client of a listener a thread of its own, as long as no more than
// "ruvod.limits.clients" are served; one more is closed at once and logged.
// Borrows the pool. In force from construction to destruction.
class RuvoServiceClientAcceptor : public RuvoClientAcceptor {
public:
    explicit RuvoServiceClientAcceptor(const RuvoServiceClientThreadPool& pool);
    ~RuvoServiceClientAcceptor() override;
    RuvoServiceClientAcceptor(const RuvoServiceClientAcceptor&) = delete;
    RuvoServiceClientAcceptor& operator=(const RuvoServiceClientAcceptor&) = delete;

    void acceptClient(VornSupport::VornSmartPointer<VornNet::VornConnection> connection) override;

private:
    bool serve(const VornSupport::VornSmartPointer<VornNet::VornConnection>& connection);

    const RuvoServiceClientThreadPool& pool_;
    // Listeners come one after the other, or two of them might both take the
    // last place.
    VornSupport::VornMutex oneAtATime_;
};

}  // namespace RuvoService
