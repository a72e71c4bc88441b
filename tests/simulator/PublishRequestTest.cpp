#include <gtest/gtest.h>

#include "tests/simulator/ReadyEngine.h"

namespace com_tesk::test {
namespace {

using Output = CSClientProtocol::OutputParameterEntry;

Output outputWithBits(CSClient::ParameterType type, std::uint32_t id, std::uint32_t bits) {
    Output entry{"P", type, id, false, {0.0F}};
    entry.value.asInt = static_cast<std::int32_t>(bits);
    return entry;
}

/// The publication of these entries, without the sub-header and the simulator word.
std::string published(std::vector<Output> entries, std::uint32_t mode = 0) {
    ReadyEngine engine(5);
    std::vector<Output*> batch;
    for (Output& entry : entries) {
        batch.push_back(&entry);
    }
    EXPECT_EQ(0, engine.sendParameterPublishRequest(batch, static_cast<CSClientProtocol::PublishMode>(mode)));
    const Lines requests = engine.requests();
    return requests.size() == 1 ? requests[0].substr(16 * 3) : "not one request";
}

TEST(PublishRequest, OfOneFloatIsThirtySixBytes) {
    ReadyEngine engine(5);
    Output entry{"P", CSClient::TYPE_FLOAT, 7, false, {1.0F}};
    EXPECT_EQ(0, engine.sendParameterPublishRequest({&entry}, CSClientProtocol::PUBLISH_DEFAULT));
    EXPECT_EQ(Lines{"04 02 7F FF 00 00 00 24 00 7F 00 03 00 05 00 00 00 00 00 00 00 00 00 01 "
                    "00 00 00 07 00 00 00 00 3F 80 00 00"},
              engine.requests());
}

TEST(PublishRequest, IntegerRecordCarriesFlagOneAndTheValue) {
    EXPECT_EQ("00 00 00 00 00 00 00 01 00 00 00 08 00 00 00 01 FF FF FF FE",
              published({outputWithBits(CSClient::TYPE_INT, 8, 0xFFFFFFFE)}));
}

TEST(PublishRequest, IntegersKeepTheirLimits) {
    EXPECT_EQ("00 00 00 00 00 00 00 02 00 00 00 08 00 00 00 01 80 00 00 00 00 00 00 09 00 00 00 01 7F FF FF FF",
              published({outputWithBits(CSClient::TYPE_INT, 8, 0x80000000),
                         outputWithBits(CSClient::TYPE_INT, 9, 0x7FFFFFFF)}));
}

TEST(PublishRequest, FloatBitsOfEveryKindAreUnchanged) {
    // Negative zero, the smallest number, infinity, a quiet and two signalling not-a-numbers with payloads.
    const std::vector<std::pair<std::uint32_t, std::string>> kinds = {
        {0x80000000, "80 00 00 00"}, {0x00000001, "00 00 00 01"}, {0x7F800000, "7F 80 00 00"},
        {0xFFC12345, "FF C1 23 45"}, {0x7F800001, "7F 80 00 01"}, {0xFFA54321, "FF A5 43 21"}};
    for (const auto& kind : kinds) {
        EXPECT_EQ("00 00 00 00 00 00 00 01 00 00 00 07 00 00 00 00 " + kind.second,
                  published({outputWithBits(CSClient::TYPE_FLOAT, 7, kind.first)}));
    }
}

TEST(PublishRequest, UndefinedTypeIsSentAsFloatZeroWhateverTheValue) {
    EXPECT_EQ("00 00 00 00 00 00 00 01 00 00 00 07 00 00 00 00 00 00 00 00",
              published({outputWithBits(CSClient::TYPE_UNDEFINED, 7, 0x3F800000)}));
}

TEST(PublishRequest, EveryOtherTypeIsSentAsItsIdAlone) {
    for (const CSClient::ParameterType type : {3U, 5U, 0x101U, 0x102U, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_EQ("00 00 00 00 00 00 00 01 00 00 00 07", published({outputWithBits(type, 7, 0x3F800000)}))
            << "type " << type;
    }
}

TEST(PublishRequest, ShortRecordCountsInTheCountAndInTheBodyLength) {
    ReadyEngine engine(5);
    Output first = outputWithBits(CSClient::TYPE_FLOAT, 7, 0x3F800000);
    Output other = outputWithBits(5, 0xFFFFF, 0x3F800000);
    Output last = outputWithBits(CSClient::TYPE_INT, 9, 2);
    EXPECT_EQ(0, engine.sendParameterPublishRequest({&first, &other, &last}, CSClientProtocol::PUBLISH_DEFAULT));
    EXPECT_EQ(Lines{"04 02 7F FF 00 00 00 34 00 7F 00 03 00 05 00 00 00 00 00 00 00 00 00 03 "
                    "00 00 00 07 00 00 00 00 3F 80 00 00 00 0F FF FF 00 00 00 09 00 00 00 01 00 00 00 02"},
              engine.requests());
}

TEST(PublishRequest, RecordsStandInTheOrderOfTheBatch) {
    EXPECT_EQ(
        "00 00 00 00 00 00 00 03 "
        "00 00 00 09 00 00 00 01 00 00 00 01 "
        "00 00 00 03 00 00 00 00 40 49 0F DB "
        "00 00 00 05 00 00 00 00 00 00 00 00",
        published({outputWithBits(CSClient::TYPE_INT, 9, 1), outputWithBits(CSClient::TYPE_FLOAT, 3, 0x40490FDB),
                   outputWithBits(CSClient::TYPE_UNDEFINED, 5, 77)}));
}

TEST(PublishRequest, ModeIsPassedThroughUnchanged) {
    for (const std::uint32_t mode : {0U, 1U, 7U, 0x01020304U, 0xFFFFFFFFU}) {
        EXPECT_EQ(hexWord(mode) + " 00 00 00 01 00 00 00 07 00 00 00 01 00 00 00 2A",
                  published({outputWithBits(CSClient::TYPE_INT, 7, 42)}, mode));
    }
}

TEST(PublishRequest, EntryTwiceInTheBatchIsTwiceInTheRequest) {
    ReadyEngine engine(5);
    Output entry = outputWithBits(CSClient::TYPE_INT, 7, 42);
    EXPECT_EQ(0, engine.sendParameterPublishRequest({&entry, &entry}, CSClientProtocol::PUBLISH_DEFAULT));
    EXPECT_EQ(Lines{"04 02 7F FF 00 00 00 30 00 7F 00 03 00 05 00 00 00 00 00 00 00 00 00 02 "
                    "00 00 00 07 00 00 00 01 00 00 00 2A 00 00 00 07 00 00 00 01 00 00 00 2A"},
              engine.requests());
}

TEST(PublishRequest, LeavesTheEntriesAsTheyAre) {
    ReadyEngine engine(5);
    Output entry = outputWithBits(CSClient::TYPE_UNDEFINED, 7, 42);
    engine.sendParameterPublishRequest({&entry}, CSClientProtocol::PUBLISH_DEFAULT);
    engine.sendOutputSubscriptionRequest({&entry});
    engine.sendOutputUnsubscriptionRequest({&entry});
    EXPECT_EQ("P", entry.name);
    EXPECT_EQ(0U, entry.type);
    EXPECT_EQ(7U, entry.serverId);
    EXPECT_FALSE(entry.published);
    EXPECT_EQ(42, entry.value.asInt);
}

}  // namespace
}  // namespace com_tesk::test
