#include "runtime/platform/OsError.h"

#include <cerrno>
#include <system_error>

namespace VornPlatform {

OsCondition OsError::condition() const {
    switch (code_) {
        case 0: return OsCondition::None;
        case EAGAIN:
        case EINPROGRESS: return OsCondition::WouldBlock;
        case EINTR: return OsCondition::Interrupted;
        case ETIMEDOUT: return OsCondition::TimedOut;
        case ENOENT:
        case ENOTDIR: return OsCondition::NotFound;
        case EACCES:
        case EPERM:
        case EROFS: return OsCondition::AccessDenied;
        case EEXIST: return OsCondition::Exists;
        case EADDRINUSE: return OsCondition::AddressInUse;
        case ECONNREFUSED: return OsCondition::ConnectionRefused;
        case ECONNRESET:
        case ECONNABORTED:
        case EPIPE:
        case ENOTCONN: return OsCondition::ConnectionLost;
        case EBADF: return OsCondition::Closed;
        case ENOSPC:
        case EDQUOT:
        case EFBIG: return OsCondition::NoSpace;
        case EMFILE:
        case ENFILE:
        case ENOBUFS:
        case ENOMEM: return OsCondition::TooManyOpen;
        case EINVAL: return OsCondition::InvalidArgument;
        default: return OsCondition::Other;
    }
}

std::string OsError::text() const { return std::generic_category().message(code_); }

OsError OsError::timedOut() { return OsError(ETIMEDOUT); }
OsError OsError::noMemory() { return OsError(ENOMEM); }
OsError OsError::last() { return OsError(errno); }
OsError OsError::lastSocket() { return OsError(errno); }

}  // namespace VornPlatform
