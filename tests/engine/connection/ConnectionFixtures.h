#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "comms/ThreadSafety.h"
#include "tests/support/FakeTransport.h"
#include "tests/support/Hex.h"
#include "tests/support/TestEngine.h"

namespace com_tesk::test {

/// Looks every millisecond until `condition` holds; false when the bound passes first.
template <typename Condition>
bool waitUntil(const Condition& condition, std::chrono::milliseconds bound = std::chrono::seconds(20)) {
    const auto deadline = std::chrono::steady_clock::now() + bound;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// Opens once and stays open.
class Latch {
  public:
    void open() {
        const std::lock_guard<std::mutex> lock(mutex);
        isOpen = true;
        opened.notify_all();
    }

    /// False when the bound passes first.
    bool wait(std::chrono::milliseconds bound = std::chrono::seconds(20)) {
        std::unique_lock<std::mutex> lock(mutex);
        return opened.wait_for(lock, bound, [this] { return isOpen; });
    }

  private:
    std::mutex mutex;
    std::condition_variable opened;
    bool isOpen = false;
};

class Stopwatch {
  public:
    double seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); }

  private:
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

/// What an operation that sleeps exactly one second may take. The upper bound leaves room for a busy machine, but not for
/// a second sleep.
inline bool isOneSecond(double seconds) {
    return seconds >= 0.99 && seconds < 1.9;
}

/// A fake transport that also tells how it was opened. Set the hooks before another thread uses it.
class ProbeTransport : public FakeTransport {
  public:
    struct Opening {
        unsigned int address;
        unsigned int port;
        Options options;
        std::chrono::steady_clock::time_point time;
    };

    ~ProbeTransport() override {
        if (onDestruction) {
            onDestruction();
        }
    }

    std::vector<Opening> openings() const {
        const std::lock_guard<std::mutex> lock(openingsMutex);
        return opened;
    }

    bool openConnection(unsigned int address, unsigned int port) override {
        {
            const std::lock_guard<std::mutex> lock(openingsMutex);
            opened.push_back({address, port, getOptions(), std::chrono::steady_clock::now()});
        }
        return FakeTransport::openConnection(address, port);
    }

    int readMessage(unsigned int count, RawMessage& message) override {
        if (onRead) {
            onRead(count);
        }
        return FakeTransport::readMessage(count, message);
    }

    /// Called in every read, with no lock held.
    std::function<void(unsigned int count)> onRead;
    std::function<void()> onDestruction;

  private:
    mutable std::mutex openingsMutex;
    std::vector<Opening> opened;
};

/// A test engine on a probe transport. It writes down the message bodies that it is handed, and calls the test at the
/// places where a derived protocol comes in. Set the hooks before another thread uses it.
class ConnectionEngine : public TestEngine {
  public:
    explicit ConnectionEngine(unsigned int optionFlags = 0) : TestEngine(1, optionFlags) {
        auto* const newTransport = new ProbeTransport;
        changeCommsInterface(newTransport);
        probeTransport = newTransport;
    }

    /// Owned by the engine.
    ProbeTransport& probe() { return *probeTransport; }

    /// Connects on this thread, without a worker, from `STATE_CONNECTING` on.
    int connect() {
        pretendAddress(0x0100007F, 55580);
        pretendState(CSClient::STATE_CONNECTING);
        return startConnection();
    }

    /// Bodies received, each as its type and hex text, for example "1: 01 02".
    std::vector<std::string> received() const {
        const std::lock_guard<std::mutex> lock(receivedMutex);
        return bodies;
    }

    void handleReceivedMessage(const RawMessage& message) override {
        {
            const std::lock_guard<std::mutex> lock(receivedMutex);
            bodies.push_back(std::to_string(message.getType()) + ": " + hexText(message));
        }
        if (onMessage) {
            onMessage();
        }
        TestEngine::handleReceivedMessage(message);
    }

    void handleConnectionStateChange(CSClient::State oldState, CSClient::State newState) override {
        if (onStateChange) {
            onStateChange(oldState, newState);
        }
        TestEngine::handleConnectionStateChange(oldState, newState);
    }

    int requestSimulatorVersion() override {
        if (onVersionRequest) {
            onVersionRequest();
        }
        return TestEngine::requestSimulatorVersion();
    }

    /// Asks for a copy of the registry in the registry itself.
    int copyRegistryOntoItself() { return getCallbackInterfaces(PartAccess::callbacks(engineParts().callbacks)); }

    std::function<void()> onMessage;
    std::function<void(CSClient::State, CSClient::State)> onStateChange;
    std::function<void()> onVersionRequest;

  private:
    ProbeTransport* probeTransport;
    mutable std::mutex receivedMutex;
    std::vector<std::string> bodies;
};

/// Ends the connection of an engine whose worker runs, also when a test gives up early.
class EndOnExit {
  public:
    explicit EndOnExit(CSClientProtocol& engineToEnd) : engine(engineToEnd) {}
    EndOnExit(const EndOnExit&) = delete;
    EndOnExit& operator=(const EndOnExit&) = delete;
    ~EndOnExit() {
        engine.forceCloseConnection();
        waitUntil([this] { return engine.getState() == CSClient::STATE_DISCONNECTED; });
    }

  private:
    CSClientProtocol& engine;
};

inline bool waitForState(const CSClientProtocol& engine, CSClient::State wanted) {
    return waitUntil([&engine, wanted] { return engine.getState() == wanted; });
}

/// The frame of the version request of simulator 1, the first that a connection sends.
inline const char* versionRequestFrame() {
    return "00 00 00 34 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
           "04 02 7F FF 00 00 00 14 00 7F 00 06 00 01 00 00 00 00 00 00";
}

inline RawMessage messageOf(RawMessage::Type type, const std::string& bodyHex) {
    RawMessage message(type);
    const Bytes bytes = hex(bodyHex);
    message.insert(message.end(), bytes.begin(), bytes.end());
    return message;
}

constexpr unsigned int kReconnect = CSClient::OPTION_AUTO_RECONNECT;
constexpr unsigned int kSilent = CSClient::OPTION_SILENT;

/// What a failed write prints: EPIPE is 32.
constexpr const char* kBrokenPipeLine = "Error writing to server (32) \n";

}  // namespace com_tesk::test
