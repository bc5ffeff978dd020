#include "client/RuvoClient.h"

#include "client/Channel.h"
#include "runtime/net/WireCodec.h"

#include <algorithm>
#include <limits>

namespace Ruvo {
namespace {

using std::chrono::milliseconds;

constexpr std::int32_t kUnknownCommand = -999;
constexpr std::size_t kMaxOpeningLine = 512;
// Of a long answer, what has to come within one time-out.
constexpr std::size_t kPieceBytes = std::size_t{1} << 20;

[[noreturn]] void refuseAccess(const std::string& address) {
    throw RuvoClientError(
        RuvoProblem::AccessRefused,
        "access refused: the daemon at " + address +
            " closed the connection without an answer; this user may not use the engines, "
            "or the daemon serves as many clients as it may");
}

// The daemon's "+" line. Only a client that may use the engines gets one.
std::string readOpeningLine(Channel& channel, const Deadline& deadline) {
    for (std::size_t size = 1;; ++size) {
        if (!channel.fill(size, deadline)) return {};
        std::string line(channel.buffered().substr(0, size));
        if (line.back() == '\n' || size == kMaxOpeningLine) {
            channel.consume(size);
            return line;
        }
    }
}

std::string shortened(std::string_view line) {
    std::string text;
    for (const char c : line.substr(0, 40)) text += c >= ' ' && c <= '~' ? c : '.';
    return text;
}

void openConversation(Channel& channel, const Deadline& deadline) {
    std::string line;
    try {
        channel.send("RUVO\n", deadline);
        line = readOpeningLine(channel, deadline);
    } catch (const RuvoClientError& error) {
        if (error.problem() == RuvoProblem::Closed) refuseAccess(channel.address());
        if (error.problem() == RuvoProblem::TimedOut) {
            throw RuvoClientError(RuvoProblem::TimedOut,
                                  "no answer from " + channel.address() +
                                      " to the opening: no daemon serves there, or this user "
                                      "may not use the engines");
        }
        throw;
    }
    if (line.empty()) refuseAccess(channel.address());
    if (line != "+\r\n" && line != "+\n") {
        throw RuvoClientError(RuvoProblem::Protocol, "what serves at " + channel.address() +
                                                         " is not this daemon: it answers \"" +
                                                         shortened(line) + "\"");
    }
}

}  // namespace

class ClientCore {
public:
    explicit ClientCore(const RuvoClientOptions& options)
        : ClientCore(options, Deadline(options.connectTimeout)) {}

    RuvoClientOptions& options() { return options_; }
    Channel& channel() { return channel_; }

    // Runs a step of the conversation, which is over when it fails.
    template <typename Step>
    auto guarded(Step step) {
        if (!channel_.isOpen()) {
            throw RuvoClientError(RuvoProblem::Closed, "the conversation with " +
                                                           channel_.address() + " is over");
        }
        try {
            return step();
        } catch (const RuvoClientError& error) {
            if (error.problem() != RuvoProblem::Argument) channel_.close();
            throw;
        } catch (...) {
            channel_.close();
            throw;
        }
    }

    void need(std::size_t size) {
        if (!channel_.fill(size, Deadline(options_.timeout))) {
            throw RuvoClientError(
                RuvoProblem::Closed,
                "the daemon at " + channel_.address() +
                    " ended the conversation without a whole answer: it does not know the "
                    "monitor, a value was over its limits, or it is stopping");
        }
    }

    // Grows with what has arrived: the size may be anything.
    std::string take(std::size_t size) {
        std::string bytes;
        while (bytes.size() < size) {
            const std::size_t piece = std::min(size - bytes.size(), kPieceBytes);
            need(piece);
            bytes += channel_.buffered().substr(0, piece);
            channel_.consume(piece);
        }
        return bytes;
    }

    std::string takeText(std::uint32_t most) {
        const std::uint32_t size = VornNet::decode32(take(4).data());
        if (size > most) {
            throw RuvoClientError(RuvoProblem::Protocol,
                                  "the daemon declares a text of " + std::to_string(size) +
                                      " bytes");
        }
        return take(size);
    }

private:
    ClientCore(const RuvoClientOptions& options, const Deadline& deadline)
        : options_(options), channel_(options, deadline) {
        openConversation(channel_, deadline);
    }

    RuvoClientOptions options_;
    Channel channel_;
};

RuvoClient::RuvoClient(const RuvoClientOptions& options)
    : core_(std::make_unique<ClientCore>(options)) {}

RuvoClient::~RuvoClient() = default;
RuvoClient::RuvoClient(RuvoClient&&) noexcept = default;
RuvoClient& RuvoClient::operator=(RuvoClient&&) noexcept = default;

std::int32_t RuvoClient::call(const RuvoRequest& request) {
    if (request.answer() != RuvoRequest::Answer::Int) {
        throw RuvoClientError(RuvoProblem::Argument, "this request is not answered by an integer");
    }
    send(request);
    const std::int32_t answer = readInt();
    if (answer == kUnknownCommand) {
        if (request.hasArguments()) close();
        throw RuvoClientError(RuvoProblem::Declined, "the daemon does not know this command",
                              answer);
    }
    return answer;
}

std::vector<std::int32_t> RuvoClient::call(std::span<const RuvoRequest> batch) {
    const auto isOther = [](const RuvoRequest& request) {
        return request.answer() == RuvoRequest::Answer::Other;
    };
    if (std::any_of(batch.begin(), batch.end(), isOther)) {
        throw RuvoClientError(RuvoProblem::Argument,
                              "a request of this batch is not answered by an integer");
    }
    send(batch);
    std::vector<std::int32_t> answers;
    answers.reserve(batch.size());
    for (const RuvoRequest& request : batch) {
        answers.push_back(request.answer() == RuvoRequest::Answer::Int ? readInt() : 0);
    }
    return answers;
}

void RuvoClient::send(std::span<const RuvoRequest> batch) {
    if (batch.size() > std::numeric_limits<std::uint16_t>::max()) {
        throw RuvoClientError(RuvoProblem::Argument, "a batch holds at most 65535 requests");
    }
    // Without memory for this nothing has been sent, and the conversation goes on.
    std::string bytes;
    VornNet::append16(bytes, static_cast<std::uint16_t>(batch.size()));
    for (const RuvoRequest& request : batch) bytes += request.bytes();
    core_->guarded(
        [&] { core_->channel().send(bytes, Deadline(core_->options().timeout)); });
}

std::int32_t RuvoClient::readInt() { return static_cast<std::int32_t>(readUnsigned()); }

std::uint32_t RuvoClient::readUnsigned() {
    return core_->guarded([&] { return VornNet::decode32(core_->take(4).data()); });
}

std::string RuvoClient::readString() {
    return core_->guarded([&] { return core_->takeText(core_->options().maxStringBytes); });
}

std::string RuvoClient::readLongString() {
    return core_->guarded([&] { return core_->takeText(core_->options().maxLongBytes); });
}

std::string RuvoClient::readBytes(std::size_t size) {
    if (size > core_->options().maxBlockBytes) {
        throw RuvoClientError(RuvoProblem::Argument,
                              "a block of " + std::to_string(size) + " bytes is over the limit");
    }
    return core_->guarded([&] { return core_->take(size); });
}

std::string RuvoClient::readLongBytes(std::int64_t declared) {
    return core_->guarded([&] {
        if (declared < 0 || declared > core_->options().maxLongBytes) {
            throw RuvoClientError(RuvoProblem::Protocol,
                                  "the daemon declares a block of " + std::to_string(declared) +
                                      " bytes");
        }
        return core_->take(static_cast<std::size_t>(declared));
    });
}

std::string RuvoClient::readSome(milliseconds quiet) {
    return core_->guarded([&]() -> std::string {
        try {
            if (!core_->channel().fill(1, Deadline(quiet))) return {};
        } catch (const RuvoClientError& error) {
            if (error.problem() == RuvoProblem::TimedOut) return {};
            throw;
        }
        return core_->take(core_->channel().buffered().size());
    });
}

bool RuvoClient::awaitAnswer(std::size_t size, milliseconds limit) {
    return core_->guarded([&] {
        const Deadline deadline(std::max(limit, milliseconds(1)));  // zero were for ever
        try {
            (void)core_->channel().fill(size, deadline);
            return true;
        } catch (const RuvoClientError& error) {
            if (error.problem() == RuvoProblem::TimedOut) return false;
            throw;
        }
    });
}

void RuvoClient::endSending() noexcept { core_->channel().endSending(); }

void RuvoClient::acknowledge() { send(RuvoRequest::acknowledgement()); }

void RuvoClient::logOff() { send(RuvoRequest::logOff()); }

void RuvoClient::stopDaemon() {
    send(RuvoRequest::stopDaemon());
    core_->guarded([&] {
        if (core_->channel().isDatagrams()) return;
        const Deadline deadline(core_->options().timeout);
        try {
            while (core_->channel().fill(1, deadline)) {
                core_->channel().consume(core_->channel().buffered().size());
            }
        } catch (const RuvoClientError& error) {
            if (error.problem() == RuvoProblem::Closed) return;
            if (error.problem() != RuvoProblem::TimedOut) throw;
            throw RuvoClientError(RuvoProblem::TimedOut,
                                  "the daemon at " + address() +
                                      " was asked to stop and still runs");
        }
    });
    close();
}

const RuvoClientOptions& RuvoClient::options() const { return core_->options(); }

void RuvoClient::setTimeout(milliseconds timeout) { core_->options().timeout = timeout; }

void RuvoClient::close() noexcept { core_->channel().close(); }

bool RuvoClient::isOpen() const { return core_->channel().isOpen(); }

bool RuvoClient::isDaemonGone() { return core_->channel().isPeerGone(); }

const std::string& RuvoClient::address() const { return core_->channel().address(); }

std::intptr_t RuvoClient::nativeHandle() const { return core_->channel().handle(); }

}  // namespace Ruvo
