#pragma once

#include "client/RuvoClientError.h"
#include "client/RuvoRequest.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Ruvo {

class ClientCore;

struct RuvoClientOptions {
    std::string host = "127.0.0.1";  // a name or a numeric address
    std::uint16_t port = 0;          // 0: the default port
    bool useUdp = false;
    // Zero or less: no limit.
    std::chrono::milliseconds connectTimeout{5000};  // connecting and the opening together
    // Each answer, each further MiB of a long one, and each sending.
    std::chrono::milliseconds timeout{10000};
    // Over UDP the daemon forgets a conversation after 30 s of silence: so often
    // a long wait for an answer shows that somebody is there.
    std::chrono::milliseconds signOfLife{10000};
    // A longer answer is not the daemon's and ends the conversation.
    std::uint32_t maxStringBytes = 1048576;
    std::uint32_t maxBlockBytes = 67108864;
    // The same of the answers that grow with what the daemon keeps: a list of
    // names, the bytes of a task. The default is all that the daemon can send.
    // Memory is taken as the bytes arrive, never for a size that is only declared.
    std::uint32_t maxLongBytes = 2147483647;
};

// One conversation with the daemon. Belongs to one thread at a time. Every call
// blocks for at most its time-out and throws RuvoClientError on failure; after
// any but Declined and Argument the conversation is over, for nobody knows then
// where in the stream of answers it is.
class RUVO_API RuvoClient {
public:
    // Connects and opens the conversation.
    explicit RuvoClient(const RuvoClientOptions& options = {});
    ~RuvoClient();  // closes
    RuvoClient(RuvoClient&&) noexcept;
    RuvoClient& operator=(RuvoClient&&) noexcept;

    // Sends one request and reads the integer that answers it. For a request
    // that is not answered by one integer: Argument. Declined when the engine
    // does not know the command; if that had arguments the conversation is over,
    // for the daemon takes them for what comes next.
    std::int32_t call(const RuvoRequest& request);
    // Several requests in one count: one integer each, in their order; of those
    // without an answer 0. What the integers mean is left to the caller, an
    // unknown command (-999) as well.
    std::vector<std::int32_t> call(std::span<const RuvoRequest> batch);

    // Sends requests, 65535 at most, in one count; their answers are then read,
    // in order, with the calls below.
    void send(std::span<const RuvoRequest> batch);
    void send(const RuvoRequest& request) { send(std::span(&request, 1)); }
    std::int32_t readInt();
    std::uint32_t readUnsigned();
    std::string readString();
    std::string readBytes(std::size_t size);
    // The same within maxLongBytes. A size that was declared is taken as it came:
    // one over the limit, or negative, is Protocol.
    std::string readLongString();
    std::string readLongBytes(std::int64_t declared);
    // What is there, at least one byte; empty when nothing came for `quiet` or
    // the daemon has closed.
    std::string readSome(std::chrono::milliseconds quiet);

    // True when so many bytes of answers are there, or the conversation has come to
    // its end: the calls above then need not wait. False when `limit` passed before
    // (zero or less: looks once); the conversation goes on.
    bool awaitAnswer(std::size_t size, std::chrono::milliseconds limit);
    // Tells the daemon that nothing more will be sent; a request that waits in the
    // daemon is given up there. What is answered can still be read.
    void endSending() noexcept;

    void acknowledge();
    void logOff();
    // Asks the daemon to stop and, over TCP, waits until it closes the
    // connection: TimedOut when it does not.
    void stopDaemon();

    // As given, and as setTimeout() changed them.
    const RuvoClientOptions& options() const;
    void setTimeout(std::chrono::milliseconds timeout);
    void close() noexcept;
    bool isOpen() const;
    // Looks whether the daemon has ended the conversation. Does not wait. Over
    // UDP this may only show after the next request.
    bool isDaemonGone();
    // "tcp:127.0.0.1:27610".
    const std::string& address() const;
    // The socket, for waiting beside a RuvoListener; -1 when closed.
    std::intptr_t nativeHandle() const;

private:
    std::unique_ptr<ClientCore> core_;  // never null but in a moved-from object
};

}  // namespace Ruvo
