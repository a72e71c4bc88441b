#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "host/Replies.h"
#include "tests/reliability/HostileFixtures.h"

namespace com_tesk::test {
namespace {

constexpr int kSmallBuffer = 2048;
constexpr std::chrono::seconds kPatience{10};

/// A host that reads nothing, and a client whose writes soon block.
class HostThatNeverReads : public testing::TestWithParam<ClientKind> {
  protected:
    HostThatNeverReads() : host([](RudeHost::Guest& guest, int /*number*/) { guest.hold(); }, kSmallBuffer) {
        small.sendBufferSize = kSmallBuffer;
    }

    static std::vector<CSClient::OutputDef> outputs(int count) {
        std::vector<CSClient::OutputDef> definitions;
        for (int i = 0; i < count; ++i) {
            definitions.push_back({"OUT" + std::to_string(i), CSClient::TYPE_FLOAT});
        }
        return definitions;
    }

    RudeHost host;
    CSClient::ConnectionOptions small;
};

TEST_P(HostThatNeverReads, ClosingWhileAPublishIsStuckInAWriteEndsIt) {
    Victim victim(GetParam());
    ASSERT_EQ(victim.open(host, &small), 0);
    ASSERT_TRUE(victim.heard.waitFor("state 2->4"));
    ASSERT_TRUE(victim.client->waitForConnectionState(CSClient::STATE_READY, 5));
    ASSERT_EQ(victim.client->registerOutputParameter({"OUT", CSClient::TYPE_FLOAT}), 0);
    std::atomic<int> published{0};
    auto writing = std::async(std::launch::async, [&] {
        int result = 0;
        while (result == 0 && victim.client->getConnectionState() == CSClient::STATE_READY) {
            result = victim.client->publishParameter(floatValue("OUT", 1.5F));
            ++published;
        }
        return result;
    });
    // Stuck, once no more get through for a while.
    for (int seen = -1; seen != published;) {
        seen = published;
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
    EXPECT_EQ(writing.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    expectQueriesAtOnce(*victim.client);
    EXPECT_EQ(closeInTime(*victim.client), CSClient::STATE_DISCONNECTED);
    ASSERT_EQ(writing.wait_for(kPatience), std::future_status::ready);
    EXPECT_EQ(writing.get(), 2);
    EXPECT_TRUE(victim.isEmpty());
    EXPECT_EQ(victim.heard.states(), "0->1 1->2 2->4 4->3 3->0");
}

TEST_P(HostThatNeverReads, APublishFailsAfterThirtySecondsAndEndsTheConnection) {
    Victim victim(GetParam());
    ASSERT_EQ(victim.open(host, &small), 0);
    ASSERT_TRUE(victim.heard.waitFor("state 2->4"));
    ASSERT_TRUE(victim.client->waitForConnectionState(CSClient::STATE_READY, 5));
    ASSERT_EQ(victim.client->registerOutputParameter({"OUT", CSClient::TYPE_FLOAT}), 0);
    int result = 0;
    double seconds = 0;
    while (result == 0 && seconds < 1.0) {
        seconds = secondsOf([&] { result = victim.client->publishParameter(floatValue("OUT", 1.5F)); });
    }
    EXPECT_EQ(result, 2);
    EXPECT_GT(seconds, 29.0);
    EXPECT_LT(seconds, 30.0 + 2 * kAtOnce);
    EXPECT_TRUE(victim.heard.waitFor("state 3->0"));
    EXPECT_TRUE(eventually([&victim] { return victim.isEmpty(); }));
    EXPECT_EQ(victim.heard.states(), "0->1 1->2 2->4 4->3 3->0");
}

TEST_P(HostThatNeverReads, ClosingWhileReregistrationIsStuckInAWriteKeepsItsBound) {
    Victim victim(GetParam());
    // Far more than what fits into the buffers, so that the first request of the connection does not get through.
    ASSERT_EQ(victim.client->registerOutputParameters(outputs(5000)), 0);
    ASSERT_EQ(victim.open(host, &small), 0);
    ASSERT_TRUE(victim.heard.waitFor("state 2->4"));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    expectQueriesAtOnce(*victim.client);
    // A standard client notes the request, and carries it out when the write is over.
    EXPECT_EQ(closeInTime(*victim.client),
              GetParam().endsAtOnce ? CSClient::STATE_DISCONNECTED : CSClient::STATE_READY);
    host.leave();
    EXPECT_TRUE(eventually([&victim] { return victim.client->getConnectionState() == CSClient::STATE_DISCONNECTED; }));
    EXPECT_TRUE(victim.isEmpty());
    EXPECT_EQ(victim.heard.states(), "0->1 1->2 2->4 4->3 3->0");
}

TEST_P(HostThatNeverReads, ClosingWhileReregistrationIsStuckInAWriteWithReconnectKeepsItsBound) {
    Victim victim(GetParam(), CSClient::OPTION_AUTO_RECONNECT);
    ASSERT_EQ(victim.client->registerOutputParameters(outputs(5000)), 0);
    ASSERT_EQ(victim.open(host, &small), 0);
    ASSERT_TRUE(victim.heard.waitFor("state 2->4"));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    expectQueriesAtOnce(*victim.client);
    // A standard client notes the request, and carries it out when the write is over.
    EXPECT_EQ(closeInTime(*victim.client),
              GetParam().endsAtOnce ? CSClient::STATE_DISCONNECTED : CSClient::STATE_READY);
    host.leave();
    EXPECT_TRUE(eventually([&victim] { return victim.client->getConnectionState() == CSClient::STATE_DISCONNECTED; }));
    EXPECT_TRUE(victim.isEmpty());
    EXPECT_EQ(host.guests(), 1);
}

TEST_P(HostThatNeverReads, ClosingWhileTheWorkerIsStuckInAWriteKeepsItsBound) {
    // Each new simulator id has the worker register everything again, until the buffers are full.
    constexpr unsigned int kIds = 200;
    RudeHost fickle(
        [](RudeHost::Guest& guest, int /*number*/) {
            for (unsigned int id = 100; id < 100 + kIds; ++id) {
                const host::Bytes reply = host::encodeVersionReply(static_cast<std::uint16_t>(id), "fickle host", 1);
                guest.send(reply.data(), reply.size());
            }
            guest.hold();
        },
        kSmallBuffer);
    const CapturedStreams streams;
    Victim victim(GetParam());
    ASSERT_EQ(victim.client->registerOutputParameters(outputs(10)), 0);
    ASSERT_EQ(victim.open(fickle, &small), 0);
    ASSERT_TRUE(victim.heard.waitFor("state 2->4"));
    ASSERT_TRUE(streams.waitForOut("Simulator ID is now 101 "));
    for (std::string seen; seen != streams.out();) {
        seen = streams.out();
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
    ASSERT_EQ(streams.out().find("Simulator ID is now " + std::to_string(100 + kIds - 1)), std::string::npos);
    expectQueriesAtOnce(*victim.client);
    EXPECT_EQ(closeInTime(*victim.client),
              GetParam().endsAtOnce ? CSClient::STATE_DISCONNECTED : CSClient::STATE_DISCONNECTING);
    // Whoever keeps the connection can hold a standard client's worker up for the socket's 30 seconds.
    fickle.leave();
    EXPECT_TRUE(eventually([&victim] { return victim.client->getConnectionState() == CSClient::STATE_DISCONNECTED; }));
    EXPECT_TRUE(victim.isEmpty());
    EXPECT_EQ(victim.heard.states(), "0->1 1->2 2->4 4->3 3->0");
}

INSTANTIATE_TEST_SUITE_P(Client, HostThatNeverReads, testing::ValuesIn(kClientKinds),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
}  // namespace com_tesk::test
