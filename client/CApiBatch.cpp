#include "client/CApi.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

using Ruvo::guardCall;
using Ruvo::requireAll;
using Ruvo::RuvoClientError;
using Ruvo::RuvoProblem;
using Ruvo::RuvoRequest;

namespace {

constexpr std::size_t kMaxRequests = 65535;

std::string_view viewOf(const void* bytes, std::size_t size) {
    if (size != 0) requireAll(bytes);
    return {static_cast<const char*>(bytes), size};
}

RuvoRequest& lastOf(ruvo_batch* batch) {
    requireAll(batch);
    if (batch->requests.empty()) {
        throw RuvoClientError(RuvoProblem::Argument, "no request has been begun");
    }
    return batch->requests.back();
}

}  // namespace

ruvo_status ruvo_batch_create(ruvo_batch** batch) {
    return guardCall([&] {
        requireAll(batch);
        *batch = new ruvo_batch;
    });
}

void ruvo_batch_free(ruvo_batch* batch) { delete batch; }

ruvo_status ruvo_batch_begin(ruvo_batch* batch, const char* monitor, const char* command) {
    return guardCall([&] {
        requireAll(batch, monitor, command);
        if (batch->requests.size() >= kMaxRequests) {
            throw RuvoClientError(RuvoProblem::Argument, "a batch holds at most 65535 requests");
        }
        batch->requests.emplace_back(monitor, command, RuvoRequest::Answer::Other);
    });
}

ruvo_status ruvo_batch_add_int(ruvo_batch* batch, int32_t value) {
    return guardCall([&] { lastOf(batch).addInt(value); });
}

ruvo_status ruvo_batch_add_string(ruvo_batch* batch, const void* text, size_t size) {
    return guardCall([&] { lastOf(batch).addString(viewOf(text, size)); });
}

ruvo_status ruvo_batch_add_bytes(ruvo_batch* batch, const void* bytes, size_t size) {
    return guardCall([&] { lastOf(batch).addBytes(viewOf(bytes, size)); });
}

ruvo_status ruvo_client_send(ruvo_client* client, const ruvo_batch* batch) {
    return guardCall([&] {
        requireAll(client, batch);
        client->conversation.send(batch->requests);
    });
}

ruvo_status ruvo_client_read_int(ruvo_client* client, int32_t* value) {
    return guardCall([&] {
        requireAll(client, value);
        *value = client->conversation.readInt();
    });
}

ruvo_status ruvo_client_read_string(ruvo_client* client, char** text, size_t* size) {
    return guardCall([&] {
        requireAll(client, text);
        const std::string read = client->conversation.readString();
        char* const copy = static_cast<char*>(std::malloc(read.size() + 1));
        if (copy == nullptr) throw std::bad_alloc();
        std::memcpy(copy, read.c_str(), read.size() + 1);
        *text = copy;
        if (size != nullptr) *size = read.size();
    });
}

ruvo_status ruvo_client_read_bytes(ruvo_client* client, void* bytes, size_t size) {
    return guardCall([&] {
        requireAll(client);
        if (size != 0) requireAll(bytes);
        const std::string read = client->conversation.readBytes(size);
        if (size != 0) std::memcpy(bytes, read.data(), size);
    });
}
