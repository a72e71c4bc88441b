// Threads and callbacks that call every operation of a client at any time.

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "host/LoopbackHost.h"
#include "tests/reliability/ClientUnderTest.h"
#include "tests/reliability/Stress.h"
#include "tests/support/Seed.h"
#include "tests/support/TestSize.h"

namespace com_tesk::test {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

HostOptions hostOptions(unsigned int port = 0) {
    HostOptions options;
    options.listenAddress = kHostAddress;
    options.port = static_cast<std::uint16_t>(port);
    return options;
}

/// Threads that call every operation of one client while its host stops and starts.
class ConcurrentUse : public testing::TestWithParam<TransportKind> {
  protected:
    ConcurrentUse() {
        for (std::size_t i = 0; i < kThreads; ++i) {
            std::atomic<long>& count = calls[i];
            interfaces[i].onStateChange = [&count](auto, auto) { ++count; };
            interfaces[i].onUpdate = [&count](const auto&) { ++count; };
            interfaces[i].onOutputs = [&count](const auto&) { ++count; };
            interfaces[i].onInputs = [&count](const auto&) { ++count; };
        }
        startHost();
        initialUsage = ResourceUsage::now();
    }

    void startHost() { host = std::make_unique<LoopbackHost>(hostOptions(port.number())); }

    /// Ends with the client closed.
    void useFor(milliseconds duration) {
        ++uses;
        const auto end = Clock::now() + duration;
        std::vector<std::thread> threads;
        for (std::size_t i = 0; i < kThreads; ++i) {
            threads.emplace_back([this, end, i] { callOperations(end, i); });
        }
        std::mt19937_64 random(seed + uses);
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
        for (HookedCallbacks& each : interfaces) {
            client->removeCallbackInterface(&each);
        }
    }

    bool haveAllBeenCalled() const {
        return std::all_of(calls.begin(), calls.end(), [](const auto& each) { return each > 0; });
    }

    static constexpr std::size_t kThreads = 8;

    const ReservedPort port;
    std::unique_ptr<LoopbackHost> host;
    ResourceUsage initialUsage;
    std::array<std::atomic<long>, kThreads> calls{};
    /// Outlive the client, which may call them.
    std::array<HookedCallbacks, kThreads> interfaces;
    std::unique_ptr<CSClient> client = GetParam().newClient(1, kAutoReconnect | CSClient::OPTION_SILENT);
    std::atomic<long> operations{0};
    std::atomic<long> operationsWhileReady{0};

  private:
    void callOperations(Clock::time_point end, std::size_t thread) {
        std::mt19937_64 random(seed + 100 * uses + thread);
        const Arguments with{random, port.number(), &interfaces[thread]};
        while (Clock::now() < end) {
            const ClientOperation& operation =
                clientOperations()[static_cast<std::size_t>(random() % clientOperations().size())];
            // A close sleeps a second and removes everything, so it is rare.
            if (std::string(operation.name) == "close" && !with.isOneIn(2000)) {
                continue;
            }
            const double seconds = secondsOf([&] { operation.call(*client, with); });
            // A failed write sleeps one second, a close two, and a wait one. The rest is for a busy machine.
            EXPECT_LT(seconds, 15.0) << operation.name;
            if (client->getConnectionState() == CSClient::STATE_READY) {
                ++operationsWhileReady;
            }
            ++operations;
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 300));
        }
    }

    const std::uint64_t seed = newSeed();
    unsigned int uses = 0;
};

TEST_P(ConcurrentUse, NeitherBlocksNorLeavesAnything) {
    // Longer than a second, so that the host restarts.
    useFor(std::max(milliseconds(1500), sized(milliseconds(0), milliseconds(60'000))));
    const ResourceUsage before = ResourceUsage::settled(initialUsage);
    useFor(sized(milliseconds(7000), milliseconds(540'000)));
    // On a busy machine an interface may have been removed each time that something happened.
    for (int i = 0; i < 10 && !haveAllBeenCalled(); ++i) {
        useFor(milliseconds(3000));
    }
    EXPECT_EQ(ResourceUsage::settled(before).growthSince(before), "");
    EXPECT_GT(operations, 1000);
    EXPECT_GT(operationsWhileReady, 100);
    EXPECT_TRUE(haveAllBeenCalled());
}

TEST_P(ConcurrentUse, LeavesTheClientUsable) {
    useFor(milliseconds(2500));
    RecordingCallbacks callbacks;
    client->addCallbackInterface(&callbacks);
    ASSERT_EQ(client->open(kHostAddress, port.number(), nullptr), 0);
    ASSERT_TRUE(client->waitForConnectionState(CSClient::STATE_READY, 10));
    ASSERT_EQ(client->registerOutputParameter({"END", CSClient::TYPE_INT}), 0);
    ASSERT_EQ(client->registerInputParameter({"END", CSClient::TYPE_INT, 1}), 0);
    ASSERT_TRUE(callbacks.waitFor("outputs confirmed END"));
    ASSERT_TRUE(callbacks.waitFor("inputs confirmed END"));
    std::vector<std::thread> threads;
    for (const char* const name : {"A", "B", "C"}) {
        ASSERT_EQ(client->registerOutputParameter({name, CSClient::TYPE_INT}), 0);
        threads.emplace_back([this, name] {
            for (int i = 0; i <= 200; ++i) {
                EXPECT_EQ(client->publishParameter(intParameter(name, i)), 0);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const char* const name : {"A", "B", "C"}) {
        EXPECT_TRUE(host->waitForValue(name, HostValue::integer(200), std::chrono::seconds(10))) << name;
    }
    EXPECT_EQ(client->publishParameter(intParameter("END", 4711)), 0);
    EXPECT_TRUE(host->waitForValue("END", HostValue::integer(4711), std::chrono::seconds(10)));
    EXPECT_TRUE(callbacks.waitFor("updated END=int:4711"));
    client.reset();  // Before the callbacks.
}

INSTANTIATE_TEST_SUITE_P(Client, ConcurrentUse, testing::Values(kStandard, kBuffered), nameOf<TransportKind>);

constexpr const char* kCallbackNames[] = {"state change", "update", "confirmed outputs", "confirmed inputs"};

class OperationsInCallbacks : public testing::TestWithParam<TransportKind> {
  protected:
    /// Calls operations inside each of its callbacks, in order. Some add or remove the callbacks themselves.
    struct CallingCallbacks : HookedCallbacks {
        CallingCallbacks(OperationsInCallbacks& newTest, CSClient& newClient, std::uint64_t seed)
            : test(newTest), client(newClient), nextSeed(seed) {
            std::mt19937_64 random(seed);
            for (auto& each : next) {
                each = static_cast<std::size_t>(random()) % clientOperations().size();
            }
            onStateChange = [this](auto, auto) { callOperations(0); };
            onUpdate = [this](const auto&) { callOperations(1); };
            onOutputs = [this](const auto&) { callOperations(2); };
            onInputs = [this](const auto&) { callOperations(3); };
            client.addCallbackInterface(this);
        }

        void callOperations(std::size_t callback) {
            constexpr int kPerCallback = 4;
            // Callbacks of two threads, and one inside another, may run at the same time.
            std::mt19937_64 random(++nextSeed);
            for (int i = 0; i < kPerCallback; ++i) {
                const std::size_t index = next[callback]++ % clientOperations().size();
                if (isAllowed(callback, index)) {
                    clientOperations()[index].call(client, Arguments{random, test.host.port(), this});
                    ++test.calls[callback * clientOperations().size() + index];
                }
            }
            client.addCallbackInterface(this);
        }

        OperationsInCallbacks& test;
        CSClient& client;
        std::array<std::atomic<std::size_t>, std::size(kCallbackNames)> next{};
        std::atomic<std::uint64_t> nextSeed;
    };

    static bool isAllowed(std::size_t callback, std::size_t operation) {
        return callback != 0 || !clientOperations()[operation].opensOrCloses;
    }

    std::string missingCalls() const {
        std::string text;
        for (std::size_t i = 0; i < calls.size(); ++i) {
            const std::size_t callback = i / clientOperations().size();
            const std::size_t operation = i % clientOperations().size();
            if (calls[i] == 0 && isAllowed(callback, operation)) {
                text += std::string(clientOperations()[operation].name) + " in " + kCallbackNames[callback] + "; ";
            }
        }
        return text;
    }

    static constexpr std::size_t kClientsAtATime = 24;

    /// Connects a client a few times, with registrations and values that cause callbacks.
    void useClient(std::uint64_t seed) {
        auto client =
            GetParam().newClient(1 + static_cast<unsigned int>(seed % 1000),
                                 CSClient::OPTION_SILENT | (seed % 2 == 0 ? CSClient::OPTION_AUTO_RECONNECT : 0));
        CallingCallbacks callbacks(*this, *client, seed * 1'000'003U);
        for (int connection = 0; connection < 3; ++connection) {
            client->open(kHostAddress, host.port(), nullptr);
            client->waitForConnectionState(CSClient::STATE_READY, 1);
            for (int i = 0; i < 20; ++i) {
                const std::string name = "P" + std::to_string(i % 12);
                client->registerOutputParameter({name, CSClient::TYPE_INT});
                client->registerInputParameter({name, CSClient::TYPE_INT, 1});
                host.setValue(name, HostValue::integer(i));
                std::this_thread::sleep_for(milliseconds(2));
            }
            client->close();
        }
        expectToClose(*client);
        client.reset();  // Before the callbacks.
    }

    void useClients(std::size_t count, std::uint64_t seed) {
        sideBySide(count, kClientsAtATime, [this, seed](std::size_t index) { useClient(seed + index); });
        EXPECT_TRUE(host.waitForClients(0, std::chrono::seconds(10)));
    }

    std::vector<std::atomic<long>> calls =
        std::vector<std::atomic<long>>(std::size(kCallbackNames) * clientOperations().size());
    LoopbackHost host{hostOptions()};
};

TEST_P(OperationsInCallbacks, NeitherBlockNorLeaveAnything) {
    const std::uint64_t seed = newSeed();
    const ResourceUsage initialUsage = ResourceUsage::now();
    // The first clients fill the caches of the system.
    useClients(kClientsAtATime, seed);
    const ResourceUsage before = ResourceUsage::settled(initialUsage);
    useClients(sized<std::size_t>(48, 2000) - kClientsAtATime, seed + kClientsAtATime);
    EXPECT_EQ(ResourceUsage::settled(before).growthSince(before), "");
    EXPECT_EQ(missingCalls(), "");
}

INSTANTIATE_TEST_SUITE_P(Client, OperationsInCallbacks, testing::Values(kStandard, kBuffered), nameOf<TransportKind>);

}  // namespace
}  // namespace com_tesk::test
