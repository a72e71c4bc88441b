#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "comms/CSThread.h"
#include "host/LoopbackHost.h"
#include "tests/reliability/CancellationPoints.h"
#include "tests/reliability/ClientUnderTest.h"
#include "tests/reliability/RedirectedStreams.h"
#include "tests/support/Hex.h"
#include "tests/support/OpenEngine.h"
#include "tests/support/ScriptedHost.h"

namespace com_tesk::test {

/// A thread of the application, started with `CSThread`, that runs one operation and may be cancelled inside it.
class ApplicationThread {
  public:
    explicit ApplicationThread(std::function<void()> newOperation);
    ApplicationThread(const ApplicationThread&) = delete;
    ApplicationThread& operator=(const ApplicationThread&) = delete;
    ~ApplicationThread() { wait(); }

    /// Set before `start`.
    ThreadScript script;

    void start();
    /// Waits until the thread has ended, at most 30 seconds. Then the program ends.
    void wait();
    void run() {
        start();
        wait();
    }
    /// Ends the thread as an application does.
    void killAndWait() {
        thread.kill();
        wait();
    }
    bool hasReturned() const { return isReturned; }

    /// Describes where the thread has ended.
    std::string text() const;

  private:
    static void* routine(void* self);

    const std::function<void()> operation;
    CSThread thread;
    bool isStarted = false;
    std::atomic<bool> isEnded{false};
    std::atomic<bool> isReturned{false};
};

/// Runs `cancelAt(point)` for each cancellation point from 1 on, until it returns false because the operation has no
/// such point. Every descriptor must be closed afterwards.
void cancelAtEachPoint(const std::function<bool(int point)>& cancelAt);

class LockedEngine : public OpenEngine {
  public:
    using OpenEngine::OpenEngine;

    /// Takes and releases every lock. Ends the program when one is not released within 30 seconds.
    void useEveryLock();
};

/// A client whose engine tests can reach.
class OpenClient : public CSClient {
  public:
    explicit OpenClient(unsigned int options) : CSClient(options), inside(new LockedEngine(1, options)) {
        engine = inside;
    }
    LockedEngine& engineInside() const { return *inside; }

    bool waitForState(State state) const {
        return waitUntil([this, state] { return getConnectionState() == state; });
    }

  private:
    LockedEngine* const inside;
};

/// A client, a host that answers it, and callbacks and streams that contain cancellation points. The client is renewed
/// for each run.
class CancellationFixture {
  public:
    CancellationFixture(const TransportKind& clientKind, unsigned int clientOptions);
    CancellationFixture(const CancellationFixture&) = delete;
    CancellationFixture& operator=(const CancellationFixture&) = delete;

    /// Creates a client and registers an input and an output.
    void makeClient();

    int open(CSClient& opened) const { return opened.open(kHostAddress, host.port(), nullptr); }

    /// Opens, and waits until both parameters are confirmed.
    void connect() const;

    /// Registers an output and an input of the same new name, publishes a value and waits for its update.
    void expectToRegisterPublishAndReceive();

    /// Expects that every lock is free and that both streams work.
    void expectNoLockIsHeld() const;

    /// Ends the connection, opens again and uses the new connection.
    void expectToCloseAndOpenAgain();

    /// Expects that the host has received only whole requests, apart from the end of a stream.
    void expectWholeFrames();

    bool reconnects() const { return (options & CSClient::OPTION_AUTO_RECONNECT) != 0; }
    int connections() const { return connectionCount; }

    const TransportKind kind;
    const unsigned int options;
    HookedCallbacks callbacks;
    const ReservedPort refusingPort;
    std::unique_ptr<OpenClient> client;

  private:
    LoopbackHost::Options hostOptions();

    const RedirectedStreams streams{
        [](const char* /*text*/, std::size_t /*size*/) { passCancellationPoint("stream"); }};
    std::atomic<int> connectionCount{0};
    std::mutex mutex;
    std::string brokenRequests;  // guarded by mutex
    int probes = 0;
    std::atomic<int> lastProbe{0};  ///< the last value received under a name that begins with "PROBE"
    LoopbackHost host;
};

/// A transport that is connected to a peer.
struct TransportPair {
    explicit TransportPair(CSCommsInterfaceTCP* newTransport) : transport(newTransport) {}

    void connect();

    ScriptedHost host;
    std::unique_ptr<CSCommsInterfaceTCP> transport;
    std::unique_ptr<ScriptedHost::Peer> peer;
    RawMessage received{RawMessage::DATA};
};

RawMessage messageOf(const Bytes& bytes);

}  // namespace com_tesk::test
