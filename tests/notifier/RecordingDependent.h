#pragma once

#include "notifier/RuvoNNEventNotification.h"
#include "runtime/net/VornProxyDependent.h"
#include "runtime/net/VornProxyDependentContainer.h"
#include "runtime/support/VornMutex.h"
#include "tests/support/TestSupport.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// Stands in the container like a consumer and keeps what it is offered.
class RecordingDependent : public VornNet::VornProxyDependent {
public:
    explicit RecordingDependent(std::int32_t handle = 1)
        : VornProxyDependent("recorder", handle) {}

    bool checkEvent(const VornSupport::VornNotification& notification) override {
        const auto* const event = RuvoService::RuvoNNEventNotification::from(notification);
        {
            VornSupport::VornMutexLock lock(mutex_);
            names_.push_back(event == nullptr ? "no event" : event->getEventName());
            if (event != nullptr) data_.push_back(bytesOf(*event));
        }
        if (onEvent) onEvent();
        return false;
    }

    std::vector<std::string> names() const {
        VornSupport::VornMutexLock lock(mutex_);
        return names_;
    }
    std::vector<std::string> data() const {
        VornSupport::VornMutexLock lock(mutex_);
        return data_;
    }
    bool await(std::size_t count) const {
        return TestSupport::waitUntil([&] { return names().size() >= count; });
    }

    std::function<void()> onEvent;  // on the queue thread

protected:
    void addContent(VornNet::VornConnection&, const VornSupport::VornNotification&) override {}

private:
    static std::string bytesOf(const RuvoService::RuvoNNEventNotification& event) {
        return std::string(event.getData(), static_cast<std::size_t>(event.getDataSize()));
    }

    mutable VornSupport::VornMutex mutex_;
    std::vector<std::string> names_ VORN_GUARDED_BY(mutex_);
    std::vector<std::string> data_ VORN_GUARDED_BY(mutex_);
};

// An entry of the container for a scope.
class Recorder {
public:
    explicit Recorder(std::int32_t handle = 1) : dependent_(new RecordingDependent(handle)) {
        VornNet::VornProxyDependentContainer::getInstance().add(dependent_);
    }
    ~Recorder() { remove(); }
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    void remove() { VornNet::VornProxyDependentContainer::getInstance().remove(*dependent_); }
    RecordingDependent* operator->() const { return dependent_.get(); }

private:
    const VornSupport::VornSmartPointer<RecordingDependent> dependent_;
};

// Takes everything out of the container at the end of a test.
inline void emptyContainer() {
    auto& container = VornNet::VornProxyDependentContainer::getInstance();
    for (;;) {
        VornNet::VornProxyDependentContainer::Entry entry;
        {
            VornSupport::VornCriticalSection lock(container.getlock());
            if (container.size() == 0) return;
            entry = container[0];
        }
        container.remove(*entry);
    }
}
