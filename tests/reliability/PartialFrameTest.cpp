// The host announces a frame and sends only a part of it.

#include <atomic>
#include <chrono>
#include <ostream>
#include <string>
#include <thread>
#include <tuple>

#include "message/RawMessage.h"
#include "tests/reliability/ClientUnderTest.h"
#include "tests/reliability/Stress.h"
#include "tests/support/Allocations.h"
#include "tests/support/Hex.h"
#include "tests/support/Sanitizers.h"

namespace com_tesk::test {
namespace {

constexpr std::size_t kMebibyte = std::size_t{1024} * 1024;
/// The header of a data frame of so many bytes, itself included.
Bytes headerOf(unsigned int frameLength) {
    return hex(hexWord(frameLength) + " 00 00 00 20 00 00 00 00 00 00 00 00" + hexText(Bytes(16, 0xFF)));
}

/// Sends a header and `size` bytes of the body.
ConnectionHost::Function sendPart(unsigned int frameLength, std::size_t size) {
    return [=](HostConnection& connection, int /*number*/) {
        connection.send(headerOf(frameLength));
        connection.send(Bytes(size));
        connection.hold();
    };
}

/// Frames that announce more than there is memory for.
class TooLargeFrame : public testing::TestWithParam<unsigned int> {
  protected:
    const ConnectionHost host{sendPart(GetParam(), 0)};
};

TEST_P(TooLargeFrame, EndsTheConnectionAndNotTheProcess) {
    for (const TransportKind& kind : {kStandard, kBuffered}) {
        SCOPED_TRACE(kind.name);
        const AllocationLimit limit(64 * kMebibyte);
        const ClientUnderTest client(kind);
        client->registerOutputParameter({"OUT", CSClient::TYPE_FLOAT});
        ASSERT_EQ(client.open(host.port()), 0);
        ASSERT_TRUE(client.callbacks.waitFor("state 3->0"));
        EXPECT_EQ(client.callbacks.states(), kStatesOfOneConnection);
        // The standard transport allocates what is announced, unless no message can be that long.
        if (!kind.isBuffered && GetParam() - 32 <= RawMessage(RawMessage::DATA).max_size()) {
            EXPECT_GE(limit.largestRequest(), GetParam() - 32);
        } else {
            EXPECT_LT(limit.largestRequest(), kMebibyte);
        }
        EXPECT_TRUE(waitUntil([&client] { return client.isEmpty(); }));
        client.expectAllQueriesAtOnce();
    }
}

TEST_P(TooLargeFrame, IsFollowedByANewConnection) {
    const AllocationLimit limit(64 * kMebibyte);
    const ClientUnderTest client(kStandard, CSClient::OPTION_AUTO_RECONNECT);
    client->registerOutputParameter({"KEPT", CSClient::TYPE_FLOAT});
    ASSERT_EQ(client.open(host.port()), 0);
    ASSERT_TRUE(client.callbacks.waitFor("state 5->1", 2));
    client.expectAllQueriesAtOnce();
    EXPECT_EQ(client->getNumberOfUnregisteredOutputParameters(), 1);
    EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
}

INSTANTIATE_TEST_SUITE_P(Of, TooLargeFrame, testing::Values(0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU),
                         testing::PrintToStringParamName());

TEST(StalledBody, IsFreedWhenTheConnectionEnds) {
    constexpr unsigned int kFrame = kMebibyte;
    ConnectionHost host(sendPart(kFrame, 10));
    const AllocationLimit limit(64 * kMebibyte);
    const ClientUnderTest client(kStandard);
    const ResourceUsage before = ResourceUsage::now();
    ASSERT_EQ(client.open(host.port()), 0);
    ASSERT_TRUE(waitUntil([&limit] { return limit.largestRequest() >= kFrame - 32; }));
    client.expectPublishingAtOnce();
    // This takes two seconds. With each second's read the standard transport adds the missing bytes once more.
    EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTING);
    EXPECT_LE(limit.largestRequest(), 10 * kMebibyte);
    host.stop();
    ASSERT_TRUE(client.callbacks.waitFor("state 3->0"));
    EXPECT_EQ(ResourceUsage::settled(before).growthSince(before), "");
}

TEST(StalledBody, NeedsNoMemoryWithTheBufferedTransportBeforeItArrives) {
    const ConnectionHost host(sendPart(16 * kMebibyte, 10));
    const ClientUnderTest client(kBuffered);
    ASSERT_EQ(client.open(host.port()), 0);
    ASSERT_TRUE(client.callbacks.waitFor("state 2->4"));
    const std::size_t before = ResourceUsage::now().residentBytes;
    client.expectPublishingAtOnce();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    if (!kUnderSanitizer) {  // Sanitizers use memory for the reserved address space.
        EXPECT_LT(ResourceUsage::now().residentBytes, before + 4 * kMebibyte);
    }
    EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
}

struct Loss {
    const char* name;
    bool isReset;
    unsigned int options;

    // What a failed test prints.
    friend void PrintTo(const Loss& printed, std::ostream* stream) { *stream << printed.name; }
};

class MemoryOfALargeFrame : public testing::TestWithParam<std::tuple<TransportKind, Loss>> {};

TEST_P(MemoryOfALargeFrame, IsFreedWhenTheConnectionIsLost) {
    constexpr std::size_t kSent = 2 * kMebibyte;
    // Far more than a change of state needs, and far less than what has arrived of the frame.
    constexpr std::size_t kLittle = 400'000;
    const auto& [kind, lossCase] = GetParam();
    const Loss loss = lossCase;
    std::atomic<bool> mayEnd{false};
    const Bytes part(kSent);
    ConnectionHost host([&](HostConnection& connection, int /*number*/) {
        connection.drop(50);
        connection.send(headerOf(15'000'032));
        connection.send(part);
        waitUntil([&] { return !connection.isHostRunning() || mayEnd; });
        if (loss.isReset) {
            connection.resetAtEnd();
        }
    });
    std::atomic<std::size_t> bytesAtLoss{0};
    HookedCallbacks callbacks;
    callbacks.onStateChange = [&bytesAtLoss](CSClient::State oldState, CSClient::State /*newState*/) {
        if (oldState == CSClient::STATE_READY) {
            bytesAtLoss = allocatedBytes();
        }
    };
    const ClientUnderTest client(kind, loss.options);
    client->addCallbackInterface(&callbacks);
    const std::size_t before = allocatedBytes();
    ASSERT_EQ(client.open(host.port()), 0);
    ASSERT_TRUE(waitUntil([before] { return allocatedBytes() > before + kSent / 2; }));
    mayEnd = true;
    ASSERT_TRUE(waitUntil([&bytesAtLoss] { return bytesAtLoss != 0; }));
    EXPECT_LT(bytesAtLoss, before + kLittle);
    client.close(false);
}

INSTANTIATE_TEST_SUITE_P(
    Client, MemoryOfALargeFrame,
    testing::Combine(testing::Values(kStandard, kBuffered),
                     testing::Values(Loss{"AtTheEndOfTheStream", false, 0}, Loss{"AtAReset", true, 0},
                                     Loss{"BeforeReconnecting", false, CSClient::OPTION_AUTO_RECONNECT})),
    [](const auto& tested) { return std::string(std::get<0>(tested.param).name) + std::get<1>(tested.param).name; });

}  // namespace
}  // namespace com_tesk::test
