#include "client/RuvoClientError.h"

namespace Ruvo {

RuvoClientError::RuvoClientError(RuvoProblem problem, const std::string& message,
                                 std::int32_t code)
    : std::runtime_error(message), problem_(problem), code_(code) {}

RuvoClientError::~RuvoClientError() = default;

}  // namespace Ruvo
