#pragma once

// What the sources of the C interface share.

#include "client/RuvoClient.h"
#include "client/RuvoListener.h"
#include "client/ruvo_client.h"

#include <chrono>
#include <exception>
#include <new>
#include <type_traits>
#include <vector>

struct ruvo_client {
    Ruvo::RuvoClient conversation;
};

struct ruvo_batch {
    std::vector<Ruvo::RuvoRequest> requests;
};

struct ruvo_listener {
    Ruvo::RuvoListener listener;
};

namespace Ruvo {

// The calling thread's last error; both never throw.
void forgetError() noexcept;
ruvo_status keepError(ruvo_status status, const char* text, std::int32_t code = 0) noexcept;

// Runs the body of a C function: what it throws becomes a status. The body may
// return one.
template <typename Body>
ruvo_status guardCall(Body body) noexcept {
    forgetError();
    try {
        if constexpr (std::is_same_v<decltype(body()), ruvo_status>) {
            return body();
        } else {
            body();
            return RUVO_OK;
        }
    } catch (const RuvoClientError& error) {
        return keepError(static_cast<ruvo_status>(error.problem()), error.what(), error.code());
    } catch (const std::bad_alloc&) {
        return keepError(RUVO_NO_MEMORY, "out of memory");
    } catch (const std::exception& error) {
        return keepError(RUVO_INTERNAL, error.what());
    } catch (...) {
        return keepError(RUVO_INTERNAL, "unknown failure");
    }
}

// Throws RuvoClientError (Argument) when one of them is null.
template <typename... Pointers>
void requireAll(Pointers... pointers) {
    const bool areAll = (static_cast<bool>(pointers) && ...);
    if (!areAll) throw RuvoClientError(RuvoProblem::Argument, "a null pointer was passed");
}

// The C interface's limits: 0 is the default, less is none.
std::chrono::milliseconds limitOf(int milliseconds, std::chrono::milliseconds standard);

}  // namespace Ruvo
