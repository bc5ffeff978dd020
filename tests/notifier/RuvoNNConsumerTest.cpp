#include "notifier/RuvoNNConsumer.h"

#include "notifier/RuvoNNEventNotification.h"
#include "runtime/net/WireCodec.h"
#include "runtime/support/VornException.h"
#include "runtime/support/VornSmartPointer.h"
#include "tests/support/FakeConnection.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestListener.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <string>
#include <vector>

using namespace std::chrono_literals;
using RuvoService::RuvoNNConsumer;
using RuvoService::RuvoNNEventNotification;
using TestSupport::addressText;
using TestSupport::FakeConnection;
using TestSupport::LogCapture;
using VornSupport::makeCounted;
using VornSupport::VornException;

namespace {

using Texts = std::vector<std::string>;
using Event = VornSupport::VornSmartPointer<RuvoNNEventNotification>;

Event eventNamed(const std::string& name) {
    return makeCounted<RuvoNNEventNotification>("s", name, "m", 0, nullptr);
}

class OpenConsumer : public RuvoNNConsumer {
public:
    using RuvoNNConsumer::addContent;
    using RuvoNNConsumer::RuvoNNConsumer;
};

VornSupport::VornSmartPointer<OpenConsumer> consumerOf(const std::string& signature,
                                                       const std::string& remoteName = "nowhere") {
    return makeCounted<OpenConsumer>(remoteName, 7, signature);
}

// A delivery to a name that says nothing fails at once: that tells a selected
// event from another.
bool selects(const std::string& signature, const std::string& eventName) {
    const auto consumer = consumerOf(signature);
    EXPECT_TRUE(consumer->getSignature() == signature);
    try {
        EXPECT_FALSE(consumer->checkEvent(*eventNamed(eventName)));
        return false;
    } catch (const VornException& e) {
        EXPECT_NE(e.getMessage().find("nowhere"), std::string::npos) << e.getMessage();
        return true;
    }
}

template <class Body>
std::chrono::steady_clock::duration timeOf(Body body) {
    const auto begin = std::chrono::steady_clock::now();
    body();
    return std::chrono::steady_clock::now() - begin;
}

}  // namespace

// ---- which events ------------------------------------------------------------------

TEST(RuvoNNConsumer, FindsItsSignatureAnywhereInTheName) {
    EXPECT_TRUE(selects("disk", "disk.failed"));
    EXPECT_TRUE(selects("disk", "raid.disk.ok"));
    EXPECT_TRUE(selects("disk", "disk"));
    EXPECT_FALSE(selects("disk", "dis"));
    EXPECT_FALSE(selects("disk", "d.i.s.k"));
}

TEST(RuvoNNConsumer, KeepsToAnchors) {
    EXPECT_TRUE(selects("^disk$", "disk"));
    EXPECT_FALSE(selects("^disk$", "disk.failed"));
    EXPECT_FALSE(selects("^disk$", "raid.disk.ok"));
    EXPECT_FALSE(selects("^disk$", "my disk"));
    EXPECT_TRUE(selects("ok$", "raid.disk.ok"));
    EXPECT_TRUE(selects("^VornJSEvent:", "VornJSEvent:backup"));
}

TEST(RuvoNNConsumer, KeepsToTheCaseOfLetters) {
    EXPECT_FALSE(selects("disk", "DISK"));
    EXPECT_FALSE(selects("Disk", "disk"));
}

TEST(RuvoNNConsumer, SelectsEveryEventByDotStar) {
    for (const char* name : {"a", "disk.failed", " ", "VornTSEvent:4", "\xff\xfe"}) {
        EXPECT_TRUE(selects(".*", name)) << name;
    }
}

TEST(RuvoNNConsumer, CountsAnEmptyFirstMatchAsNone) {
    EXPECT_FALSE(selects("z*", "abc"));
    EXPECT_TRUE(selects("z*", "zebra"));
    EXPECT_FALSE(selects("z*", "a zebra"));  // its first match stands before the "a"
    EXPECT_FALSE(selects("x*", "abxx"));
    EXPECT_FALSE(selects("^", "abc"));
    EXPECT_FALSE(selects("$", "abc"));
    EXPECT_FALSE(selects("\\b", "abc"));
    EXPECT_FALSE(selects("()", "abc"));
    EXPECT_FALSE(selects("|disk", "disk"));  // the empty alternative comes first
    EXPECT_TRUE(selects("disk|", "disk"));
}

TEST(RuvoNNConsumer, ThrowsTheReasonEachTimeWhenItsSignatureWasRefused) {
    for (const char* signature : {"disk[", "(", "a**(", "[z-a]", "(?=x)"}) {
        VornSupport::VornRegularExpression<std::string> expression;
        ASSERT_FALSE(expression.setPattern(signature)) << signature;
        const auto consumer = consumerOf(signature);
        for (int i = 0; i < 2; ++i) {
            try {
                consumer->checkEvent(*eventNamed("disk["));
                FAIL() << "nothing was thrown for " << signature;
            } catch (const VornException& e) {
                EXPECT_EQ(e.getMessage(), expression.getErrorText());
                EXPECT_EQ(e.getCode(), 0);
            }
        }
    }
}

TEST(RuvoNNConsumer, LogsARefusedSignatureWhenItRegisters) {
    const LogCapture log(3);
    consumerOf("disk[", "tcp:127.0.0.1:1");
    ASSERT_EQ(log.texts(3).size(), 1u);
    EXPECT_TRUE(log.texts(3)[0].starts_with(
        "RuvoNNConsumer::constructor: signature of tcp:127.0.0.1:1 refused: "));
}

TEST(RuvoNNConsumer, PassesOverNotificationsThatAreNoEvents) {
    const auto consumer = consumerOf(".*");
    EXPECT_FALSE(consumer->checkEvent(VornSupport::VornNotification(3)));
}

TEST(RuvoNNConsumer, DecidesQuicklyWhateverThePatternAndTheName) {
    const std::string name = std::string(1 << 20, 'a') + "b";
    const auto event = eventNamed(name);
    for (const char* signature : {"(a+)+$", "(a|a)*c", "(a*)*c", "a.*b.*c$", "ba"}) {
        const auto consumer = consumerOf(signature);
        EXPECT_LT(timeOf([&] { EXPECT_FALSE(consumer->checkEvent(*event)); }), 60s) << signature;
    }
    // A huge pattern costs its own client the time of one registration.
    for (const std::string& signature :
         {std::string(1 << 20, 'x'), std::string(1 << 20, '('),
          "(" + std::string(1 << 20, '|') + ")", std::string("((((a{100}){100}){100}){100})")}) {
        EXPECT_LT(timeOf([&] { consumerOf(signature); }), 60s) << signature.substr(0, 30);
    }
}

TEST(RuvoNNConsumer, LeavesOutASearchThatWouldHoldEverybodyUp) {
    // Without a small automaton: some 10 us a byte.
    std::mt19937 random(1);
    std::string name(1 << 20, 'a');
    for (char& c : name) c = (random() & 1) != 0 ? 'a' : 'b';
    const auto consumer = consumerOf("(a|b)*a(a|b){900}c", "tcp:host:7");
    const LogCapture log(3);
    EXPECT_THROW(consumer->checkEvent(*eventNamed(name)), VornException);
    EXPECT_TRUE(log.has(3, "RuvoNNConsumer::checkEvent: the name of an event, 1048576 bytes, is "
                           "too long for the signature of tcp:host:7"));
    // Names as they are usual are searched, whatever the pattern.
    EXPECT_FALSE(consumer->checkEvent(*eventNamed(name.substr(0, 1000))));
}

// ---- what is delivered -------------------------------------------------------------

TEST(RuvoNNConsumer, WritesTheFiveItemsOfTheEventInOrder) {
    const auto consumer = consumerOf("disk");
    const auto event =
        makeCounted<RuvoNNEventNotification>("udp:host", "disk.failed", "Disk 3", 4, "\0ab\n");
    FakeConnection connection;
    consumer->addContent(connection, *event);
    std::string expected;
    VornNet::appendString(expected, "udp:host");
    VornNet::appendString(expected, "disk.failed");
    VornNet::appendString(expected, "Disk 3");
    VornNet::appendInt(expected, 4);
    expected.append("\0ab\n", 4);
    EXPECT_EQ(connection.wire(), expected);
}

TEST(RuvoNNConsumer, WritesAnEventWithoutDataAsTheSizeAlone) {
    const auto consumer = consumerOf("disk");
    FakeConnection connection;
    consumer->addContent(connection, *eventNamed("disk"));
    std::string expected;
    VornNet::appendString(expected, "s");
    VornNet::appendString(expected, "disk");
    VornNet::appendString(expected, "m");
    VornNet::appendInt(expected, 0);
    EXPECT_EQ(connection.wire(), expected);
}

TEST(RuvoNNConsumer, SwallowsAFailureAndBreaksTheConnectionOff) {
    const auto consumer = consumerOf("disk");
    const auto event = makeCounted<RuvoNNEventNotification>("s", "disk", "m", 1, "x");
    FakeConnection connection;
    connection.failWritesAfter(0);
    const LogCapture log(9);
    EXPECT_NO_THROW(consumer->addContent(connection, *event));
    // Nobody can take a part for the whole.
    EXPECT_EQ(connection.written(), Texts{"abort"});
    EXPECT_TRUE(log.has(9, "RuvoNNConsumer::addContent exit  "));
}

TEST(RuvoNNConsumer, WritesNothingOfANotificationThatIsNoEvent) {
    const auto consumer = consumerOf("disk");
    FakeConnection connection;
    const LogCapture log(9);
    EXPECT_NO_THROW(consumer->addContent(connection, VornSupport::VornNotification()));
    EXPECT_EQ(connection.written(), Texts{"abort"});
    EXPECT_TRUE(log.has(9, "RuvoNNConsumer::addContent exit  "));
}

TEST(RuvoNNConsumer, DeliversToTheListenerOfItsRemoteName) {
    const TestSupport::TcpListener listener;
    const auto consumer = consumerOf("disk", listener.remoteName());
    const auto event = makeCounted<RuvoNNEventNotification>("s", "disk", "m", 3, "abc");
    EXPECT_FALSE(consumer->checkEvent(*event));
    const auto client = listener.accept();
    std::string expected;
    VornNet::appendInt(expected, 7);
    VornNet::appendString(expected, "s");
    VornNet::appendString(expected, "disk");
    VornNet::appendString(expected, "m");
    VornNet::appendInt(expected, 3);
    expected += "abc";
    EXPECT_EQ(TestSupport::readBytes(client, expected.size()), expected);
}

// ---- traces ------------------------------------------------------------------------

TEST(RuvoNNConsumer, TracesItsLife) {
    const LogCapture log(9);
    auto consumer = consumerOf("disk.*", "nowhere");
    const std::string address = addressText(static_cast<RuvoNNConsumer*>(consumer.get()));
    consumer = nullptr;
    EXPECT_EQ(log.texts(9),
              (Texts{"RuvoNNConsumer::constructor this=" + address +
                         " signature=|disk.*| sRemoteName=|nowhere| hDependent=7",
                     "RuvoNNConsumer::destructor  signature=|disk.*| this=" + address}));
}

TEST(RuvoNNConsumer, TracesWhatItIsOfferedAndSends) {
    const TestSupport::TcpListener listener;
    const auto consumer = consumerOf("disk", listener.remoteName());
    const auto other = eventNamed("cpu");
    const auto event = eventNamed("disk");
    const std::string address = addressText(static_cast<RuvoNNConsumer*>(consumer.get()));
    {
        const LogCapture log(9);
        consumer->checkEvent(*other);
        EXPECT_EQ(log.texts(9),
                  Texts{"RuvoNNConsumer::checkEvent signature=|disk| eventname=|cpu| REFNOTIF=" +
                        addressText(other.get())});
    }
    const LogCapture log(9);
    consumer->checkEvent(*event);
    const auto lines = log.beginning("RuvoNNConsumer::");
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[0], "RuvoNNConsumer::checkEvent signature=|disk| eventname=|disk| REFNOTIF=" +
                            addressText(event.get()));
    EXPECT_TRUE(lines[1].starts_with("RuvoNNConsumer::addContent enter  REFCLIENT 0x")) << lines[1];
    EXPECT_TRUE(lines[1].ends_with(
        " (m_sRemoteName=|" + listener.remoteName() + "|) REFNOTIF " +
        addressText(static_cast<const VornSupport::VornNotification*>(event.get()))))
        << lines[1];
    EXPECT_EQ(lines[2], "RuvoNNConsumer::addContent: EventNotification (event=|disk|)");
    EXPECT_EQ(lines[3], "RuvoNNConsumer::addContent exit  ");
    EXPECT_EQ(lines[4], "RuvoNNConsumer::checkEvent notice has been sent to this=" + address +
                            " event=|disk|");
}

TEST(RuvoNNConsumer, TracesTheConnectionItWritesTo) {
    const auto consumer = consumerOf("disk");
    FakeConnection connection;
    const LogCapture log(9);
    consumer->addContent(connection, *eventNamed("disk"));
    const auto lines = log.beginning("RuvoNNConsumer::addContent enter ");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find(" REFCLIENT " +
                            addressText(static_cast<VornNet::VornConnection*>(&connection)) + " "),
              std::string::npos)
        << lines[0];
}
