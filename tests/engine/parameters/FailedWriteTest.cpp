#include <cerrno>
#include <chrono>
#include <future>

#include "tests/engine/parameters/ParameterTest.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/Waiting.h"

namespace com_tesk::test {
namespace {

const char kBrokenPipe[] = "Error writing to server (32) \n";

/// An engine whose callbacks use the tables inside each state change. They do not return when the thread still holds
/// the lock of the tables.
class FailingEngine : public TestEngine {
  public:
    explicit FailingEngine(unsigned int options = 0) : TestEngine(1, options) {
        callbacks.onLine = [this](const std::string&) {
            getNumberOfOutputParameters(false);
            getNumberOfInputParameters(false);
        };
        addCallbackInterface(&callbacks);
    }

    RecordingCallbacks callbacks;
};

struct Operation {
    const char* name;
    std::function<int(TestEngine&)> run;
    int registered;
};

const Operation kOperations[] = {
    {"RegisterInputs", [](TestEngine& engine) { return engine.registerInputs({input("N")}); }, 1},
    {"RegisterOutputs", [](TestEngine& engine) { return engine.registerOutputs({output("N")}); }, 1},
    {"UnregisterInputs", [](TestEngine& engine) { return engine.unregisterInputParameters({"A"}); }, 0},
    {"UnregisterOutputs", [](TestEngine& engine) { return engine.unregisterOutputParameters({"A"}); }, 0},
    {"Publish", [](TestEngine& engine) { return engine.publish({parameter("A", 1, 5)}); }, 0},
};

/// An operation whose request cannot be written. The engine is connected. An input A and an output A are confirmed as 7.
class FailedWrite : public testing::TestWithParam<Operation> {
  protected:
    static void connect(FailingEngine& engine) {
        engine.connect();
        engine.registerInputs({input("A")});
        engine.registerOutputs({output("A")});
        engine.receive(inputsConfirmed({{7, "A"}}));
        engine.receive(outputsConfirmed({{7, "A"}}));
        engine.ignoreRequestsSoFar();
    }

    /// Expects everything in the tables, with the parameter that the operation registered.
    static void expectEverythingKept(const TestEngine& engine) {
        EXPECT_TRUE(engine.hasInputParameter("A", true));
        EXPECT_TRUE(engine.hasOutputParameter("A", true));
        EXPECT_EQ(engine.inputIds(), "7=A");
        EXPECT_EQ(engine.outputIds(), "7=A");
        EXPECT_EQ(engine.getNumberOfInputParametersWaitingForConfirmation() +
                      engine.getNumberOfOutputParametersWaitingForConfirmation(),
                  GetParam().registered);
        EXPECT_THAT(engine.requests(), IsEmpty());
    }

    CapturedStreams streams;
};
INSTANTIATE_TEST_SUITE_P(Operations, FailedWrite, testing::ValuesIn(kOperations),
                         [](const auto& information) { return information.param.name; });

TEST_P(FailedWrite, GivesTwoAndEndsTheConnectionOnce) {
    for (const bool isShort : {false, true}) {
        for (const unsigned int options : {0U, kSilent}) {
            FailingEngine engine(options);
            connect(engine);
            engine.fakeTransport().failWrites(isShort ? 31 : -1, isShort ? EAGAIN : EPIPE);
            EXPECT_EQ(GetParam().run(engine), 2);
            EXPECT_EQ(engine.getState(), CSClient::STATE_DISCONNECTING);
            EXPECT_EQ(engine.callbacks.states(), "1->2 2->4 4->3");
            expectEverythingKept(engine);
        }
    }
    EXPECT_EQ(streams.err(), std::string(kBrokenPipe) + "Error writing to server (11) \n");
    EXPECT_EQ(streams.errInsertions(), 2);
    EXPECT_EQ(streams.out(), "");
}

TEST_P(FailedWrite, WithReconnectingSleepsASecondWithoutALock) {
    FailingEngine engine(kReconnect);
    connect(engine);
    engine.fakeTransport().failWrites(-1, EPIPE);
    const Stopwatch stopwatch;
    auto operation = std::async(std::launch::async, [&engine] { return GetParam().run(engine); });
    ASSERT_TRUE(engine.callbacks.waitFor("state 5->1"));
    // Both locks are free: an operation on parameters and one on the connection return.
    engine.getNumberOfInputParameters(false);
    FakeTransport refused;
    EXPECT_FALSE(engine.changeCommsInterface(&refused));
    EXPECT_EQ(operation.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    EXPECT_EQ(operation.get(), 2);
    EXPECT_GE(stopwatch.seconds(), 0.99);
    EXPECT_EQ(engine.getState(), CSClient::STATE_CONNECTING);
    EXPECT_EQ(engine.callbacks.states(), "1->2 2->4 4->5 5->1");
    EXPECT_EQ(streams.err(), kBrokenPipe);
    EXPECT_EQ(streams.out(), "Attempting to reconnect...\n");
    expectEverythingKept(engine);
}

TEST(AfterAFailedWrite, TheNextConnectionSendsRegistrationsAndValues) {
    TestEngine engine(1, kSilent);
    engine.connect();
    engine.fakeTransport().failWrites(-1, EPIPE);
    EXPECT_EQ(engine.registerInputs({input("A")}), 2);
    EXPECT_EQ(engine.registerOutputs({output("X")}), 0) << "there is no connection any more";
    engine.connect();
    engine.fakeTransport().failWrites(-1, EPIPE);
    EXPECT_EQ(engine.publish({parameter("X", 1, 0x3F800000)}), 2);
    EXPECT_THAT(engine.outputTable(), ElementsAre("X type 1 waiting published 3F800000"));
    engine.connect();
    engine.receive(outputsConfirmed({{9, "X"}}));
    const Requests both = versionRequest() + inputRequest({input("A")}) + outputRequest({output("X")});
    EXPECT_EQ(engine.requests(), versionRequest() + both + both + publication({{9, 0, 0x3F800000}}));
}

/// The options, and the number of the write that fails while a new connection registers everything again.
class FailedReregistration : public testing::TestWithParam<std::tuple<unsigned int, int>> {};
INSTANTIATE_TEST_SUITE_P(Writes, FailedReregistration,
                         testing::Combine(testing::Values(0U, kReconnect), testing::Values(1, 2, 3)));

TEST_P(FailedReregistration, EndsTheConnectionAndIsRepeatedOnTheNext) {
    const auto [options, failing] = GetParam();
    const Requests all = versionRequest() + inputRequest({input("A")}) + outputRequest({output("X")});
    const CapturedStreams streams;
    FailingEngine engine(options);
    engine.registerInputs({input("A")});
    engine.registerOutputs({output("X")});
    engine.fakeTransport().onWrite = [&engine, left = failing]() mutable {
        if (--left == 0) {
            engine.fakeTransport().failWrites(-1, EPIPE);
        }
    };
    engine.connect();
    EXPECT_EQ(engine.callbacks.states(), options == 0 ? "1->2 2->4 4->3" : "1->2 2->4 4->5 5->1");
    EXPECT_EQ(streams.err(), kBrokenPipe);
    EXPECT_EQ(engine.requests(), Requests(all.begin(), all.begin() + failing - 1)) << "nothing after the failure";
    engine.ignoreRequestsSoFar();
    engine.connect();
    EXPECT_EQ(engine.getState(), CSClient::STATE_READY);
    EXPECT_EQ(engine.requests(), all);
    EXPECT_EQ(streams.err(), kBrokenPipe);
}

}  // namespace
}  // namespace com_tesk::test
