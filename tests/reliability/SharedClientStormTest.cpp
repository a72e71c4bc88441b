#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "host/LoopbackHost.h"
#include "tests/reliability/ClientKinds.h"
#include "tests/reliability/Levels.h"
#include "tests/reliability/Operations.h"
#include "tests/reliability/Sockets.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/Seed.h"
#include "tests/support/TestSize.h"

namespace com_tesk::test {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t kThreads = 8;

/// Hears everything and keeps nothing.
class CountingCallbacks : public CSClient::CallbackIface {
  public:
    void connectionStateChanged(CSClient::State /*oldState*/, CSClient::State /*newState*/) override { ++calls; }
    void inputParametersUpdated(const std::vector<CSClient::Parameter>& /*parameters*/) override { ++calls; }
    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>& /*outputs*/) override { ++calls; }
    void inputParametersConfirmed(const std::vector<CSClient::InputDef>& /*inputs*/) override { ++calls; }

    std::atomic<long> calls{0};
};

/// Threads that do everything at once with one client, while its host goes and comes back.
class SharedClientStorm : public testing::TestWithParam<ClientKind> {
  protected:
    SharedClientStorm() : seed(newSeed()) {
        boundTheAllocator();
        client = GetParam().make(1, CSClient::OPTION_AUTO_RECONNECT | CSClient::OPTION_SILENT);
        startHost();
        atRest = Levels::now();
    }

    void startHost() {
        HostOptions options;
        options.listenAddress = kHostAddress;
        options.port = static_cast<std::uint16_t>(port.number());
        host = std::make_unique<LoopbackHost>(options);
    }

    /// Everything for so long; ends with the client closed.
    void storm(milliseconds duration, unsigned int phase) {
        const auto end = Clock::now() + duration;
        std::vector<std::thread> threads;
        for (std::size_t i = 0; i < kThreads; ++i) {
            threads.emplace_back([this, end, i, phase] { hammer(end, seed + 100 * phase + i, interfaces[i]); });
        }
        std::mt19937_64 random(seed + phase);
        for (auto restart = Clock::now() + std::chrono::seconds(1); restart < end; restart += std::chrono::seconds(1)) {
            std::this_thread::sleep_until(restart);
            host.reset();
            std::this_thread::sleep_for(milliseconds(random() % 300));
            startHost();
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        client->close();
        EXPECT_TRUE(client->waitForConnectionState(CSClient::STATE_DISCONNECTED, 10));
        EXPECT_TRUE(host->waitForClients(0, std::chrono::seconds(10)));
        for (CountingCallbacks& each : interfaces) {
            client->removeCallbackInterface(&each);
        }
    }

    bool haveAllBeenCalled() const {
        return std::all_of(interfaces.begin(), interfaces.end(), [](const auto& each) { return each.calls > 0; });
    }

    const std::uint64_t seed;
    const ReservedPort port;
    std::unique_ptr<LoopbackHost> host;
    Levels atRest;
    /// Outlive the client, which may call them.
    std::vector<CountingCallbacks> interfaces{kThreads};
    std::unique_ptr<CSClient> client;
    std::atomic<long> operations{0};
    std::atomic<long> whileReady{0};  ///< operations during which, or just after, the connection stood
    std::atomic<long> slowest{0};     ///< milliseconds

  private:
    void hammer(Clock::time_point end, std::uint64_t ownSeed, CountingCallbacks& own) {
        std::mt19937_64 random(ownSeed);
        const Surroundings with{random, port.number(), &own};
        while (Clock::now() < end) {
            const auto index = static_cast<std::size_t>(random()) % allOperations().size();
            const Operation& operation = allOperations()[index];
            // A close sleeps a second and forgets everything: about one in two seconds leaves room for the rest.
            if (std::string(operation.name) == "close" && random() % 2000 != 0) {
                continue;
            }
            const auto start = Clock::now();
            operation.call(*client, with);
            if (client->getConnectionState() == CSClient::STATE_READY) {
                ++whileReady;
            }
            const long took = static_cast<long>(std::chrono::duration_cast<milliseconds>(Clock::now() - start).count());
            ++operations;
            for (long known = slowest; took > known && !slowest.compare_exchange_weak(known, took);) {
            }
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 300));
        }
    }
};

TEST_P(SharedClientStorm, NeitherBlocksNorLeavesAnythingBehind) {
    // Longer than a second, so that the host restarts in it.
    const milliseconds first = std::max(milliseconds(1500), sized(milliseconds(0), milliseconds(60'000)));
    storm(first, 1);
    const Levels before = settledLevels(atRest);
    storm(sized(milliseconds(7000), milliseconds(540'000)), 2);
    // On a busy machine an interface may have been out each time that something happened: then it goes on.
    for (unsigned int phase = 3; phase < 13 && !haveAllBeenCalled(); ++phase) {
        storm(milliseconds(3000), phase);
    }
    EXPECT_EQ(growth(before, settledLevels(before)), "");
    // A failed write sleeps one second, a close two, and a wait one; the rest is patience with a busy machine.
    EXPECT_LT(slowest, 15'000);
    EXPECT_GT(operations, 1000);
    EXPECT_GT(whileReady, 100);
    EXPECT_TRUE(haveAllBeenCalled());
}

TEST_P(SharedClientStorm, LeavesTheClientUsable) {
    storm(milliseconds(2500), 1);
    RecordingCallbacks heard;
    client->addCallbackInterface(&heard);
    ASSERT_EQ(client->open(kHostAddress, port.number(), nullptr), 0);
    ASSERT_TRUE(client->waitForConnectionState(CSClient::STATE_READY, 10));
    ASSERT_EQ(client->registerOutputParameter({"END", CSClient::TYPE_INT}), 0);
    ASSERT_EQ(client->registerInputParameter({"END", CSClient::TYPE_INT, 1}), 0);
    ASSERT_TRUE(heard.waitFor("outputs confirmed END"));
    ASSERT_TRUE(heard.waitFor("inputs confirmed END"));
    CSClient::Parameter value;
    value.name = "END";
    value.type = CSClient::TYPE_INT;
    value.value.asInt = 4711;
    EXPECT_EQ(client->publishParameter(value), 0);
    EXPECT_TRUE(host->waitForValue("END", HostValue::integer(4711), std::chrono::seconds(10)));
    EXPECT_TRUE(heard.waitFor("updated END=int:4711"));
    // Before the callbacks.
    client.reset();
}

INSTANTIATE_TEST_SUITE_P(Client, SharedClientStorm, testing::ValuesIn(kClientKinds),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
}  // namespace com_tesk::test
