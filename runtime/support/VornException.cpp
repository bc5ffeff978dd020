#include "runtime/support/VornException.h"

#include <utility>

namespace VornSupport {

VornException::VornException(std::string message, int code)
    : message_(std::move(message)), code_(code) {}

VornException::VornException(const std::string& what, VornPlatform::OsError error)
    : message_(what + ": " + error.text()), code_(error.code()) {}

VornException::~VornException() = default;

VornPropertyNotFound::VornPropertyNotFound(const std::string& name)
    : VornException("property not found: " + name), name_(name) {}

VornPropertyNotFound::~VornPropertyNotFound() = default;

}  // namespace VornSupport
