#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <set>
#include <streambuf>
#include <string>
#include <vector>

#include "client/SimClient.h"
#include "comms/CSCommsInterfaceTCP.h"
#include "tests/support/OpenEngine.h"

namespace com_tesk::test {

// Nothing here allocates while an operation runs: what it fails of must be the library's.

/// A transport without a socket: every connect succeeds, reads give what has been queued and then the end of the
/// stream, writes are written down.
class QuietTransport : public CSCommsInterfaceTCP {
  public:
    QuietTransport() : CSCommsInterfaceTCP(Options()) { written.reserve(100'000); }

    /// Queues a data frame around a body.
    void queueFrame(const std::string& body);

    bool openConnection(unsigned int /*address*/, unsigned int /*port*/) override { return true; }
    int readMessage(unsigned int count, RawMessage& message) override;
    int writeMessage(const RawMessage& message) override;
    int close() override { return 0; }

    /// What is queued is never read.
    void dropReads() { nextRead = reads.size(); }

    /// All bytes written.
    std::string written;
    /// Reads find nothing rather than the end of the stream, once what has been queued is read.
    bool staysOpen = false;
    bool failNextWrite = false;

  private:
    std::vector<std::string> reads;
    std::size_t nextRead = 0;
};

/// Counts its calls.
class CountingCallbacks : public CSClient::CallbackIface {
  public:
    void connectionStateChanged(CSClient::State /*old*/, CSClient::State /*now*/) override { ++stateChanges; }
    void inputParametersUpdated(const std::vector<CSClient::Parameter>& parameters) override {
        updated += parameters.size();
    }
    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>& outputs) override {
        ++outputConfirmations;
        outputsConfirmed += outputs.size();
    }
    void inputParametersConfirmed(const std::vector<CSClient::InputDef>& inputs) override {
        inputsConfirmed += inputs.size();
    }

    std::atomic<std::size_t> stateChanges{0};
    std::atomic<std::size_t> updated{0};
    std::atomic<std::size_t> outputConfirmations{0};
    std::atomic<std::size_t> outputsConfirmed{0};
    std::atomic<std::size_t> inputsConfirmed{0};
};

/// An engine that the test's thread runs as the worker does.
class MemoryEngine : public OpenEngine {
  public:
    explicit MemoryEngine(unsigned int optionFlags) : OpenEngine(1, optionFlags) {}

    /// As the worker does it: memory that runs out in a turn ends the connection.
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

/// One engine, all that an operation takes and gives back, and what is printed meanwhile.
class Scene {
  public:
    explicit Scene(unsigned int options);
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;
    /// Ends the connection first.
    ~Scene();

    /// Connects, as the worker does it.
    void connect() {
        engine.beginConnecting();
        engine.runOnceAsWorker();
    }

    /// Hands over a host message as the body of a frame, as the worker does it.
    void receive(const std::string& body) {
        transport->queueFrame(body);
        engine.runOnceAsWorker();
    }

    void registerInputs(std::size_t count) {
        engine.registerInputParameters(inputs.data(), static_cast<unsigned int>(count));
    }
    void registerOutputs(std::size_t count) {
        engine.registerOutputParameters(outputs.data(), static_cast<unsigned int>(count));
    }

    /// The four tables, the connection, the callback interfaces, and what operations have given back.
    std::string state() const;

    /// Waits for a state that the worker brings about.
    bool waitFor(CSClient::State state);

    MemoryEngine engine;
    QuietTransport* transport;
    CountingCallbacks callbacks[3];

    // Arguments. Names are longer than what a string keeps without an allocation.
    const std::vector<CSClient::InputDef> inputs;
    const std::vector<CSClient::OutputDef> outputs;
    const std::vector<std::string> names;
    std::vector<CSClient::Parameter> parameters;

    // What operations give back.
    RawMessage message{RawMessage::DATA};
    std::unique_ptr<RawMessage> otherMessage;
    std::unique_ptr<SimClient> client;
    std::unique_ptr<MemoryEngine> otherEngine;
    CSClient::Parameter found;
    std::vector<CSClient::Parameter> listed;
    std::set<CSClient::CallbackIface*> interfaces;
    std::string text;
};

/// What std::cout and std::cerr are given, from construction to destruction, in room that is there from the beginning.
class PrintedLines : private std::streambuf {
  public:
    PrintedLines();
    PrintedLines(const PrintedLines&) = delete;
    PrintedLines& operator=(const PrintedLines&) = delete;
    ~PrintedLines() override;

    std::string text() const { return {room, used}; }

  private:
    int_type overflow(int_type character) override;

    char room[4096] = {};
    std::size_t used = 0;
    std::streambuf* previousOut;
    std::streambuf* previousErr;
};

/// Bodies of host messages: each confirms the first `count` of the scene's names, or brings values for the ids given to
/// them, which begin with 11 for inputs and 21 for outputs.
std::string inputsConfirmed(const Scene& scene, std::size_t count);
std::string outputsConfirmed(const Scene& scene, std::size_t count);
std::string inputsUpdated(std::size_t count);
std::string versionResponse(unsigned int simulatorId);

}  // namespace com_tesk::test
