#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "client/SimClient.h"
#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "tests/reliability/ConnectionHost.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/Waiting.h"

namespace com_tesk::test {

using HostConnection = ConnectionHost::Connection;

constexpr unsigned int kAutoReconnect = CSClient::OPTION_AUTO_RECONNECT;

/// The changes of state of a client that connects once and does not reconnect.
constexpr const char* kStatesOfOneConnection = "0->1 1->2 2->4 4->3 3->0";

/// A kind of transport. Most tests run with each.
struct TransportKind {
    const char* name;
    bool isBuffered;

    CSCommsInterfaceTCP* newTransport() const;
    std::unique_ptr<CSClient> newClient(unsigned int simulatorId, unsigned int options) const;
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

double secondsOf(const std::function<void()>& action);

CSClient::Parameter floatValue(const std::string& name, float number);
CSClient::Parameter intValue(const std::string& name, int number);

/// Calls each operation whose name begins with get, is, has or find.
void callQueries(CSClient& client);

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

/// A client whose callbacks are recorded, before its first connection.
class ClientUnderTest {
  public:
    explicit ClientUnderTest(const TransportKind& kind, unsigned int options = 0, unsigned int id = 7);

    CSClient* operator->() const { return client.get(); }
    CSClient& operator*() const { return *client; }

    int open(unsigned int port, const CSClient::ConnectionOptions* options = nullptr) const {
        return client->open(kHostAddress, port, options);
    }

    bool waitForState(CSClient::State state) const {
        return waitUntil([this, state] { return client->getConnectionState() == state; });
    }

    /// True when the client has neither parameters nor values.
    bool isEmpty() const;

    /// Queries that take no lock of the tables return at once.
    void expectQueriesAtOnce() const;
    void expectAllQueriesAtOnce() const;

    /// Registering, publishing and unregistering an output of that name succeed at once.
    void expectPublishingAtOnce(const std::string& name = "OUT") const;

    /// Closes within the time that closing takes. A buffered client that is idle takes less than two seconds.
    CSClient::State close(bool isIdle = true) const;

    /// Outlives the client, which calls it.
    RecordingCallbacks callbacks;

  private:
    const bool isBuffered;
    const std::unique_ptr<CSClient> client;
};

}  // namespace com_tesk::test
