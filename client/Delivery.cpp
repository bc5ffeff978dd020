#include "client/Delivery.h"

#include "runtime/net/WireCodec.h"

#include <string>

namespace Ruvo {
namespace {

// Walks over the fields of a delivery that may not be all there.
class FieldReader {
public:
    explicit FieldReader(std::string_view bytes) : bytes_(bytes) {}

    DecodeOutcome outcome() const { return outcome_; }
    std::size_t position() const { return position_; }

    std::uint32_t readUnsigned() {
        if (!isThere(4)) return 0;
        const std::uint32_t value = VornNet::decode32(bytes_.data() + position_);
        position_ += 4;
        return value;
    }

    // A size and that many bytes. A negative size is a large one as well.
    std::string_view readSized(std::uint32_t limit) {
        const std::uint32_t size = readUnsigned();
        if (outcome_ == DecodeOutcome::Complete && size > limit) {
            outcome_ = DecodeOutcome::Invalid;
        }
        if (!isThere(size)) return {};
        const std::string_view field = bytes_.substr(position_, size);
        position_ += size;
        return field;
    }

private:
    bool isThere(std::size_t size) {
        if (outcome_ == DecodeOutcome::Complete && bytes_.size() - position_ < size) {
            outcome_ = DecodeOutcome::NeedMore;
        }
        return outcome_ == DecodeOutcome::Complete;
    }

    std::string_view bytes_;
    std::size_t position_ = 0;
    DecodeOutcome outcome_ = DecodeOutcome::Complete;
};

constexpr std::uint32_t kTaskMarker = 12345;

DecodeOutcome decodeTaskChange(std::string_view bytes, RuvoDelivery& delivery,
                               std::size_t& consumed) {
    FieldReader reader(bytes);
    const std::uint32_t handle = reader.readUnsigned();
    const std::uint32_t marker = reader.readUnsigned();
    if (reader.outcome() == DecodeOutcome::Complete && marker != kTaskMarker) {
        return DecodeOutcome::Invalid;
    }
    const std::uint32_t state = reader.readUnsigned();
    const auto task = std::to_string(static_cast<std::int32_t>(reader.readUnsigned()));
    if (reader.outcome() != DecodeOutcome::Complete) return reader.outcome();
    delivery.handle = static_cast<std::int32_t>(handle);
    delivery.sender.clear();
    delivery.event = "VornTSEvent:" + task;
    delivery.message = task;
    delivery.data.assign(reinterpret_cast<const char*>(&state), sizeof state);
    consumed = reader.position();
    return DecodeOutcome::Complete;
}

}  // namespace

DecodeOutcome decodeDelivery(std::string_view bytes, const RuvoListenerOptions& limits,
                             RuvoDelivery& delivery, std::size_t& consumed) {
    if (limits.taskChanges) return decodeTaskChange(bytes, delivery, consumed);
    FieldReader reader(bytes);
    const std::uint32_t handle = reader.readUnsigned();
    const std::string_view sender = reader.readSized(limits.maxStringBytes);
    const std::string_view event = reader.readSized(limits.maxStringBytes);
    const std::string_view message = reader.readSized(limits.maxStringBytes);
    const std::string_view data = reader.readSized(limits.maxDataBytes);
    if (reader.outcome() == DecodeOutcome::Complete) {
        delivery.handle = static_cast<std::int32_t>(handle);
        delivery.sender = sender;
        delivery.event = event;
        delivery.message = message;
        delivery.data = data;
        consumed = reader.position();
    }
    return reader.outcome();
}

}  // namespace Ruvo
