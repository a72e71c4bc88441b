#include <gtest/gtest.h>

#include "tests/simulator/ReadyEngine.h"

namespace com_tesk::test {
namespace {

using Input = CSClientProtocol::InputParameterEntry;
using Output = CSClientProtocol::OutputParameterEntry;

const std::string kNameA =
    "41 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";
const std::string kNameB =
    "42 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";

/// The record of an input "A" as the request for it alone carries it.
std::string subscriptionRecord(CSClient::ParameterType type, std::uint32_t mode) {
    ReadyEngine engine(5);
    Input entry{"A", type, mode, 7};
    EXPECT_EQ(0, engine.sendInputSubscriptionRequest({&entry}));
    const Lines requests = engine.requests();
    return requests.size() == 1 ? requests[0].substr(20 * 3) : "not one request";
}

std::string registrationRecord(CSClient::ParameterType type) {
    ReadyEngine engine(5);
    Output entry{"B", type, 7, true, {1.0F}};
    EXPECT_EQ(0, engine.sendOutputSubscriptionRequest({&entry}));
    const Lines requests = engine.requests();
    return requests.size() == 1 ? requests[0].substr(20 * 3) : "not one request";
}

TEST(VersionRequest, IsTwentyBytesInOneFrame) {
    TestEngine engine(5, kSilent);
    engine.pretendState(CSClient::STATE_READY);
    EXPECT_EQ(0, engine.requestSimulatorVersion());
    EXPECT_EQ(Lines{"00 00 00 34 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
                    "04 02 7F FF 00 00 00 14 00 7F 00 06 00 05 00 00 00 00 00 00"},
              engine.fakeTransport().written());
}

TEST(InputSubscription, OfOneFloatInputIsSixtyFourBytes) {
    ReadyEngine engine(5);
    Input entry{"A", CSClient::TYPE_FLOAT, 1, CSClientProtocol::kUnassignedId};
    EXPECT_EQ(0, engine.sendInputSubscriptionRequest({&entry}));
    EXPECT_EQ(Lines{"04 02 7F FF 00 00 00 40 00 7F 00 01 00 05 00 00 00 00 00 01 "
                    "00 00 2E E0 00 00 2E E0 00 00 00 00 " +
                    kNameA},
              engine.requests());
}

TEST(InputSubscription, IsFramedAsData) {
    ReadyEngine engine(5);
    Input entry{"A", CSClient::TYPE_FLOAT, 1, CSClientProtocol::kUnassignedId};
    engine.sendInputSubscriptionRequest({&entry});
    const Lines frames = engine.fakeTransport().written();
    ASSERT_EQ(2U, frames.size());
    EXPECT_EQ("00 00 00 60 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF",
              frames[1].substr(0, 32 * 3 - 1));
}

TEST(InputSubscription, ListsEntriesInTheOrderOfTheBatch) {
    ReadyEngine engine(1);
    Input second{"B", CSClient::TYPE_INT, 3, 9};
    Input first{"A", CSClient::TYPE_FLOAT, 2, 8};
    EXPECT_EQ(0, engine.sendInputSubscriptionRequest({&second, &first, &second}));
    EXPECT_EQ(Lines{"04 02 7F FF 00 00 00 98 00 7F 00 01 00 01 00 00 00 00 00 03 "
                    "00 01 D4 C0 00 01 D4 C0 00 00 00 01 " +
                    kNameB + " 00 00 00 00 00 00 00 00 00 00 00 00 " + kNameA +
                    " 00 01 D4 C0 00 01 D4 C0 00 00 00 01 " + kNameB},
              engine.requests());
}

TEST(InputSubscription, ModeOneAsksForRateTwelveThousandTwice) {
    EXPECT_EQ("00 00 2E E0 00 00 2E E0 00 00 00 00 " + kNameA, subscriptionRecord(CSClient::TYPE_FLOAT, 1));
}

TEST(InputSubscription, ModeTwoAsksForRateZero) {
    EXPECT_EQ("00 00 00 00 00 00 00 00 00 00 00 00 " + kNameA, subscriptionRecord(CSClient::TYPE_FLOAT, 2));
}

TEST(InputSubscription, ModeThreeAsksForRateOneHundredAndTwentyThousandTwice) {
    EXPECT_EQ("00 01 D4 C0 00 01 D4 C0 00 00 00 00 " + kNameA, subscriptionRecord(CSClient::TYPE_FLOAT, 3));
}

TEST(InputSubscription, EveryOtherModeAsksForRateZero) {
    for (const std::uint32_t mode : {0U, 4U, 5U, 7U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFEU, 0xFFFFFFFFU}) {
        EXPECT_EQ("00 00 00 00 00 00 00 00 00 00 00 00 " + kNameA, subscriptionRecord(CSClient::TYPE_FLOAT, mode))
            << "mode " << mode;
    }
}

TEST(InputSubscription, IntegerFlagIsOneForTypeIntOnly) {
    EXPECT_EQ("00 00 2E E0 00 00 2E E0 00 00 00 01 " + kNameA, subscriptionRecord(CSClient::TYPE_INT, 1));
    for (const CSClient::ParameterType type : {0U, 1U, 3U, 5U, 0x102U, 0xFFFFFFFFU}) {
        EXPECT_EQ("00 00 2E E0 00 00 2E E0 00 00 00 00 " + kNameA, subscriptionRecord(type, 1)) << "type " << type;
    }
}

TEST(InputSubscription, OfAThousandEntriesIsOneMessage) {
    ReadyEngine engine(5);
    Input entry{"A", CSClient::TYPE_FLOAT, 1, 7};
    EXPECT_EQ(0, engine.sendInputSubscriptionRequest(std::vector<Input*>(1000, &entry)));
    const Lines requests = engine.requests();
    ASSERT_EQ(1U, requests.size());
    EXPECT_EQ("04 02 7F FF 00 00 AB F4 00 7F 00 01 00 05 00 00 00 00 03 E8 00 00 2E E0",
              requests[0].substr(0, 24 * 3 - 1));
    EXPECT_EQ(44020U * 3 - 1, requests[0].size());
}

TEST(InputSubscription, LeavesTheEntriesAsTheyAre) {
    ReadyEngine engine(5);
    Input entry{"A", 5, 9, 7};
    engine.sendInputSubscriptionRequest({&entry});
    engine.sendInputUnsubscriptionRequest({&entry});
    EXPECT_EQ("A", entry.name);
    EXPECT_EQ(5U, entry.type);
    EXPECT_EQ(9U, entry.subscriptionMode);
    EXPECT_EQ(7U, entry.serverId);
}

TEST(OutputRegistration, OfOneIntegerOutputIsSixtyBytes) {
    ReadyEngine engine(5);
    Output entry{"B", CSClient::TYPE_INT, CSClientProtocol::kUnassignedId, false, {0.0F}};
    EXPECT_EQ(0, engine.sendOutputSubscriptionRequest({&entry}));
    EXPECT_EQ(Lines{"04 02 7F FF 00 00 00 3C 00 7F 00 02 00 05 00 00 00 00 00 01 00 00 04 B0 00 00 00 01 " + kNameB},
              engine.requests());
}

TEST(OutputRegistration, ListsEntriesInTheOrderOfTheBatch) {
    ReadyEngine engine(5);
    Output second{"B", CSClient::TYPE_FLOAT, 9, true, {2.0F}};
    Output first{"A", CSClient::TYPE_INT, 8, false, {1.0F}};
    EXPECT_EQ(0, engine.sendOutputSubscriptionRequest({&second, &first}));
    EXPECT_EQ(Lines{"04 02 7F FF 00 00 00 64 00 7F 00 02 00 05 00 00 00 00 00 02 00 00 04 B0 00 00 00 00 " + kNameB +
                    " 00 00 04 B0 00 00 00 01 " + kNameA},
              engine.requests());
}

TEST(OutputRegistration, IntegerFlagIsOneForTypeIntOnly) {
    EXPECT_EQ("00 00 04 B0 00 00 00 01 " + kNameB, registrationRecord(CSClient::TYPE_INT));
    for (const CSClient::ParameterType type : {0U, 1U, 3U, 5U, 0x102U, 0xFFFFFFFFU}) {
        EXPECT_EQ("00 00 04 B0 00 00 00 00 " + kNameB, registrationRecord(type)) << "type " << type;
    }
}

TEST(InputUnsubscription, CarriesTheIdsAlone) {
    ReadyEngine engine(5);
    Input first{"A", CSClient::TYPE_FLOAT, 1, 0x01020304};
    Input second{"B", CSClient::TYPE_INT, 3, 0};
    EXPECT_EQ(0, engine.sendInputUnsubscriptionRequest({&first, &second}));
    EXPECT_EQ(Lines{"04 02 7F FF 00 00 00 1C 00 7F 00 04 00 05 00 00 00 00 00 02 01 02 03 04 00 00 00 00"},
              engine.requests());
}

TEST(InputUnsubscription, CarriesTheUnassignedIdOfAnUnconfirmedInput) {
    ReadyEngine engine(5);
    Input entry{"A", CSClient::TYPE_FLOAT, 1, CSClientProtocol::kUnassignedId};
    EXPECT_EQ(0, engine.sendInputUnsubscriptionRequest({&entry}));
    EXPECT_EQ(Lines{"04 02 7F FF 00 00 00 18 00 7F 00 04 00 05 00 00 00 00 00 01 00 0F FF FF"}, engine.requests());
}

TEST(OutputUnregistration, CarriesTheIdsAlone) {
    ReadyEngine engine(5);
    Output first{"A", CSClient::TYPE_FLOAT, 0xFFFFFFFF, true, {1.0F}};
    Output second{"B", CSClient::TYPE_INT, 8, false, {0.0F}};
    EXPECT_EQ(0, engine.sendOutputUnsubscriptionRequest({&first, &second, &first}));
    EXPECT_EQ(Lines{"04 02 7F FF 00 00 00 20 00 7F 00 05 00 05 00 00 00 00 00 03 FF FF FF FF 00 00 00 08 FF FF FF FF"},
              engine.requests());
}

TEST(OutputUnregistration, CarriesTheUnassignedIdOfAnUnconfirmedOutput) {
    ReadyEngine engine(5);
    Output entry{"A", CSClient::TYPE_FLOAT, CSClientProtocol::kUnassignedId, false, {0.0F}};
    EXPECT_EQ(0, engine.sendOutputUnsubscriptionRequest({&entry}));
    EXPECT_EQ(Lines{"04 02 7F FF 00 00 00 18 00 7F 00 05 00 05 00 00 00 00 00 01 00 0F FF FF"}, engine.requests());
}

}  // namespace
}  // namespace com_tesk::test
