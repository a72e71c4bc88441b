#pragma once

#include <poll.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "client/SimClient.h"
#include "tests/reliability/ClientUnderTest.h"
#include "tests/reliability/RedirectedStreams.h"
#include "tests/support/Hex.h"
#include "tests/support/HostMessages.h"
#include "tests/support/OpenEngine.h"

namespace com_tesk::test {

// Nothing here allocates while an operation runs, so that only allocations of the library fail.

/// A transport without a socket. Every connect succeeds, reads return what the test has queued and then the end of the
/// stream, and writes are recorded.
class QueuedTransport : public CSCommsInterfaceTCP {
  public:
    QueuedTransport() : CSCommsInterfaceTCP(Options()) { written.reserve(100'000); }

    /// Queues a data frame around a body, which is a hex text.
    void queueFrame(const std::string& body) {
        const Bytes frame = hex(hexFrame(body));
        reads.emplace_back(frame.begin(), frame.begin() + 32);
        reads.emplace_back(frame.begin() + 32, frame.end());
    }

    bool openConnection(unsigned int /*address*/, unsigned int /*port*/) override { return true; }

    int readMessage(unsigned int count, RawMessage& message) override {
        if (nextRead < reads.size()) {
            const Bytes& read = reads[nextRead];
            // As with a socket, nothing is lost when this throws.
            message.insert(message.end(), read.begin(), read.end());
            ++nextRead;
            return static_cast<int>(std::min<std::size_t>(count, read.size()));
        }
        if (!staysOpen) {
            message.resize(message.size() + count);
            return 0;
        }
        poll(nullptr, 0, 5);
        errno = EAGAIN;
        return -2;
    }

    int writeMessage(const RawMessage& message) override {
        if (failNextWrite) {
            failNextWrite = false;
            errno = EPIPE;
            return -1;
        }
        written.append(message.begin(), message.end());
        return static_cast<int>(message.size());
    }

    int close() override { return 0; }

    void dropReads() { nextRead = reads.size(); }

    std::string written;
    bool staysOpen = false;  ///< Reads time out instead of ending, once everything queued is read.
    bool failNextWrite = false;

  private:
    std::vector<Bytes> reads;
    std::size_t nextRead = 0;
};

class CountingCallbacks : public HookedCallbacks {
  public:
    CountingCallbacks() {
        onUpdate = [this](const auto& parameters) { updated += parameters.size(); };
        onOutputs = [this](const auto& /*outputs*/) { ++outputConfirmations; };
    }

    std::atomic<std::size_t> updated{0};
    std::atomic<std::size_t> outputConfirmations{0};
};

/// An engine that the test's thread runs as the worker does.
class MemoryEngine : public OpenEngine {
  public:
    explicit MemoryEngine(unsigned int optionFlags) : OpenEngine(1, optionFlags) {}

    /// Runs one iteration of the worker's loop. When an allocation fails in it, the connection ends.
    bool runOnceAsWorker() {
        try {
            runOnce();
            return true;
        } catch (const std::bad_alloc&) {
            closeConnection();
            return false;
        }
    }

    HostVersion& hostVersion() const { return engineParts().host; }
};

enum class ParameterKind { INPUTS, OUTPUTS };

/// One engine, the arguments and results of operations, and the operations that tests of both kinds of parameters call.
class MemoryFixture {
  public:
    explicit MemoryFixture(unsigned int options) : engine(options) { engine.changeCommsInterface(transport); }
    MemoryFixture(const MemoryFixture&) = delete;
    MemoryFixture& operator=(const MemoryFixture&) = delete;
    ~MemoryFixture() {
        engine.forceCloseConnection();
        // Only an engine whose transport stays open has a worker.
        if (transport->staysOpen) {
            waitFor(CSClient::STATE_DISCONNECTED);
        }
    }

    /// Connects, as the worker does.
    void connect() {
        engine.beginConnecting();
        engine.runOnceAsWorker();
    }

    /// Connects when the connection is lost, and drops what the host has sent before.
    void reconnect() {
        if (engine.getState() == CSClient::STATE_CONNECTING) {
            engine.runOnceAsWorker();
        }
        transport->dropReads();
    }

    /// Receives a message body, as the worker does.
    void receive(const std::string& body) {
        transport->queueFrame(body);
        engine.runOnceAsWorker();
    }

    /// Handles a message body, past the transport.
    void handle(const std::string& body) {
        const Bytes bytes = hex(body);
        const auto* const data = reinterpret_cast<const char*>(bytes.data());
        engine.handleReceivedMessage(RawMessage(data, static_cast<unsigned int>(bytes.size()), RawMessage::DATA));
    }

    int registerParameters(ParameterKind kind, std::size_t first, std::size_t count) {
        const auto number = static_cast<unsigned int>(count);
        return kind == ParameterKind::INPUTS ? engine.registerInputParameters(inputs.data() + first, number)
                                             : engine.registerOutputParameters(outputs.data() + first, number);
    }

    int unregister(ParameterKind kind, const std::vector<std::string>& unregistered) {
        return kind == ParameterKind::INPUTS ? engine.unregisterInputParameters(unregistered)
                                             : engine.unregisterOutputParameters(unregistered);
    }

    int publish(std::size_t first, std::size_t count) {
        return engine.publishParameters(parameters.data() + first, static_cast<unsigned int>(count),
                                        CSClientProtocol::PUBLISH_DEFAULT);
    }

    /// Connects with three inputs and three outputs.
    void connectWithParameters() {
        connect();
        registerParameters(ParameterKind::INPUTS, 0, 3);
        registerParameters(ParameterKind::OUTPUTS, 0, 3);
    }

    void confirm(unsigned int count) {
        receive(confirmation(ParameterKind::INPUTS, count));
        receive(confirmation(ParameterKind::OUTPUTS, count));
    }

    /// The four tables, the connection, the callback interfaces, and the results of operations.
    std::string state() const {
        std::ostringstream all;
        all << "state " << engine.getState() << " version " << engine.getServerVersion() << '/'
            << engine.getProtocolVersion() << " id " << engine.getSimulatorId()
            << "\ninputs: " << testing::PrintToString(engine.inputTable()) << engine.inputIds()
            << "\noutputs: " << testing::PrintToString(engine.outputTable()) << engine.outputIds()
            << "\ninterfaces: " << engine.getNumCallbackInterfaces();
        for (const CountingCallbacks& each : callbacks) {
            all << (engine.hasCallbackInterface(const_cast<CountingCallbacks*>(&each)) ? " yes" : " no");
        }
        all << "\nmessage: " << std::string(message.begin(), message.end())
            << "\nother: " << (otherMessage ? std::string(otherMessage->begin(), otherMessage->end()) : "none")
            << "\nother engine: " << (otherEngine != nullptr) << " client: " << (client != nullptr);
        if (client != nullptr) {
            all << " waiting " << client->getNumberOfUnregisteredInputParameters() << '/'
                << client->getNumberOfUnregisteredOutputParameters();
        }
        all << "\nfound: " << test::text(found) << "\nlisted: " << testing::PrintToString(texts(listed))
            << "\ninterfaces got: " << interfaces.size() << "\ntext: " << text;
        return all.str();
    }

    /// Waits for a state that the worker reaches.
    bool waitFor(CSClient::State state) {
        return waitUntil([this, state] { return engine.getState() == state; }) && engine.waitForStateChange();
    }

    /// @name Bodies of host messages
    /// They confirm the first `count` of the names, or contain values for their ids. The ids begin with 11 for inputs
    /// and 21 for outputs.
    /// @{
    std::string confirmation(ParameterKind kind, unsigned int count) const {
        const bool isInput = kind == ParameterKind::INPUTS;
        std::vector<std::string> records;
        for (unsigned int i = 0; i < count; ++i) {
            records.push_back(isInput ? confirmedInput(11 + i, i, hexWord(9), names[i])
                                      : confirmedOutput(21 + i, names[i]));
        }
        return isInput ? inputConfirmation(count, records) : outputConfirmation(count, records);
    }

    static std::string updateOf(unsigned int count) {
        std::vector<std::string> records;
        for (unsigned int i = 0; i < count; ++i) {
            records.push_back(updated(11 + i, 1, hexWord(5)));
        }
        return update(count, records);
    }

    static std::string versionOf(unsigned int simulatorId) {
        return versionResponse(simulatorId << 16U, std::string(60, 'v'), 42);
    }
    /// @}

    MemoryEngine engine;
    QueuedTransport* const transport = new QueuedTransport;
    std::array<CountingCallbacks, 3> callbacks;

    // Arguments. A string allocates memory for each of the names.
    const std::vector<std::string> names = {std::string(30, 'n') + "C", std::string(30, 'n') + "A",
                                            std::string(30, 'n') + "B"};
    const std::vector<CSClient::InputDef> inputs = {{names[0], 1, 3}, {names[1], 2, 1}, {names[2], 5, 9}};
    const std::vector<CSClient::OutputDef> outputs = {{names[0], 1}, {names[1], 2}, {names[2], 5}};
    const std::vector<CSClient::Parameter> parameters = {intParameter(names[0], 101), intParameter(names[1], 102),
                                                         intParameter(names[2], 103)};

    // Results.
    RawMessage message{RawMessage::DATA};
    std::unique_ptr<RawMessage> otherMessage;
    std::unique_ptr<SimClient> client;
    std::unique_ptr<MemoryEngine> otherEngine;
    CSClient::Parameter found;
    std::vector<CSClient::Parameter> listed;
    std::set<CSClient::CallbackIface*> interfaces;
    std::string text;
};

/// One operation that runs out of memory, and its permitted effects.
///
/// `call` itself allocates nothing. Afterwards either everything is as if memory had sufficed, or nothing has happened,
/// or the state is one of those that `leave` makes. Once there is memory again, `recover` and then `call` lead to the
/// state that they lead to when memory never lacked.
struct MemoryOperation {
    using Step = std::function<void(MemoryFixture& fixture)>;

    std::string name;
    unsigned int options;
    Step prepare;
    std::function<bool(MemoryFixture& fixture)> call;  ///< returns true when it claims success
    unsigned int partialStates = 0;
    /// Brings a prepared fixture into the `number`th partial state, from 0 on.
    std::function<void(MemoryFixture& fixture, unsigned int number)> leave = {};
    Step recover = {};
    bool allocates = true;

    // What a failed test prints.
    friend void PrintTo(const MemoryOperation& printed, std::ostream* stream) { *stream << printed.name; }
};

/// Returns a call that claims success whenever it returns.
inline std::function<bool(MemoryFixture&)> succeedAfter(const MemoryOperation::Step& step) {
    return [step](MemoryFixture& fixture) {
        step(fixture);
        return true;
    };
}

/// What the application calls to change the tables.
std::vector<MemoryOperation> tableOperations();
/// What the worker does.
std::vector<MemoryOperation> workerOperations();
/// Construction, callback interfaces, queries, messages, opening and closing.
std::vector<MemoryOperation> otherOperations();

}  // namespace com_tesk::test
