#include "client/CApi.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace Ruvo {
namespace {

// Plain memory: it needs no destructor when a thread of the caller's ends.
thread_local char lastText[1024];
thread_local std::int32_t lastCode;

}  // namespace

void forgetError() noexcept {
    lastText[0] = '\0';
    lastCode = 0;
}

ruvo_status keepError(ruvo_status status, const char* text, std::int32_t code) noexcept {
    std::snprintf(lastText, sizeof lastText, "%s", text);
    lastCode = code;
    return status;
}

std::chrono::milliseconds limitOf(int milliseconds, std::chrono::milliseconds standard) {
    if (milliseconds == 0) return standard;
    return std::chrono::milliseconds(milliseconds < 0 ? 0 : milliseconds);
}

}  // namespace Ruvo

using Ruvo::guardCall;
using Ruvo::requireAll;
using Ruvo::RuvoClientOptions;
using Ruvo::RuvoProblem;

const char* ruvo_error_text(void) { return Ruvo::lastText; }

int32_t ruvo_error_code(void) { return Ruvo::lastCode; }

const char* ruvo_version(void) { return RUVO_VERSION; }

ruvo_status ruvo_client_open(const ruvo_client_options* options, ruvo_client** client) {
    return guardCall([&] {
        requireAll(client);
        RuvoClientOptions chosen;
        if (options != nullptr) {
            if (options->host != nullptr) chosen.host = options->host;
            chosen.port = options->port;
            chosen.useUdp = options->use_udp != 0;
            chosen.connectTimeout =
                Ruvo::limitOf(options->connect_timeout_ms, chosen.connectTimeout);
            chosen.timeout = Ruvo::limitOf(options->timeout_ms, chosen.timeout);
        }
        *client = new ruvo_client{Ruvo::RuvoClient(chosen)};
    });
}

void ruvo_client_close(ruvo_client* client) { delete client; }

ruvo_status ruvo_client_set_timeout(ruvo_client* client, int timeout_ms) {
    return guardCall([&] {
        requireAll(client);
        client->conversation.setTimeout(Ruvo::limitOf(timeout_ms, RuvoClientOptions().timeout));
    });
}

int ruvo_client_is_gone(ruvo_client* client) {
    bool gone = true;
    (void)guardCall([&] {
        requireAll(client);
        gone = client->conversation.isDaemonGone();
    });
    return gone ? 1 : 0;
}

ruvo_status ruvo_client_acknowledge(ruvo_client* client) {
    return guardCall([&] {
        requireAll(client);
        client->conversation.acknowledge();
    });
}

ruvo_status ruvo_client_log_off(ruvo_client* client) {
    return guardCall([&] {
        requireAll(client);
        client->conversation.logOff();
    });
}

ruvo_status ruvo_client_stop_daemon(ruvo_client* client) {
    return guardCall([&] {
        requireAll(client);
        client->conversation.stopDaemon();
    });
}

void ruvo_free(void* memory) { std::free(memory); }
