// Hosts that do not read, or that do not read before their answer has left.

#include <atomic>
#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "host/Replies.h"
#include "tests/reliability/AnsweringHost.h"
#include "tests/reliability/ClientUnderTest.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/TestSize.h"

namespace com_tesk::test {
namespace {

constexpr int kSmallBuffer = 2048;

/// A host that reads nothing, and a client whose writes soon block.
class HostThatNeverReads : public testing::TestWithParam<TransportKind> {
  protected:
    HostThatNeverReads() { small.sendBufferSize = kSmallBuffer; }

    static std::vector<CSClient::OutputDef> outputs(int count) {
        std::vector<CSClient::OutputDef> definitions;
        for (int i = 0; i < count; ++i) {
            definitions.push_back({"OUT" + std::to_string(i), CSClient::TYPE_FLOAT});
        }
        return definitions;
    }

    void openWithOutput(const ClientUnderTest& client) const {
        ASSERT_EQ(client.open(host.port(), &small), 0);
        ASSERT_TRUE(client.callbacks.waitFor("state 2->4"));
        ASSERT_TRUE(client->waitForConnectionState(CSClient::STATE_READY, 5));
        ASSERT_EQ(client->registerOutputParameter({"OUT", CSClient::TYPE_FLOAT}), 0);
    }

    /// Closes while the worker is in a blocked write.
    /// @param ofStandard  the state that a standard client then has; the host ends the wait of its worker.
    static void expectToCloseInTime(const ClientUnderTest& client, ConnectionHost& busyHost,
                                    CSClient::State ofStandard) {
        client.expectQueriesAtOnce();
        EXPECT_EQ(client.close(false), GetParam().isBuffered ? CSClient::STATE_DISCONNECTED : ofStandard);
        busyHost.stop();
        EXPECT_TRUE(client.waitForState(CSClient::STATE_DISCONNECTED));
        EXPECT_TRUE(client.isEmpty());
        EXPECT_EQ(client.callbacks.states(), kStatesOfOneConnection);
        EXPECT_EQ(busyHost.connections(), 1);
    }

    /// The first request of the connection does not fit into the buffers.
    void expectToCloseDuringReregistration(unsigned int options) {
        const ClientUnderTest client(GetParam(), options);
        ASSERT_EQ(client->registerOutputParameters(outputs(5000)), 0);
        ASSERT_EQ(client.open(host.port(), &small), 0);
        ASSERT_TRUE(client.callbacks.waitFor("state 2->4"));
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        // A standard client stores the request to close, and performs it after the write.
        expectToCloseInTime(client, host, CSClient::STATE_READY);
    }

    ConnectionHost host{[](HostConnection& connection, int /*number*/) { connection.hold(); }, kSmallBuffer};
    CSClient::ConnectionOptions small;
};

TEST_P(HostThatNeverReads, ClosingEndsABlockedPublish) {
    const ClientUnderTest client(GetParam());
    ASSERT_NO_FATAL_FAILURE(openWithOutput(client));
    std::atomic<int> published{0};
    auto writing = std::async(std::launch::async, [&] {
        int result = 0;
        while (result == 0 && client->getConnectionState() == CSClient::STATE_READY) {
            result = client->publishParameter(floatParameter("OUT", 1.5F));
            ++published;
        }
        return result;
    });
    // The write is blocked when no publish succeeds for half a second.
    for (int seen = -1; seen != published;) {
        seen = published;
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
    EXPECT_EQ(writing.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    client.expectQueriesAtOnce();
    EXPECT_EQ(client.close(false), CSClient::STATE_DISCONNECTED);
    ASSERT_EQ(writing.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(writing.get(), 2);
    EXPECT_TRUE(client.isEmpty());
    EXPECT_EQ(client.callbacks.states(), kStatesOfOneConnection);
}

TEST_P(HostThatNeverReads, APublishFailsAfterThirtySecondsAndEndsTheConnection) {
    const ClientUnderTest client(GetParam());
    ASSERT_NO_FATAL_FAILURE(openWithOutput(client));
    int result = 0;
    double seconds = 0;
    while (result == 0 && seconds < 1.0) {
        seconds = secondsOf([&] { result = client->publishParameter(floatParameter("OUT", 1.5F)); });
    }
    EXPECT_EQ(result, 2);
    EXPECT_GT(seconds, 29.0);
    EXPECT_LT(seconds, 30.0 + 2 * kAtOnce);
    EXPECT_TRUE(client.callbacks.waitFor("state 3->0"));
    EXPECT_TRUE(waitUntil([&client] { return client.isEmpty(); }));
    EXPECT_EQ(client.callbacks.states(), kStatesOfOneConnection);
}

TEST_P(HostThatNeverReads, ClosingDuringABlockedReregistrationKeepsItsBound) {
    expectToCloseDuringReregistration(0);
}

TEST_P(HostThatNeverReads, ClosingDuringABlockedReregistrationPreventsAReconnect) {
    expectToCloseDuringReregistration(kAutoReconnect);
}

TEST_P(HostThatNeverReads, ClosingWhileTheWorkerWritesKeepsItsBound) {
    // For each new simulator id the worker registers everything again, until the buffers are full.
    constexpr std::uint16_t kLastId = 299;
    ConnectionHost hostOfManyIds(
        [](HostConnection& connection, int /*number*/) {
            for (std::uint16_t id = 100; id <= kLastId; ++id) {
                connection.send(host::encodeVersionReply(id, "host of many ids", 1));
            }
            connection.hold();
        },
        kSmallBuffer);
    const CapturedStreams streams;
    const ClientUnderTest client(GetParam());
    ASSERT_EQ(client->registerOutputParameters(outputs(10)), 0);
    ASSERT_EQ(client.open(hostOfManyIds.port(), &small), 0);
    ASSERT_TRUE(client.callbacks.waitFor("state 2->4"));
    ASSERT_TRUE(streams.waitForOut("Simulator ID is now 101 "));
    for (std::string seen; seen != streams.out();) {
        seen = streams.out();
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
    ASSERT_EQ(streams.out().find("Simulator ID is now " + std::to_string(kLastId)), std::string::npos);
    expectToCloseInTime(client, hostOfManyIds, CSClient::STATE_DISCONNECTING);
}

INSTANTIATE_TEST_SUITE_P(Client, HostThatNeverReads, testing::Values(kStandard, kBuffered), nameOf<TransportKind>);

/// A buffered client and a host that answers each request before it reads the next one.
struct AnsweredClient {
    explicit AnsweredClient(const AnsweringHost::Settings& settings,
                            const CSClient::ConnectionOptions* options = nullptr)
        : host(settings) {
        EXPECT_EQ(client->open(kHostAddress, host.port(), options), 0);
        EXPECT_TRUE(client->waitForConnectionState(CSClient::STATE_READY, 10));
    }

    AnsweringHost host;
    const std::unique_ptr<CSClient> client = kBuffered.newClient(7, CSClient::OPTION_SILENT);
};

TEST(HostThatAnswersFirst, DoesNotStopALoopOfPublications) {
    constexpr unsigned int kValues = 1'000;
    std::atomic<std::size_t> updates{0};
    HookedCallbacks callbacks;
    callbacks.onUpdate = [&updates](const auto& parameters) { updates += parameters.size(); };
    AnsweredClient answered({{}, kValues, false, false});
    const AnsweringHost& host = answered.host;
    const auto& client = answered.client;
    client->addCallbackInterface(&callbacks);
    ASSERT_EQ(client->registerInputParameter({"IN", CSClient::TYPE_FLOAT, 1}), 0);
    ASSERT_EQ(client->registerOutputParameter({"OUT", CSClient::TYPE_FLOAT}), 0);
    ASSERT_TRUE(client->waitForInputsToBeRegistered(10));
    ASSERT_TRUE(client->waitForOutputsToBeRegistered(10));
    const std::vector<CSClient::Parameter> values(kValues, floatParameter("OUT", 1.5F));
    std::atomic<bool> isOver{false};
    auto publishing = std::async(std::launch::async, [&] {
        int result = 0;
        while (result == 0 && !isOver) {
            result = client->publishParameters(values);
        }
        return result;
    });
    // A client and a host that wait for each other wait for thirty seconds.
    const auto end = std::chrono::steady_clock::now() + sized(std::chrono::seconds(2), std::chrono::seconds(20));
    bool continues = true;
    while (continues && std::chrono::steady_clock::now() < end) {
        const int before = host.updatesSent();
        continues = waitUntil([&] { return host.updatesSent() >= before + 100; });
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    isOver = true;
    if (!continues) {
        client->close();
    }
    EXPECT_TRUE(continues) << "stopped after " << host.updatesSent() << " updates";
    EXPECT_EQ(publishing.get(), 0);
    EXPECT_TRUE(waitUntil([&] { return updates >= kValues * static_cast<std::size_t>(host.updatesSent()); }))
        << updates << " values of " << host.updatesSent() << " updates";
}

TEST(HostThatAnswersFirst, DoesNotStopRegistrationsThroughSmallBuffers) {
    constexpr int kRegistrations = 100;
    constexpr int kInputs = 100;
    const CSClient::ConnectionOptions small{4'096, 4'096};
    AnsweredClient answered({{}, 1, true, false}, &small);
    const auto& client = answered.client;
    auto registering = std::async(std::launch::async, [&] {
        int failures = 0;
        for (int i = 0; i < kRegistrations; ++i) {
            std::vector<CSClient::InputDef> inputs;
            for (int j = 0; j < kInputs; ++j) {
                inputs.push_back({"IN" + std::to_string(i * kInputs + j), CSClient::TYPE_FLOAT, 1});
            }
            failures += client->registerInputParameters(inputs) == 0 ? 0 : 1;
        }
        return failures;
    });
    const bool hasReturned = registering.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    EXPECT_TRUE(hasReturned) << client->getNumberOfRegisteredInputParameters() << " are registered";
    if (!hasReturned) {
        client->close();
    }
    EXPECT_EQ(registering.get(), 0);
    EXPECT_TRUE(waitUntil([&] { return client->getNumberOfRegisteredInputParameters() == kRegistrations * kInputs; }));
}

}  // namespace
}  // namespace com_tesk::test
