#include "notifier/RuvoNNCommands.h"

#include "notifier/RuvoNNConsumer.h"
#include "notifier/RuvoNNEngine.h"
#include "runtime/net/VornProxyDependentContainer.h"
#include "runtime/net/VornRemoteName.h"
#include "runtime/support/VornException.h"
#include "runtime/support/VornLogging.h"
#include "runtime/support/VornShortText.h"

#include <cstdint>
#include <string>
#include <utility>

namespace RuvoService {
namespace {

using VornNet::VornConnection;
using VornNet::VornProxyDependentContainer;

constexpr int kDone = 0;
constexpr int kEmptyName = -2;
constexpr int kNotRegistered = -3;

}  // namespace

void RUVO_NN_REGISTER::handleClient(VornConnection& connection, RuvoEngineBase&) {
    VORN_LOG(9, "RUVO_NN_REGISTER::handleClient: enter");
    std::string signature;
    std::string remoteName;
    connection.readString(signature);
    connection.readString(remoteName);
    const std::int32_t handle = connection.readInt();
    VORN_LOG(9, "RUVO_NN_REGISTER::handleClient: event=|" << signature << "| from " << remoteName);

    VornProxyDependentContainer& container = VornProxyDependentContainer::getInstance();
    if (signature.empty()) {
        connection.writeInt(kEmptyName);
    } else {
        // Accepted all the same; nothing else would ever tell why nothing comes.
        if (!VornNet::VornRemoteName::parse(remoteName)) {
            VORN_LOG(3, "RUVO_NN_REGISTER::handleClient: "
                            << VornSupport::shortText(remoteName) << " cannot be reached");
        }
        container.add(VornSupport::makeCounted<RuvoNNConsumer>(remoteName, handle, signature));
        connection.writeInt(kDone);
    }
    VORN_LOG(9, "RUVO_NN_REGISTER::handleClient: nconsumers=" << container.size());
    VORN_LOG(9, "RUVO_NN_REGISTER::handleClient: exit");
}

void RUVO_NN_UNREGISTER::handleClient(VornConnection& connection, RuvoEngineBase&) {
    VORN_LOG(9, "RUVO_NN_UNREGISTER::handleClient: enter");
    std::string remoteName;
    connection.readString(remoteName);
    const std::int32_t handle = connection.readInt();
    VORN_LOG(9, "RUVO_NN_UNREGISTER::handleClient: client="
                    << "|" << remoteName << ":" << handle << "|");

    // The removal may wait for the client's listener; earlier answers do not. A
    // client that has gone is removed all the same.
    try {
        connection.flush();
    } catch (const VornSupport::VornException&) {
    }
    VornProxyDependentContainer& container = VornProxyDependentContainer::getInstance();
    const auto dependent = container.lookup(remoteName, handle);
    VORN_LOG(9, "RUVO_NN_UNREGISTER::handleClient: spDependent lookup completed");
    if (!dependent) {
        connection.writeInt(kNotRegistered);
    } else {
        // That a failure here, a lost client's too, ends without a word is meant.
        try {
            VORN_LOG(9, "RUVO_NN_UNREGISTER::handleClient: Found registered client, REFCLIENT="
                            << static_cast<const void*>(dependent.get()));
            container.remove(remoteName, handle);
            connection.writeInt(kDone);
        } catch (...) {
        }
    }
    VORN_LOG(9, "RUVO_NN_UNREGISTER::handleClient: nconsumers=" << container.size());
    VORN_LOG(9, "RUVO_NN_UNREGISTER::handleClient: exit");
}

void RUVO_NN_NOTIFY::handleClient(VornConnection& connection, RuvoEngineBase& engine) {
    VORN_LOG(9, "RUVO_NN_NOTIFY::handleClient: enter");
    auto& notifier = as<RuvoNNEngine>(engine);
    notifier.waitForRoom(connection);
    std::string sender;
    std::string eventName;
    std::string message;
    connection.readString(sender);
    connection.readString(eventName);
    connection.readString(message);
    const std::int32_t size = connection.readInt();
    const std::string data = VornNet::readBlock(connection, size, "event data");
    VORN_LOG(9, "RUVO_NN_NOTIFY::handleClient: event=|" << eventName << "| from " << sender);

    if (eventName.empty()) {
        connection.writeInt(kEmptyName);
    } else {
        notifier.produce(VornSupport::makeCounted<RuvoNNEventNotification>(
            std::move(sender), std::move(eventName), std::move(message), data));
        connection.writeInt(kDone);
    }
    VORN_LOG(9, "RUVO_NN_NOTIFY::handleClient: exit");
}

}  // namespace RuvoService
