#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "host/LoopbackHost.h"
#include "tests/reliability/ClientKinds.h"
#include "tests/reliability/Levels.h"
#include "tests/reliability/Operations.h"
#include "tests/reliability/SideBySide.h"
#include "tests/reliability/Sockets.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/Seed.h"
#include "tests/support/TestSize.h"

namespace com_tesk::test {
namespace {

constexpr std::size_t kClientsAtATime = 24;

enum Callback : std::size_t { STATE_CHANGED, UPDATED, OUTPUTS_CONFIRMED, INPUTS_CONFIRMED, CALLBACKS };

/// How often each operation has been called from inside each callback.
class Coverage {
  public:
    Coverage() : counts(CALLBACKS * allOperations().size()) {}

    void count(Callback callback, std::size_t operation) { ++counts[callback * allOperations().size() + operation]; }

    /// The pairs that are allowed and have not been called.
    std::string missing() const {
        static const char* const callbackNames[] = {"state change", "update", "confirmed outputs", "confirmed inputs"};
        std::string text;
        for (std::size_t i = 0; i < counts.size(); ++i) {
            const Operation& operation = allOperations()[i % allOperations().size()];
            const std::size_t callback = i / allOperations().size();
            if (counts[i] == 0 && !(callback == STATE_CHANGED && operation.opensOrCloses)) {
                text += std::string(operation.name) + " in " + callbackNames[callback] + "; ";
            }
        }
        return text;
    }

  private:
    std::vector<std::atomic<long>> counts;
};

/// Calls operations from inside each of its callbacks, one after the other, itself added or removed among them.
class BusyCallbacks : public CSClient::CallbackIface {
  public:
    BusyCallbacks(unsigned int hostPort, std::uint64_t seed, Coverage& sharedCoverage)
        : port(hostPort), coverage(sharedCoverage) {
        std::mt19937_64 random(seed);
        for (auto& each : next) {
            each = static_cast<std::size_t>(random()) % allOperations().size();
        }
        nextSeed = random();
    }

    /// From here on it is told of what happens to the client, which it must outlive.
    void attachTo(CSClient& newClient) {
        client = &newClient;
        client->addCallbackInterface(this);
    }

    void connectionStateChanged(CSClient::State /*oldState*/, CSClient::State /*newState*/) override {
        work(STATE_CHANGED);
    }
    void inputParametersUpdated(const std::vector<CSClient::Parameter>& /*parameters*/) override { work(UPDATED); }
    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>& /*outputs*/) override {
        work(OUTPUTS_CONFIRMED);
    }
    void inputParametersConfirmed(const std::vector<CSClient::InputDef>& /*inputs*/) override {
        work(INPUTS_CONFIRMED);
    }

  private:
    void work(Callback callback) {
        constexpr std::size_t kPerCall = 4;
        // Callbacks of two threads, and one inside another, may run at once: nothing here is shared but counters.
        std::mt19937_64 random(++nextSeed);
        for (std::size_t i = 0; i < kPerCall; ++i) {
            const std::size_t index = next[callback]++ % allOperations().size();
            const Operation& operation = allOperations()[index];
            if (callback == STATE_CHANGED && operation.opensOrCloses) {
                continue;
            }
            operation.call(*client, Surroundings{random, port, this});
            coverage.count(callback, index);
        }
        client->addCallbackInterface(this);
    }

    CSClient* client = nullptr;
    const unsigned int port;
    Coverage& coverage;
    std::array<std::atomic<std::size_t>, CALLBACKS> next{};
    std::atomic<std::uint64_t> nextSeed{0};
};

class CallbackStorm : public testing::TestWithParam<ClientKind> {
  protected:
    CallbackStorm() {
        boundTheAllocator();
        HostOptions options;
        options.listenAddress = kHostAddress;
        host = std::make_unique<LoopbackHost>(options);
    }

    /// One client's life: a few connections, each with registrations and values that make callbacks.
    std::string live(std::uint64_t seed) {
        std::mt19937_64 random(seed);
        BusyCallbacks busy(host->port(), random(), coverage);
        const auto client =
            GetParam().make(1 + static_cast<unsigned int>(seed % 1000),
                            CSClient::OPTION_SILENT | (seed % 2 == 0 ? CSClient::OPTION_AUTO_RECONNECT : 0));
        busy.attachTo(*client);
        for (int connection = 0; connection < 3; ++connection) {
            client->open(kHostAddress, host->port(), nullptr);
            client->waitForConnectionState(CSClient::STATE_READY, 1);
            for (int i = 0; i < 20; ++i) {
                client->registerOutputParameter({"P" + std::to_string(i % 12), CSClient::TYPE_INT});
                client->registerInputParameter({"P" + std::to_string(i % 12), CSClient::TYPE_INT, 1});
                host->setValue("P" + std::to_string(i % 12), HostValue::integer(i));
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
            client->close();
        }
        const CSClient::State state = client->close();
        return state == CSClient::STATE_DISCONNECTED || state == CSClient::STATE_DISCONNECTING
                   ? ""
                   : "close left state " + std::to_string(state);
    }

    std::string liveSideBySide(std::size_t count, std::uint64_t seed) {
        std::string complaints =
            sideBySide(count, kClientsAtATime, [this, seed](std::size_t index) { return live(seed + index); });
        return host->waitForClients(0, std::chrono::seconds(10)) ? complaints : complaints + "clients remain";
    }

    Coverage coverage;
    std::unique_ptr<LoopbackHost> host;
};

TEST_P(CallbackStorm, EveryOperationInsideEveryCallbackNeitherBlocksNorLeavesAnythingBehind) {
    const std::uint64_t seed = newSeed();
    const std::size_t lives = sized<std::size_t>(48, 2000);
    const Levels atRest = Levels::now();
    // A tenth is too few here to fill what the system caches.
    EXPECT_EQ(liveSideBySide(kClientsAtATime, seed), "");
    const Levels before = settledLevels(atRest);
    EXPECT_EQ(liveSideBySide(lives - kClientsAtATime, seed + kClientsAtATime), "");
    EXPECT_EQ(growth(before, settledLevels(before)), "");
    EXPECT_EQ(coverage.missing(), "");
}

INSTANTIATE_TEST_SUITE_P(Client, CallbackStorm, testing::ValuesIn(kClientKinds),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
}  // namespace com_tesk::test
