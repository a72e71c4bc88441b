#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

#include "message/RawMessage.h"
#include "tests/reliability/HostileFixtures.h"
#include "tests/reliability/LargestAllocation.h"
#include "tests/reliability/Levels.h"
#include "tests/support/Hex.h"
#include "tests/support/Sanitizers.h"

namespace com_tesk::test {
namespace {

constexpr std::size_t kMebibyte = std::size_t{1024} * 1024;

/// The memory of this process that is in use, not just reserved.
std::size_t residentBytes() {
    std::size_t total = 0;
    std::size_t resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

/// The header of a data frame that announces so many bytes, itself included.
Bytes headerOf(unsigned int frameLength) {
    return hex(hexWord(frameLength) +
               " 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF");
}

/// Frames that announce more than there is memory for. The standard transport asks for what is announced.
class AnnouncedLength : public testing::TestWithParam<unsigned int> {
  protected:
    AnnouncedLength()
        : host([](RudeHost::Guest& guest, int /*number*/) {
              const Bytes header = headerOf(GetParam());
              guest.send(header.data(), header.size());
              guest.hold();
          }) {}

    RudeHost host;
    const AllocationsAtMost limit{64 * kMebibyte};
};

TEST_P(AnnouncedLength, BeyondMemoryEndsTheConnectionAndNotTheProcess) {
    Victim victim(kStandardClient);
    victim.client->registerOutputParameter({"OUT", CSClient::TYPE_FLOAT});
    ASSERT_EQ(victim.open(host), 0);
    ASSERT_TRUE(victim.heard.waitFor("state 3->0"));
    EXPECT_EQ(victim.heard.states(), "0->1 1->2 2->4 4->3 3->0");
    if (GetParam() - 32 <= RawMessage(RawMessage::DATA).max_size()) {
        EXPECT_GE(limit.largestWanted(), GetParam() - 32);
    } else {
        EXPECT_LT(limit.largestWanted(), kMebibyte) << "no message can be that long: it is refused at once";
    }
    EXPECT_TRUE(eventually([&victim] { return victim.isEmpty(); }));
    expectAllQueriesAtOnce(*victim.client);
}

TEST_P(AnnouncedLength, BeyondMemoryWithReconnectIsFollowedByANewConnection) {
    Victim victim(kStandardClient, CSClient::OPTION_AUTO_RECONNECT);
    victim.client->registerOutputParameter({"KEPT", CSClient::TYPE_FLOAT});
    ASSERT_EQ(victim.open(host), 0);
    ASSERT_TRUE(victim.heard.waitFor("state 5->1", 2));
    expectAllQueriesAtOnce(*victim.client);
    EXPECT_EQ(victim.client->getNumberOfUnregisteredOutputParameters(), 1);
    EXPECT_EQ(closeInTime(*victim.client), CSClient::STATE_DISCONNECTED);
}

TEST_P(AnnouncedLength, BeyondItsBoundIsRefusedByTheBufferedTransportBeforeAnythingIsAllocated) {
    Victim victim(kBufferedClient);
    ASSERT_EQ(victim.open(host), 0);
    ASSERT_TRUE(victim.heard.waitFor("state 3->0"));
    EXPECT_EQ(victim.heard.states(), "0->1 1->2 2->4 4->3 3->0");
    EXPECT_LT(limit.largestWanted(), kMebibyte);
}

INSTANTIATE_TEST_SUITE_P(Of, AnnouncedLength, testing::Values(0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU),
                         [](const auto& tested) { return std::to_string(tested.param); });

TEST(StalledBody, IsGivenBackWhenTheConnectionEnds) {
    constexpr unsigned int kAnnounced = kMebibyte;
    boundTheAllocator();
    RudeHost host([](RudeHost::Guest& guest, int /*number*/) {
        const Bytes header = headerOf(kAnnounced);
        guest.send(header.data(), header.size());
        guest.send(header.data(), 10);
        guest.hold();
    });
    const AllocationsAtMost limit(64 * kMebibyte);
    Victim victim(kStandardClient);
    const Levels before = Levels::now();
    ASSERT_EQ(victim.open(host), 0);
    ASSERT_TRUE(eventually([&limit] { return limit.largestWanted() >= kAnnounced - 32; }));
    expectPublishingAtOnce(*victim.client, "OUT");
    // Two seconds pass in here. With each second's read the standard transport adds the missing bytes once more.
    EXPECT_EQ(closeInTime(*victim.client), CSClient::STATE_DISCONNECTING);
    EXPECT_LE(limit.largestWanted(), 10 * kMebibyte);
    host.leave();
    ASSERT_TRUE(victim.heard.waitFor("state 3->0"));
    EXPECT_EQ(growth(before, settledLevels(before)), "");
}

TEST(StalledBody, NeedsNoMemoryWithTheBufferedTransportBeforeItArrives) {
    RudeHost host([](RudeHost::Guest& guest, int /*number*/) {
        const Bytes header = headerOf(16 * kMebibyte);
        guest.send(header.data(), header.size());
        guest.send(header.data(), 10);
        guest.hold();
    });
    Victim victim(kBufferedClient);
    ASSERT_EQ(victim.open(host), 0);
    ASSERT_TRUE(victim.heard.waitFor("state 2->4"));
    const std::size_t before = residentBytes();
    expectPublishingAtOnce(*victim.client, "OUT");
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    if (!kUnderSanitizer) {  // Sanitizers keep books on the address space, which is taken at once.
        EXPECT_LT(residentBytes(), before + 4 * kMebibyte);
    }
    EXPECT_EQ(closeInTime(*victim.client), CSClient::STATE_DISCONNECTED);
}

}  // namespace
}  // namespace com_tesk::test
