#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "tests/reliability/HostileFixtures.h"
#include "tests/reliability/LargestAllocation.h"
#include "tests/support/Hex.h"

namespace com_tesk::test {
namespace {

constexpr unsigned int kAnnounced = 15'000'000;
constexpr std::size_t kSent = 2U << 20U;

/// Far more than a change of state needs, far less than what has arrived of the frame.
constexpr std::size_t kLittle = 400'000;

/// Notes what is allocated when the client leaves the ready state.
class LossCallbacks : public CSClient::CallbackIface {
  public:
    void connectionStateChanged(CSClient::State oldState, CSClient::State /*newState*/) override {
        if (oldState == CSClient::STATE_READY) {
            allocatedAtLoss = allocatedBytes();
        }
    }
    void inputParametersUpdated(const std::vector<CSClient::Parameter>& /*parameters*/) override {}
    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>& /*outputs*/) override {}
    void inputParametersConfirmed(const std::vector<CSClient::InputDef>& /*inputs*/) override {}

    std::atomic<std::size_t> allocatedAtLoss{0};
};

/// A host that goes away in the middle of a large frame.
class MemoryAfterLoss : public testing::TestWithParam<ClientKind> {
  protected:
    void expectGivenBack(bool isReset, unsigned int options) {
        std::atomic<bool> mayEnd{false};
        const Bytes part(kSent);
        RudeHost host([&](RudeHost::Guest& guest, int /*number*/) {
            guest.drop(50);
            const Bytes header = hex(hexWord(kAnnounced + 32) + " 00 00 00 20 " + hexText(Bytes(24)));
            guest.send(header.data(), header.size());
            guest.send(part.data(), part.size());
            while (guest.isWanted() && !mayEnd) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            if (isReset) {
                guest.resetOnLeaving();
            }
        });
        LossCallbacks loss;
        Victim victim(GetParam(), options);
        victim.client->addCallbackInterface(&loss);
        const std::size_t before = allocatedBytes();
        ASSERT_EQ(victim.open(host), 0);
        ASSERT_TRUE(eventually([before] { return allocatedBytes() > before + kSent / 2; }));
        mayEnd = true;
        ASSERT_TRUE(eventually([&loss] { return loss.allocatedAtLoss != 0; }));
        EXPECT_LT(loss.allocatedAtLoss, before + kLittle);
        closeInTime(*victim.client);
    }
};

TEST_P(MemoryAfterLoss, IsGivenBackAtTheEndOfTheStream) {
    expectGivenBack(false, 0);
}

TEST_P(MemoryAfterLoss, IsGivenBackAfterAReset) {
    expectGivenBack(true, 0);
}

TEST_P(MemoryAfterLoss, IsGivenBackBeforeTheClientConnectsAgain) {
    expectGivenBack(false, CSClient::OPTION_AUTO_RECONNECT);
}

INSTANTIATE_TEST_SUITE_P(Client, MemoryAfterLoss, testing::ValuesIn(kClientKinds),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
}  // namespace com_tesk::test
