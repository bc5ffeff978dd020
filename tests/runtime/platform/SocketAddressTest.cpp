#include "runtime/platform/SocketAddress.h"

#include <gtest/gtest.h>

using VornPlatform::SocketAddress;
using Family = SocketAddress::Family;

namespace {

SocketAddress of(const std::string& host, std::uint16_t port = 0) {
    return SocketAddress::parse(host, port).value();
}

}  // namespace

TEST(SocketAddress, ShowsWhatItParsed) {
    EXPECT_EQ(of("127.0.0.1", 4711).text(), "127.0.0.1:4711");
    EXPECT_EQ(of("::1", 4711).text(), "[::1]:4711");
    EXPECT_EQ(of("[2001:db8::7]", 65535).text(), "[2001:db8::7]:65535");
    EXPECT_EQ(of("2001:DB8:0:0:0:0:0:7").host(), "2001:db8::7");
    EXPECT_EQ(of("0.0.0.0", 1).text(), "0.0.0.0:1");
    EXPECT_EQ(SocketAddress().text(), "?");
    EXPECT_EQ(SocketAddress(Family::V6, of("fe80::1").bytes(), 5, 3).text(), "[fe80::1%3]:5");
}

TEST(SocketAddress, RefusesWhatIsNoNumericAddress) {
    for (const char* text : {"", "localhost", "1.2.3", "1.2.3.4.5", "256.0.0.1", "127.1", "::1::",
                             "[127.0.0.1]", "[::1", "::1]", "[]", "1.2.3.4 ", " 1.2.3.4", "*",
                             "0x7f.0.0.1", "12345::"}) {
        EXPECT_FALSE(SocketAddress::parse(text, 1)) << text;
    }
    EXPECT_FALSE(SocketAddress::parse(std::string(100'000, ':'), 1));
    EXPECT_FALSE(SocketAddress::parse(std::string_view("1.2.3.4\0x", 9), 1));
}

TEST(SocketAddress, KnowsLoopback) {
    for (const char* text : {"127.0.0.1", "127.255.0.9", "::1", "::ffff:127.0.0.1"}) {
        EXPECT_TRUE(of(text).isLoopback()) << text;
    }
    for (const char* text : {"128.0.0.1", "0.0.0.0", "::", "::2", "::ffff:10.0.0.1", "::127.0.0.1",
                             "7f00::1"}) {
        EXPECT_FALSE(of(text).isLoopback()) << text;
    }
    EXPECT_FALSE(SocketAddress().isLoopback());
}

TEST(SocketAddress, KnowsAllAddresses) {
    EXPECT_TRUE(of("0.0.0.0", 80).isAny());
    EXPECT_TRUE(of("::", 80).isAny());
    EXPECT_TRUE(of("::ffff:0.0.0.0").isAny());
    EXPECT_TRUE(SocketAddress::any(Family::V6, 80).isAny());
    EXPECT_FALSE(of("::1").isAny());
    EXPECT_FALSE(SocketAddress().isAny());
}

TEST(SocketAddress, TurnsMappedAddressesIntoPlainOnesAndBack) {
    const SocketAddress plain = of("10.1.2.3", 99);
    const SocketAddress mapped = plain.mapped();
    EXPECT_TRUE(mapped.isMapped());
    EXPECT_FALSE(plain.isMapped());
    EXPECT_EQ(mapped.family(), Family::V6);
    EXPECT_EQ(mapped.text(), "10.1.2.3:99");
    EXPECT_EQ(mapped.unmapped(), plain);
    EXPECT_EQ(plain.unmapped(), plain);
    EXPECT_EQ(mapped.mapped(), mapped);
    EXPECT_FALSE(mapped == plain);
    EXPECT_TRUE(mapped.sameHost(plain));
    EXPECT_EQ(of("::ffff:10.1.2.3", 99), mapped);
}

TEST(SocketAddress, ComparesHostsWithoutPorts) {
    EXPECT_TRUE(of("1.2.3.4", 1).sameHost(of("1.2.3.4", 2)));
    EXPECT_FALSE(of("1.2.3.4", 1) == of("1.2.3.4", 2));
    EXPECT_FALSE(of("1.2.3.4").sameHost(of("1.2.3.5")));
    EXPECT_FALSE(of("0.0.0.0").sameHost(of("::")));
    EXPECT_FALSE(SocketAddress().sameHost(of("::")));
}

TEST(SocketAddress, HashesEqualValuesEqually) {
    EXPECT_EQ(of("1.2.3.4", 5).hash(), of("1.2.3.4", 5).hash());
    EXPECT_NE(of("1.2.3.4", 5).hash(), of("1.2.3.4", 6).hash());
    EXPECT_NE(of("1.2.3.4", 5).hash(), of("1.2.3.5", 5).hash());
}

TEST(SocketAddress, ResolvesNumbersAndNames) {
    const auto numeric = VornPlatform::resolve("::1", 7);
    ASSERT_EQ(numeric.addresses.size(), 1U);
    EXPECT_EQ(numeric.addresses[0].text(), "[::1]:7");

    const auto named = VornPlatform::resolve("localhost", 7);
    ASSERT_FALSE(named.addresses.empty());
    for (const auto& address : named.addresses) {
        EXPECT_TRUE(address.isLoopback());
        EXPECT_EQ(address.port(), 7);
    }
    EXPECT_FALSE(named.error);

    const auto unknown = VornPlatform::resolve("no such host.invalid", 7);
    EXPECT_TRUE(unknown.addresses.empty());
    EXPECT_TRUE(unknown.error);
    EXPECT_FALSE(unknown.problem.empty());
}

TEST(SocketAddress, KnowsTheMachinesOwnAddresses) {
    for (const char* text : {"127.0.0.1", "127.9.9.9", "::1", "::ffff:127.0.0.1"}) {
        EXPECT_TRUE(VornPlatform::isOwnAddress(of(text))) << text;
    }
    // Of the networks that are kept for documentation.
    for (const char* text : {"203.0.113.7", "::ffff:203.0.113.7", "2001:db8::7", "0.0.0.0", "::"}) {
        EXPECT_FALSE(VornPlatform::isOwnAddress(of(text))) << text;
    }
    EXPECT_FALSE(VornPlatform::isOwnAddress(SocketAddress()));
}
