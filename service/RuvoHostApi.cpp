#include "service/RuvoHostApi.h"

#include "runtime/platform/Export.h"
#include "runtime/support/VornException.h"
#include "runtime/support/VornLogging.h"
#include "runtime/support/VornMutex.h"
#include "runtime/support/VornThread.h"
#include "service/Module.h"
#include "service/RuvoConfigurationCheck.h"
#include "service/RuvoService.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <string>

namespace RuvoService {
namespace {

using VornSupport::VornMutexLock;

// The service as stop and reload find it, which may come from any thread.
struct Hosted {
    VornSupport::VornMutex mutex;
    std::unique_ptr<RuvoService> service VORN_GUARDED_BY(mutex);
    bool stopRequested VORN_GUARDED_BY(mutex) = false;

    RuvoService* get() {
        VornMutexLock lock(mutex);
        return service.get();
    }
    void set(std::unique_ptr<RuvoService> made) {
        VornMutexLock lock(mutex);
        service = std::move(made);
        if (stopRequested) service->stop();
    }
    // The destructor of the service waits for its clients, who may want to stop
    // it once more.
    std::unique_ptr<RuvoService> take() {
        VornMutexLock lock(mutex);
        stopRequested = false;
        return std::move(service);
    }
};

Hosted& hosted() {
    static Hosted* const instance = new Hosted;  // signals may come while the process ends
    return *instance;
}

void copyText(const std::string& text, char* buffer, size_t size) {
    if (buffer == nullptr || size == 0) return;
    const size_t length = std::min(text.size(), size - 1);
    std::memcpy(buffer, text.data(), length);
    buffer[length] = '\0';
}

// Runs `body`; what it throws becomes the text of the error.
template <class Body>
int guarded(char* error, size_t errorSize, Body body) {
    try {
        body();
        return 0;
    } catch (const std::exception& e) {
        copyText(e.what(), error, errorSize);
    } catch (...) {
        copyText("unknown exception", error, errorSize);
    }
    return 1;
}

int create(const char* propertiesPath, const char* hostArgument, char* error, size_t errorSize) {
    return guarded(error, errorSize, [&] {
        if (hosted().get() != nullptr) throw VornSupport::VornException("there is a service already");
        auto& module = Module::getInstance();
        module.attach();
        try {
            hosted().set(std::make_unique<RuvoService>(propertiesPath, hostArgument));
        } catch (...) {
            module.detach();
            throw;
        }
    });
}

int run(void (*started)(void*), void* context, char* error, size_t errorSize) {
    return guarded(error, errorSize, [&] {
        RuvoService* const service = hosted().get();
        if (service == nullptr) throw VornSupport::VornException("there is no service");
        if (started != nullptr) service->setStartedHandler([=] { started(context); });
        if (!service->run()) throw VornSupport::VornException("the service could not be started");
    });
}

void stop() {
    VornMutexLock lock(hosted().mutex);
    hosted().stopRequested = true;
    if (hosted().service) hosted().service->stop();
}

void reload() {
    VornMutexLock lock(hosted().mutex);
    if (hosted().service) hosted().service->requestReload();
}

void addresses(char* text, size_t textSize) {
    std::string lines;
    char ignored[1];
    guarded(ignored, sizeof ignored, [&lines] {
        for (const auto& address : Module::getInstance().listenerAddresses()) {
            lines += address + "\n";
        }
    });
    copyText(lines, text, textSize);
}

int destroy(int ms) {
    char error[256];
    if (guarded(error, sizeof error, [] {
            hosted().take();
            Module::getInstance().detach();
        }) != 0) {
        VORN_LOG(2, "RuvoHostApi::destroy: " << error);
    }
    const bool allEnded = VornSupport::VornThread::waitForLiveCount(0, ms);
    if (!allEnded) {
        VORN_LOG(2, "RuvoHostApi::destroy: threads still running: "
                        << VornSupport::VornThread::liveCount());
    }
    VornSupport::VornLogging::getInstance().flush();
    return allEnded ? 0 : 1;
}

int check(const char* propertiesPath, void (*found)(void*, const char*), void* context) {
    int count = 0;
    char error[1024];
    const int failed = guarded(error, sizeof error, [&] {
        checkConfiguration(propertiesPath, [&](const std::string& line) {
            ++count;
            found(context, line.c_str());
        });
    });
    if (failed != 0) {
        ++count;
        found(context, error);
    }
    return count;
}

constexpr RuvoHostApi kApi = {
    .version = RUVO_HOST_API_VERSION,
    .moduleVersion = RUVO_VERSION,
    .create = &create,
    .run = &run,
    .stop = &stop,
    .reload = &reload,
    .addresses = &addresses,
    .destroy = &destroy,
    .check = &check,
};

}  // namespace
}  // namespace RuvoService

extern "C" VORN_EXPORT const RuvoHostApi* ruvoHostApi() { return &RuvoService::kApi; }
