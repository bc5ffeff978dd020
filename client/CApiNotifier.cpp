#include "client/CApi.h"
#include "client/RuvoNotifier.h"

#include <string_view>

using Ruvo::guardCall;
using Ruvo::requireAll;
using Ruvo::RuvoNotifier;

ruvo_status ruvo_notifier_register(ruvo_client* client, const char* signature,
                                   const char* remote_name, int32_t handle) {
    return guardCall([&] {
        requireAll(client, signature, remote_name);
        RuvoNotifier(client->conversation).registerFor(signature, remote_name, handle);
    });
}

ruvo_status ruvo_notifier_unregister(ruvo_client* client, const char* remote_name,
                                     int32_t handle) {
    return guardCall([&] {
        requireAll(client, remote_name);
        RuvoNotifier(client->conversation).unregister(remote_name, handle);
    });
}

ruvo_status ruvo_notifier_notify(ruvo_client* client, const char* sender, const char* event,
                                 const char* message, const void* data, size_t data_size) {
    return guardCall([&] {
        requireAll(client, sender, event, message);
        if (data_size != 0) requireAll(data);
        RuvoNotifier(client->conversation)
            .notify(sender, event, message,
                    std::string_view(static_cast<const char*>(data), data_size));
    });
}
