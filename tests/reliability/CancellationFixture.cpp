#include "tests/reliability/CancellationFixture.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "comms/AtScopeEnd.h"
#include "comms/Diagnostics.h"
#include "tests/reliability/ResourceUsage.h"

namespace com_tesk::test {

namespace {

constexpr std::chrono::seconds kMaxWait{30};

/// With a lock that is never released, or a thread that never ends, a test could not even clean up.
[[noreturn]] void endProgram(const char* line) {
    std::fprintf(stderr, "%s\n", line);
    std::_Exit(EXIT_FAILURE);
}

}  // namespace

ApplicationThread::ApplicationThread(std::function<void()> newOperation) : operation(std::move(newOperation)) {}

void ApplicationThread::start() {
    isStarted = true;
    if (!thread.create(&ApplicationThread::routine, this)) {
        endProgram("no thread");
    }
}

void ApplicationThread::wait() {
    if (isStarted && !waitUntil([this] { return isEnded.load(); }, kMaxWait)) {
        endProgram("the thread does not end");
    }
    // Without effect on a thread that was killed, because that one is detached.
    thread.waitForThread();
}

std::string ApplicationThread::text() const {
    return std::string(isReturned ? "returned after " : "cancelled at ") + script.lastPoint;
}

void* ApplicationThread::routine(void* self) {
    auto& own = *static_cast<ApplicationThread*>(self);
    const AtScopeEnd end([&own] { own.isEnded = true; });
    const ScriptedThread scripted(own.script);
    own.operation();
    own.isReturned = true;
    return nullptr;
}

void cancelAtEachPoint(const std::function<bool(int point)>& cancelAt) {
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

void LockedEngine::useEveryLock() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
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

CancellationFixture::CancellationFixture(const TransportKind& clientKind, unsigned int clientOptions)
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

LoopbackHost::Options CancellationFixture::hostOptions() {
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

void CancellationFixture::makeClient() {
    client = std::make_unique<OpenClient>(options);
    ASSERT_TRUE(client->changeCommsInterface(kind.newTransport()));
    client->addCallbackInterface(&callbacks);
    ASSERT_EQ(client->registerInputParameter({"IN", CSClient::TYPE_INT, 2}), 0);
    ASSERT_EQ(client->registerOutputParameter({"OUT", CSClient::TYPE_INT}), 0);
}

void CancellationFixture::connect() const {
    ASSERT_EQ(open(*client), 0);
    ASSERT_TRUE(waitUntil([this] {
        return client->isInputParameterRegistered("IN") && client->isOutputParameterRegistered("OUT");
    })) << client->getConnectionState();
}

void CancellationFixture::expectToRegisterPublishAndReceive() {
    const int value = ++probes;
    const std::string name = "PROBE" + std::to_string(value);
    EXPECT_EQ(client->registerInputParameter({name, CSClient::TYPE_INT, 2}), 0);
    EXPECT_EQ(client->registerOutputParameter({name, CSClient::TYPE_INT}), 0);
    ASSERT_TRUE(waitUntil([&] {
        return client->isInputParameterRegistered(name) && client->isOutputParameterRegistered(name);
    })) << "not confirmed in state "
        << client->getConnectionState();
    EXPECT_EQ(client->publishParameter(intValue(name, value)), 0);
    EXPECT_TRUE(waitUntil([&] { return lastProbe == value; })) << "nothing received";
}

void CancellationFixture::expectNoLockIsHeld() const {
    client->engineInside().useEveryLock();
    diagnostics::progress({"a line"});
    diagnostics::error({"a line"});
    EXPECT_TRUE(std::cout.good());
    EXPECT_TRUE(std::cerr.good());
    std::cout.clear();
    std::cerr.clear();
}

void CancellationFixture::expectToCloseAndOpenAgain() {
    client->engineInside().forceCloseConnection();
    ASSERT_TRUE(client->waitForState(CSClient::STATE_DISCONNECTED)) << client->getConnectionState();
    ASSERT_EQ(open(*client), 0);
    expectToRegisterPublishAndReceive();
}

void CancellationFixture::expectWholeFrames() {
    const std::lock_guard<std::mutex> lock(mutex);
    EXPECT_EQ(brokenRequests, "");
}

void TransportPair::connect() {
    ASSERT_TRUE(transport->openConnection(ScriptedHost::address(), host.port()));
    peer = host.accept();
    ASSERT_TRUE(peer);
}

RawMessage messageOf(const Bytes& bytes) {
    RawMessage message(RawMessage::DATA);
    message.insert(message.end(), bytes.begin(), bytes.end());
    return message;
}

}  // namespace com_tesk::test
