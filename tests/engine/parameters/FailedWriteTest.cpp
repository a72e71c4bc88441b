#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <future>

#include "tests/engine/parameters/ParameterEngine.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {
namespace {

using testing::ElementsAre;

const char kBrokenPipe[] = "Error writing to server (32) \n";

/// Uses the tables inside each state change: that waits for ever if the thread still holds their lock.
class AskingCallbacks : public RecordingCallbacks {
  public:
    explicit AskingCallbacks(ParameterEngine& askedEngine) : engine(askedEngine) {}

    void connectionStateChanged(CSClient::State oldState, CSClient::State newState) override {
        engine.getNumberOfOutputParameters(false);
        engine.getNumberOfInputParameters(false);
        RecordingCallbacks::connectionStateChanged(oldState, newState);
    }

  private:
    ParameterEngine& engine;
};

struct Operation {
    const char* name;
    std::function<int(ParameterEngine&)> run;
    bool isRegistration;
};

std::ostream& operator<<(std::ostream& stream, const Operation& operation) {
    return stream << operation.name;
}

/// An operation whose request cannot be written. Inputs and outputs A are confirmed as 7, and the connection stands.
class FailedWrite : public testing::TestWithParam<Operation> {
  protected:
    static void prepare(ParameterEngine& engine) {
        engine.connect();
        engine.registerInputs({input("A")});
        engine.registerOutputs({output("A")});
        engine.receive(inputsConfirmed({{7, "A"}}));
        engine.receive(outputsConfirmed({{7, "A"}}));
    }

    /// What the operation must leave in the tables: everything, with what it registered.
    static void expectEverythingKept(const ParameterEngine& engine) {
        EXPECT_TRUE(engine.hasInputParameter("A", true));
        EXPECT_TRUE(engine.hasOutputParameter("A", true));
        EXPECT_EQ(engine.inputIds(), "7=A");
        EXPECT_EQ(engine.outputIds(), "7=A");
        EXPECT_EQ(engine.getNumberOfInputParametersWaitingForConfirmation() +
                      engine.getNumberOfOutputParametersWaitingForConfirmation(),
                  GetParam().isRegistration ? 1 : 0);
    }

    CapturedStreams streams;
};

TEST_P(FailedWrite, GivesTwoAndEndsTheConnectionOnce) {
    ParameterEngine engine;
    prepare(engine);
    AskingCallbacks callbacks(engine);
    engine.addCallbackInterface(&callbacks);
    engine.fakeTransport().failWrites(-1, EPIPE);
    EXPECT_EQ(GetParam().run(engine), 2);
    EXPECT_EQ(engine.getState(), CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(callbacks.states(), "4->3");
    EXPECT_EQ(streams.err(), kBrokenPipe);
    EXPECT_EQ(streams.errInsertions(), 1);
    EXPECT_EQ(streams.out(), "");
    EXPECT_EQ(engine.requests().size(), 2U) << "the two registrations before it";
    expectEverythingKept(engine);
}

TEST_P(FailedWrite, IsTheSameForAWriteThatFellShort) {
    ParameterEngine engine;
    prepare(engine);
    engine.fakeTransport().failWrites(31, EAGAIN);
    EXPECT_EQ(GetParam().run(engine), 2);
    EXPECT_EQ(engine.getState(), CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(streams.err(), "Error writing to server (11) \n");
    expectEverythingKept(engine);
}

TEST_P(FailedWrite, PrintsNothingWhenSilent) {
    ParameterEngine engine(1, CSClient::OPTION_SILENT);
    prepare(engine);
    engine.fakeTransport().failWrites(-1, EPIPE);
    EXPECT_EQ(GetParam().run(engine), 2);
    EXPECT_EQ(streams.out() + streams.err(), "");
    EXPECT_EQ(engine.getState(), CSClient::STATE_DISCONNECTING);
}

TEST_P(FailedWrite, WithReconnectingSleepsASecondWithoutALock) {
    ParameterEngine engine(1, CSClient::OPTION_AUTO_RECONNECT);
    prepare(engine);
    AskingCallbacks callbacks(engine);
    engine.addCallbackInterface(&callbacks);
    engine.fakeTransport().failWrites(-1, EPIPE);
    const auto begin = std::chrono::steady_clock::now();
    auto operation = std::async(std::launch::async, [&engine] { return GetParam().run(engine); });
    ASSERT_TRUE(callbacks.waitFor("state 5->1"));
    // Meanwhile both locks are to be had, by an operation on parameters and by one on the connection.
    engine.getNumberOfInputParameters(false);
    FakeTransport refused;
    EXPECT_FALSE(engine.changeCommsInterface(&refused));
    EXPECT_EQ(operation.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    EXPECT_EQ(operation.get(), 2);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(990));
    EXPECT_EQ(engine.getState(), CSClient::STATE_CONNECTING);
    EXPECT_EQ(callbacks.states(), "4->5 5->1");
    EXPECT_EQ(streams.err(), kBrokenPipe);
    EXPECT_EQ(streams.out(), "Attempting to reconnect...\n");
    expectEverythingKept(engine);
}

const Operation kOperations[] = {
    {"RegisterInputs", [](ParameterEngine& engine) { return engine.registerInputs({input("N")}); }, true},
    {"RegisterOutputs", [](ParameterEngine& engine) { return engine.registerOutputs({output("N")}); }, true},
    {"UnregisterInputs", [](ParameterEngine& engine) { return engine.unregisterInputParameters({"A"}); }, false},
    {"UnregisterOutputs", [](ParameterEngine& engine) { return engine.unregisterOutputParameters({"A"}); }, false},
    {"Publish", [](ParameterEngine& engine) { return engine.publish({record("A", 1, 5)}); }, false},
};

INSTANTIATE_TEST_SUITE_P(Operations, FailedWrite, testing::ValuesIn(kOperations),
                         [](const auto& information) { return information.param.name; });

class AfterAFailedWrite : public testing::Test {
  protected:
    CapturedStreams streams;
    ParameterEngine engine;
};

TEST_F(AfterAFailedWrite, WhatWasToBeRegisteredReachesTheNextConnection) {
    engine.connect();
    engine.fakeTransport().failWrites(-1, EPIPE);
    EXPECT_EQ(engine.registerInputs({input("A")}), 2);
    EXPECT_EQ(engine.registerOutputs({output("X")}), 0) << "there is no connection any more";
    engine.connect();
    EXPECT_THAT(engine.requests(), ElementsAre(frame("04 02 7F FF 00 00 00 40 00 7F 00 01 00 01 00 00 00 00 00 01"
                                                     "00 00 2E E0 00 00 2E E0 00 00 00 00" +
                                                     hexField("A")),
                                               frame("04 02 7F FF 00 00 00 3C 00 7F 00 02 00 01 00 00 00 00 00 01"
                                                     "00 00 04 B0 00 00 00 00" +
                                                     hexField("X"))));
}

TEST_F(AfterAFailedWrite, APublishedValueReachesTheNextConnection) {
    engine.connect();
    engine.registerOutputs({output("X")});
    engine.fakeTransport().failWrites(-1, EPIPE);
    EXPECT_EQ(engine.publish({record("X", 1, 0x3F800000)}), 2);
    EXPECT_THAT(engine.outputTable(), ElementsAre("X type 1 waiting published 3F800000"));
    engine.connect();
    engine.receive(outputsConfirmed({{9, "X"}}));
    EXPECT_EQ(engine.requests().back(), frame("04 02 7F FF 00 00 00 24 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 00 01"
                                              "00 00 00 09 00 00 00 00 3F 80 00 00"));
}

TEST_F(AfterAFailedWrite, UnregisteringAllKeepsThemAll) {
    engine.connect();
    engine.registerInputs({input("A"), input("B")});
    engine.registerOutputs({output("X")});
    engine.fakeTransport().failWrites(-1, EPIPE);
    engine.unregisterAllInputParameters();
    EXPECT_EQ(engine.getNumberOfInputParameters(false), 2U);
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), 1U);
    EXPECT_EQ(engine.getState(), CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(streams.err(), kBrokenPipe);
}

/// The number of a write, from 1, that fails while a new connection registers everything again.
class FailedReregistration : public testing::TestWithParam<int> {
  protected:
    void connectWithFailure(ParameterEngine& engine) {
        engine.registerInputs({input("A")});
        engine.registerOutputs({output("X")});
        int writes = 0;
        engine.fakeTransport().onWrite = [&engine, &writes] {
            if (++writes == GetParam()) {
                engine.fakeTransport().failWrites(-1, EPIPE);
            }
        };
        engine.connect();
        engine.fakeTransport().onWrite = nullptr;
    }

    CapturedStreams streams;
};

TEST_P(FailedReregistration, EndsTheConnectionOnceAndWritesNothingMore) {
    ParameterEngine engine;
    AskingCallbacks callbacks(engine);
    engine.addCallbackInterface(&callbacks);
    connectWithFailure(engine);
    EXPECT_EQ(callbacks.states(), "1->2 2->4 4->3");
    EXPECT_EQ(engine.getState(), CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(streams.err(), kBrokenPipe);
    EXPECT_EQ(engine.fakeTransport().written().size(), static_cast<std::size_t>(GetParam() - 1));
    EXPECT_TRUE(engine.hasInputParameter("A", false));
    EXPECT_TRUE(engine.hasOutputParameter("X", false));
}

TEST_P(FailedReregistration, WithReconnectingRunsAgainOnTheNextConnection) {
    ParameterEngine engine(1, CSClient::OPTION_AUTO_RECONNECT);
    AskingCallbacks callbacks(engine);
    engine.addCallbackInterface(&callbacks);
    connectWithFailure(engine);
    EXPECT_EQ(callbacks.states(), "1->2 2->4 4->5 5->1");
    const std::size_t before = engine.fakeTransport().written().size();
    engine.connect();
    EXPECT_EQ(engine.getState(), CSClient::STATE_READY);
    EXPECT_EQ(engine.fakeTransport().written().size(), before + 3) << "version, inputs, outputs";
    EXPECT_EQ(streams.err(), kBrokenPipe);
}

INSTANTIATE_TEST_SUITE_P(Writes, FailedReregistration, testing::Values(1, 2, 3));

}  // namespace
}  // namespace com_tesk::test
