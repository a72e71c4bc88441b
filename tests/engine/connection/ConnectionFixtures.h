#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/CapturedStreams.h"
#include "tests/support/FakeTransport.h"
#include "tests/support/Hex.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/ScriptedHost.h"
#include "tests/support/TestEngine.h"
#include "tests/support/TransportUnderTest.h"
#include "tests/support/Waiting.h"

namespace com_tesk::test {

using Strings = std::vector<std::string>;

constexpr unsigned int kServerAddress = 0x0100007F;  // 127.0.0.1
constexpr unsigned int kServerPort = 4711;

/// Returns the frame of the version request of simulator 1, the first that a connection sends.
inline const char* versionRequestFrame() {
    return "00 00 00 34 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
           "04 02 7F FF 00 00 00 14 00 7F 00 06 00 01 00 00 00 00 00 00";
}

constexpr const char* kBrokenPipeLine = "Error writing to server (32) \n";
constexpr const char* kReconnectLine = "Attempting to reconnect...\n";
/// What an engine with one input and one output prints when it becomes ready.
constexpr const char* kRegistrationLines =
    "Re-registering input/output parameters (1/1)...\n"
    "Registering input parameters with server...\n"
    "Registering output parameters with server...\n";

/// Every state but `STATE_DISCONNECTED`.
constexpr CSClient::State kStatesOfAConnection[] = {CSClient::STATE_CONNECTING, CSClient::STATE_CONNECTED,
                                                    CSClient::STATE_DISCONNECTING, CSClient::STATE_READY,
                                                    CSClient::STATE_RECONNECTING};

/// True for an operation that pauses for one second. A busy machine has time, but a second pause does not fit.
inline bool isOneSecond(double seconds) {
    return seconds >= 0.99 && seconds < 1.9;
}

/// The time allowed for an operation that does not pause, on a busy machine.
constexpr double kNoPause = 0.9;

inline bool waitForState(const CSClientProtocol& engine, CSClient::State wanted) {
    return waitUntil([&engine, wanted] { return engine.getState() == wanted; });
}

/// Ends the connection of an engine whose worker runs, also when a test ends early.
class EndOnExit {
  public:
    explicit EndOnExit(CSClientProtocol& engineToEnd) : engine(engineToEnd) {}
    EndOnExit(const EndOnExit&) = delete;
    EndOnExit& operator=(const EndOnExit&) = delete;
    ~EndOnExit() {
        engine.forceCloseConnection();
        waitForState(engine, CSClient::STATE_DISCONNECTED);
    }

  private:
    CSClientProtocol& engine;
};

inline RawMessage messageOf(RawMessage::Type type, const std::string& bodyHex) {
    RawMessage message(type);
    const Bytes bytes = hex(bodyHex);
    message.insert(message.end(), bytes.begin(), bytes.end());
    return message;
}

inline unsigned int sendControl(CSClientProtocol& engine) {
    return engine.sendMessage(messageOf(RawMessage::CONTROL, "01"));
}

template <typename Run>
auto onAnotherThread(Run run) {
    return std::async(std::launch::async, std::move(run));
}

/// Names tests after the member `name` of their parameters.
constexpr auto kByName = [](const auto& tested) { return std::string(tested.param.name); };

/// A derived engine, which uses its own members in each change of state.
class HookedEngine : public TestEngine {
  public:
    using TestEngine::TestEngine;

    void handleConnectionStateChange(CSClient::State oldState, CSClient::State newState) override {
        TestEngine::handleConnectionStateChange(oldState, newState);
        afterStateChange(oldState, newState);
    }

    std::function<void(CSClient::State oldState, CSClient::State newState)> afterStateChange;
};

/// An engine on a fake transport. Its callbacks and what it prints are recorded.
class ConnectionTest : public testing::Test {
  protected:
    void TearDown() override {
        gate.open();
        endConnection();
        engine.reset();
    }

    /// Begins anew: a new engine, and nothing is recorded.
    void create(unsigned int optionFlags = kSilent) {
        endConnection();
        engine.reset();
        captured.emplace();
        callbacks.emplace();
        engine = std::make_unique<TestEngine>(1, optionFlags);
        engine->addCallbackInterface(&*callbacks);
    }

    /// Begins anew with an engine that is connected without a worker. Callbacks are recorded from then on.
    void connect(unsigned int optionFlags = kSilent) {
        create(optionFlags);
        engine->removeCallbackInterface(&*callbacks);
        EXPECT_EQ(engine->connect(), 0);
        engine->addCallbackInterface(&*callbacks);
    }

    /// Opens the engine, with a worker.
    void open(unsigned int address = kServerAddress, unsigned int port = kServerPort) {
        isOpened = true;
        ASSERT_EQ(engine->openConnection(address, port, nullptr), 0);
    }

    void endConnection() {
        if (std::exchange(isOpened, false)) {
            const EndOnExit end(*engine);
        }
    }

    FakeTransport& transport() { return engine->fakeTransport(); }

    /// Compares all state changes and all printed lines. Each line must be written at once.
    void expectEvents(const std::string& states, const std::string& err = "", const std::string& out = "") const {
        EXPECT_EQ(callbacks->states(), states);
        EXPECT_EQ(captured->err(), err);
        EXPECT_EQ(captured->errInsertions(), std::count(err.begin(), err.end(), '\n'));
        EXPECT_EQ(captured->out(), out);
        EXPECT_EQ(captured->outInsertions(), std::count(out.begin(), out.end(), '\n'));
    }

    /// Runs an operation that pauses for a second after the state change `line`. Other threads use the engine meanwhile.
    void expectPauseWithoutLock(const std::string& line, const std::function<void()>& operation) {
        std::atomic<bool> hasReturned{false};
        auto pausing = onAnotherThread([&] {
            const Stopwatch stopwatch;
            operation();
            hasReturned = true;
            return stopwatch.seconds();
        });
        ASSERT_TRUE(callbacks->waitFor(line));
        EXPECT_EQ(engine->registerOutputs({output("during the pause")}), 0);
        EXPECT_TRUE(engine->hasOutputParameter("during the pause", false));
        EXPECT_EQ(engine->openConnection(1, 1, nullptr), 2);
        EXPECT_EQ(engine->getNumCallbackInterfaces(), 1);
        EXPECT_EQ(engine->getState(), CSClient::STATE_CONNECTING);
        EXPECT_FALSE(hasReturned) << "a lock was held during the pause";
        const double seconds = pausing.get();
        EXPECT_TRUE(isOneSecond(seconds)) << seconds;
    }

    std::optional<CapturedStreams> captured;
    std::optional<RecordingCallbacks> callbacks;
    Gate gate;
    std::unique_ptr<TestEngine> engine;

  private:
    bool isOpened = false;
};

/// An engine that connects to a scripted host over a real transport.
class HostTest : public ConnectionTest {
  protected:
    /// Begins anew, with the transport under test unless another is given.
    void createForHost(unsigned int optionFlags = kSilent, CSCommsInterfaceTCP* transport = nullptr) {
        create(optionFlags);
        if (transport == nullptr) {
            transport = newTransportUnderTest();
        }
        if (transport == nullptr) {
            transport = new CSCommsInterfaceTCP(CSCommsInterfaceTCP::Options());
        }
        ASSERT_TRUE(engine->changeCommsInterface(transport));
    }

    void openToHost() { open(ScriptedHost::address(), host.port()); }

    /// The host accepts a connection and receives the version request.
    void accept() {
        peer = host.accept();
        if (!peer) {
            throw std::runtime_error("no connection");
        }
        EXPECT_EQ(peer->receiveFrame(), versionRequestFrame());
    }

    ScriptedHost host;
    std::unique_ptr<ScriptedHost::Peer> peer;
};

}  // namespace com_tesk::test
