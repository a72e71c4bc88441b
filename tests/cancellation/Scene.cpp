#include "tests/cancellation/Scene.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <iterator>

#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "comms/Diagnostics.h"

namespace com_tesk::test {

namespace {

LoopbackHost::Options hostOptions(host_test::EventLog& log) {
    LoopbackHost::Options options;
    options.listenAddress = kHostAddress;
    options.eventSink = log.sink();
    return options;
}

}  // namespace

CancellableStreams::CancellableStreams() : previousOut(std::cout.rdbuf(this)), previousErr(std::cerr.rdbuf(this)) {}

CancellableStreams::~CancellableStreams() {
    std::cout.rdbuf(previousOut);
    std::cerr.rdbuf(previousErr);
}

CancellableStreams::int_type CancellableStreams::overflow(int_type character) {
    passCancellationPoint("stream");
    return traits_type::not_eof(character);
}

std::streamsize CancellableStreams::xsputn(const char* /*characters*/, std::streamsize count) {
    passCancellationPoint("stream");
    return count;
}

void CancellableCallbacks::inputParametersUpdated(const std::vector<CSClient::Parameter>& parameters) {
    for (const CSClient::Parameter& parameter : parameters) {
        if (parameter.name.compare(0, 5, "PROBE") == 0) {
            lastProbe = parameter.value.asInt;
        }
    }
}

void LockedEngine::useEveryLock() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
    constexpr std::chrono::seconds kMaxWait{30};
    Parts& engine = engineParts();
    if (!engine.connection.underLockWithin(kMaxWait, [] {})) {
        endBecauseOf("the lock of the connection was left held");
    }
    CSMutex* const mutexes[] = {&parameterMutex(), &PartAccess::namesMutex(PartAccess::inputs(engine.tables)),
                                &PartAccess::namesMutex(PartAccess::outputs(engine.tables)),
                                &PartAccess::callbackMutex(engine.callbacks), &PartAccess::versionMutex(engine.host)};
    for (CSMutex* const mutex : mutexes) {
        if (!mutex->lockWithin(kMaxWait)) {
            endBecauseOf("a lock was left held");
        }
        mutex->unlock();
    }
}

OpenClient::OpenClient(unsigned int optionFlags) : CSClient(optionFlags), inside(new LockedEngine(optionFlags)) {
    engine = inside;
}

CSCommsInterfaceTCP* newTransport(bool isBuffered) {
    if (isBuffered) {
        return new CSCommsInterfaceTCPBuffered;
    }
    return new CSCommsInterfaceTCP(CSCommsInterfaceTCP::Options());
}

std::size_t openDescriptors() {
    // The iteration's own is among them, each time.
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

Scene::Scene(bool isClientBuffered, unsigned int clientOptions)
    : isBuffered(isClientBuffered), options(clientOptions), host(hostOptions(log)) {}

void Scene::makeClient() {
    client = std::make_unique<OpenClient>(options);
    ASSERT_TRUE(client->changeCommsInterface(newTransport(isBuffered)));
    client->addCallbackInterface(&callbacks);
    ASSERT_EQ(client->registerInputParameter({"IN", CSClient::TYPE_INT, 2}), 0);
    ASSERT_EQ(client->registerOutputParameter({"OUT", CSClient::TYPE_INT}), 0);
}

void Scene::connect() {
    ASSERT_EQ(open(), 0);
    ASSERT_TRUE(waitUntil([this] {
        return client->isInputParameterRegistered("IN") && client->isOutputParameterRegistered("OUT");
    })) << client->getConnectionState();
}

void Scene::expectToRegisterPublishAndReceive() {
    const int value = ++probes;
    const std::string name = "PROBE" + std::to_string(value);
    EXPECT_EQ(client->registerInputParameter({name, CSClient::TYPE_INT, 2}), 0);
    EXPECT_EQ(client->registerOutputParameter({name, CSClient::TYPE_INT}), 0);
    ASSERT_TRUE(waitUntil([&] {
        return client->isInputParameterRegistered(name) && client->isOutputParameterRegistered(name);
    })) << "not confirmed in state "
        << client->getConnectionState();
    CSClient::Parameter parameter{name, {}, CSClient::TYPE_INT, 0};
    parameter.value.asInt = value;
    EXPECT_EQ(client->publishParameter(parameter), 0);
    EXPECT_TRUE(waitUntil([&] { return callbacks.lastProbe == value; })) << "nothing received";
}

void Scene::expectNothingIsLeftBehind() {
    client->engineInside().useEveryLock();
    diagnostics::progress({"a line"});
    diagnostics::error({"a line"});
    EXPECT_TRUE(std::cout.good());
    EXPECT_TRUE(std::cerr.good());
    std::cout.clear();
    std::cerr.clear();
}

void Scene::expectToCloseAndOpenAgain() {
    client->engineInside().forceCloseConnection();
    ASSERT_TRUE(waitForState(CSClient::STATE_DISCONNECTED)) << client->getConnectionState();
    ASSERT_EQ(open(), 0);
    expectToRegisterPublishAndReceive();
}

void Scene::expectWholeFrames() {
    EXPECT_FALSE(log.has("malformed"));
    EXPECT_FALSE(log.has("request ignored"));
    if (testing::Test::HasFailure()) {
        for (const std::string& line : log.all()) {
            std::fprintf(stderr, "%s\n", line.c_str());
        }
    }
}

}  // namespace com_tesk::test
