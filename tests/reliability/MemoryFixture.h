#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "client/SimClient.h"
#include "tests/reliability/ClientUnderTest.h"
#include "tests/reliability/RedirectedStreams.h"
#include "tests/support/OpenEngine.h"

namespace com_tesk::test {

// Nothing here allocates while an operation runs, so that only allocations of the library fail.

/// A transport without a socket. Every connect succeeds, reads return what the test has queued and then the end of the
/// stream, and writes are recorded.
class QueuedTransport : public CSCommsInterfaceTCP {
  public:
    QueuedTransport() : CSCommsInterfaceTCP(Options()) { written.reserve(100'000); }

    /// Queues a data frame around a body.
    void queueFrame(const std::string& body);

    bool openConnection(unsigned int /*address*/, unsigned int /*port*/) override { return true; }
    int readMessage(unsigned int count, RawMessage& message) override;
    int writeMessage(const RawMessage& message) override;
    int close() override { return 0; }

    void dropReads() { nextRead = reads.size(); }

    std::string written;
    bool staysOpen = false;  ///< Reads time out instead of ending, once everything queued is read.
    bool failNextWrite = false;

  private:
    std::vector<std::string> reads;
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
    bool runOnceAsWorker();

    HostVersion& hostVersion() const { return engineParts().host; }
};

enum class ParameterKind { INPUTS, OUTPUTS };

/// One engine, the arguments and results of operations, and the operations that tests of both kinds of parameters call.
class MemoryFixture {
  public:
    explicit MemoryFixture(unsigned int options);
    MemoryFixture(const MemoryFixture&) = delete;
    MemoryFixture& operator=(const MemoryFixture&) = delete;
    ~MemoryFixture();

    /// Connects, as the worker does.
    void connect();
    /// Connects when the connection is lost.
    void reconnect();
    /// Receives a message body, as the worker does.
    void receive(const std::string& body);

    int registerParameters(ParameterKind kind, std::size_t first, std::size_t count);
    int unregister(ParameterKind kind, const std::vector<std::string>& unregistered);
    int publish(std::size_t first, std::size_t count);

    /// Connects with three inputs and three outputs.
    void connectWithParameters();
    void confirm(unsigned int count);

    /// The four tables, the connection, the callback interfaces, and the results of operations.
    std::string state() const;

    /// Waits for a state that the worker reaches.
    bool waitFor(CSClient::State state);

    /// @name Bodies of host messages
    /// They confirm the first `count` of the names, or contain values for their ids. The ids begin with 11 for inputs
    /// and 21 for outputs.
    /// @{
    std::string confirmation(ParameterKind kind, unsigned int count) const;
    static std::string update(unsigned int count);
    static std::string versionResponse(unsigned int simulatorId);
    /// @}

    MemoryEngine engine;
    QueuedTransport* transport;
    std::array<CountingCallbacks, 3> callbacks;

    // Arguments. A string allocates memory for each of the names.
    const std::vector<std::string> names;
    std::vector<CSClient::InputDef> inputs;
    std::vector<CSClient::OutputDef> outputs;
    std::vector<CSClient::Parameter> parameters;

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
