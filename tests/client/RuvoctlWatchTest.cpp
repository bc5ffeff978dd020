#include "tests/client/RuvoctlRun.h"
#include "tests/client/ScriptedDaemon.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <future>
#include <thread>

using namespace ClientTest;
using Arguments = std::vector<std::string>;
using TestSupport::waitUntil;

namespace {

std::uint32_t number(std::string_view bytes) {
    std::uint32_t value = 0;
    for (const char c : bytes.substr(0, 4)) value = value << 8 | static_cast<unsigned char>(c);
    return value;
}

std::string native(std::int32_t code) {
    return {reinterpret_cast<const char*>(&code), sizeof code};
}

// The daemon as a watcher sees it: takes the registration and delivers.
class WatchedDaemon {
public:
    explicit WatchedDaemon(ScriptedPeer& peer) : peer_(peer) { peer_.open(); }

    void takeRegistration(const std::string& pattern) {
        peer_.expect(u16(1) + engineRequest("Notifier", "RUVO_NN_REGISTER", str(pattern)));
        remoteName_ = peer_.read(number(peer_.read(4)));
        handle_ = static_cast<std::int32_t>(number(peer_.read(4)));
        peer_.send(i32(0));
    }

    void connect() {
        const auto port =
            static_cast<std::uint16_t>(std::stoi(remoteName_.substr(remoteName_.rfind(':') + 1)));
        const auto address = *VornPlatform::SocketAddress::parse("127.0.0.1", port);
        const auto error = remoteName_.rfind("udp:", 0) == 0
                               ? VornPlatform::connectUdp(address, socket_)
                               : VornPlatform::connectTcp(address, socket_);
        if (error) throw std::runtime_error("cannot reach the watcher: " + error.text());
    }

    void deliver(std::string_view event, std::string_view message, std::string_view data = {}) {
        if (!socket_) connect();
        const std::string bytes = delivery(handle_, "me", event, message, data);
        send(bytes);
    }

    // The beginning of a delivery, under another handle when `offset` is not 0,
    // that no listener takes; returns when the watcher has closed its end.
    void declareTooMuch(int offset = 0) {
        connect();
        send(i32(std::int64_t{handle_} - offset) + i32(67108865));
        char byte = 0;
        (void)VornPlatform::receive(socket_.handle(), &byte, 1);
        socket_.close();
    }

    void takeUnregistration() {
        peer_.serve(engineRequest("Notifier", "RUVO_NN_UNREGISTER",
                                  str(remoteName_) + i32(handle_)),
                    i32(0));
    }

    const std::string& remoteName() const { return remoteName_; }

private:
    void send(std::string_view bytes) {
        while (!bytes.empty()) {
            const auto sent = VornPlatform::send(socket_.handle(), bytes.data(), bytes.size());
            if (sent.error) throw std::runtime_error("cannot deliver: " + sent.error.text());
            bytes.remove_prefix(sent.count);
        }
    }

    ScriptedPeer& peer_;
    std::string remoteName_;
    std::int32_t handle_ = 0;
    VornPlatform::Socket socket_;
};

// A watcher and the daemon that it watches.
struct Watching {
    using Script = std::function<void(WatchedDaemon&, ScriptedPeer&)>;

    Watching(const Arguments& arguments, const std::string& pattern, Script script,
             ScriptedDaemon::Transport transport = ScriptedDaemon::Transport::Tcp)
        : daemon(
              [pattern, script](ScriptedPeer& peer) {
                  WatchedDaemon watched(peer);
                  watched.takeRegistration(pattern);
                  script(watched, peer);
              },
              transport) {
        Arguments all = arguments;
        all.insert(all.end(), {"--port", std::to_string(daemon.port())});
        thread = std::thread([this, all] { status = ruvoctl.run(all); });
    }
    ~Watching() { join(); }

    int join() {
        if (thread.joinable()) thread.join();
        return status;
    }
    bool shows(const std::string& text) {
        return waitUntil([&] { return ruvoctl.out.text().find(text) != std::string::npos; });
    }
    std::string out() const { return ruvoctl.out.text(); }
    std::string err() const { return ruvoctl.err.text(); }

    RuvoctlRun ruvoctl;
    int status = -1;
    ScriptedDaemon daemon;
    std::thread thread;
};

void goodbye(WatchedDaemon& daemon, ScriptedPeer& peer) {
    daemon.takeUnregistration();
    peer.awaitClose();
}

}  // namespace

TEST(RuvoctlWatch, PrintsJobEventsInWordsAndEndsAtTheCount) {
    Watching watching({"watch", "^VornJSEvent:", "--count", "5"}, "^VornJSEvent:",
                      [](WatchedDaemon& daemon, ScriptedPeer& peer) {
                          for (const std::int32_t code : {2, 3, 1, 0, 77}) {
                              daemon.deliver("VornJSEvent:backup", "backup", native(code));
                          }
                          goodbye(daemon, peer);
                      });
    EXPECT_EQ(watching.join(), 0) << watching.err();
    EXPECT_EQ(watching.out(),
              "VornJSEvent:backup created sender=\"me\" message=\"backup\"\n"
              "VornJSEvent:backup progress sender=\"me\" message=\"backup\"\n"
              "VornJSEvent:backup cancelled sender=\"me\" message=\"backup\"\n"
              "VornJSEvent:backup completed sender=\"me\" message=\"backup\"\n"
              "VornJSEvent:backup code 77 sender=\"me\" message=\"backup\"\n");
}

TEST(RuvoctlWatch, PrintsLockEventsInWords) {
    const auto deliverAll = [](WatchedDaemon& daemon, ScriptedPeer& peer) {
        for (const std::int32_t code : {1, 0, -7}) {
            daemon.deliver("VornRAEvent:a:b", "a:b", native(code));
        }
        daemon.deliver("VornRAEvent:", "", "text");  // four bytes are a number
        goodbye(daemon, peer);
    };
    Watching watching({"watch", ".", "--count", "4"}, ".", deliverAll);
    EXPECT_EQ(watching.join(), 0) << watching.err();
    EXPECT_EQ(watching.out(),
              "VornRAEvent:a:b locked sender=\"me\" message=\"a:b\"\n"
              "VornRAEvent:a:b unlocked sender=\"me\" message=\"a:b\"\n"
              "VornRAEvent:a:b code -7 sender=\"me\" message=\"a:b\"\n"
              "VornRAEvent: code 1954047348 sender=\"me\" message=\"\"\n");

    Watching inJson({"watch", ".", "--count", "4", "--json"}, ".", deliverAll);
    EXPECT_EQ(inJson.join(), 0) << inJson.err();
    std::istringstream lines(inJson.out());
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(nlohmann::json::parse(line)["lock"],
              nlohmann::json({{"path", "a:b"}, {"change", "locked"}}));
}

TEST(RuvoctlWatch, PrintsEachEventTheMomentItHappens) {
    std::promise<void> seen;
    Watching watching({"watch", "."}, ".", [&](WatchedDaemon& daemon, ScriptedPeer& peer) {
        daemon.deliver("first", "");
        seen.get_future().wait();  // nothing else happens before
        daemon.deliver("second", "");
        goodbye(daemon, peer);
    });
    EXPECT_TRUE(watching.shows("first"));
    EXPECT_FALSE(watching.out().find("second") != std::string::npos);
    seen.set_value();
    EXPECT_TRUE(watching.shows("second"));
    watching.ruvoctl.interrupted = true;
    EXPECT_EQ(watching.join(), 0) << watching.err();
}

TEST(RuvoctlWatch, ShowsOtherDataAsTextOrHex) {
    Watching watching({"watch", ".", "--count", "5"}, ".",
                      [](WatchedDaemon& daemon, ScriptedPeer& peer) {
                          daemon.deliver("a", "m", "text \xc3\xa9");
                          daemon.deliver("b", "m", std::string("\0\xff", 2));
                          daemon.deliver("c", "m", std::string(2000, 'x'));
                          daemon.deliver("VornJSEvent:x", "m", "five5");
                          daemon.deliver("d", "m", native(2));
                          goodbye(daemon, peer);
                      });
    EXPECT_EQ(watching.join(), 0) << watching.err();
    EXPECT_EQ(watching.out(), "a sender=\"me\" message=\"m\" data=\"text \xc3\xa9\" (7 bytes)\n"
                              "b sender=\"me\" message=\"m\" data=hex 00ff (2 bytes)\n"
                              "c sender=\"me\" message=\"m\" data=\"" +
                                  std::string(1024, 'x') +
                                  "\"... (2000 bytes)\n"
                                  "VornJSEvent:x sender=\"me\" message=\"m\" data=\"five5\" (5 bytes)\n"
                                  "d sender=\"me\" message=\"m\" data=hex 02000000 (4 bytes)\n");
}

TEST(RuvoctlWatch, LetsNoEventDriveTheTerminal) {
    Watching watching({"watch", ".", "--count", "1"}, ".",
                      [](WatchedDaemon& daemon, ScriptedPeer& peer) {
                          daemon.deliver("a\nb", "\x1b[2J\"\xff\xc2\x9b\\", "\r\n");
                          goodbye(daemon, peer);
                      });
    EXPECT_EQ(watching.join(), 0);
    EXPECT_EQ(watching.out(),
              "a\\x0ab sender=\"me\" message=\"\\x1b[2J\\x22\\xff\\xc2\\x9b\\x5c\" data=hex 0d0a (2 "
              "bytes)\n");
}

TEST(RuvoctlWatch, WritesOneJsonObjectALine) {
    Watching watching({"watch", ".", "--count", "3", "--json"}, ".",
                      [](WatchedDaemon& daemon, ScriptedPeer& peer) {
                          daemon.deliver("VornJSEvent:n", "n", native(3));
                          daemon.deliver("e\xff", "\n", "text");
                          daemon.deliver("f", "", std::string(1, '\0'));
                          goodbye(daemon, peer);
                      });
    EXPECT_EQ(watching.join(), 0);
    std::istringstream lines(watching.out());
    std::vector<nlohmann::json> events;
    for (std::string line; std::getline(lines, line);) {
        events.push_back(nlohmann::json::parse(line));
    }
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(events[0],
              nlohmann::json({{"event", "VornJSEvent:n"}, {"sender", "me"}, {"message", "n"},
                              {"dataSize", 4}, {"data", "03000000"},
                              {"job", {{"name", "n"}, {"change", "progress"}}}}));
    EXPECT_EQ(events[1]["event"], "e\xef\xbf\xbd");
    EXPECT_EQ(events[1]["text"], "text");
    EXPECT_FALSE(events[2].contains("text"));
    EXPECT_EQ(events[2]["data"], "00");
}

TEST(RuvoctlWatch, TellsWhenTheRegistrationStands) {
    Watching watching({"watch", "^a"}, "^a", goodbye);
    EXPECT_TRUE(waitUntil([&] {
        return watching.err().find("ruvoctl: watching ^a at tcp:127.0.0.1:") != std::string::npos;
    }));
    EXPECT_TRUE(watching.ruvoctl.catching);  // before that, so that nothing is left behind
    watching.ruvoctl.interrupted = true;
    EXPECT_EQ(watching.join(), 0);
    EXPECT_EQ(watching.out(), "");
}

TEST(RuvoctlWatch, EndsWithOneWhenTheTimeIsOver) {
    Watching watching({"watch", ".", "--timeout", "0.05"}, ".", goodbye);
    EXPECT_EQ(watching.join(), 1);
    EXPECT_NE(watching.err().find("the time is over after 0 events"), std::string::npos)
        << watching.err();
}

TEST(RuvoctlWatch, EndsWithOneWhenInterruptedBeforeTheCount) {
    Watching watching({"watch", ".", "--count", "2"}, ".",
                      [](WatchedDaemon& daemon, ScriptedPeer& peer) {
                          daemon.deliver("only", "");
                          goodbye(daemon, peer);
                      });
    EXPECT_TRUE(watching.shows("only"));
    watching.ruvoctl.interrupted = true;
    EXPECT_EQ(watching.join(), 1);
}

TEST(RuvoctlWatch, UnregistersWhenNobodyReadsItsOutput) {
    std::promise<void> broken;
    Watching watching({"watch", "."}, ".", [&](WatchedDaemon& daemon, ScriptedPeer& peer) {
        broken.get_future().wait();
        daemon.deliver("unread", "");
        goodbye(daemon, peer);
    });
    watching.ruvoctl.out.breakOff();
    broken.set_value();
    EXPECT_EQ(watching.join(), 4);
    EXPECT_NE(watching.err().find("cannot write to standard output"), std::string::npos);
}

TEST(RuvoctlWatch, TakesTheEventOfAJobWithTheLongestName) {
    const std::string name(1048576, 'n');
    Watching watching({"watch", ".", "--count", "2"}, ".",
                      [&](WatchedDaemon& daemon, ScriptedPeer& peer) {
                          daemon.deliver("VornJSEvent:" + name, name, native(2));
                          daemon.deliver("next", "");
                          goodbye(daemon, peer);
                      });
    EXPECT_EQ(watching.join(), 0) << watching.err();
    EXPECT_TRUE(watching.out() == "VornJSEvent:" + name + " created sender=\"me\" message=\"" +
                                      name + "\"\nnext sender=\"me\" message=\"\"\n");
}

TEST(RuvoctlWatch, TellsOfAnEventThatIsTooLarge) {
    Watching watching({"watch", ".", "--count", "1"}, ".",
                      [](WatchedDaemon& daemon, ScriptedPeer& peer) {
                          daemon.declareTooMuch();
                          daemon.connect();
                          daemon.deliver("next", "");
                          goodbye(daemon, peer);
                      });
    EXPECT_EQ(watching.join(), 4);
    EXPECT_NE(watching.err().find("ruvoctl: lost an event: "), std::string::npos) << watching.err();
    EXPECT_EQ(watching.out(), "next sender=\"me\" message=\"\"\n");
}

TEST(RuvoctlWatch, DoesNotTakeAStrangersNonsenseForALostEvent) {
    Watching watching({"watch", ".", "--count", "1"}, ".",
                      [](WatchedDaemon& daemon, ScriptedPeer& peer) {
                          daemon.declareTooMuch(1);
                          daemon.connect();
                          daemon.deliver("next", "");
                          goodbye(daemon, peer);
                      });
    EXPECT_EQ(watching.join(), 0);
    EXPECT_EQ(watching.err().find("lost an event"), std::string::npos) << watching.err();
}

TEST(RuvoctlWatch, NoticesThatTheDaemonHasGone) {
    Watching watching({"watch", "."}, ".", [](WatchedDaemon& daemon, ScriptedPeer& peer) {
        daemon.deliver("last words", "");
        peer.close();
    });
    EXPECT_EQ(watching.join(), 3);
    EXPECT_NE(watching.err().find("the daemon has gone"), std::string::npos) << watching.err();
    EXPECT_NE(watching.out().find("last words"), std::string::npos);
    EXPECT_EQ(watching.err().find("could not unregister"), std::string::npos) << watching.err();
}

TEST(RuvoctlWatch, TellsThatThePatternIsRefused) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.expect(u16(1) + engineRequest("Notifier", "RUVO_NN_REGISTER", str("x")));
        peer.read(number(peer.read(4)) + 4);
        peer.send(i32(-2));
        peer.awaitClose();
    });
    RuvoctlRun ruvoctl;
    EXPECT_EQ(ruvoctl.run({"watch", "x", "--port", std::to_string(daemon.port())}), 1);
}

TEST(RuvoctlWatch, TakesDeliveriesOverUdp) {
    Watching watching({"watch", ".", "--delivery", "udp", "--count", "1"}, ".",
                      [](WatchedDaemon& daemon, ScriptedPeer& peer) {
                          EXPECT_EQ(daemon.remoteName().rfind("udp:127.0.0.1:", 0), 0U);
                          daemon.deliver("by datagram", "");
                          goodbye(daemon, peer);
                      });
    EXPECT_EQ(watching.join(), 0) << watching.err();
    EXPECT_EQ(watching.out(), "by datagram sender=\"me\" message=\"\"\n");
}

TEST(RuvoctlWatch, RegistersOverUdp) {
    Watching watching({"--udp", "watch", ".", "--count", "1"}, ".",
                      [](WatchedDaemon& daemon, ScriptedPeer& peer) {
                          daemon.deliver("event", "");
                          goodbye(daemon, peer);
                      },
                      ScriptedDaemon::Transport::Udp);
    EXPECT_EQ(watching.join(), 0) << watching.err();
}

TEST(RuvoctlWatch, GivesSignsOfLifeOverUdpAndNoticesTheirFailure) {
    RuvoctlRun ruvoctl;
    ruvoctl.signOfLife = std::chrono::milliseconds(1);
    ScriptedDaemon daemon(
        [](ScriptedPeer& peer) {
            WatchedDaemon watched(peer);
            watched.takeRegistration(".");
            for (int i = 0; i < 2; ++i) peer.expect(u16(1) + u16(0));
            peer.close();
        },
        ScriptedDaemon::Transport::Udp);
    EXPECT_EQ(ruvoctl.run({"--udp", "watch", ".", "--port", std::to_string(daemon.port())}), 3);
    EXPECT_NE(ruvoctl.err.text().find("the daemon has gone"), std::string::npos);
}
