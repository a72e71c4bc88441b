#include <gtest/gtest.h>

#include "tests/client/ProbedClient.h"

namespace com_tesk::test {
namespace {

using InputDefs = std::vector<CSClient::InputDef>;

const CSClient::InputDef kInputA{"A", CSClient::TYPE_FLOAT, 1};
const CSClient::InputDef kInputB{"B", CSClient::TYPE_FLOAT, 2};

/// A protocol may replace the engine's operations on inputs, so the client has to go through them.
class InputForwarding : public testing::Test {
  protected:
    InputForwarding() { client.probed->interceptsInputs = true; }

    const Lines& calls() const { return client.probed->calls; }

    ProbedClient client;
};

TEST_F(InputForwarding, OneInputIsRegisteredThroughTheVirtualOperation) {
    EXPECT_EQ(client.registerInputParameter(kInputA), 0);
    EXPECT_EQ(calls(), Lines{"register inputs 1: A"});
    EXPECT_EQ(client.probed->lastDefinitions, &kInputA);
}

TEST_F(InputForwarding, AnArrayOfInputsIsRegisteredThroughTheVirtualOperation) {
    const CSClient::InputDef definitions[] = {kInputB, kInputA, {"unseen", CSClient::TYPE_FLOAT, 1}};
    EXPECT_EQ(client.registerInputParameters(definitions, 2), 0);
    EXPECT_EQ(calls(), Lines{"register inputs 2: B A"});
    EXPECT_EQ(client.probed->lastDefinitions, definitions);
}

TEST_F(InputForwarding, AnEmptyArrayOfInputsIsForwarded) {
    client.probed->inputResult = 7;
    EXPECT_EQ(client.registerInputParameters(nullptr, 0), 7);
    EXPECT_EQ(calls(), Lines{"register inputs 0:"});
}

TEST_F(InputForwarding, AVectorOfInputsIsRegisteredFromItsFirstElementOn) {
    const InputDefs definitions{kInputB, kInputA};
    EXPECT_EQ(client.registerInputParameters(definitions), 0);
    EXPECT_EQ(calls(), Lines{"register inputs 2: B A"});
    EXPECT_EQ(client.probed->lastDefinitions, definitions.data());
}

TEST_F(InputForwarding, AnEmptyVectorOfInputsReturnsZeroWithoutCallingTheEngine) {
    client.probed->inputResult = 7;
    EXPECT_EQ(client.registerInputParameters(InputDefs{}), 0);
    EXPECT_EQ(calls(), Lines{});
}

TEST_F(InputForwarding, EachFormOfRegistrationHandsTheResultOnUnchanged) {
    client.probed->inputResult = -5;
    EXPECT_EQ(client.registerInputParameter(kInputA), -5);
    EXPECT_EQ(client.registerInputParameters(&kInputA, 1), -5);
    EXPECT_EQ(client.registerInputParameters(InputDefs{kInputA}), -5);
}

TEST_F(InputForwarding, OneNameIsUnregisteredAsAListOfOne) {
    EXPECT_EQ(client.unregisterInputParameter("A"), 0);
    EXPECT_EQ(calls(), Lines{"unregister inputs 1: A"});
}

TEST_F(InputForwarding, AListOfNamesIsForwardedAsItIs) {
    EXPECT_EQ(client.unregisterInputParameters(Lines{"B", "A", "B"}), 0);
    EXPECT_EQ(calls(), Lines{"unregister inputs 3: B A B"});
}

TEST_F(InputForwarding, AnEmptyListOfNamesIsForwarded) {
    client.probed->inputResult = 7;
    EXPECT_EQ(client.unregisterInputParameters(Lines{}), 7);
    EXPECT_EQ(calls(), Lines{"unregister inputs 0:"});
}

TEST_F(InputForwarding, EachFormOfUnregistrationHandsTheResultOnUnchanged) {
    client.probed->inputResult = -5;
    EXPECT_EQ(client.unregisterInputParameter("A"), -5);
    EXPECT_EQ(client.unregisterInputParameters(Lines{"A"}), -5);
    EXPECT_EQ(client.unregisterInputParameters(&kInputA, 1), -5);
}

TEST_F(InputForwarding, AllInputsAreUnregisteredThroughTheVirtualOperationInNameOrder) {
    client.probed->interceptsInputs = false;
    client.registerInputParameters(InputDefs{kInputB, kInputA});
    client.probed->interceptsInputs = true;
    client.unregisterAllInputParameters();
    EXPECT_EQ(calls().back(), "unregister inputs 2: A B");
}

TEST(InputRegistration, DefinitionsArriveInTheTableAsTheyAre) {
    ProbedClient client;
    EXPECT_EQ(client.registerInputParameter({"A", CSClient::TYPE_INT, 3}), 0);
    const CSClientProtocol::InputParameterEntry entry = client.probed->input("A");
    EXPECT_EQ(entry.name, "A");
    EXPECT_EQ(entry.type, CSClient::TYPE_INT);
    EXPECT_EQ(entry.subscriptionMode, 3U);
}

TEST(InputRegistration, ARefusedInputIsReported) {
    ProbedClient client;
    EXPECT_EQ(client.registerInputParameter({"A", CSClient::TYPE_UNDEFINED, 1}), 3);
    EXPECT_EQ(client.probed->calls, Lines{});
}

TEST(InputRegistration, UnregisteringAllInputsLeavesTheOutputsAlone) {
    ProbedClient client;
    client.registerInputParameter(kInputA);
    client.registerOutputParameter({"A", CSClient::TYPE_FLOAT});
    client.unregisterAllInputParameters();
    EXPECT_EQ(client.getNumberOfUnregisteredInputParameters(), 0);
    EXPECT_TRUE(client.probed->knowsOutput("A"));
    EXPECT_EQ(client.probed->calls.back(), "send end of inputs: A");
}

}  // namespace
}  // namespace com_tesk::test
