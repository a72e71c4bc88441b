#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/client/ProbedClient.h"

namespace com_tesk::test {
namespace {

/// The text of the length error that `call` throws.
template <typename Call>
std::string lengthErrorOf(const Call& call) {
    try {
        call();
    } catch (const std::length_error& error) {
        return error.what();
    }
    return "no length error";
}

TEST(UnregisterByDefinition, OutputsAreUnregisteredByTheNamesOfTheirDefinitionsInOrder) {
    ProbedClient client;
    const CSClient::OutputDef definitions[] = {
        {"B", CSClient::TYPE_FLOAT}, {"A", CSClient::TYPE_FLOAT}, {"C", CSClient::TYPE_FLOAT}};
    client.registerOutputParameters(definitions, 3);
    EXPECT_EQ(client.unregisterOutputParameters(definitions, 2), 0);
    EXPECT_EQ(client.probed->calls.back(), "send end of outputs: B A");
    EXPECT_TRUE(client.probed->knowsOutput("C"));
}

TEST(UnregisterByDefinition, OnlyTheNameOfAnOutputDefinitionCounts) {
    ProbedClient client;
    client.registerOutputParameter({"A", CSClient::TYPE_FLOAT});
    const CSClient::OutputDef untyped{"A", CSClient::TYPE_UNDEFINED};
    EXPECT_EQ(client.unregisterOutputParameters(&untyped, 1), 0);
    EXPECT_EQ(client.getNumberOfUnregisteredOutputParameters(), 0);
}

TEST(UnregisterByDefinition, InputsAreUnregisteredByTheNamesOfTheirDefinitionsInOrder) {
    ProbedClient client;
    client.probed->interceptsInputs = true;
    const CSClient::InputDef definitions[] = {
        {"B", CSClient::TYPE_UNDEFINED, 0}, {"A", CSClient::TYPE_FLOAT, 1}, {"C", CSClient::TYPE_FLOAT, 1}};
    EXPECT_EQ(client.unregisterInputParameters(definitions, 2), 0);
    EXPECT_EQ(client.probed->calls, Lines{"unregister inputs 2: B A"});
}

TEST(UnregisterByDefinition, NoInputDefinitionsStillCallTheEngineWithAnEmptyList) {
    ProbedClient client;
    client.probed->interceptsInputs = true;
    client.probed->inputResult = 7;
    EXPECT_EQ(client.unregisterInputParameters(nullptr, 0), 7);
    EXPECT_EQ(client.probed->calls, Lines{"unregister inputs 0:"});
}

TEST(UnregisterByDefinition, NoOutputDefinitionsUnregisterNothing) {
    ProbedClient client;
    client.registerOutputParameter({"A", CSClient::TYPE_FLOAT});
    client.probed->senderResult = 2;
    EXPECT_EQ(client.unregisterOutputParameters(nullptr, 0), 0);
    EXPECT_TRUE(client.probed->knowsOutput("A"));
}

// The count is refused before the definitions are looked at: there are none.
TEST(UnregisterByDefinition, OneOutputMoreThanAListCanHoldIsALengthError) {
    ProbedClient client;
    EXPECT_EQ(lengthErrorOf([&] { client.unregisterOutputParameters(nullptr, 1'073'741'824U); }), "vector::reserve");
}

TEST(UnregisterByDefinition, OneInputMoreThanAListCanHoldIsALengthError) {
    ProbedClient client;
    EXPECT_EQ(lengthErrorOf([&] { client.unregisterInputParameters(nullptr, 1'073'741'824U); }), "vector::reserve");
}

TEST(UnregisterByDefinition, TheHighestOutputCountIsALengthError) {
    ProbedClient client;
    EXPECT_EQ(lengthErrorOf([&] { client.unregisterOutputParameters(nullptr, 0xFFFFFFFFU); }), "vector::reserve");
}

TEST(UnregisterByDefinition, TheHighestInputCountIsALengthError) {
    ProbedClient client;
    EXPECT_EQ(lengthErrorOf([&] { client.unregisterInputParameters(nullptr, 0xFFFFFFFFU); }), "vector::reserve");
}

TEST(UnregisterByDefinition, TheEngineIsNotCalledAfterALengthError) {
    ProbedClient client;
    client.probed->interceptsInputs = true;
    lengthErrorOf([&] { client.unregisterInputParameters(nullptr, 0xFFFFFFFFU); });
    EXPECT_EQ(client.probed->calls, Lines{});
}

}  // namespace
}  // namespace com_tesk::test
