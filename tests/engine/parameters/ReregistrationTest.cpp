#include <new>
#include <thread>

#include "tests/engine/parameters/ParameterTest.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {
namespace {

const char kInputsLine[] = "Registering input parameters with server...\n";
const char kOutputsLine[] = "Registering output parameters with server...\n";

const std::string kUpdateOf7 = update(1, {updated(7, 1, "00 00 00 2A")});

class Reregistration : public testing::Test {
  protected:
    CapturedStreams streams;
    TestEngine engine;
    RecordingCallbacks callbacks;
};

TEST_F(Reregistration, RebuildsTheInputsWithoutIds) {
    engine.registerInputs({input("B", 5, 3), input("A", 2, 1)});
    engine.receive(inputsConfirmed({{7, "A"}, {8, "A"}, {9, "B"}}));
    engine.pretendState(CSClient::STATE_READY);
    engine.reregisterAllInputParameters();
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 2 mode 1 waiting", "B type 5 mode 3 waiting"));
    EXPECT_EQ(engine.inputIds(), "");
    EXPECT_EQ(engine.getNumberOfInputParametersWaitingForConfirmation(), 2);
    EXPECT_EQ(engine.requests(), inputRequest({input("A", 2, 1), input("B", 5, 3)})) << "in name order";
    EXPECT_EQ(streams.out(), kInputsLine);
    EXPECT_EQ(streams.outInsertions(), 1);
    engine.receive(inputsConfirmed({{11, "A"}, {12, "B"}}));
    EXPECT_EQ(engine.inputIds(), "11=A 12=B");
    EXPECT_EQ(streams.err(), "");
}

TEST_F(Reregistration, KeepsTheOutputs) {
    engine.registerOutputs({output("C", 2), output("B", 5), output("A", 1)});
    engine.publish({parameter("A", 1, 0x3F800000)});
    engine.receive(outputsConfirmed({{7, "A"}, {8, "A"}, {9, "B"}}));
    engine.pretendState(CSClient::STATE_READY);
    engine.reregisterAllOutputParameters();
    EXPECT_THAT(engine.outputTable(),
                ElementsAre("A type 1 id 8 published 3F800000", "B type 5 id 9 00000000", "C type 2 waiting 00000000"));
    EXPECT_EQ(engine.outputIds(), "7=A 8=A 9=B");
    EXPECT_EQ(engine.requests(), outputRequest({output("A"), output("B"), output("C", 2)})) << "in name order";
    EXPECT_EQ(streams.out(), kOutputsLine);
    EXPECT_EQ(streams.outInsertions(), 1);
    engine.receive(outputsConfirmed({{11, "A"}, {9, "B"}, {13, "C"}}));
    EXPECT_EQ(engine.outputIds(), "7=A 8=A 9=B 11=A 13=C");
    EXPECT_EQ(engine.getNumberOfOutputParametersWaitingForConfirmation(), -2);
    EXPECT_EQ(streams.err(), "");
}

TEST_F(Reregistration, WithoutConnectionRebuildsInputsAndSendsNothing) {
    engine.registerInputs({input("A")});
    engine.receive(inputsConfirmed({{7, "A"}}));
    engine.reregisterAllInputParameters();
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 1 waiting"));
    EXPECT_EQ(engine.inputIds(), "");
    EXPECT_EQ(streams.out(), kInputsLine);
    EXPECT_THAT(engine.requests(), IsEmpty());
}

TEST_F(Reregistration, EndsUpdatesUnderOldIds) {
    for (const bool isUpdatedBefore : {false, true}) {
        TestEngine each(1, kSilent);
        each.registerInputs({input("A")});
        each.receive(inputsConfirmed({{7, "A"}}));
        if (isUpdatedBefore) {
            each.receive(kUpdateOf7);
        }
        each.addCallbackInterface(&callbacks);
        each.reregisterAllInputParameters();
        each.receive(kUpdateOf7);
        EXPECT_THAT(callbacks.lines(), IsEmpty()) << isUpdatedBefore;
    }
}

TEST_F(Reregistration, WithoutInputsKeepsTheEarlierIdsOfUnregisteredInputs) {
    engine.registerInputs({input("A")});
    engine.receive(inputsConfirmed({{7, "A"}, {8, "A"}}));
    engine.unregisterInputParameters({"A"});
    engine.addCallbackInterface(&callbacks);
    engine.reregisterAllInputParameters();
    EXPECT_EQ(engine.getNumberOfInputParameters(true), 1U);
    engine.receive(kUpdateOf7);
    EXPECT_THAT(callbacks.lines(), ElementsAre("updated A=int:42"));
}

struct ReadyRow {
    std::vector<CSClient::InputDef> inputs;
    std::vector<CSClient::OutputDef> outputs;
    std::string out;
};

const ReadyRow kReadyRows[] = {
    {{}, {}, ""},
    {{input("A"), input("B", 2, 3)},
     {},
     std::string("Re-registering input/output parameters (2/0)...\n") + kInputsLine},
    {{},
     {output("X"), output("Y", 2), output("Z")},
     std::string("Re-registering input/output parameters (0/3)...\n") + kOutputsLine},
    {{input("A"), input("B", 2, 3)},
     {output("X"), output("Y", 2), output("Z")},
     std::string("Re-registering input/output parameters (2/3)...\n") + kInputsLine + kOutputsLine},
};

/// True when the engine is silent.
class ReachingReady : public testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(Silent, ReachingReady, testing::Bool());

TEST_P(ReachingReady, SendsVersionInputsAndOutputsOnEveryConnection) {
    for (const ReadyRow& row : kReadyRows) {
        SCOPED_TRACE(row.out);
        const CapturedStreams streams;
        TestEngine engine(1, GetParam() ? kSilent : 0);
        engine.registerInputs(row.inputs);
        engine.registerOutputs(row.outputs);
        engine.receive(outputsConfirmed({{1, "X"}, {2, "X"}, {3, "X"}}));  // Confirmations do not count.
        const std::string before = streams.err();
        Requests expected;
        std::string out;
        for (int connection = 0; connection < 3; ++connection) {
            expected = expected + versionRequest() + inputRequest(row.inputs) + outputRequest(row.outputs);
            out += GetParam() ? "" : row.out;
            engine.changeState(CSClient::STATE_CONNECTED);
            EXPECT_EQ(engine.getState(), CSClient::STATE_READY);
            EXPECT_EQ(engine.requests(), expected);
            EXPECT_EQ(streams.out(), out);
            engine.changeState(CSClient::STATE_RECONNECTING);
            engine.changeState(CSClient::STATE_CONNECTING);
        }
        EXPECT_EQ(streams.err(), before);
    }
}

/// A, B and C are confirmed inputs, and the engine is connected.
class DerivedRegistration : public testing::Test {
  protected:
    DerivedRegistration() {
        engine.registerInputs({input("C", 1, 3), input("B", 2, 2), input("A", 1, 1)});
        engine.receive(inputsConfirmed({{1, "A"}, {2, "B"}, {3, "C"}}));
        engine.pretendState(CSClient::STATE_READY);
    }

    /// Reregisters the inputs. Another thread registers `inputs` before the override does anything.
    void reregisterAfter(const std::vector<CSClient::InputDef>& inputs) {
        engine.onRegisterInputs = [this, inputs](const std::vector<CSClient::InputDef>& definitions) {
            std::thread([&] { engine.registerAsTheEngine(inputs); }).join();
            return engine.registerAsTheEngine(definitions);
        };
        engine.reregisterAllInputParameters();
    }

    CapturedStreams streams;
    DerivedEngine engine;
};

TEST_F(DerivedRegistration, ReceivesAllDefinitionsInNameOrder) {
    std::vector<std::string> seen;
    engine.onRegisterInputs = [&](const std::vector<CSClient::InputDef>& definitions) {
        EXPECT_THAT(engine.inputTable(), IsEmpty());
        for (const CSClient::InputDef& definition : definitions) {
            seen.push_back(definition.name + " type " + std::to_string(definition.type) + " mode " +
                           std::to_string(definition.subscriptionMode));
        }
        return engine.registerAsTheEngine(definitions);
    };
    engine.reregisterAllInputParameters();
    EXPECT_THAT(seen, ElementsAre("A type 1 mode 1", "B type 2 mode 2", "C type 1 mode 3"));
    EXPECT_THAT(engine.inputTable(),
                ElementsAre("A type 1 mode 1 waiting", "B type 2 mode 2 waiting", "C type 1 mode 3 waiting"));
    engine.pretendState(CSClient::STATE_CONNECTING);
    engine.changeState(CSClient::STATE_CONNECTED);
    EXPECT_EQ(seen.size(), 6U) << "also on the way to ready";
    engine.unregisterAllLocalParameters();
    engine.reregisterAllInputParameters();
    EXPECT_EQ(seen.size(), 6U) << "not without inputs";
}

TEST_F(DerivedRegistration, ErasesTheInputsThatItDoesNotRegister) {
    engine.onRegisterInputs = [&](const std::vector<CSClient::InputDef>& definitions) {
        return engine.registerAsTheEngine({definitions[1]});
    };
    engine.reregisterAllInputParameters();
    EXPECT_THAT(engine.inputTable(), ElementsAre("B type 2 mode 2 waiting"));
    EXPECT_EQ(engine.inputIds(), "");
}

TEST_F(DerivedRegistration, UnregistersAllNamesInOrder) {
    std::vector<std::string> unregistered;
    engine.onUnregisterInputs = [&](const std::vector<std::string>& names) { unregistered = names; };
    engine.unregisterAllInputParameters();
    EXPECT_THAT(unregistered, ElementsAre("A", "B", "C"));
    EXPECT_THAT(engine.inputTable(), IsEmpty());
}

TEST_F(DerivedRegistration, StopsAtANameRegisteredMeanwhile) {
    reregisterAfter({input("B", 5, 9)});
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 1 waiting", "B type 5 mode 9 waiting"))
        << "without the names after it";
    EXPECT_EQ(engine.inputIds(), "");
    EXPECT_EQ(streams.err(), "Parameter 'B' already registered.\n");
    EXPECT_EQ(engine.requests(), inputRequest({input("B", 5, 9)})) << "the only one that was not refused";
}

TEST_F(DerivedRegistration, StopsAtTheFirstOrLastNameRegisteredMeanwhile) {
    reregisterAfter({input("C", 1, 1)});
    EXPECT_THAT(engine.inputTable(),
                ElementsAre("A type 1 mode 1 waiting", "B type 2 mode 2 waiting", "C type 1 mode 1 waiting"));
    reregisterAfter({input("A", 1, 1)});
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 1 waiting"));
}

TEST_F(DerivedRegistration, IsNotStoppedByAnotherName) {
    reregisterAfter({input("AB", 1, 1)});
    EXPECT_EQ(engine.getNumberOfInputParameters(false), 4U);
    EXPECT_EQ(streams.err(), "");
    EXPECT_EQ(engine.requests().size(), 2U);
}

TEST_F(DerivedRegistration, WithoutMemoryLosesNoInput) {
    engine.onRegisterInputs = [](const std::vector<CSClient::InputDef>&) -> int { throw std::bad_alloc(); };
    EXPECT_THROW(engine.reregisterAllInputParameters(), std::bad_alloc);
    EXPECT_THAT(engine.inputTable(),
                ElementsAre("A type 1 mode 1 waiting", "B type 2 mode 2 waiting", "C type 1 mode 3 waiting"));
    EXPECT_EQ(engine.inputIds(), "");
    engine.onRegisterInputs = nullptr;
    engine.reregisterAllInputParameters();
    EXPECT_EQ(engine.requests(), inputRequest({input("A", 1, 1), input("B", 2, 2), input("C", 1, 3)}));
    engine.receive(inputsConfirmed({{21, "A"}, {22, "B"}, {23, "C"}}));
    EXPECT_EQ(engine.inputIds(), "21=A 22=B 23=C");
    EXPECT_EQ(engine.unregisterInputParameters({"C", "A", "B"}), 0);
    EXPECT_THAT(engine.inputTable(), IsEmpty());
}

TEST_F(DerivedRegistration, WithoutMemoryKeepsWhatItHasRegistered) {
    engine.onRegisterInputs = [&](const std::vector<CSClient::InputDef>& definitions) -> int {
        engine.registerAsTheEngine({definitions[0], input("B", 5, 9)});
        throw std::bad_alloc();
    };
    EXPECT_THROW(engine.reregisterAllInputParameters(), std::bad_alloc);
    EXPECT_THAT(engine.inputTable(),
                ElementsAre("A type 1 mode 1 waiting", "B type 5 mode 9 waiting", "C type 1 mode 3 waiting"));
}

}  // namespace
}  // namespace com_tesk::test
