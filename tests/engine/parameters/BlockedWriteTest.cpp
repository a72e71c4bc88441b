#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <thread>

#include "tests/engine/parameters/Allocations.h"
#include "tests/support/Waiting.h"
#include "tests/engine/parameters/ParameterEngine.h"

namespace com_tesk::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::chrono::seconds kBound(10);

// Longer than what a string keeps without an allocation, so that copies of names show.
std::string longName(char last) {
    return std::string(30, 'n') + last;
}

/// Notes what unregistering all inputs lists.
class ListingEngine : public ParameterEngine {
  public:
    using ParameterEngine::ParameterEngine;

    std::promise<std::vector<std::string>> listed;

    int unregisterInputParameters(const std::vector<std::string>& names) override {
        listed.set_value(names);
        return ParameterEngine::unregisterInputParameters(names);
    }
};

/// One thread stands in the write that publishes the output A, and so holds the tables' lock, until the gate opens.
class BlockedWrite : public testing::Test {
  protected:
    BlockedWrite() {
        for (const char last : {'A', 'B', 'C', 'D'}) {
            engine.registerInputs({input(longName(last))});
            engine.registerOutputs({output(longName(last))});
        }
        engine.pretendState(CSClient::STATE_READY);
        engine.fakeTransport().onWrite = [this] {
            if (std::this_thread::get_id() == writer.get_id()) {
                gate.pass();
            }
        };
        // The writer must not write before it can be recognised.
        std::promise<void> started;
        auto mayWrite = started.get_future();
        writer = std::thread([this, &mayWrite] {
            mayWrite.wait();
            engine.publish({record(longName('A'), 1, 5)});
        });
        started.set_value();
        isBlocked = gate.waitUntilReached();
    }

    ~BlockedWrite() override {
        gate.open();
        if (writer.joinable()) {
            writer.join();
        }
    }

    /// Runs each user on a thread of its own: none may finish before the gate opens, and all must then.
    void expectAllToBeHeldUp(const std::vector<std::function<void()>>& users) {
        std::atomic<int> finished{0};
        std::vector<std::thread> threads;
        for (const auto& user : users) {
            threads.emplace_back([&user, &finished] {
                user();
                ++finished;
            });
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_EQ(finished.load(), 0);
        gate.open();
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(finished.load(), static_cast<int>(users.size()));
    }

    ListingEngine engine{1, CSClient::OPTION_SILENT};
    Gate gate;
    std::thread writer;
    bool isBlocked = false;
};

TEST_F(BlockedWrite, DoesNotHoldUpTheListingOfInputs) {
    ASSERT_TRUE(isBlocked);
    auto listed = engine.listed.get_future();
    auto unregistering = std::async(std::launch::async, [this] { engine.unregisterAllInputParameters(); });
    EXPECT_EQ(listed.wait_for(kBound), std::future_status::ready);
    EXPECT_EQ(unregistering.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout)
        << "the unregistration itself has to wait";
    gate.open();
    unregistering.get();
    EXPECT_THAT(listed.get(), ElementsAre(longName('A'), longName('B'), longName('C'), longName('D')));
    EXPECT_THAT(engine.inputTable(), IsEmpty());
}

TEST_F(BlockedWrite, DoesNotHoldUpTheListingOfOutputs) {
    ASSERT_TRUE(isBlocked);
    std::atomic<int> allocations{0};
    auto unregistering = std::async(std::launch::async, [this, &allocations] {
        const CountedAllocations counting(allocations);
        engine.unregisterAllOutputParameters();
    });
    // Each of the four names is copied into the list, and that shows as an allocation.
    const auto deadline = std::chrono::steady_clock::now() + kBound;
    while (allocations.load() < 4 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    EXPECT_GE(allocations.load(), 4);
    EXPECT_EQ(unregistering.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout)
        << "the unregistration itself has to wait";
    gate.open();
    unregistering.get();
    EXPECT_THAT(engine.outputTable(), IsEmpty());
}

TEST_F(BlockedWrite, DoesNotHoldUpCallsThatSayNothing) {
    ASSERT_TRUE(isBlocked);
    auto calls = std::async(std::launch::async, [this] {
        return engine.registerInputParameters(nullptr, 0) + engine.registerOutputParameters(nullptr, 0) +
               engine.unregisterOutputParameters({}) +
               engine.publishParameters(nullptr, 0, CSClientProtocol::PUBLISH_DEFAULT) +
               engine.ParameterEngine::unregisterInputParameters({});
    });
    EXPECT_EQ(calls.wait_for(kBound), std::future_status::ready);
    gate.open();
    EXPECT_EQ(calls.get(), 0);
}

TEST_F(BlockedWrite, HoldsUpEverythingThatUsesTheTables) {
    ASSERT_TRUE(isBlocked);
    const std::string name = longName('A');
    expectAllToBeHeldUp({
        [&] { engine.getNumberOfInputParameters(false); },
        [&] { engine.getNumberOfOutputParameters(true); },
        [&] { engine.getNumberOfInputParametersWaitingForConfirmation(); },
        [&] { engine.getNumberOfOutputParametersWaitingForConfirmation(); },
        [&] { engine.hasInputParameter(name, false); },
        [&] { engine.hasOutputParameter(name, true); },
        [&] {
            CSClient::Parameter found;
            EXPECT_TRUE(engine.findPublishedParameter(name, found));
            EXPECT_EQ(bitsOf(found.value), 5U) << "what was stored before the write";
        },
        [&] {
            std::vector<CSClient::Parameter> all;
            engine.getAllPublishedParameters(all);
        },
        [&] { engine.registerInputs({input("N")}); },
        [&] { engine.registerOutputs({output("N")}); },
        [&] { engine.unregisterOutputParameters({"X"}); },
        [&] { engine.ParameterEngine::unregisterInputParameters({"X"}); },
        [&] { engine.reregisterAllInputParameters(); },
        [&] { engine.reregisterAllOutputParameters(); },
        [&] { engine.publish({record(name, 1, 5)}); },
        [&] {
            engine.receive(outputsConfirmed({{7, name}}));
        },
    });
}

// A test of its own: frames come from one thread, the worker.
TEST_F(BlockedWrite, HoldsUpAConfirmationOfInputs) {
    ASSERT_TRUE(isBlocked);
    expectAllToBeHeldUp({[this] { engine.receive(inputsConfirmed({{7, longName('A')}})); }});
}

/// Many threads at once. What goes wrong here shows under the thread and address sanitizers.
TEST(ManyThreads, RegisterPublishAndUnregisterAllWithoutARace) {
    constexpr int kRounds = 150;
    ParameterEngine engine(1, CSClient::OPTION_SILENT);
    engine.pretendState(CSClient::STATE_READY);
    std::vector<std::thread> threads;
    const auto repeat = [&threads](const std::function<void(int)>& work) {
        threads.emplace_back([work] {
            for (int round = 0; round < kRounds; ++round) {
                work(round);
            }
        });
    };
    for (const char last : {'A', 'B'}) {
        const std::string name = longName(last);
        repeat([&engine, name](int) {
            engine.registerInputs({input(name)});
            engine.registerOutputs({output(name)});
        });
        repeat([&engine, name](int round) {
            engine.publish({record(name, 1, static_cast<std::uint32_t>(round))});
            CSClient::Parameter found;
            engine.findPublishedParameter(name, found);
            std::vector<CSClient::Parameter> all;
            engine.getAllPublishedParameters(all);
            engine.hasInputParameter(name, true);
        });
    }
    repeat([&engine](int round) {
        const auto id = static_cast<unsigned int>(round);
        engine.receive(inputsConfirmed({{id, longName('A')}, {id + 1, longName('B')}}));
        engine.receive(outputsConfirmed({{id, longName('A')}, {id + 1, longName('B')}}));
        engine.reregisterAllInputParameters();
        engine.reregisterAllOutputParameters();
    });
    repeat([&engine](int) { engine.unregisterAllInputParameters(); });
    repeat([&engine](int) { engine.unregisterAllOutputParameters(); });
    repeat([&engine](int round) {
        engine.unregisterOutputParameters({longName('A')});
        engine.unregisterInputParameters({longName('B')});
        if (round % 8 == 0) {
            engine.unregisterAllLocalParameters();
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    engine.unregisterAllLocalParameters();
    EXPECT_THAT(engine.inputTable(), IsEmpty());
    EXPECT_THAT(engine.outputTable(), IsEmpty());
}

}  // namespace
}  // namespace com_tesk::test
