// Clients that are opened again and again, and destroyed at any time.

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <random>
#include <thread>

#include "host/LoopbackHost.h"
#include "tests/reliability/ClientUnderTest.h"
#include "tests/reliability/Stress.h"
#include "tests/support/Seed.h"
#include "tests/support/TestSize.h"

namespace com_tesk::test {
namespace {

using std::chrono::milliseconds;

HostOptions optionsOnHostAddress() {
    HostOptions options;
    options.listenAddress = kHostAddress;
    return options;
}

// The object changes its type while it is destroyed, which the thread sanitizer detects.
TEST(DestructionDuringACallback, LetsTheCallbackUseTheWholeClient) {
    const LoopbackHost host(optionsOnHostAddress());
    std::atomic<bool> isInside{false};
    std::atomic<bool> isDestroying{false};
    std::atomic<int> result{-1};
    HookedCallbacks callbacks;
    auto client = std::make_unique<SimClient>(1, CSClient::OPTION_SILENT);
    callbacks.onUpdate = [&, opened = client.get()](const auto&) {
        isInside = true;
        waitUntil([&isDestroying] { return isDestroying.load(); });
        std::this_thread::sleep_for(milliseconds(100));
        result = opened->open(kHostAddress, host.port(), nullptr);
    };
    client->addCallbackInterface(&callbacks);
    client->registerInputParameter({"A", CSClient::TYPE_INT, 1});
    ASSERT_EQ(client->open(kHostAddress, host.port(), nullptr), 0);
    ASSERT_TRUE(waitUntil([&isInside] { return isInside.load(); }));
    isDestroying = true;
    client.reset();
    EXPECT_EQ(result, 2);
}

/// Clients that are created, opened, perhaps used, closed or not, and destroyed, as random numbers decide.
class RepeatedOpening : public testing::TestWithParam<TransportKind> {
  protected:
    /// The first tenth of the clients fills caches. The others must not need more.
    static void expectNoGrowth(
        unsigned int port, const std::function<bool()>& waitForHost = [] { return true; }) {
        const std::size_t count = sized<std::size_t>(1000, 20000);
        const std::uint64_t seed = newSeed();
        const ResourceUsage initialUsage = ResourceUsage::now();
        useClients(count / 10, seed, port);
        EXPECT_TRUE(waitForHost());
        const ResourceUsage before = ResourceUsage::settled(initialUsage);
        useClients(count - count / 10, seed + 1, port);
        EXPECT_TRUE(waitForHost());
        EXPECT_EQ(ResourceUsage::settled(before).growthSince(before), "");
        EXPECT_EQ(before.threads, initialUsage.threads);
        EXPECT_EQ(before.descriptors, initialUsage.descriptors);
    }

  private:
    static void useClients(std::size_t count, std::uint64_t seed, unsigned int port) {
        // Closing sleeps whole seconds.
        constexpr std::size_t kClientsAtATime = 125;
        sideBySide(count, kClientsAtATime, [seed, port](std::size_t index) {
            std::mt19937_64 random(seed * 1'000'003U + index);
            useClient(random, port);
        });
    }

    static void useClient(std::mt19937_64& random, unsigned int port) {
        const auto isOneIn = [&random](unsigned int count) { return random() % count == 0; };
        const unsigned int reconnect = isOneIn(2) ? CSClient::OPTION_AUTO_RECONNECT : 0;
        const auto client =
            GetParam().newClient(static_cast<unsigned int>(random() % 32768), CSClient::OPTION_SILENT | reconnect);
        if (isOneIn(3)) {
            client->registerOutputParameter({"OUT", CSClient::TYPE_FLOAT});
            client->registerInputParameter({"IN", CSClient::TYPE_INT, 1});
        }
        ASSERT_EQ(client->open(kHostAddress, port, nullptr), 0);
        if (isOneIn(2)) {
            client->registerOutputParameters({{"A", CSClient::TYPE_FLOAT}, {"B", CSClient::TYPE_INT}});
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
        if (isOneIn(2)) {
            client->publishParameter(floatParameter("A", 0));
        }
        if (isOneIn(2)) {
            expectToClose(*client);
        }
    }
};

TEST_P(RepeatedOpening, WithAHostLeavesNothing) {
    const LoopbackHost host(optionsOnHostAddress());
    expectNoGrowth(host.port(), [&host] { return host.waitForClients(0, std::chrono::seconds(10)); });
}

TEST_P(RepeatedOpening, WithARefusingPortLeavesNothing) {
    const ReservedPort port;
    expectNoGrowth(port.number());
}

TEST_P(RepeatedOpening, WithAHostThatEndsEachConnectionLeavesNothing) {
    const ConnectionHost host([](HostConnection& connection, int number) {
        if (number % 2 == 0) {
            connection.resetAtEnd();
        }
    });
    expectNoGrowth(host.port());
}

INSTANTIATE_TEST_SUITE_P(Client, RepeatedOpening, testing::Values(kStandard, kBuffered), nameOf<TransportKind>);
}  // namespace
}  // namespace com_tesk::test
