#include "engines/RuvoClientAcceptor.h"

#include "runtime/support/VornEvent.h"
#include "runtime/support/VornException.h"
#include "tests/support/FakeConnection.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <utility>

using namespace RuvoService;
using TestSupport::FakeConnection;
using TestSupport::LogCapture;
using VornSupport::VornEvent;
using VornSupport::VornException;

namespace {

using Connection = VornSupport::VornSmartPointer<VornNet::VornConnection>;
using FakePointer = VornSupport::VornSmartPointer<FakeConnection>;

class TestAcceptor : public RuvoClientAcceptor {
public:
    explicit TestAcceptor(std::function<void(Connection)> body) : body_(std::move(body)) {
        RuvoClientAcceptor::set(this);
    }
    ~TestAcceptor() override { RuvoClientAcceptor::set(nullptr); }
    void acceptClient(Connection connection) override { body_(std::move(connection)); }

private:
    const std::function<void(Connection)> body_;
};

}  // namespace

TEST(RuvoClientAcceptor, HandsTheClientToTheOneInForce) {
    Connection accepted;
    const TestAcceptor acceptor([&](Connection connection) { accepted = connection; });
    const FakePointer client(new FakeConnection);
    RuvoClientAcceptor::dispatch(client);
    EXPECT_EQ(accepted.get(), client.get());
    EXPECT_FALSE(client->isClosed());
}

TEST(RuvoClientAcceptor, ClosesAClientForWhomThereIsNone) {
    const FakePointer client(new FakeConnection);
    RuvoClientAcceptor::dispatch(client);
    EXPECT_TRUE(client->isClosed());
    EXPECT_EQ(client->refCount(), 1u);
}

TEST(RuvoClientAcceptor, ClosesAClientWhenTheAcceptorFails) {
    const FakePointer client(new FakeConnection);
    const TestAcceptor acceptor([](Connection) { throw VornException("no thread left"); });
    const LogCapture log(2);
    RuvoClientAcceptor::dispatch(client);
    EXPECT_TRUE(client->isClosed());
    EXPECT_TRUE(log.has(2, "RuvoClientAcceptor::dispatch: exception: no thread left"));
}

TEST(RuvoClientAcceptor, PassesOverANullClient) {
    int calls = 0;
    const TestAcceptor acceptor([&](Connection) { ++calls; });
    RuvoClientAcceptor::dispatch(nullptr);
    EXPECT_EQ(calls, 0);
}

TEST(RuvoClientAcceptor, IsReplacedOnlyWhenNoListenerIsInsideAnyMore) {
    VornEvent inside(true);
    VornEvent replaced(true);
    bool replacedWhileInside = false;
    TestAcceptor acceptor([&](Connection) {
        inside.set();
        replacedWhileInside = replaced.wait(100) != 0;
    });
    std::jthread listener([] { RuvoClientAcceptor::dispatch(FakePointer(new FakeConnection)); });
    ASSERT_TRUE(inside.wait(20000));
    RuvoClientAcceptor::set(nullptr);
    replaced.set();
    listener.join();
    EXPECT_FALSE(replacedWhileInside);
}
