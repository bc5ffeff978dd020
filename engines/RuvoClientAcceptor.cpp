#include "engines/RuvoClientAcceptor.h"

#include "runtime/support/VornLogging.h"
#include "runtime/support/VornMutex.h"

#include <exception>
#include <utility>

namespace RuvoService {
namespace {

using VornSupport::VornMutexLock;

// The acceptor in force and the listeners that are inside it.
struct InForce {
    VornSupport::VornMutex mutex;
    VornSupport::VornCondition left;
    RuvoClientAcceptor* acceptor VORN_GUARDED_BY(mutex) = nullptr;
    int inside VORN_GUARDED_BY(mutex) = 0;
};

InForce& inForce() {
    static InForce* const instance = new InForce;  // listeners may outlive the static objects
    return *instance;
}

// A listener's thread inside the acceptor, which cannot be replaced meanwhile.
class Use {
public:
    Use() {
        VornMutexLock lock(inForce().mutex);
        acceptor_ = inForce().acceptor;
        if (acceptor_ != nullptr) ++inForce().inside;
    }
    ~Use() {
        if (acceptor_ == nullptr) return;
        VornMutexLock lock(inForce().mutex);
        if (--inForce().inside == 0) inForce().left.notifyAll();
    }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

    RuvoClientAcceptor* acceptor() const { return acceptor_; }

private:
    RuvoClientAcceptor* acceptor_;
};

}  // namespace

RuvoClientAcceptor::~RuvoClientAcceptor() = default;

void RuvoClientAcceptor::set(RuvoClientAcceptor* acceptor) {
    InForce& state = inForce();
    VornMutexLock lock(state.mutex);
    state.acceptor = acceptor;
    while (state.inside > 0) state.left.wait(state.mutex);
}

void RuvoClientAcceptor::dispatch(
    VornSupport::VornSmartPointer<VornNet::VornConnection> connection) {
    if (!connection) return;
    const Use use;
    if (use.acceptor() != nullptr) {
        try {
            use.acceptor()->acceptClient(connection);
            return;
        } catch (const std::exception& e) {
            VORN_LOG(2, "RuvoClientAcceptor::dispatch: exception: " << e.what());
        } catch (...) {
            VORN_LOG(2, "RuvoClientAcceptor::dispatch: unknown exception");
        }
    }
    // At once: the client's last bytes are not waited for on a listener's thread.
    connection->abort();
    connection->close();
}

}  // namespace RuvoService
