#pragma once

#include <atomic>
#include <memory>
#include <streambuf>
#include <string>

#include "client/CSClient.h"
#include "host/LoopbackHost.h"
#include "tests/cancellation/ApplicationThread.h"
#include "tests/host/EventLog.h"
#include "tests/reliability/Sockets.h"
#include "tests/support/OpenEngine.h"

namespace com_tesk::test {

/// Takes what std::cout and std::cerr are given. Each insertion is a cancellation point, as a write to a terminal or a
/// file is.
class CancellableStreams : private std::streambuf {
  public:
    CancellableStreams();
    CancellableStreams(const CancellableStreams&) = delete;
    CancellableStreams& operator=(const CancellableStreams&) = delete;
    ~CancellableStreams() override;

  private:
    int_type overflow(int_type character) override;
    std::streamsize xsputn(const char* characters, std::streamsize count) override;

    std::streambuf* previousOut;
    std::streambuf* previousErr;
};

/// Counts values, and contains a cancellation point in each change of state.
class CancellableCallbacks : public CSClient::CallbackIface {
  public:
    void connectionStateChanged(CSClient::State /*old*/, CSClient::State /*now*/) override {
        passCancellationPoint("callback");
    }
    void inputParametersUpdated(const std::vector<CSClient::Parameter>& parameters) override;
    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>& /*outputs*/) override {}
    void inputParametersConfirmed(const std::vector<CSClient::InputDef>& /*inputs*/) override {}

    /// The integer that arrived last under a name that begins with "PROBE".
    std::atomic<int> lastProbe{0};
};

/// The engine of a client, with its locks in reach.
class LockedEngine : public OpenEngine {
  public:
    explicit LockedEngine(unsigned int optionFlags) : OpenEngine(1, optionFlags) {}

    /// Takes and releases every lock; ends the program when one is not released within 30 seconds.
    void useEveryLock();
};

class OpenClient : public CSClient {
  public:
    explicit OpenClient(unsigned int optionFlags);
    LockedEngine& engineInside() const { return *inside; }

  private:
    LockedEngine* const inside;
};

/// A transport by kind.
CSCommsInterfaceTCP* newTransport(bool isBuffered);

/// The descriptors that the process has open.
std::size_t openDescriptors();

/// A client, a host that answers it, and callbacks and streams that contain cancellation points. The client is renewed
/// for each run; the host stays.
class Scene {
  public:
    Scene(bool isClientBuffered, unsigned int clientOptions);
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    /// A new client, with an input and an output registered.
    void makeClient();
    void dropClient() { client.reset(); }

    int open() { return client->open(kHostAddress, host.port(), nullptr); }

    /// Opens, and waits until both parameters are confirmed.
    void connect();

    /// Registers an output and an input of the same new name, publishes a value, and waits until the host has handed it
    /// back.
    void expectToRegisterPublishAndReceive();

    /// What holds after each cancellation, with or without a connection.
    void expectNothingIsLeftBehind();

    /// Ends the connection, opens again and uses the new connection.
    void expectToCloseAndOpenAgain();

    /// Whether all that the host has received were whole requests, apart from the end of a stream.
    void expectWholeFrames();

    bool waitForState(CSClient::State wanted) { return test::waitForState(client->engineInside(), wanted); }
    bool reconnects() const { return (options & CSClient::OPTION_AUTO_RECONNECT) != 0; }
    /// Connections that the host has seen.
    std::size_t connections() { return log.count(" connected from "); }

    const bool isBuffered;
    const unsigned int options;
    CancellableStreams streams;
    CancellableCallbacks callbacks;
    host_test::EventLog log;
    LoopbackHost host;
    /// Refuses connections.
    ReservedPort refusing;
    std::unique_ptr<OpenClient> client;

  private:
    int probes = 0;
};

}  // namespace com_tesk::test
