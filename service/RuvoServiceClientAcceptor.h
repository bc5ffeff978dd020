#pragma once

#include "engines/RuvoClientAcceptor.h"

#include <atomic>

namespace RuvoService {

// Gives every client of a listener a thread of its own; how many there may be
// at once is the listeners' matter. In force from construction to destruction.
class RuvoServiceClientAcceptor : public RuvoClientAcceptor {
public:
    RuvoServiceClientAcceptor();
    ~RuvoServiceClientAcceptor() override;
    RuvoServiceClientAcceptor(const RuvoServiceClientAcceptor&) = delete;
    RuvoServiceClientAcceptor& operator=(const RuvoServiceClientAcceptor&) = delete;

    void acceptClient(VornSupport::VornSmartPointer<VornNet::VornConnection> connection) override;

    // While the service stops, every new client is closed at once. Any thread.
    void setRefusing(bool refusing) { refusing_ = refusing; }

private:
    std::atomic<bool> refusing_{false};
};

}  // namespace RuvoService
