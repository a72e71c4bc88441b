#include <gtest/gtest.h>

#include "tests/client/ProbedClient.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

using OutputDefs = std::vector<CSClient::OutputDef>;

const CSClient::OutputDef kOutputA{"A", CSClient::TYPE_FLOAT};
const CSClient::OutputDef kOutputB{"B", CSClient::TYPE_FLOAT};

TEST(OutputForwarding, OneOutputIsRegisteredInARequestOfItsOwn) {
    ProbedClient client;
    EXPECT_EQ(client.registerOutputParameter(kOutputA), 0);
    EXPECT_EQ(client.probed->calls, Lines{"send outputs: A"});
    EXPECT_TRUE(client.probed->knowsOutput("A"));
}

TEST(OutputForwarding, TheTypeOfOneOutputIsKept) {
    ProbedClient client;
    client.registerOutputParameter({"A", CSClient::TYPE_INT});
    EXPECT_EQ(client.probed->output("A").type, CSClient::TYPE_INT);
}

TEST(OutputForwarding, AnArrayOfOutputsIsRegisteredInOneRequestInItsOrder) {
    ProbedClient client;
    const CSClient::OutputDef definitions[] = {kOutputB, kOutputA, {"unseen", CSClient::TYPE_FLOAT}};
    EXPECT_EQ(client.registerOutputParameters(definitions, 2), 0);
    EXPECT_EQ(client.probed->calls, Lines{"send outputs: B A"});
}

TEST(OutputForwarding, AnEmptyArrayOfOutputsIsAccepted) {
    ProbedClient client;
    EXPECT_EQ(client.registerOutputParameters(nullptr, 0), 0);
    EXPECT_EQ(client.probed->calls, Lines{});
}

TEST(OutputForwarding, AVectorOfOutputsIsRegisteredInOneRequest) {
    ProbedClient client;
    EXPECT_EQ(client.registerOutputParameters(OutputDefs{kOutputB, kOutputA}), 0);
    EXPECT_EQ(client.probed->calls, Lines{"send outputs: B A"});
}

TEST(OutputForwarding, AnEmptyVectorOfOutputsReturnsZeroAndSendsNothing) {
    ProbedClient client;
    client.probed->senderResult = 2;
    EXPECT_EQ(client.registerOutputParameters(OutputDefs{}), 0);
    EXPECT_EQ(client.probed->calls, Lines{});
}

TEST(OutputForwarding, EachFormOfRegistrationHandsTheResultOnUnchanged) {
    ProbedClient client;
    client.probed->senderResult = 2;
    EXPECT_EQ(client.registerOutputParameter(kOutputA), 2);
    EXPECT_EQ(client.registerOutputParameters(&kOutputB, 1), 2);
    EXPECT_EQ(client.registerOutputParameters(OutputDefs{{"C", CSClient::TYPE_FLOAT}}), 2);
}

TEST(OutputForwarding, EachFormOfRegistrationReportsARefusal) {
    ProbedClient client;
    const CSClient::OutputDef untyped{"A", CSClient::TYPE_UNDEFINED};
    EXPECT_EQ(client.registerOutputParameter(untyped), 3);
    EXPECT_EQ(client.registerOutputParameters(&untyped, 1), 3);
    EXPECT_EQ(client.registerOutputParameters(OutputDefs{untyped}), 3);
    EXPECT_EQ(client.probed->calls, Lines{});
}

TEST(OutputForwarding, ARefusalOfAClientThatIsNotSilentIsOneLineOnStandardError) {
    const CapturedStreams streams;
    ProbedClient client(0);
    client.registerOutputParameter({"A", CSClient::TYPE_UNDEFINED});
    EXPECT_EQ(streams.err(), "Invalid parameter type for output id string 'A'!\n");
    EXPECT_EQ(streams.out(), "");
}

TEST(OutputForwarding, OneNameIsUnregisteredInARequestOfItsOwn) {
    ProbedClient client;
    client.registerOutputParameters(OutputDefs{kOutputA, kOutputB});
    EXPECT_EQ(client.unregisterOutputParameter("B"), 0);
    EXPECT_EQ(client.probed->calls.back(), "send end of outputs: B");
    EXPECT_TRUE(client.probed->knowsOutput("A"));
    EXPECT_FALSE(client.probed->knowsOutput("B"));
}

TEST(OutputForwarding, AListOfNamesIsUnregisteredInOneRequestInItsOrder) {
    ProbedClient client;
    client.registerOutputParameters(OutputDefs{kOutputA, kOutputB});
    EXPECT_EQ(client.unregisterOutputParameters(Lines{"B", "unknown", "A"}), 0);
    EXPECT_EQ(client.probed->calls.back(), "send end of outputs: B A");
}

TEST(OutputForwarding, AnEmptyListOfNamesIsAccepted) {
    ProbedClient client;
    client.probed->senderResult = 2;
    EXPECT_EQ(client.unregisterOutputParameters(Lines{}), 0);
    EXPECT_EQ(client.probed->calls, Lines{});
}

TEST(OutputForwarding, EachFormOfUnregistrationHandsTheResultOnUnchanged) {
    ProbedClient client;
    client.registerOutputParameter(kOutputA);
    client.probed->senderResult = 2;
    EXPECT_EQ(client.unregisterOutputParameter("A"), 2);
    EXPECT_EQ(client.unregisterOutputParameters(Lines{"A"}), 2);
    EXPECT_EQ(client.unregisterOutputParameters(&kOutputA, 1), 2);
    EXPECT_TRUE(client.probed->knowsOutput("A")) << "a failed write forgets nothing";
}

TEST(OutputForwarding, AllOutputsAreUnregisteredInOneRequestInNameOrder) {
    ProbedClient client;
    client.registerOutputParameters(OutputDefs{kOutputB, kOutputA});
    client.unregisterAllOutputParameters();
    EXPECT_EQ(client.probed->calls.back(), "send end of outputs: A B");
    EXPECT_EQ(client.getNumberOfUnregisteredOutputParameters(), 0);
}

TEST(OutputForwarding, UnregisteringAllOutputsLeavesTheInputsAlone) {
    ProbedClient client;
    client.registerOutputParameter(kOutputA);
    client.registerInputParameter({"A", CSClient::TYPE_FLOAT, 1});
    client.unregisterAllOutputParameters();
    EXPECT_TRUE(client.probed->knowsInput("A"));
}

}  // namespace
}  // namespace com_tesk::test
