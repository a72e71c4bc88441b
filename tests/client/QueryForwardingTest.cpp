#include <gtest/gtest.h>

#include "tests/client/ProbedClient.h"

namespace com_tesk::test {
namespace {

TEST(QueryForwarding, TheClientVersionNeedsNoObject) {
    EXPECT_STREQ(CSClient::getClientVersion(), "4.4.132");
}

TEST(QueryForwarding, OptionsAreThoseOfTheEngine) {
    const ProbedClient client(0x80000003U);
    EXPECT_EQ(client.getOptions(), 0x80000003U);
}

TEST(QueryForwarding, NoOptionsAreAlwaysThere) {
    EXPECT_TRUE(ProbedClient(0).hasOptions(0));
    EXPECT_TRUE(ProbedClient(3).hasOptions(0));
}

TEST(QueryForwarding, OptionsAreThereOnlyWhenAllOfThemAre) {
    const ProbedClient both(3);
    EXPECT_TRUE(both.hasOptions(1));
    EXPECT_TRUE(both.hasOptions(2));
    EXPECT_TRUE(both.hasOptions(3));
    EXPECT_FALSE(both.hasOptions(7));
    const ProbedClient silent(2);
    EXPECT_FALSE(silent.hasOptions(1));
    EXPECT_FALSE(silent.hasOptions(3));
}

TEST(QueryForwarding, EachStateIsThatOfTheEngine) {
    ProbedClient client;
    EXPECT_EQ(client.getConnectionState(), CSClient::STATE_DISCONNECTED);
    for (const unsigned int state : {1U, 2U, 3U, 4U, 5U}) {
        client.pretendState(static_cast<CSClient::State>(state));
        EXPECT_EQ(client.getConnectionState(), state);
    }
}

TEST(QueryForwarding, BeforeTheFirstConnectionNothingIsKnownOfTheHost) {
    const ProbedClient client;
    EXPECT_EQ(client.getServerVersion(), "UNKNOWN");
    EXPECT_EQ(client.getProtocolVersion(), 0U);
    EXPECT_EQ(client.getServerIPAddress(), "0.0.0.0");
    EXPECT_EQ(client.getServerPort(), 0U);
}

TEST(QueryForwarding, TheHostsVersionIsWhatItHasReported) {
    ProbedClient client;
    client.probed->receive("04 02 7F FF 00 00 00 98 00 7F 01 06 00 01 00 00 " + hexField("Host 2.1", 128) +
                           " 00 01 00 02 00 00 00 01");
    EXPECT_EQ(client.getServerVersion(), "Host 2.1");
    EXPECT_EQ(client.getProtocolVersion(), 65538U);
}

TEST(QueryForwarding, TheAddressAndThePortAreThoseOfTheEngine) {
    ProbedClient client;
    client.probed->pretendAddress(0x0302010AU, 70000);
    EXPECT_EQ(client.getServerIPAddress(), "10.1.2.3");
    EXPECT_EQ(client.getServerPort(), 70000U);
}

TEST(QueryForwarding, WithoutParametersEveryCountIsZero) {
    const ProbedClient client;
    EXPECT_EQ(client.getNumberOfRegisteredOutputParameters(), 0);
    EXPECT_EQ(client.getNumberOfUnregisteredOutputParameters(), 0);
    EXPECT_EQ(client.getNumberOfRegisteredInputParameters(), 0);
    EXPECT_EQ(client.getNumberOfUnregisteredInputParameters(), 0);
}

TEST(QueryForwarding, OutputsAreCountedAsUnregisteredUntilTheHostConfirmsThem) {
    ProbedClient client;
    client.registerOutputParameters({{"A", 1}, {"B", 1}, {"C", 1}});
    EXPECT_EQ(client.getNumberOfRegisteredOutputParameters(), 0);
    EXPECT_EQ(client.getNumberOfUnregisteredOutputParameters(), 3);
    client.probed->receive(outputConfirmation(7, "B"));
    EXPECT_EQ(client.getNumberOfRegisteredOutputParameters(), 1);
    EXPECT_EQ(client.getNumberOfUnregisteredOutputParameters(), 2);
    EXPECT_EQ(client.getNumberOfRegisteredInputParameters(), 0);
    EXPECT_EQ(client.getNumberOfUnregisteredInputParameters(), 0);
}

TEST(QueryForwarding, InputsAreCountedAsUnregisteredUntilTheHostConfirmsThem) {
    ProbedClient client;
    client.registerInputParameters({{"A", 1, 1}, {"B", 1, 1}, {"C", 1, 1}});
    EXPECT_EQ(client.getNumberOfRegisteredInputParameters(), 0);
    EXPECT_EQ(client.getNumberOfUnregisteredInputParameters(), 3);
    client.probed->receive(inputConfirmation(7, "B"));
    EXPECT_EQ(client.getNumberOfRegisteredInputParameters(), 1);
    EXPECT_EQ(client.getNumberOfUnregisteredInputParameters(), 2);
    EXPECT_EQ(client.getNumberOfRegisteredOutputParameters(), 0);
    EXPECT_EQ(client.getNumberOfUnregisteredOutputParameters(), 0);
}

TEST(QueryForwarding, IdsOfAnEarlierConnectionMakeTheCountOfUnregisteredOutputsNegative) {
    ProbedClient client;
    client.registerOutputParameter({"A", 1});
    client.probed->receive(outputConfirmation(7, "A"));
    client.probed->receive(outputConfirmation(8, "A"));
    EXPECT_EQ(client.getNumberOfRegisteredOutputParameters(), 2);
    EXPECT_EQ(client.getNumberOfUnregisteredOutputParameters(), -1);
}

TEST(QueryForwarding, AnOutputIsRegisteredOnceItIsConfirmed) {
    ProbedClient client;
    client.registerOutputParameter({"A", 1});
    client.registerInputParameter({"I", 1, 1});
    EXPECT_FALSE(client.isOutputParameterRegistered("A"));
    client.probed->receive(outputConfirmation(7, "A"));
    EXPECT_TRUE(client.isOutputParameterRegistered("A"));
    EXPECT_FALSE(client.isOutputParameterRegistered("a"));
    EXPECT_FALSE(client.isOutputParameterRegistered("I"));
}

TEST(QueryForwarding, AnInputIsRegisteredOnceItIsConfirmed) {
    ProbedClient client;
    client.registerInputParameter({"A", 1, 1});
    client.registerOutputParameter({"O", 1});
    EXPECT_FALSE(client.isInputParameterRegistered("A"));
    client.probed->receive(inputConfirmation(7, "A"));
    EXPECT_TRUE(client.isInputParameterRegistered("A"));
    EXPECT_FALSE(client.isInputParameterRegistered("a"));
    EXPECT_FALSE(client.isInputParameterRegistered("O"));
}

}  // namespace
}  // namespace com_tesk::test
