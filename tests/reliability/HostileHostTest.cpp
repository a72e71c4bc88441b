#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <string>
#include <thread>

#include "host/Replies.h"
#include "tests/reliability/HostileFixtures.h"
#include "tests/reliability/Levels.h"
#include "tests/reliability/SideBySide.h"
#include "tests/support/Seed.h"
#include "tests/support/TestSize.h"

namespace com_tesk::test {
namespace {

constexpr unsigned int kReconnect = CSClient::OPTION_AUTO_RECONNECT;

class HostileHost : public testing::TestWithParam<ClientKind> {
  protected:
    HostileHost() { boundTheAllocator(); }
};

/// A callback that takes its time.
class SlowCallbacks : public RecordingCallbacks {
  public:
    std::atomic<int> updates{0};

  protected:
    void record(const std::string& line) override {
        if (line.compare(0, 7, "updated") == 0) {
            ++updates;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            return;
        }
        RecordingCallbacks::record(line);
    }
};

TEST_P(HostileHost, ThatStallsInMidFrameHoldsUpNobodyButTheEndOfTheConnection) {
    // Within each word of the header, at its end, and within each part of the body of a version response.
    const std::size_t stalls[] = {1, 3, 4, 7, 8, 11, 12, 15, 16, 31, 32, 33, 43, 44, 48, 100, 180, 183};
    const auto stallAfter = [](std::size_t bytes) -> std::string {
        const host::Bytes reply = host::encodeVersionReply(7, "stalling host", 1);
        std::atomic<bool> isStalled{false};
        RudeHost host([&](RudeHost::Guest& guest, int /*number*/) {
            guest.send(reply.data(), bytes);
            isStalled = true;
            guest.hold();
        });
        Victim victim(GetParam());
        if (victim.open(host) != 0 || !eventually([&isStalled] { return isStalled.load(); }) ||
            !victim.heard.waitFor("state 2->4")) {
            return "did not begin";
        }
        // The standard transport takes a part of a header for an error. The tables are emptied at the end of the connection,
        // so it must not come between registering and publishing.
        if (!GetParam().endsAtOnce && bytes < 32 &&
            !eventually([&victim] { return victim.client->getConnectionState() == CSClient::STATE_DISCONNECTED; })) {
            return "does not end";
        }
        expectAllQueriesAtOnce(*victim.client);
        expectPublishingAtOnce(*victim.client, "OUT");
        const CSClient::State state = closeInTime(*victim.client, GetParam());
        if (state != CSClient::STATE_DISCONNECTED &&
            (state != CSClient::STATE_DISCONNECTING || GetParam().endsAtOnce)) {
            return "close gave " + std::to_string(state);
        }
        expectAllQueriesAtOnce(*victim.client);
        // A standard client's worker may be waiting for the rest of the frame, for as long as the host keeps the
        // connection.
        host.leave();
        if (!eventually([&victim] { return victim.client->getConnectionState() == CSClient::STATE_DISCONNECTED; })) {
            return "never ends";
        }
        const std::string states = victim.heard.states();
        return victim.isEmpty() && states == "0->1 1->2 2->4 4->3 3->0" ? "" : "states " + states;
    };
    EXPECT_EQ(sideBySide(std::size(stalls), std::size(stalls),
                         [&](std::size_t index) {
                             const std::string complaint = stallAfter(stalls[index]);
                             return complaint.empty() ? "" : std::to_string(stalls[index]) + " bytes: " + complaint;
                         }),
              "");
}

TEST_P(HostileHost, ThatSendsUpdatesFasterThanCallbacksRunFillsNoMemory) {
    const host::Bytes version = host::encodeVersionReply(7, "flooding host", 1);
    const host::Bytes confirmation = host::encodeInputsReply(7, {{1, 12000, 12000, HostValue::real(0), "IN"}});
    const host::Bytes update = host::encodeUpdate(7, {{1, HostValue::real(1.5F)}});
    RudeHost host([&](RudeHost::Guest& guest, int /*number*/) {
        guest.send(version.data(), version.size());
        guest.send(confirmation.data(), confirmation.size());
        while (guest.send(update.data(), update.size()) && guest.isWanted()) {
            guest.drop(0);
        }
    });
    SlowCallbacks slow;
    Victim victim(GetParam());
    victim.client->addCallbackInterface(&slow);
    victim.client->registerInputParameter({"IN", CSClient::TYPE_FLOAT, 1});
    ASSERT_EQ(victim.open(host), 0);
    ASSERT_TRUE(eventually([&slow] { return slow.updates > 20; }));
    victim.client->removeCallbackInterface(&victim.heard);  // It keeps every line.
    const Levels before = Levels::now();
    const int updatesBefore = slow.updates;
    for (int i = 0; i < 20; ++i) {
        expectAllQueriesAtOnce(*victim.client);
        expectPublishingAtOnce(*victim.client, "OUT" + std::to_string(i));
        std::this_thread::sleep_for(std::chrono::milliseconds(sized(50, 1500)));
    }
    EXPECT_EQ(growth(before, Levels::now()), "");
    EXPECT_GT(slow.updates, updatesBefore);
    EXPECT_EQ(closeInTime(*victim.client, GetParam()), CSClient::STATE_DISCONNECTED);
    EXPECT_TRUE(victim.isEmpty());
}

TEST_P(HostileHost, ThatAssignsAnotherSimulatorIdForEverCanBeLeft) {
    // The lines about new ids are printed in silent mode too.
    const CapturedStreams streams;
    RudeHost host([](RudeHost::Guest& guest, int /*number*/) {
        for (unsigned int id = 0; guest.isWanted(); id = (id + 1) % 40000) {
            const host::Bytes reply = host::encodeVersionReply(static_cast<std::uint16_t>(id), "fickle host", 1);
            if (!guest.send(reply.data(), reply.size()) || !guest.drop(0)) {
                return;
            }
        }
    });
    Victim victim(GetParam(), kReconnect);
    victim.client->registerInputParameters({{"IN", CSClient::TYPE_FLOAT, 1}, {"IN2", CSClient::TYPE_INT, 2}});
    victim.client->registerOutputParameters({{"KEPT", CSClient::TYPE_FLOAT}});
    ASSERT_EQ(victim.open(host), 0);
    ASSERT_TRUE(streams.waitForOut("Simulator ID is now 100 "));
    for (int i = 0; i < 20; ++i) {
        expectAllQueriesAtOnce(*victim.client);
        expectPublishingAtOnce(*victim.client, "OUT");
    }
    // While inputs are rebuilt, none is there.
    EXPECT_TRUE(eventually([&victim] { return victim.client->getNumberOfUnregisteredInputParameters() == 2; }));
    EXPECT_EQ(victim.client->getNumberOfUnregisteredOutputParameters(), 1);
    EXPECT_EQ(closeInTime(*victim.client, GetParam()), CSClient::STATE_DISCONNECTED);
    EXPECT_TRUE(victim.isEmpty());
    EXPECT_EQ(victim.heard.states(), "0->1 1->2 2->4 4->3 3->0");
}

TEST_P(HostileHost, ThatSendsGarbageForEverIsLeftAndTriedAgainOnceASecond) {
    const std::uint64_t seed = newSeed();
    RudeHost host([seed](RudeHost::Guest& guest, int number) {
        std::mt19937_64 random(seed + static_cast<unsigned int>(number));
        std::uint64_t garbage[64];
        do {
            for (std::uint64_t& word : garbage) {
                word = random();
            }
        } while (guest.send(garbage, sizeof garbage) && guest.drop(0));
    });
    Victim victim(GetParam(), kReconnect);
    ASSERT_EQ(victim.open(host), 0);
    ASSERT_TRUE(victim.heard.waitFor("state 5->1"));
    const Levels before = Levels::now();
    ASSERT_TRUE(victim.heard.waitFor("state 5->1", 3));
    expectAllQueriesAtOnce(*victim.client);
    EXPECT_EQ(victim.client->registerOutputParameter({"OUT", CSClient::TYPE_FLOAT}), 0);
    EXPECT_EQ(growth(before, settledLevels(before)), "");
    EXPECT_EQ(closeInTime(*victim.client, GetParam()), CSClient::STATE_DISCONNECTED);
    EXPECT_TRUE(victim.isEmpty());
}

TEST_P(HostileHost, ThatSendsGarbageEndsAClientWithoutReconnect) {
    const std::uint64_t seed = newSeed();
    RudeHost host([seed](RudeHost::Guest& guest, int /*number*/) {
        std::mt19937_64 random(seed);
        std::uint64_t garbage[64];
        for (std::uint64_t& word : garbage) {
            word = random();
        }
        guest.send(garbage, sizeof garbage);
        guest.hold();
    });
    Victim victim(GetParam());
    ASSERT_EQ(victim.open(host), 0);
    ASSERT_TRUE(victim.heard.waitFor("state 3->0"));
    EXPECT_EQ(victim.heard.states(), "0->1 1->2 2->4 4->3 3->0");
}

TEST_P(HostileHost, ThatSaysNothingLeavesEverythingWaitingAndCanBeLeft) {
    RudeHost host([](RudeHost::Guest& guest, int /*number*/) {
        while (guest.drop(100)) {
        }
    });
    Victim victim(GetParam(), kReconnect);
    ASSERT_EQ(victim.open(host), 0);
    ASSERT_TRUE(victim.heard.waitFor("state 2->4"));
    EXPECT_EQ(victim.client->registerInputParameter({"IN", CSClient::TYPE_FLOAT, 1}), 0);
    EXPECT_EQ(victim.client->registerOutputParameter({"KEPT", CSClient::TYPE_FLOAT}), 0);
    EXPECT_EQ(victim.client->publishParameter(floatValue("KEPT", 2.5F)), 0);
    expectPublishingAtOnce(*victim.client, "OUT");
    EXPECT_FALSE(victim.client->waitForInputsToBeRegistered(1));
    expectAllQueriesAtOnce(*victim.client);
    EXPECT_EQ(victim.client->getServerVersion(), "UNKNOWN");
    EXPECT_EQ(closeInTime(*victim.client, GetParam()), CSClient::STATE_DISCONNECTED);
    EXPECT_TRUE(victim.isEmpty());
}

TEST_P(HostileHost, ThatResetsAtOnceForEverIsTriedAgainOnceASecond) {
    RudeHost host([](RudeHost::Guest& guest, int /*number*/) { guest.resetOnLeaving(); });
    Victim victim(GetParam(), kReconnect);
    victim.client->registerInputParameter({"IN", CSClient::TYPE_FLOAT, 1});
    victim.client->registerOutputParameter({"KEPT", CSClient::TYPE_FLOAT});
    ASSERT_EQ(victim.open(host), 0);
    ASSERT_TRUE(eventually([&host] { return host.guests() >= 2; }));
    Levels before = Levels::now();
    // Between attempts the client keeps a socket that was reset after connecting, but none that was reset before.
    ++before.descriptors;
    const int guestsBefore = host.guests();
    const double seconds = secondsOf([&host, guestsBefore] {
        ASSERT_TRUE(eventually([&host, guestsBefore] { return host.guests() >= guestsBefore + 3; }));
    });
    EXPECT_GT(seconds, 1.9) << "three attempts are two pauses apart at least";
    expectAllQueriesAtOnce(*victim.client);
    EXPECT_EQ(growth(before, settledLevels(before)), "");
    EXPECT_EQ(victim.client->getNumberOfUnregisteredInputParameters(), 1);
    EXPECT_EQ(closeInTime(*victim.client, GetParam()), CSClient::STATE_DISCONNECTED);
    EXPECT_TRUE(victim.isEmpty());
}

INSTANTIATE_TEST_SUITE_P(Client, HostileHost, testing::ValuesIn(kClientKinds),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
}  // namespace com_tesk::test
