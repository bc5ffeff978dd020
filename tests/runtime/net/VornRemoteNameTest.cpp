#include "runtime/net/VornRemoteName.h"

#include <gtest/gtest.h>

using VornNet::VornRemoteName;

TEST(VornRemoteName, ReadsHostAndPortOfBothTransports) {
    const auto tcp = VornRemoteName::parse("tcp:127.0.0.1:4711");
    ASSERT_TRUE(tcp);
    EXPECT_EQ(tcp->kind, VornRemoteName::Kind::Tcp);
    EXPECT_EQ(tcp->host, "127.0.0.1");
    EXPECT_EQ(tcp->port, 4711);

    const auto udp = VornRemoteName::parse("udp:host.example:65535");
    ASSERT_TRUE(udp);
    EXPECT_EQ(udp->kind, VornRemoteName::Kind::Udp);
    EXPECT_EQ(udp->host, "host.example");
    EXPECT_EQ(udp->port, 65535);
}

TEST(VornRemoteName, ReadsNumericIpv6HostsWithAndWithoutBrackets) {
    EXPECT_EQ(VornRemoteName::parse("tcp:[::1]:80")->host, "::1");
    EXPECT_EQ(VornRemoteName::parse("tcp:::1:80")->host, "::1");
}

TEST(VornRemoteName, RefusesWhatIsNoRemoteName) {
    for (const char* text :
         {"", "tcp", "tcp:", "tcp:host", "tcp::80", "tcp:host:", "tcp:host:0", "tcp:host:65536",
          "tcp:host:-1", "tcp:host:80x", "tcp:host: 80", "TCP:host:80", "pip:host:80", "tcp:[]:80"}) {
        EXPECT_FALSE(VornRemoteName::parse(text)) << text;
    }
    EXPECT_FALSE(VornRemoteName::parse(std::string_view("tcp:ho\0st:80", 12)));
}
