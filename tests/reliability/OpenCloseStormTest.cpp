#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>

#include "host/LoopbackHost.h"
#include "tests/reliability/ClientKinds.h"
#include "tests/reliability/Levels.h"
#include "tests/reliability/RudeHost.h"
#include "tests/reliability/SideBySide.h"
#include "tests/reliability/Sockets.h"
#include "tests/support/Seed.h"
#include "tests/support/TestSize.h"

namespace com_tesk::test {
namespace {

/// Closing sleeps whole seconds, so many clients live at a time.
constexpr std::size_t kClientsAtATime = 125;

/// Each client is created, opened, perhaps used, closed or not, and destroyed, as the random numbers have it.
class OpenCloseStorm : public testing::TestWithParam<ClientKind> {
  protected:
    OpenCloseStorm() { boundTheAllocator(); }

    /// All cycles; the levels after the first tenth are those that the others have to keep.
    void storm(unsigned int port, const std::function<bool()>& isQuiet) {
        const std::size_t cycles = sized<std::size_t>(1000, 20000);
        const std::uint64_t seed = newSeed();
        startAndEndAThread();  // With the first, the thread sanitizer starts one of its own.
        const Levels atRest = Levels::now();
        EXPECT_EQ(run(cycles / 10, seed, port), "");
        EXPECT_TRUE(isQuiet());
        const Levels before = settledLevels(atRest);
        EXPECT_EQ(run(cycles - cycles / 10, seed + 1, port), "");
        EXPECT_TRUE(isQuiet());
        EXPECT_EQ(growth(before, settledLevels(before)), "");
        // The first tenth may have filled caches, but threads and descriptors are none.
        EXPECT_EQ(before.threads, atRest.threads);
        EXPECT_EQ(before.descriptors, atRest.descriptors);
    }

  private:
    static std::string run(std::size_t cycles, std::uint64_t seed, unsigned int port) {
        return sideBySide(cycles, kClientsAtATime, [seed, port](std::size_t index) {
            std::mt19937_64 random(seed * 1'000'003U + index);
            return cycle(random, port);
        });
    }

    static std::string cycle(std::mt19937_64& random, unsigned int port) {
        const auto chance = [&random](unsigned int in) { return random() % in == 0; };
        const unsigned int reconnect = chance(2) ? CSClient::OPTION_AUTO_RECONNECT : 0;
        const auto client =
            GetParam().make(static_cast<unsigned int>(random() % 32768), CSClient::OPTION_SILENT | reconnect);
        if (chance(3)) {
            client->registerOutputParameter({"OUT", CSClient::TYPE_FLOAT});
            client->registerInputParameter({"IN", CSClient::TYPE_INT, 1});
        }
        if (client->open(kHostAddress, port, nullptr) != 0) {
            return "open failed";
        }
        if (chance(2)) {
            client->registerOutputParameters({{"A", CSClient::TYPE_FLOAT}, {"B", CSClient::TYPE_INT}});
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
        if (chance(2)) {
            CSClient::Parameter value;
            value.name = "A";
            value.type = CSClient::TYPE_FLOAT;
            client->publishParameter(value);
        }
        if (chance(2)) {
            const CSClient::State state = client->close();
            if (state != CSClient::STATE_DISCONNECTED && state != CSClient::STATE_DISCONNECTING) {
                return "close left state " + std::to_string(state);
            }
        }
        return "";
    }
};

TEST_P(OpenCloseStorm, AgainstALiveHostLeavesNothingBehind) {
    HostOptions options;
    options.listenAddress = kHostAddress;
    const LoopbackHost host(options);
    storm(host.port(), [&host] { return host.waitForClients(0, std::chrono::seconds(10)); });
}

TEST_P(OpenCloseStorm, AgainstARefusingPortLeavesNothingBehind) {
    const ReservedPort port;
    storm(port.number(), [] { return true; });
}

TEST_P(OpenCloseStorm, AgainstAHostThatDropsAtOnceLeavesNothingBehind) {
    RudeHost host([](RudeHost::Guest& guest, int number) {
        if (number % 2 == 0) {
            guest.resetOnLeaving();
        }
    });
    storm(host.port(), [] { return true; });
}

INSTANTIATE_TEST_SUITE_P(Client, OpenCloseStorm, testing::ValuesIn(kClientKinds),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
}  // namespace com_tesk::test
