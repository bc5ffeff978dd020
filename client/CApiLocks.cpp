#include "client/CApi.h"
#include "client/RuvoLocks.h"

using Ruvo::guardCall;
using Ruvo::requireAll;
using Ruvo::RuvoLocks;

namespace {

// False when somebody else held it.
bool acquire(ruvo_client* client, const char* path, int wait, const std::function<bool()>& goesOn,
             std::int32_t* handle) {
    requireAll(client, path, handle);
    const auto granted =
        RuvoLocks(client->conversation).lock(path, std::chrono::milliseconds(wait), goesOn);
    if (granted) *handle = *granted;
    return granted.has_value();
}

ruvo_status decline() { return Ruvo::keepError(RUVO_DECLINED, "somebody else holds the lock"); }

}  // namespace

ruvo_status ruvo_lock_acquire(ruvo_client* client, const char* path, int wait_ms, int32_t* handle) {
    return guardCall(
        [&] { return acquire(client, path, wait_ms, {}, handle) ? RUVO_OK : decline(); });
}

ruvo_status ruvo_lock_acquire_while(ruvo_client* client, const char* path, int wait_ms,
                                    int (*goes_on)(void* context), void* context, int32_t* handle) {
    return guardCall([&] {
        requireAll(goes_on);
        bool ended = false;
        const auto goesOn = [&] {
            ended = ended || goes_on(context) == 0;
            return !ended;
        };
        if (acquire(client, path, wait_ms, goesOn, handle)) return RUVO_OK;
        return ended ? Ruvo::keepError(RUVO_WOKEN, "the wait was ended") : decline();
    });
}

ruvo_status ruvo_lock_release(ruvo_client* client, int32_t handle) {
    return guardCall([&] {
        requireAll(client);
        RuvoLocks(client->conversation).unlock(handle);
    });
}
