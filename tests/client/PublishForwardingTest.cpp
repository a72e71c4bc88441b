#include <gtest/gtest.h>

#include "tests/client/ProbedClient.h"

namespace com_tesk::test {
namespace {

using Parameters = std::vector<CSClient::Parameter>;

class PublishForwarding : public testing::Test {
  protected:
    PublishForwarding() {
        client.registerOutputParameter({"A", CSClient::TYPE_FLOAT});
        client.registerOutputParameter({"B", CSClient::TYPE_INT});
        client.probed->calls.clear();
    }

    const Lines& calls() const { return client.probed->calls; }

    ProbedClient client;
};

TEST_F(PublishForwarding, OneValueIsPublishedInModeZero) {
    EXPECT_EQ(client.publishParameter(floatParameter("A", 1.5F)), 0);
    EXPECT_EQ(calls(), Lines{"publish in mode 0: A"});
    EXPECT_EQ(client.probed->output("A").value.asFloat, 1.5F);
}

TEST_F(PublishForwarding, AnArrayOfValuesIsPublishedInOneRequestInModeZero) {
    const CSClient::Parameter parameters[] = {intParameter("B", -2), floatParameter("A", 1.5F),
                                              floatParameter("unseen", 0.0F)};
    EXPECT_EQ(client.publishParameters(parameters, 2), 0);
    EXPECT_EQ(calls(), Lines{"publish in mode 0: B A"});
    EXPECT_EQ(client.probed->output("B").value.asInt, -2);
}

TEST_F(PublishForwarding, AnEmptyArrayOfValuesIsAccepted) {
    client.probed->senderResult = 2;
    EXPECT_EQ(client.publishParameters(nullptr, 0), 0);
    EXPECT_EQ(calls(), Lines{});
}

TEST_F(PublishForwarding, AVectorOfValuesIsPublishedInOneRequestInModeZero) {
    EXPECT_EQ(client.publishParameters(Parameters{intParameter("B", -2), floatParameter("A", 1.5F)}), 0);
    EXPECT_EQ(calls(), Lines{"publish in mode 0: B A"});
}

TEST_F(PublishForwarding, AnEmptyVectorOfValuesReturnsZeroAndSendsNothing) {
    client.probed->senderResult = 2;
    EXPECT_EQ(client.publishParameters(Parameters{}), 0);
    EXPECT_EQ(calls(), Lines{});
}

TEST_F(PublishForwarding, EachFormHandsTheResultOnUnchanged) {
    client.probed->senderResult = 2;
    const CSClient::Parameter parameter = floatParameter("A", 1.5F);
    EXPECT_EQ(client.publishParameter(parameter), 2);
    EXPECT_EQ(client.publishParameters(&parameter, 1), 2);
    EXPECT_EQ(client.publishParameters(Parameters{parameter}), 2);
}

TEST_F(PublishForwarding, EachFormReportsARefusal) {
    const CSClient::Parameter unknown = floatParameter("unknown", 1.5F);
    EXPECT_EQ(client.publishParameter(unknown), 3);
    EXPECT_EQ(client.publishParameters(&unknown, 1), 3);
    EXPECT_EQ(client.publishParameters(Parameters{unknown}), 3);
    EXPECT_EQ(calls(), Lines{});
}

TEST_F(PublishForwarding, APublishedValueIsFoundAsAFloat) {
    client.publishParameter(floatParameter("A", 1.5F));
    CSClient::Parameter found;
    found.reserved = 99;
    EXPECT_TRUE(client.findPublishedParameter("A", found));
    EXPECT_EQ(found.name, "A");
    EXPECT_EQ(found.type, CSClient::TYPE_FLOAT);
    EXPECT_EQ(found.value.asFloat, 1.5F);
    EXPECT_EQ(found.reserved, 99U);
}

TEST_F(PublishForwarding, APublishedValueIsFoundAsAnIntegerWhenAskedForOne) {
    client.publishParameter(intParameter("B", -2));
    CSClient::Parameter found;
    found.type = CSClient::TYPE_INT;
    EXPECT_TRUE(client.findPublishedParameter("B", found));
    EXPECT_EQ(found.type, CSClient::TYPE_INT);
    EXPECT_EQ(found.value.asInt, -2);
}

TEST_F(PublishForwarding, AnUnknownNameIsNotFoundAndChangesNothing) {
    CSClient::Parameter found = intParameter("mine", 7);
    EXPECT_FALSE(client.findPublishedParameter("unknown", found));
    EXPECT_EQ(found.name, "mine");
    EXPECT_EQ(found.type, CSClient::TYPE_INT);
    EXPECT_EQ(found.value.asInt, 7);
}

TEST_F(PublishForwarding, AllPublishedValuesAreAppended) {
    client.publishParameter(intParameter("B", -2));
    Parameters all{floatParameter("mine", 0.0F)};
    client.getAllPublishedParameters(all);
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(all[0].name, "mine");
    EXPECT_EQ(all[1].name, "A");
    EXPECT_EQ(all[1].type, CSClient::TYPE_FLOAT);
    EXPECT_EQ(all[1].value.asFloat, 0.0F);
    EXPECT_EQ(all[2].name, "B");
    EXPECT_EQ(all[2].type, CSClient::TYPE_INT);
    EXPECT_EQ(all[2].value.asInt, -2);
}

}  // namespace
}  // namespace com_tesk::test
