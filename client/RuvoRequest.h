#pragma once

#include "client/ruvo_client.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Ruvo {

// One request as it goes over the wire: a code, and for an engine the monitor,
// the command and its arguments, which are added in the order that the command
// reads them. A plain value.
class RUVO_API RuvoRequest {
public:
    // What the daemon writes back.
    enum class Answer { None, Int, Other };

    // A request of an engine.
    RuvoRequest(std::string_view monitor, std::string_view command, Answer answer = Answer::Int);
    // The conversation's own: none of them is answered.
    static RuvoRequest acknowledgement();
    static RuvoRequest logOff();
    static RuvoRequest stopDaemon();

    RuvoRequest& addInt(std::int32_t value);
    RuvoRequest& addUnsigned(std::uint32_t value);
    // Throws RuvoClientError (Argument) for a text of 4 GiB or more.
    RuvoRequest& addString(std::string_view text);
    RuvoRequest& addBytes(std::string_view bytes);

    Answer answer() const { return answer_; }
    bool hasArguments() const { return bytes_.size() > headSize_; }
    const std::string& bytes() const { return bytes_; }

private:
    explicit RuvoRequest(std::uint16_t code);

    std::string bytes_;
    std::size_t headSize_ = 0;  // of bytes_: what precedes the arguments
    Answer answer_ = Answer::None;
};

}  // namespace Ruvo
