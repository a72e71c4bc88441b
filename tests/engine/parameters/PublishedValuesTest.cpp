#include "tests/engine/parameters/ParameterTest.h"

namespace com_tesk::test {
namespace {

/// A, a float, holds 1.0. B, a confirmed integer, holds -2. C, of type 5, holds 9. D was never published.
class PublishedValues : public testing::Test {
  protected:
    PublishedValues() {
        engine.registerOutputs({output("D", 1), output("C", 5), output("B", 2), output("A", 1)});
        engine.publish({parameter("A", 1, 0x3F800000), parameter("B", 2, 0xFFFFFFFE), parameter("C", 1, 9)});
        engine.receive(outputsConfirmed({{7, "B"}}));
    }

    /// Looks up `name` with a record of this type. Returns the record as text.
    std::string find(const std::string& name, CSClient::ParameterType type, std::uint32_t reserved = 0) const {
        CSClient::Parameter found = parameter("before", type, 0x12345678);
        found.reserved = reserved;
        const bool isFound = engine.findPublishedParameter(name, found);
        return (isFound ? "" : "not found: ") + text(found);
    }

    std::vector<std::string> list(std::vector<CSClient::Parameter> all = {}) const {
        engine.getAllPublishedParameters(all);
        return texts(all);
    }

    CapturedStreams streams;
    TestEngine engine;
};

TEST_F(PublishedValues, OfOtherNamesAreNotFound) {
    engine.registerInputs({input("I")});
    EXPECT_EQ(find("I", 2, 77), "not found: before type 2 bits 12345678 reserved 77");
    EXPECT_EQ(find("X", 2, 77), "not found: before type 2 bits 12345678 reserved 77");
    engine.unregisterOutputParameters({"A"});
    EXPECT_EQ(find("A", 0), "not found: before type 0 bits 12345678 reserved 0");
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST_F(PublishedValues, AreFoundAsIntegersOnlyWhenTheRecordIsOne) {
    for (const CSClient::ParameterType type : {0U, 1U, 3U, 5U, 0xFFFFFFFFU}) {
        EXPECT_EQ(find("A", type), "A type 1 bits 3F800000 reserved 0");
        EXPECT_EQ(find("B", type), "B type 1 bits FFFFFFFE reserved 0");
    }
    EXPECT_EQ(find("A", 2), "A type 2 bits 3F800000 reserved 0");
    EXPECT_EQ(find("B", 2), "B type 2 bits FFFFFFFE reserved 0");
    EXPECT_EQ(find("C", 2), "C type 2 bits 00000009 reserved 0");
}

TEST_F(PublishedValues, LeaveTheReservedWord) {
    EXPECT_EQ(find("A", 0, 77), "A type 1 bits 3F800000 reserved 77");
}

TEST_F(PublishedValues, AreZeroBeforeTheFirstPublication) {
    EXPECT_EQ(find("D", 1), "D type 1 bits 00000000 reserved 0");
}

TEST_F(PublishedValues, AreFoundByTheNameInTheRecord) {
    CSClient::Parameter found = parameter("A", 0, 0);
    EXPECT_TRUE(engine.findPublishedParameter(found.name, found));
    EXPECT_EQ(text(found), "A type 1 bits 3F800000 reserved 0");
    EXPECT_EQ(found.value.asFloat, 1.0F);
}

TEST_F(PublishedValues, AreFoundByNamesWithAZeroByteOrNone) {
    const std::string zeroByte("A\0B", 3);
    engine.registerOutputs({output(zeroByte), output("")});
    EXPECT_EQ(engine.publish({parameter(zeroByte, 1, 5), parameter("", 1, 6)}), 0);
    EXPECT_EQ(find(zeroByte, 1), zeroByte + " type 1 bits 00000005 reserved 0");
    EXPECT_EQ(find("", 1), " type 1 bits 00000006 reserved 0");
}

TEST_F(PublishedValues, AreListedInNameOrderByTheTypeOfTheOutput) {
    EXPECT_THAT(list(), ElementsAre("A type 1 bits 3F800000 reserved 0", "B type 2 bits FFFFFFFE reserved 0",
                                    "C type 1 bits 00000009 reserved 0", "D type 1 bits 00000000 reserved 0"));
}

TEST_F(PublishedValues, AreAppendedToTheList) {
    CSClient::Parameter first = parameter("first", 5, 1);
    first.reserved = 7;
    engine.unregisterOutputParameters({"B", "C", "D"});
    EXPECT_THAT(list({first, first}),
                ElementsAre("first type 5 bits 00000001 reserved 7", "first type 5 bits 00000001 reserved 7",
                            "A type 1 bits 3F800000 reserved 0"));
    engine.unregisterAllLocalParameters();
    EXPECT_THAT(list({first}), ElementsAre("first type 5 bits 00000001 reserved 7"));
}

/// Bits that float arithmetic, or a float register of some processors, would change.
class ValueBits : public testing::TestWithParam<std::uint32_t> {
  protected:
    const std::uint32_t bits = GetParam();
    TestEngine engine;
};
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

TEST_P(ValueBits, AreSentAndFoundUnchangedUnderAnyType) {
    engine.registerOutputs({output("F", 1), output("I", 2)});
    engine.publish({parameter("F", 1, bits), parameter("I", 2, bits)});
    engine.pretendState(CSClient::STATE_READY);
    engine.receive(outputsConfirmed({{8, "I"}, {7, "F"}}));
    EXPECT_EQ(engine.requests(), publication({{8, 1, bits}, {7, 0, bits}})) << "published again";
    for (const CSClient::ParameterType type : {1U, 2U, 5U, 0xFFFFFFFFU}) {
        // Another value in between, so that each type has to carry the bits.
        ASSERT_EQ(engine.publish({parameter("F", 2, 0x11111111), parameter("I", 2, 0x11111111)}), 0);
        ASSERT_EQ(engine.publish({parameter("F", type, bits), parameter("I", type, bits)}), 0);
        EXPECT_EQ(engine.requests().back(), publication({{7, 0, bits}, {8, 1, bits}})[0]);
        std::vector<CSClient::Parameter> all;
        engine.getAllPublishedParameters(all);
        for (const CSClient::ParameterType wanted : {0U, 1U, 2U}) {
            all.push_back(parameter("", wanted, ~bits));
            ASSERT_TRUE(engine.findPublishedParameter("F", all.back()));
            all.push_back(parameter("", wanted, ~bits));
            ASSERT_TRUE(engine.findPublishedParameter("I", all.back()));
        }
        for (const CSClient::Parameter& each : all) {
            EXPECT_EQ(bitsOf(each.value), bits);
        }
    }
}

}  // namespace
}  // namespace com_tesk::test
