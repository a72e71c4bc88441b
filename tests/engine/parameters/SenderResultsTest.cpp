#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "tests/engine/parameters/ParameterEngine.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A derived protocol's senders may give any number.
class SenderResults : public testing::TestWithParam<int> {
  protected:
    /// A is confirmed, B waits; of inputs and outputs alike.
    void registerAll() {
        engine.registerInputs({input("A"), input("B")});
        engine.registerOutputs({output("A"), output("B")});
        engine.receive(inputsConfirmed({{7, "A"}}));
        engine.receive(outputsConfirmed({{8, "A"}}));
        engine.calls.clear();
        engine.result = GetParam();
    }

    SenderEngine engine;
};

TEST_P(SenderResults, RegisteringInputsGivesTheResultAndKeepsTheEntries) {
    engine.result = GetParam();
    EXPECT_EQ(engine.registerInputs({input("B"), input("A")}), GetParam());
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 1 waiting", "B type 1 mode 1 waiting"));
    EXPECT_THAT(engine.calls, ElementsAre("register inputs B A"));
}

TEST_P(SenderResults, RegisteringOutputsGivesTheResultAndKeepsTheEntries) {
    engine.result = GetParam();
    EXPECT_EQ(engine.registerOutputs({output("B"), output("A")}), GetParam());
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 waiting 00000000", "B type 1 waiting 00000000"));
    EXPECT_THAT(engine.calls, ElementsAre("register outputs B A"));
}

TEST_P(SenderResults, PublishingGivesTheResultAndKeepsTheValues) {
    registerAll();
    EXPECT_EQ(engine.publish({record("B", 1, 2), record("A", 1, 1)}), GetParam());
    EXPECT_THAT(engine.outputTable(),
                ElementsAre("A type 1 id 8 published 00000001", "B type 1 waiting published 00000002"));
    EXPECT_THAT(engine.calls, ElementsAre("publish mode 0 B A"));
}

TEST_P(SenderResults, UnregisteringOnlyUnknownInputsStillAsksTheSender) {
    registerAll();
    EXPECT_EQ(engine.unregisterInputParameters({"X"}), GetParam());
    EXPECT_THAT(engine.calls, ElementsAre("unregister inputs"));
}

TEST_P(SenderResults, UnregisteringOnlyUnknownOutputsStillAsksTheSender) {
    registerAll();
    EXPECT_EQ(engine.unregisterOutputParameters({"X"}), GetParam());
    EXPECT_THAT(engine.calls, ElementsAre("unregister outputs"));
}

TEST_P(SenderResults, CallsThatSayNothingAskNoSender) {
    registerAll();
    EXPECT_EQ(engine.registerInputParameters(nullptr, 0), 0);
    EXPECT_EQ(engine.registerOutputParameters(nullptr, 0), 0);
    EXPECT_EQ(engine.unregisterInputParameters({}), 0);
    EXPECT_EQ(engine.unregisterOutputParameters({}), 0);
    EXPECT_EQ(engine.publishParameters(nullptr, 0, CSClientProtocol::PUBLISH_DEFAULT), 0);
    EXPECT_THAT(engine.calls, IsEmpty());
}

TEST_P(SenderResults, RefusedCallsAskNoSender) {
    const CapturedStreams streams;
    registerAll();
    EXPECT_EQ(engine.registerInputs({input("C"), input("C")}), 3);
    EXPECT_EQ(engine.registerOutputs({output("C"), output("A")}), 3);
    EXPECT_EQ(engine.publish({record("A", 1, 1), record("X", 1, 1)}), 3);
    EXPECT_THAT(engine.calls, IsEmpty());
}

TEST_P(SenderResults, ReregistrationIgnoresTheResult) {
    const CapturedStreams streams;
    registerAll();
    engine.reregisterAllInputParameters();
    engine.reregisterAllOutputParameters();
    EXPECT_THAT(engine.calls, ElementsAre("register inputs A B", "register outputs A B"));
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 1 waiting", "B type 1 mode 1 waiting"));
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 id 8 00000000", "B type 1 waiting 00000000"));
}

INSTANTIATE_TEST_SUITE_P(Numbers, SenderResults, testing::Values(0, 1, 2, 3, 4, 5, -1));

using UnregistrationSuccess = SenderResults;

TEST_P(UnregistrationSuccess, LetsInputsGo) {
    registerAll();
    EXPECT_EQ(engine.unregisterInputParameters({"B", "A"}), GetParam());
    EXPECT_THAT(engine.calls, ElementsAre("unregister inputs B A"));
    EXPECT_THAT(engine.inputTable(), IsEmpty());
    EXPECT_EQ(engine.inputIds(), "");
}

TEST_P(UnregistrationSuccess, LetsOutputsGo) {
    registerAll();
    EXPECT_EQ(engine.unregisterOutputParameters({"B", "A"}), GetParam());
    EXPECT_THAT(engine.calls, ElementsAre("unregister outputs B A"));
    EXPECT_THAT(engine.outputTable(), IsEmpty());
    EXPECT_EQ(engine.outputIds(), "");
}

INSTANTIATE_TEST_SUITE_P(Numbers, UnregistrationSuccess, testing::Values(0, 4));

using UnregistrationFailure = SenderResults;

TEST_P(UnregistrationFailure, KeepsInputs) {
    registerAll();
    EXPECT_EQ(engine.unregisterInputParameters({"B", "A"}), GetParam());
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 1 id 7", "B type 1 mode 1 waiting"));
    EXPECT_EQ(engine.inputIds(), "7=A");
}

TEST_P(UnregistrationFailure, KeepsOutputs) {
    registerAll();
    EXPECT_EQ(engine.unregisterOutputParameters({"B", "A"}), GetParam());
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 id 8 00000000", "B type 1 waiting 00000000"));
    EXPECT_EQ(engine.outputIds(), "8=A");
}

TEST_P(UnregistrationFailure, KeepsAllWhenAllAreUnregistered) {
    registerAll();
    engine.unregisterAllInputParameters();
    engine.unregisterAllOutputParameters();
    EXPECT_THAT(engine.calls, ElementsAre("unregister inputs A B", "unregister outputs A B"));
    EXPECT_EQ(engine.getNumberOfInputParameters(false), 2U);
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), 2U);
}

INSTANTIATE_TEST_SUITE_P(Numbers, UnregistrationFailure,
                         testing::Values(1, 2, 3, 5, 6, 7, 8, 12, 0x104, -1, -4, std::numeric_limits<int>::min()));

}  // namespace
}  // namespace com_tesk::test
