#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/engine/parameters/ParameterEngine.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

using testing::ElementsAre;

/// A, a float, holds 1.0; B, an integer, holds -2; C, of type 5, holds 9; D was never published. B is confirmed.
class PublishedValues : public testing::Test {
  protected:
    PublishedValues() {
        engine.registerOutputs({output("D", 1), output("C", 5), output("B", 2), output("A", 1)});
        engine.publish({record("A", 1, 0x3F800000), record("B", 2, 0xFFFFFFFE), record("C", 1, 9)});
        engine.receive(outputsConfirmed({{7, "B"}}));
    }

    CapturedStreams streams;
    ParameterEngine engine;
};

TEST_F(PublishedValues, AnUnknownNameLeavesTheRecordUntouched) {
    CSClient::Parameter found = record("before", 2, 0x12345678);
    found.reserved = 77;
    EXPECT_FALSE(engine.findPublishedParameter("X", found));
    EXPECT_EQ(text(found), "before type 2 bits 12345678 reserved 77");
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST_F(PublishedValues, AnInputIsNotFound) {
    engine.registerInputs({input("I")});
    CSClient::Parameter found;
    EXPECT_FALSE(engine.findPublishedParameter("I", found));
}

TEST_F(PublishedValues, ARecordWithoutTypeComesBackAsAFloat) {
    CSClient::Parameter found;
    EXPECT_TRUE(engine.findPublishedParameter("A", found));
    EXPECT_EQ(text(found), "A type 1 bits 3F800000 reserved 0");
    EXPECT_EQ(found.value.asFloat, 1.0F);
}

TEST_F(PublishedValues, ARecordOfIntegerTypeStaysOne) {
    CSClient::Parameter found = record("", 2, 0);
    EXPECT_TRUE(engine.findPublishedParameter("B", found));
    EXPECT_EQ(text(found), "B type 2 bits FFFFFFFE reserved 0");
    EXPECT_EQ(found.value.asInt, -2);
}

TEST_F(PublishedValues, ARecordOfAnyOtherTypeComesBackAsAFloat) {
    for (const CSClient::ParameterType type : {1U, 3U, 5U, 0xFFFFFFFFU}) {
        CSClient::Parameter found = record("", type, 0);
        EXPECT_TRUE(engine.findPublishedParameter("A", found));
        EXPECT_EQ(text(found), "A type 1 bits 3F800000 reserved 0");
    }
}

TEST_F(PublishedValues, TheOutputsOwnTypeIsNotConsulted) {
    CSClient::Parameter asInteger = record("", 2, 0);
    EXPECT_TRUE(engine.findPublishedParameter("A", asInteger));
    EXPECT_EQ(text(asInteger), "A type 2 bits 3F800000 reserved 0");
    CSClient::Parameter asFloat = record("", 1, 0);
    EXPECT_TRUE(engine.findPublishedParameter("B", asFloat));
    EXPECT_EQ(text(asFloat), "B type 1 bits FFFFFFFE reserved 0");
}

TEST_F(PublishedValues, TheReservedWordStaysTheCallers) {
    CSClient::Parameter found;
    found.reserved = 77;
    EXPECT_TRUE(engine.findPublishedParameter("A", found));
    EXPECT_EQ(found.reserved, 77U);
}

TEST_F(PublishedValues, AnOutputThatWasNeverPublishedIsFoundAsZero) {
    CSClient::Parameter found = record("", 1, 0xFFFFFFFF);
    EXPECT_TRUE(engine.findPublishedParameter("D", found));
    EXPECT_EQ(text(found), "D type 1 bits 00000000 reserved 0");
}

TEST_F(PublishedValues, TheNameMayBeTheRecordsOwn) {
    CSClient::Parameter found = record("A", 0, 0);
    EXPECT_TRUE(engine.findPublishedParameter(found.name, found));
    EXPECT_EQ(text(found), "A type 1 bits 3F800000 reserved 0");
}

TEST_F(PublishedValues, AnUnregisteredOutputIsNotFound) {
    engine.unregisterOutputParameters({"A"});
    CSClient::Parameter found;
    EXPECT_FALSE(engine.findPublishedParameter("A", found));
}

TEST_F(PublishedValues, AllOutputsAreListedInNameOrderByTheirOwnTypes) {
    std::vector<CSClient::Parameter> all;
    engine.getAllPublishedParameters(all);
    EXPECT_THAT(texts(all), ElementsAre("A type 1 bits 3F800000 reserved 0", "B type 2 bits FFFFFFFE reserved 0",
                                        "C type 1 bits 00000009 reserved 0", "D type 1 bits 00000000 reserved 0"));
}

TEST_F(PublishedValues, AListIsContinued) {
    CSClient::Parameter first = record("first", 5, 1);
    first.reserved = 7;
    std::vector<CSClient::Parameter> all = {first};
    engine.unregisterOutputParameters({"B", "C"});
    engine.getAllPublishedParameters(all);
    EXPECT_THAT(texts(all), ElementsAre("first type 5 bits 00000001 reserved 7", "A type 1 bits 3F800000 reserved 0",
                                        "D type 1 bits 00000000 reserved 0"));
}

TEST_F(PublishedValues, ListingTwiceGivesEveryOutputTwice) {
    engine.unregisterOutputParameters({"B", "C"});
    std::vector<CSClient::Parameter> all;
    engine.getAllPublishedParameters(all);
    engine.getAllPublishedParameters(all);
    EXPECT_THAT(texts(all), ElementsAre("A type 1 bits 3F800000 reserved 0", "D type 1 bits 00000000 reserved 0",
                                        "A type 1 bits 3F800000 reserved 0", "D type 1 bits 00000000 reserved 0"));
}

TEST_F(PublishedValues, WithoutOutputsTheListStaysAsItIs) {
    engine.unregisterAllLocalParameters();
    std::vector<CSClient::Parameter> all = {record("first", 1, 1)};
    engine.getAllPublishedParameters(all);
    EXPECT_THAT(texts(all), ElementsAre("first type 1 bits 00000001 reserved 0"));
}

/// Bits that a detour through float arithmetic, or a float register of some processors, would change.
class ValueBits : public testing::TestWithParam<std::uint32_t> {
  protected:
    ParameterEngine engine;
};

TEST_P(ValueBits, AreSentAndFoundUnchangedWhateverTheTypes) {
    engine.pretendState(CSClient::STATE_READY);
    engine.registerOutputs({output("F", 1), output("I", 2)});
    engine.receive(outputsConfirmed({{7, "F"}, {8, "I"}}));
    const std::string bits = hexWord(GetParam());
    for (const CSClient::ParameterType type : {1U, 2U, 5U, 0xFFFFFFFFU}) {
        // Another value in between, so that each type has to bring the bits anew.
        ASSERT_EQ(engine.publish({record("F", 2, 0x11111111), record("I", 2, 0x11111111)}), 0);
        ASSERT_EQ(engine.publish({record("F", type, GetParam()), record("I", type, GetParam())}), 0);
        EXPECT_EQ(engine.requests().back(),
                  frame("04 02 7F FF 00 00 00 30 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 00 02"
                        "00 00 00 07 00 00 00 00" +
                        bits + "00 00 00 08 00 00 00 01" + bits));
        for (const std::string& name : {std::string("F"), std::string("I")}) {
            for (const CSClient::ParameterType wanted : {0U, 1U, 2U}) {
                CSClient::Parameter found = record("", wanted, ~GetParam());
                ASSERT_TRUE(engine.findPublishedParameter(name, found));
                EXPECT_EQ(bitsOf(found.value), GetParam());
            }
        }
        std::vector<CSClient::Parameter> all;
        engine.getAllPublishedParameters(all);
        ASSERT_EQ(all.size(), 2U);
        EXPECT_EQ(bitsOf(all[0].value), GetParam());
        EXPECT_EQ(bitsOf(all[1].value), GetParam());
    }
}

TEST_P(ValueBits, ArePublishedAgainUnchangedAfterAConfirmation) {
    engine.registerOutputs({output("F", 1), output("I", 2)});
    engine.publish({record("F", 1, GetParam()), record("I", 2, GetParam())});
    engine.pretendState(CSClient::STATE_READY);
    engine.receive(outputsConfirmed({{8, "I"}, {7, "F"}}));
    const std::string bits = hexWord(GetParam());
    EXPECT_THAT(engine.requests(),
                ElementsAre(frame("04 02 7F FF 00 00 00 30 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 00 02"
                                  "00 00 00 08 00 00 00 01" +
                                  bits + "00 00 00 07 00 00 00 00" + bits)));
}

INSTANTIATE_TEST_SUITE_P(Patterns, ValueBits,
                         testing::Values(0x7F800001U,  // signalling NaN
                                         0xFF800001U,  // the same, negative
                                         0x7FBFFFFFU,  // signalling NaN with a full payload
                                         0x7FC00001U,  // quiet NaN with a payload
                                         0xFFFFFFFFU,  // quiet NaN; -1 as an integer
                                         0x80000000U,  // -0.0
                                         0x00000001U,  // the smallest denormal
                                         0x807FFFFFU,  // the largest denormal, negative
                                         0x7F800000U,  // infinity
                                         0x7F7FFFFFU,  // the largest float
                                         0x00000000U));

}  // namespace
}  // namespace com_tesk::test
