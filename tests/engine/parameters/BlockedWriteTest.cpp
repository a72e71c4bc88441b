#include <atomic>
#include <future>
#include <thread>

#include "tests/engine/parameters/ParameterTest.h"
#include "tests/support/Waiting.h"

namespace com_tesk::test {
namespace {

/// One thread publishes the output A. It waits in the write, with the lock of the tables, until the gate opens.
class BlockedWrite : public testing::Test {
  protected:
    BlockedWrite() {
        for (const char last : {'A', 'B', 'C', 'D'}) {
            engine.registerInputs({input(longName(last))});
            engine.registerOutputs({output(longName(last))});
        }
        engine.pretendState(CSClient::STATE_READY);
        engine.fakeTransport().onWrite = [this] {
            if (!isWriting.exchange(true)) {
                gate.pass();
            }
        };
        writer = std::thread([this] { engine.publish({parameter(longName('A'), 1, 5)}); });
    }
    ~BlockedWrite() override {
        gate.open();
        writer.join();
    }

    void SetUp() override { ASSERT_TRUE(gate.waitUntilReached()); }

    /// Runs each operation on a separate thread. None may end before the gate opens, and then all must end.
    void expectAllToWait(const std::vector<std::function<void()>>& operations) {
        std::atomic<std::size_t> ended{0};
        std::vector<std::thread> threads;
        for (const auto& operation : operations) {
            threads.emplace_back([&operation, &ended] {
                operation();
                ++ended;
            });
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_EQ(ended.load(), 0U);
        gate.open();
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(ended.load(), operations.size());
    }

    DerivedEngine engine{1, kSilent};
    Gate gate;
    std::atomic<bool> isWriting{false};
    std::thread writer;
};

TEST_F(BlockedWrite, LetsTheNamesOfInputsBeListed) {
    std::promise<std::vector<std::string>> listed;
    engine.onUnregisterInputs = [&listed](const std::vector<std::string>& names) { listed.set_value(names); };
    auto unregistering = std::async(std::launch::async, [this] { engine.unregisterAllInputParameters(); });
    auto names = listed.get_future();
    ASSERT_EQ(names.wait_for(kWaitBound), std::future_status::ready);
    EXPECT_THAT(names.get(), ElementsAre(longName('A'), longName('B'), longName('C'), longName('D')));
    EXPECT_EQ(unregistering.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout) << "it has to wait";
    gate.open();
    unregistering.get();
    EXPECT_THAT(engine.inputTable(), IsEmpty());
}

TEST_F(BlockedWrite, LetsEmptyCallsReturn) {
    const Stopwatch stopwatch;
    EXPECT_EQ(engine.registerInputs({}), 0);
    EXPECT_EQ(engine.registerOutputs({}), 0);
    EXPECT_EQ(engine.unregisterInputParameters({}), 0);
    EXPECT_EQ(engine.unregisterOutputParameters({}), 0);
    EXPECT_EQ(engine.publish({}), 0);
    EXPECT_LT(stopwatch.seconds(), 10) << "the gate opens after 20 seconds";
}

TEST_F(BlockedWrite, LetsAllUsersOfTheTablesWait) {
    const std::string name = longName('A');
    expectAllToWait({
        [&] { engine.getNumberOfInputParameters(false); },
        [&] { engine.getNumberOfOutputParameters(true); },
        [&] { engine.getNumberOfInputParametersWaitingForConfirmation(); },
        [&] { engine.getNumberOfOutputParametersWaitingForConfirmation(); },
        [&] { engine.hasInputParameter(name, false); },
        [&] { engine.hasOutputParameter(name, true); },
        [&] {
            CSClient::Parameter found;
            EXPECT_TRUE(engine.findPublishedParameter(name, found));
            EXPECT_EQ(bitsOf(found.value), 5U) << "stored before the write";
        },
        [&] {
            std::vector<CSClient::Parameter> all;
            engine.getAllPublishedParameters(all);
        },
        [&] { engine.registerInputs({input("N")}); },
        [&] { engine.registerOutputs({output("N")}); },
        [&] { engine.unregisterOutputParameters({"X"}); },
        [&] { engine.unregisterInputParameters({"X"}); },
        [&] { engine.reregisterAllInputParameters(); },
        [&] { engine.reregisterAllOutputParameters(); },
        [&] { engine.publish({parameter(name, 1, 5)}); },
        [&] {
            engine.receive(outputsConfirmed({{7, name}}));
        },
    });
}

// A separate test, because only one thread, the worker, receives frames.
TEST_F(BlockedWrite, LetsAConfirmationOfInputsWait) {
    expectAllToWait({[this] { engine.receive(inputsConfirmed({{7, longName('A')}})); }});
}

/// Faults show under the thread and address sanitizers.
TEST(ManyThreads, RegisterPublishAndUnregisterAllWithoutARace) {
    constexpr int kRounds = 150;
    TestEngine engine(1, kSilent);
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
            engine.publish({parameter(name, 1, static_cast<std::uint32_t>(round))});
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
