#pragma once

// For VornEventMonitorManager only.

#include "runtime/support/VornException.h"

#include <exception>

namespace VornMonitor {

// Calls `body`, which runs code of a library that may be unloaded, and gives
// out what it throws as exceptions whose memory, type and destructor belong to
// our own libraries.
template <class Body>
auto withOwnExceptions(Body&& body) {
    using VornSupport::VornException;
    using VornSupport::VornPropertyNotFound;
    try {
        return body();
    } catch (const VornPropertyNotFound& e) {
        throw VornPropertyNotFound(e.getPropertyName());
    } catch (const VornException& e) {
        throw VornException(e.getMessage(), e.getCode());
    } catch (const std::exception& e) {
        throw VornException(e.what());
    } catch (...) {
        throw VornException("unknown exception");
    }
}

// Calls `body` and passes the message of what it throws to `report`, after
// which nothing is left of the exception.
template <class Body, class Report>
void withoutExceptions(Body&& body, Report&& report) {
    try {
        body();
    } catch (const std::exception& e) {
        report(e.what());
    } catch (...) {
        report("unknown exception");
    }
}

}  // namespace VornMonitor
