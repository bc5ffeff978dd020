#include "benchmarks/harness/Requests.h"

#include <gtest/gtest.h>

namespace RuvoBench {
namespace {

using namespace std::string_literals;

const std::string kCode = "\x1e\x61";  // 7777

TEST(Requests, GetProgressNamesEngineCommandAndJob) {
    EXPECT_EQ(kCode + "\0\0\0\x09JobStatus\0\0\0\x14RUVO_JS_GET_PROGRESS\0\0\x27\x10"s,
              getProgressRequest(10000));
}

TEST(Requests, CreateJobGivesTheDescriptionBeforeTheName) {
    EXPECT_EQ(kCode + "\0\0\0\x09JobStatus\0\0\0\x0eRUVO_JS_CREATE\0\0\0\x01" "d" "\0\0\0\x02nn"s,
              createJobRequest("d", "nn"));
}

TEST(Requests, RegisterGivesSignatureRemoteNameAndHandle) {
    EXPECT_EQ(kCode + "\0\0\0\x08Notifier\0\0\0\x10RUVO_NN_REGISTER\0\0\0\x02^x\0\0\0\x05tcp:h"
                      "\xff\xff\xff\xff"s,
              registerRequest("^x", "tcp:h", -1));
}

TEST(Requests, LockGivesThePathBeforeTheWait) {
    EXPECT_EQ(kCode + "\0\0\0\x07" "Arbiter\0\0\0\x0cRUVO_RA_LOCK\0\0\0\x03" "a:b\xff\xff\xff\xff"s,
              lockRequest("a:b", -1));
}

TEST(Requests, UnlockGivesTheHandle) {
    EXPECT_EQ(kCode + "\0\0\0\x07" "Arbiter\0\0\0\x0eRUVO_RA_UNLOCK\0\0\1\x02"s,
              unlockRequest(258));
}

TEST(Requests, NotifyGivesItsFourTextsInOrder) {
    const Event event{.sender = "s", .name = "nn", .message = "mmm", .data = "\0d"s};
    EXPECT_EQ(kCode + "\0\0\0\x08Notifier\0\0\0\x0eRUVO_NN_NOTIFY\0\0\0\x01s\0\0\0\x02nn"
                      "\0\0\0\x03mmm\0\0\0\x02\0d"s,
              notifyRequest(event));
}

TEST(Requests, ADeliveryIsAHandleAndTheEventAsItWasRaised) {
    const Event event{.sender = "s", .name = "nn", .message = "mmm", .data = "dddd"};
    const std::size_t head = (kCode + "\0\0\0\x08Notifier\0\0\0\x0eRUVO_NN_NOTIFY"s).size();
    EXPECT_EQ(4 + notifyRequest(event).size() - head, deliveryBytes(event));
}

TEST(Requests, ABatchBeginsWithItsNumber) {
    EXPECT_EQ("\0\x03" "abab" "ab"s, batchOf("ab", 3));
    EXPECT_EQ("\x01\x02"s, batchHeader(0x102));
}

}  // namespace
}  // namespace RuvoBench
