#pragma once

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "comms/AtScopeEnd.h"
#include "comms/CSThread.h"
#include "comms/Diagnostics.h"
#include "host/LoopbackHost.h"
#include "tests/reliability/CancellationPoints.h"
#include "tests/reliability/ClientUnderTest.h"
#include "tests/reliability/RedirectedStreams.h"
#include "tests/reliability/Stress.h"
#include "tests/support/ClientOf.h"
#include "tests/support/Hex.h"
#include "tests/support/MessageOf.h"
#include "tests/support/OpenEngine.h"

namespace com_tesk::test {

constexpr std::chrono::seconds kMaxWait{30};

/// With a lock that is never released, or a thread that never ends, a test could not even clean up.
[[noreturn]] inline void endProgram(const char* line) {
    std::fprintf(stderr, "%s\n", line);
    std::_Exit(EXIT_FAILURE);
}

/// A thread of the application, started with `CSThread`, that runs one operation and may be cancelled inside it.
class ApplicationThread {
  public:
    explicit ApplicationThread(std::function<void()> newOperation) : operation(std::move(newOperation)) {}
    ApplicationThread(const ApplicationThread&) = delete;
    ApplicationThread& operator=(const ApplicationThread&) = delete;
    ~ApplicationThread() { wait(); }

    /// Set before `start`.
    ThreadScript script;

    void start() {
        isStarted = true;
        if (!thread.create(&ApplicationThread::routine, this)) {
            endProgram("no thread");
        }
    }
    /// Waits until the thread has ended, at most 30 seconds. Then the program ends.
    void wait() {
        if (isStarted && !waitUntil([this] { return isEnded.load(); }, kMaxWait)) {
            endProgram("the thread does not end");
        }
        // Without effect on a thread that was killed, because that one is detached.
        thread.waitForThread();
    }
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
    std::string text() const {
        return std::string(isReturned ? "returned after " : "cancelled at ") + script.lastPoint;
    }

  private:
    static void* routine(void* self) {
        auto& own = *static_cast<ApplicationThread*>(self);
        const AtScopeEnd end([&own] { own.isEnded = true; });
        const ScriptedThread scripted(own.script);
        own.operation();
        own.isReturned = true;
        return nullptr;
    }

    const std::function<void()> operation;
    CSThread thread;
    bool isStarted = false;
    std::atomic<bool> isEnded{false};
    std::atomic<bool> isReturned{false};
};

/// Runs `cancelAt(point)` for each cancellation point from 1 on, until it returns false because the operation has no
/// such point. Every descriptor must be closed afterwards.
inline void cancelAtEachPoint(const std::function<bool(int point)>& cancelAt) {
    constexpr int kMaxPoints = 100;  // Far more than any operation has.
    const std::size_t descriptors = ResourceUsage::now().descriptors;
    int point = 1;
    while (point < kMaxPoints && cancelAt(point) && !testing::Test::HasFailure()) {
        ++point;
    }
    EXPECT_LT(point, kMaxPoints);
    EXPECT_FALSE(testing::Test::HasFailure()) << "at cancellation point " << point;
    EXPECT_TRUE(waitUntil([descriptors] { return ResourceUsage::now().descriptors == descriptors; }))
        << descriptors << " descriptors before, " << ResourceUsage::now().descriptors << " now";
    testing::Test::RecordProperty("points", point - 1);
}

class LockedEngine : public OpenEngine {
  public:
    using OpenEngine::OpenEngine;

    /// Takes and releases every lock. Ends the program when one is not released within 30 seconds.
    void useEveryLock() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
        if (!waitForStateChange(kMaxWait)) {
            endProgram("the lock of the connection is still held");
        }
        Parts& engine = engineParts();
        for (CSMutex* const mutex :
             {&parameterMutex(), &PartAccess::namesMutex(PartAccess::inputs(engine.tables)),
              &PartAccess::namesMutex(PartAccess::outputs(engine.tables)), &PartAccess::callbackMutex(engine.callbacks),
              &PartAccess::versionMutex(engine.host)}) {
            if (!mutex->lockWithin(kMaxWait)) {
                endProgram("a lock is still held");
            }
            mutex->unlock();
        }
    }
};

class OpenClient : public ClientOf<LockedEngine> {
  public:
    using ClientOf::ClientOf;

    bool waitForState(State state) const {
        return waitUntil([this, state] { return getConnectionState() == state; });
    }
};

/// A client, a host that answers it, and callbacks and streams that contain cancellation points. The client is renewed
/// for each run.
class CancellationFixture {
  public:
    CancellationFixture(const TransportKind& clientKind, unsigned int clientOptions)
        : kind(clientKind), options(clientOptions), host(hostOptions()) {
        callbacks.onStateChange = [](auto, auto) { passCancellationPoint("callback"); };
        callbacks.onUpdate = [this](const std::vector<CSClient::Parameter>& parameters) {
            for (const CSClient::Parameter& parameter : parameters) {
                if (parameter.name.compare(0, 5, "PROBE") == 0) {
                    lastProbe = parameter.value.asInt;
                }
            }
        };
    }
    CancellationFixture(const CancellationFixture&) = delete;
    CancellationFixture& operator=(const CancellationFixture&) = delete;

    /// Creates a client and registers an input and an output.
    void makeClient() {
        client = std::make_unique<OpenClient>(options);
        ASSERT_TRUE(client->changeCommsInterface(kind.newTransport()));
        client->addCallbackInterface(&callbacks);
        registerBoth("IN", "OUT");
    }

    int open(CSClient& opened) const { return opened.open(kHostAddress, host.port(), nullptr); }

    /// Opens, and waits until both parameters are confirmed.
    void connect() const {
        ASSERT_EQ(open(*client), 0);
        expectConfirmed("IN", "OUT");
    }

    /// Registers an output and an input of the same new name, publishes a value and waits for its update.
    void expectToRegisterPublishAndReceive() {
        const int value = ++probes;
        const std::string name = "PROBE" + std::to_string(value);
        registerBoth(name, name);
        ASSERT_NO_FATAL_FAILURE(expectConfirmed(name, name));
        EXPECT_EQ(client->publishParameter(intParameter(name, value)), 0);
        EXPECT_TRUE(waitUntil([&] { return lastProbe == value; })) << "nothing received";
    }

    /// Expects that every lock is free and that both streams work.
    void expectNoLockIsHeld() const {
        client->probed->useEveryLock();
        diagnostics::progress({"a line"});
        diagnostics::error({"a line"});
        EXPECT_TRUE(std::cout.good());
        EXPECT_TRUE(std::cerr.good());
        std::cout.clear();
        std::cerr.clear();
    }

    /// Ends the connection, opens again and uses the new connection.
    void expectToCloseAndOpenAgain() {
        client->probed->forceCloseConnection();
        ASSERT_TRUE(client->waitForState(CSClient::STATE_DISCONNECTED)) << client->getConnectionState();
        ASSERT_EQ(open(*client), 0);
        expectToRegisterPublishAndReceive();
    }

    /// Expects that the host has received only whole requests, apart from the end of a stream.
    void expectWholeFrames() {
        const std::lock_guard<std::mutex> lock(mutex);
        EXPECT_EQ(brokenRequests, "");
    }

    bool reconnects() const { return (options & CSClient::OPTION_AUTO_RECONNECT) != 0; }
    int connections() const { return connectionCount; }

    const TransportKind kind;
    const unsigned int options;
    HookedCallbacks callbacks;
    const ReservedPort refusingPort;
    std::unique_ptr<OpenClient> client;

  private:
    LoopbackHost::Options hostOptions() {
        LoopbackHost::Options hostOptions;
        hostOptions.listenAddress = kHostAddress;
        hostOptions.eventSink = [this](const HostEvent& event) {
            connectionCount += event.kind == HostEvent::Kind::CONNECTED ? 1 : 0;
            const std::string text = describe(event);
            if (event.kind == HostEvent::Kind::REQUEST_IGNORED || text.find("malformed") != std::string::npos) {
                const std::lock_guard<std::mutex> lock(mutex);
                brokenRequests += text + '\n';
            }
        };
        return hostOptions;
    }

    void registerBoth(const std::string& input, const std::string& output) const {
        EXPECT_EQ(client->registerInputParameter({input, CSClient::TYPE_INT, 2}), 0);
        EXPECT_EQ(client->registerOutputParameter({output, CSClient::TYPE_INT}), 0);
    }

    void expectConfirmed(const std::string& input, const std::string& output) const {
        ASSERT_TRUE(waitUntil([&] {
            return client->isInputParameterRegistered(input) && client->isOutputParameterRegistered(output);
        })) << "not confirmed in state "
            << client->getConnectionState();
    }

    const RedirectedStreams streams{
        [](const char* /*text*/, std::size_t /*size*/) { passCancellationPoint("stream"); }};
    std::atomic<int> connectionCount{0};
    std::mutex mutex;
    std::string brokenRequests;  // guarded by mutex
    int probes = 0;
    std::atomic<int> lastProbe{0};  ///< the last value received under a name that begins with "PROBE"
    LoopbackHost host;
};

}  // namespace com_tesk::test
