// Many threads register while a host ends the connection again and again.

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "client/SimClient.h"
#include "host/LoopbackHost.h"
#include "tests/reliability/SideBySide.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/TransportUnderTest.h"

namespace com_tesk::test {
namespace {

constexpr std::chrono::seconds kStormBound{30};
constexpr int kStormConnections = 3;
constexpr int kStormThreads = 4;
/// Of inputs, and as many of outputs, for each thread and connection.
constexpr int kStormNames = 6;

/// How often each name was requested on each connection.
class RequestCounts {
  public:
    std::function<void(const HostEvent&)> sink() {
        return [this](const HostEvent& event) {
            const std::lock_guard<std::mutex> lock(mutex);
            if (event.kind == HostEvent::Kind::INPUT_CONFIRMED || event.kind == HostEvent::Kind::OUTPUT_CONFIRMED) {
                ++counts[event.client][event.name];
            }
        };
    }

    std::size_t namesOfTheLast() {
        const std::lock_guard<std::mutex> lock(mutex);
        return counts.empty() ? 0 : counts.rbegin()->second.size();
    }

    /// The names that were requested more than once on one connection.
    std::string repeated() {
        const std::lock_guard<std::mutex> lock(mutex);
        std::string text;
        for (const auto& connection : counts) {
            for (const auto& nameAndCount : connection.second) {
                if (nameAndCount.second != 1) {
                    text += " connection " + std::to_string(connection.first) + ": " + nameAndCount.first + " " +
                            std::to_string(nameAndCount.second) + " times";
                }
            }
        }
        return text;
    }

  private:
    std::mutex mutex;
    std::map<std::uint64_t, std::map<std::string, int>> counts;
};

/// Lets the threads that wait for a change meet the rest of it.
class YieldingCallbacks : public RecordingCallbacks {
  public:
    void connectionStateChanged(CSClient::State oldState, CSClient::State newState) override {
        RecordingCallbacks::connectionStateChanged(oldState, newState);
        for (int i = 0; i < 10; ++i) {
            std::this_thread::yield();
        }
    }
};

std::string stormName(int connection, int thread, int number) {
    return std::to_string(connection) + '.' + std::to_string(thread) + '.' + std::to_string(number);
}

/// One thread's registrations, each time from the moment at which a connection stands.
void registerAll(SimClient& client, const RecordingCallbacks& heard, int thread) {
    for (int connection = 1; connection <= kStormConnections; ++connection) {
        EXPECT_TRUE(heard.waitFor("state 1->2", connection, kStormBound));
        for (int i = 0; i < kStormNames; ++i) {
            const std::string name = stormName(connection, thread, i);
            // 0, or 2 when the write met the end of the connection.
            EXPECT_NE(client.registerInputParameter({"in." + name, CSClient::TYPE_FLOAT, 1}), 3);
            EXPECT_NE(client.registerOutputParameter({"out." + name, CSClient::TYPE_INT}), 3);
        }
    }
}

bool areAllConfirmed(const SimClient& client) {
    for (int connection = 1; connection <= kStormConnections; ++connection) {
        for (int thread = 0; thread < kStormThreads; ++thread) {
            for (int i = 0; i < kStormNames; ++i) {
                const std::string name = stormName(connection, thread, i);
                if (!client.isInputParameterRegistered("in." + name) ||
                    !client.isOutputParameterRegistered("out." + name)) {
                    return false;
                }
            }
        }
    }
    return true;
}

/// False when the bound passes first.
template <typename Condition>
bool becomesTrue(const Condition& condition) {
    const auto deadline = std::chrono::steady_clock::now() + kStormBound;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

/// One run.
/// @return what went wrong; empty when nothing did.
std::string stormRun() {
    constexpr std::size_t kAll = std::size_t{kStormConnections} * kStormThreads * kStormNames * 2;
    RequestCounts counts;
    HostOptions options;
    options.eventSink = counts.sink();
    LoopbackHost host(options);
    YieldingCallbacks heard;
    SimClient client(1, CSClient::OPTION_SILENT | CSClient::OPTION_AUTO_RECONNECT);
    useTransportUnderTest(client);
    client.addCallbackInterface(&heard);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kStormThreads; ++thread) {
        threads.emplace_back([&client, &heard, thread] { registerAll(client, heard, thread); });
    }
    std::string wrong = client.open("127.0.0.1", host.port(), nullptr) == 0 ? "" : "not opened";
    for (int connection = 1; connection < kStormConnections; ++connection) {
        if (!heard.waitFor("state 2->4", connection, kStormBound) || !host.waitForClients(1, kStormBound)) {
            wrong += " no connection " + std::to_string(connection);
        }
        host.dropClients(LoopbackHost::DropMode::RESET);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    if (!becomesTrue([&counts] { return counts.namesOfTheLast() == kAll; })) {
        wrong += " " + std::to_string(counts.namesOfTheLast()) + " names on the last connection";
    }
    if (!becomesTrue([&client] { return areAllConfirmed(client); })) {
        wrong += " not all are confirmed";
    }
    return wrong + counts.repeated();
}

TEST(ChangeStorm, RequestsEachNameOnceOnEachConnection) {
    constexpr std::size_t kRuns = 20;
    constexpr std::size_t kSideBySide = 10;
    EXPECT_EQ(sideBySide(kRuns, kSideBySide, [](std::size_t) { return stormRun(); }), "");
}

}  // namespace
}  // namespace com_tesk::test
