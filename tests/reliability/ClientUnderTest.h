#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "client/SimClient.h"
#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "message/RawMessage.h"
#include "tests/reliability/ConnectionHost.h"
#include "tests/support/Parameters.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/Waiting.h"

namespace com_tesk::test {

constexpr unsigned int kAutoReconnect = CSClient::OPTION_AUTO_RECONNECT;

/// The changes of state of a client that connects once and does not reconnect.
constexpr const char* kStatesOfOneConnection = "0->1 1->2 2->4 4->3 3->0";

/// A kind of transport. Most tests run with each.
struct TransportKind {
    const char* name;
    bool isBuffered;

    CSCommsInterfaceTCP* newTransport() const {
        return isBuffered ? new CSCommsInterfaceTCPBuffered : new CSCommsInterfaceTCP(CSCommsInterfaceTCP::Options());
    }

    std::unique_ptr<CSClient> newClient(unsigned int simulatorId, unsigned int options) const {
        auto client = std::make_unique<SimClient>(simulatorId, options);
        if (isBuffered) {
            client->changeCommsInterface(newTransport());
        }
        return client;
    }
};

inline std::ostream& operator<<(std::ostream& stream, const TransportKind& kind) {
    return stream << kind.name;
}

inline constexpr TransportKind kStandard = {"Standard", false};
inline constexpr TransportKind kBuffered = {"Buffered", true};

/// The name of a parameter that has one.
template <typename Parameter>
std::string nameOf(const testing::TestParamInfo<Parameter>& info) {
    return info.param.name;
}

/// Upper bound in seconds for operations that do not wait. It allows for a busy machine, and is far from the 30
/// seconds of a blocked write.
constexpr double kAtOnce = 2.5;

template <typename Action>
double secondsOf(const Action& action) {
    const Stopwatch stopwatch;
    action();
    return stopwatch.seconds();
}

/// Calls a function of the test for each callback.
class HookedCallbacks : public CSClient::CallbackIface {
  public:
    std::function<void(CSClient::State, CSClient::State)> onStateChange = [](auto, auto) {};
    std::function<void(const std::vector<CSClient::Parameter>&)> onUpdate = [](const auto&) {};
    std::function<void(const std::vector<CSClient::OutputDef>&)> onOutputs = [](const auto&) {};
    std::function<void(const std::vector<CSClient::InputDef>&)> onInputs = [](const auto&) {};

    void connectionStateChanged(CSClient::State oldState, CSClient::State newState) override {
        onStateChange(oldState, newState);
    }
    void inputParametersUpdated(const std::vector<CSClient::Parameter>& parameters) override { onUpdate(parameters); }
    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>& outputs) override { onOutputs(outputs); }
    void inputParametersConfirmed(const std::vector<CSClient::InputDef>& inputs) override { onInputs(inputs); }
};

/// Random arguments of an operation. Some are refused.
struct Arguments {
    std::mt19937_64& random;
    unsigned int port;                   ///< of the host
    CSClient::CallbackIface* callbacks;  ///< to add and remove

    bool isOneIn(unsigned int count) const { return random() % count == 0; }
    /// One of few names, so that calls meet.
    std::string name() const { return isOneIn(50) ? std::string(32, 'x') : "P" + std::to_string(random() % 12); }
    std::vector<std::string> names() const { return {name(), name()}; }
    CSClient::ParameterType type() const {
        return isOneIn(50) ? CSClient::TYPE_UNDEFINED : 1 + static_cast<CSClient::ParameterType>(random() % 2);
    }
    CSClient::OutputDef output() const { return {name(), type()}; }
    std::vector<CSClient::OutputDef> outputs() const { return {output(), output()}; }
    CSClient::InputDef input() const { return {name(), type(), static_cast<std::uint32_t>(random() % 5)}; }
    std::vector<CSClient::InputDef> inputs() const { return {input(), input()}; }
    CSClient::Parameter value() const {
        CSClient::Parameter value = intParameter(name(), static_cast<std::int32_t>(random()));
        value.type = type();
        return value;
    }
    std::vector<CSClient::Parameter> values() const { return {value(), value()}; }
    /// Seldom one, because a wait sleeps for the whole time.
    unsigned int seconds() const { return isOneIn(40) ? 1 : 0; }
    RawMessage message() const {
        RawMessage message(static_cast<RawMessage::Type>(random() % 3));
        message.resize(static_cast<std::size_t>(random()) % 40);
        return message;
    }
};

/// One public operation of a client.
struct ClientOperation {
    const char* name;
    void (*call)(CSClient& client, const Arguments& with);
    bool opensOrCloses = false;  ///< not allowed inside a callback of a state change
};

// The text of the call is the operation's name.
#define CSCLIENT_TEST_OPERATION(expression)                                                               \
    {                                                                                                     \
#expression, [](CSClient & client, [[maybe_unused]] const Arguments& with) { client.expression; } \
    }

/// Every public operation of a client.
inline const std::vector<ClientOperation>& clientOperations() {
    static const std::vector<ClientOperation> operations = {
        {"open", [](CSClient& client, const Arguments& with) { client.open(0x0200007F, with.port, nullptr); }, true},
        {"open by text", [](CSClient& client, const Arguments& with) { client.open(kHostAddress, with.port, nullptr); },
         true},
        {"close", [](CSClient& client, const Arguments& /*with*/) { client.close(); }, true},
        CSCLIENT_TEST_OPERATION(sendMessage(with.message())),
        CSCLIENT_TEST_OPERATION(waitForConnectionState(CSClient::STATE_READY, with.seconds())),
        CSCLIENT_TEST_OPERATION(getOptions()),
        CSCLIENT_TEST_OPERATION(hasOptions(1)),
        CSCLIENT_TEST_OPERATION(getConnectionState()),
        CSCLIENT_TEST_OPERATION(getServerVersion()),
        CSCLIENT_TEST_OPERATION(getProtocolVersion()),
        CSCLIENT_TEST_OPERATION(getServerIPAddress()),
        CSCLIENT_TEST_OPERATION(getServerPort()),
        CSCLIENT_TEST_OPERATION(getClientVersion()),
        CSCLIENT_TEST_OPERATION(getNumberOfRegisteredOutputParameters()),
        CSCLIENT_TEST_OPERATION(getNumberOfUnregisteredOutputParameters()),
        CSCLIENT_TEST_OPERATION(getNumberOfRegisteredInputParameters()),
        CSCLIENT_TEST_OPERATION(getNumberOfUnregisteredInputParameters()),
        CSCLIENT_TEST_OPERATION(isOutputParameterRegistered(with.name())),
        CSCLIENT_TEST_OPERATION(isInputParameterRegistered(with.name())),
        CSCLIENT_TEST_OPERATION(registerOutputParameter(with.output())),
        CSCLIENT_TEST_OPERATION(registerOutputParameters(with.outputs().data(), 2)),
        CSCLIENT_TEST_OPERATION(registerOutputParameters(with.outputs())),
        CSCLIENT_TEST_OPERATION(waitForOutputsToBeRegistered(with.seconds())),
        CSCLIENT_TEST_OPERATION(unregisterOutputParameter(with.name())),
        CSCLIENT_TEST_OPERATION(unregisterOutputParameters(with.names())),
        CSCLIENT_TEST_OPERATION(unregisterOutputParameters(with.outputs().data(), 2)),
        CSCLIENT_TEST_OPERATION(unregisterAllOutputParameters()),
        CSCLIENT_TEST_OPERATION(registerInputParameter(with.input())),
        CSCLIENT_TEST_OPERATION(registerInputParameters(with.inputs().data(), 2)),
        CSCLIENT_TEST_OPERATION(registerInputParameters(with.inputs())),
        CSCLIENT_TEST_OPERATION(waitForInputsToBeRegistered(with.seconds())),
        CSCLIENT_TEST_OPERATION(unregisterInputParameter(with.name())),
        CSCLIENT_TEST_OPERATION(unregisterInputParameters(with.names())),
        CSCLIENT_TEST_OPERATION(unregisterInputParameters(with.inputs().data(), 2)),
        CSCLIENT_TEST_OPERATION(unregisterAllInputParameters()),
        CSCLIENT_TEST_OPERATION(publishParameter(with.value())),
        CSCLIENT_TEST_OPERATION(publishParameters(with.values().data(), 2)),
        CSCLIENT_TEST_OPERATION(publishParameters(with.values())),
        {"findPublishedParameter",
         [](CSClient& client, const Arguments& with) {
             CSClient::Parameter found;
             client.findPublishedParameter(with.name(), found);
         }},
        {"getAllPublishedParameters",
         [](CSClient& client, const Arguments& /*with*/) {
             std::vector<CSClient::Parameter> all;
             client.getAllPublishedParameters(all);
         }},
        CSCLIENT_TEST_OPERATION(addCallbackInterface(with.callbacks)),
        CSCLIENT_TEST_OPERATION(removeCallbackInterface(with.callbacks)),
        CSCLIENT_TEST_OPERATION(hasCallbackInterface(with.callbacks)),
        CSCLIENT_TEST_OPERATION(getNumCallbackInterfaces()),
        {"getCallbackInterfaces",
         [](CSClient& client, const Arguments& /*with*/) {
             std::set<CSClient::CallbackIface*> interfaces;
             client.getCallbackInterfaces(interfaces);
         }},
    };
    return operations;
}

#undef CSCLIENT_TEST_OPERATION

/// Calls each operation whose name begins with get, is, has or find.
inline void callQueries(CSClient& client) {
    std::mt19937_64 random(1);
    for (const ClientOperation& operation : clientOperations()) {
        for (const char* const prefix : {"get", "is", "has", "find"}) {
            if (std::string(operation.name).find(prefix) == 0) {
                operation.call(client, Arguments{random, 0, nullptr});
            }
        }
    }
}

/// Expects that closing at least begins.
inline void expectToClose(CSClient& client) {
    const CSClient::State state = client.close();
    EXPECT_TRUE(state == CSClient::STATE_DISCONNECTED || state == CSClient::STATE_DISCONNECTING) << state;
}

/// A client whose callbacks are recorded, before its first connection.
class ClientUnderTest {
  public:
    explicit ClientUnderTest(const TransportKind& kind, unsigned int options = 0)
        : isBuffered(kind.isBuffered), client(kind.newClient(7, CSClient::OPTION_SILENT | options)) {
        client->addCallbackInterface(&callbacks);
    }

    CSClient* operator->() const { return client.get(); }
    CSClient& operator*() const { return *client; }

    int open(unsigned int port, const CSClient::ConnectionOptions* options = nullptr) const {
        return client->open(kHostAddress, port, options);
    }

    bool waitForState(CSClient::State state, std::chrono::milliseconds bound = kWaitBound) const {
        return waitUntil([this, state] { return client->getConnectionState() == state; }, bound);
    }

    /// True when the client has neither parameters nor values.
    bool isEmpty() const {
        std::vector<CSClient::Parameter> published;
        client->getAllPublishedParameters(published);
        return published.empty() && client->getNumberOfRegisteredInputParameters() == 0 &&
               client->getNumberOfUnregisteredInputParameters() == 0 &&
               client->getNumberOfRegisteredOutputParameters() == 0 &&
               client->getNumberOfUnregisteredOutputParameters() == 0;
    }

    /// Queries that take no lock of the tables return at once.
    void expectQueriesAtOnce() const {
        EXPECT_LT(secondsOf([this] {
                      client->getOptions();
                      client->hasOptions(CSClient::OPTION_AUTO_RECONNECT);
                      client->getConnectionState();
                      client->getServerVersion();
                      client->getProtocolVersion();
                      client->getServerIPAddress();
                      client->getServerPort();
                      client->getNumCallbackInterfaces();
                  }),
                  kAtOnce);
    }
    void expectAllQueriesAtOnce() const {
        EXPECT_LT(secondsOf([this] { callQueries(*client); }), kAtOnce);
    }

    /// Registering, publishing and unregistering an output of that name succeed at once.
    void expectPublishingAtOnce(const std::string& name = "OUT") const {
        EXPECT_LT(secondsOf([this, &name] {
                      EXPECT_EQ(client->registerOutputParameter({name, CSClient::TYPE_FLOAT}), 0);
                      EXPECT_EQ(client->publishParameter(floatParameter(name, 1.5F)), 0);
                      EXPECT_EQ(client->unregisterOutputParameter(name), 0);
                  }),
                  kAtOnce);
    }

    /// Closes within the time that closing takes. A buffered client that is idle takes less than two seconds.
    CSClient::State close(bool isIdle = true) const {
        CSClient::State state = CSClient::STATE_READY;
        EXPECT_LT(secondsOf([&] { state = client->close(); }), isBuffered && isIdle ? 1.9 : 2.0 + kAtOnce);
        return state;
    }

    /// Outlives the client, which calls it.
    RecordingCallbacks callbacks;

  private:
    const bool isBuffered;
    const std::unique_ptr<CSClient> client;
};

}  // namespace com_tesk::test
