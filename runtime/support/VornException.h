#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/OsError.h"

#include <exception>
#include <string>

namespace VornSupport {

// The exception of the runtime and of everything built on it: a message for a
// human and a numeric code (0 where no number applies). Copyable.
class VORN_EXPORT VornException : public std::exception {
public:
    explicit VornException(std::string message, int code = 0);
    // Message is `what`, a colon and the system's text; code is the system's.
    VornException(const std::string& what, VornPlatform::OsError error);
    VornException(const VornException&) = default;
    VornException& operator=(const VornException&) = default;
    ~VornException() override;

    const std::string& getMessage() const { return message_; }
    int getCode() const { return code_; }
    const char* what() const noexcept override { return message_.c_str(); }

private:
    std::string message_;
    int code_;
};

// A required configuration key is missing.
class VORN_EXPORT VornPropertyNotFound : public VornException {
public:
    explicit VornPropertyNotFound(const std::string& name);
    ~VornPropertyNotFound() override;

    // The missing key.
    const std::string& getPropertyName() const { return name_; }

private:
    std::string name_;
};

}  // namespace VornSupport
