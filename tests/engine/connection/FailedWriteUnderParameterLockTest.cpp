#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <future>
#include <ostream>
#include <string>
#include <vector>

#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {
namespace {

const CSClient::InputDef kFirstInput{"I", CSClient::TYPE_FLOAT, 1};
const CSClient::OutputDef kFirstOutput{"O", CSClient::TYPE_INT};
const CSClient::InputDef kOtherInput{"I2", CSClient::TYPE_FLOAT, 1};
const CSClient::OutputDef kOtherOutput{"O2", CSClient::TYPE_INT};

/// The operations that write while they hold the lock of the parameters.
struct Operation {
    const char* name;
    int (*run)(CSClientProtocol& engine);
    /// What is registered afterwards, before the tables are emptied by anybody.
    unsigned int inputs;
    unsigned int outputs;

    // What a failed test prints.
    friend void PrintTo(const Operation& printed, std::ostream* stream) { *stream << printed.name; }
};

const Operation kOperations[] = {
    {"RegisterInputs", [](CSClientProtocol& engine) { return engine.registerInputParameters(&kOtherInput, 1); }, 2, 1},
    {"RegisterOutputs", [](CSClientProtocol& engine) { return engine.registerOutputParameters(&kOtherOutput, 1); }, 1,
     2},
    {"UnregisterInputs", [](CSClientProtocol& engine) { return engine.unregisterInputParameters({"I"}); }, 1, 1},
    {"UnregisterOutputs", [](CSClientProtocol& engine) { return engine.unregisterOutputParameters({"O"}); }, 1, 1},
    {"Publish",
     [](CSClientProtocol& engine) {
         CSClient::Parameter parameter{"O", {}, CSClient::TYPE_INT, 0};
         parameter.value.asInt = 5;
         return engine.publishParameters(&parameter, 1, CSClientProtocol::PUBLISH_DEFAULT);
     },
     1, 1},
};

std::string nameOf(const testing::TestParamInfo<Operation>& info) {
    return info.param.name;
}

class FailedWriteUnderParameterLock : public testing::TestWithParam<Operation> {
  protected:
    void connect(ConnectionEngine& engine) {
        EXPECT_EQ(engine.registerInputParameters(&kFirstInput, 1), 0);
        EXPECT_EQ(engine.registerOutputParameters(&kFirstOutput, 1), 0);
        EXPECT_EQ(engine.connect(), 0);
        engine.addCallbackInterface(&callbacks);
        out = captured.out();
        engine.probe().failWrites(-1, EPIPE);
    }

    std::string printedSince() const { return captured.out().substr(out.size()); }

    CapturedStreams captured;
    RecordingCallbacks callbacks;
    std::string out;
};

TEST_P(FailedWriteUnderParameterLock, WithoutReconnectClosesOnceAndKeepsTheEntries) {
    ConnectionEngine engine;
    connect(engine);
    const Stopwatch stopwatch;
    EXPECT_EQ(GetParam().run(engine), 2);
    EXPECT_LT(stopwatch.seconds(), 0.9);
    EXPECT_EQ(captured.err(), kBrokenPipeLine);
    EXPECT_EQ(captured.errInsertions(), 1);
    EXPECT_EQ(printedSince(), "");
    EXPECT_EQ(callbacks.states(), "4->3");
    EXPECT_EQ(engine.getServerIPAddress(), "0.0.0.0");
    EXPECT_EQ(engine.getNumberOfInputParameters(false), GetParam().inputs);
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), GetParam().outputs);
}

TEST_P(FailedWriteUnderParameterLock, WithReconnectSleepsOneSecondOnTheCallersThreadHoldingNoLock) {
    ConnectionEngine engine(kReconnect);
    connect(engine);
    std::atomic<bool> returned{false};
    auto running = std::async(std::launch::async, [&] {
        const Stopwatch stopwatch;
        EXPECT_EQ(GetParam().run(engine), 2);
        returned = true;
        return stopwatch.seconds();
    });
    ASSERT_TRUE(callbacks.waitFor("state 5->1"));
    EXPECT_EQ(engine.getNumberOfInputParameters(false), GetParam().inputs);
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), GetParam().outputs);
    const CSClient::OutputDef third{"O3", CSClient::TYPE_INT};
    EXPECT_EQ(engine.registerOutputParameters(&third, 1), 0);
    EXPECT_EQ(engine.openConnection(1, 1, nullptr), 2);
    EXPECT_EQ(engine.getNumCallbackInterfaces(), 1);
    EXPECT_FALSE(returned) << "a lock was held during the sleep";
    const double seconds = running.get();
    EXPECT_TRUE(isOneSecond(seconds)) << seconds;
    EXPECT_EQ(captured.err(), kBrokenPipeLine);
    EXPECT_EQ(printedSince(), "Attempting to reconnect...\n");
    EXPECT_EQ(callbacks.states(), "4->5 5->1");
    EXPECT_EQ(engine.getServerIPAddress(), "127.0.0.1");
}

TEST_P(FailedWriteUnderParameterLock, NextOperationFindsNoConnectionAndSucceeds) {
    ConnectionEngine engine;
    connect(engine);
    EXPECT_EQ(GetParam().run(engine), 2);
    const CSClient::OutputDef third{"O3", CSClient::TYPE_INT};
    EXPECT_EQ(engine.registerOutputParameters(&third, 1), 0);
    EXPECT_EQ(engine.sendMessage(messageOf(RawMessage::CONTROL, "01")), 1U);
    EXPECT_EQ(captured.err(), kBrokenPipeLine);
}

TEST_P(FailedWriteUnderParameterLock, CallbacksOfTheCloseMayUseTheTables) {
    struct Querying : RecordingCallbacks {
        void connectionStateChanged(CSClient::State oldState, CSClient::State newState) override {
            inputs = engine->getNumberOfInputParameters(false);
            EXPECT_EQ(engine->unregisterOutputParameters({"O"}), 0);
            RecordingCallbacks::connectionStateChanged(oldState, newState);
        }
        ConnectionEngine* engine = nullptr;
        unsigned int inputs = 0;
    } querying;
    ConnectionEngine engine;
    querying.engine = &engine;
    connect(engine);
    engine.addCallbackInterface(&querying);
    EXPECT_EQ(GetParam().run(engine), 2);
    EXPECT_EQ(querying.states(), "4->3");
    EXPECT_EQ(querying.inputs, GetParam().inputs);
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), GetParam().outputs - 1);
}

INSTANTIATE_TEST_SUITE_P(In, FailedWriteUnderParameterLock, testing::ValuesIn(kOperations), nameOf);

TEST(FailedWrites, NeverDeadlockWithStateChangesOnOtherThreads) {
    // The writer takes the lock of the connection after that of the parameters; whoever ends the connection, and the
    // worker, take them the other way round.
    ConnectionEngine engine(kSilent);
    EndOnExit end(engine);
    for (int round = 0; round < 150; ++round) {
        ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0);
        ASSERT_TRUE(waitUntil([&engine] { return engine.getState() == CSClient::STATE_READY; }));
        engine.probe().failWrites(-1, EPIPE, 1);
        auto writing = std::async(std::launch::async, [&engine] {
            engine.registerOutputParameters(&kFirstOutput, 1);
            engine.unregisterAllOutputParameters();
        });
        auto closing = std::async(std::launch::async, [&engine] { engine.forceCloseConnection(); });
        ASSERT_EQ(writing.wait_for(std::chrono::seconds(20)), std::future_status::ready);
        ASSERT_EQ(closing.wait_for(std::chrono::seconds(20)), std::future_status::ready);
        ASSERT_TRUE(waitForState(engine, CSClient::STATE_DISCONNECTED));
        // A failure that nobody has met must not wait for the next round.
        engine.pretendState(CSClient::STATE_READY);
        engine.sendMessage(messageOf(RawMessage::CONTROL, "01"));
        engine.pretendState(CSClient::STATE_DISCONNECTED);
    }
}

}  // namespace
}  // namespace com_tesk::test
