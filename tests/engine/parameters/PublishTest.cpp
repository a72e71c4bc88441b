#include "tests/engine/parameters/ParameterTest.h"

namespace com_tesk::test {
namespace {

/// A, a float, and B, an integer, are confirmed as 7 and 8. C, a float, is unconfirmed.
class Publish : public testing::Test {
  protected:
    Publish() { prepare(engine); }

    static void prepare(TestEngine& engine) {
        engine.registerOutputs({output("A", 1), output("B", 2), output("C", 1)});
        engine.receive(outputsConfirmed({{7, "A"}, {8, "B"}}));
        engine.pretendState(CSClient::STATE_READY);
    }

    std::string rowOfA() const { return engine.outputTable()[0]; }

    CapturedStreams streams;
    TestEngine engine;
};

TEST_F(Publish, SendsAndStoresTheValuesInTheOrderOfTheCall) {
    EXPECT_EQ(engine.publish({parameter("C", 1, 0x3F800000), parameter("B", 2, 0xFFFFFFFE)}), 0);
    EXPECT_EQ(engine.requests(), requestOf("04 02 7F FF 00 00 00 30 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 00 02"
                                           "00 0F FF FF 00 00 00 00 3F 80 00 00"
                                           "00 00 00 08 00 00 00 01 FF FF FF FE"));
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 id 7 00000000", "B type 2 id 8 published FFFFFFFE",
                                                  "C type 1 waiting published 3F800000"));
    EXPECT_EQ(engine.outputIds(), "7=A 8=B");
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST_F(Publish, SendsTheModeUnchanged) {
    for (const unsigned int mode : {1U, 0x12345678U, 0xFFFFFFFFU}) {
        EXPECT_EQ(engine.publish({parameter("A", 1, 0)}, static_cast<CSClientProtocol::PublishMode>(mode)), 0);
        EXPECT_EQ(engine.requests().back(), publication({{7, 0, 0}}, mode)[0]);
    }
}

TEST_F(Publish, SendsTheLastValueUnderTheTypeOfTheOutput) {
    CSClient::Parameter reserved = parameter("A", 1, 4);
    reserved.reserved = 0xFFFFFFFF;
    struct Row {
        std::vector<CSClient::Parameter> records;
        std::vector<SentValue> sent;
        std::string rowOfA;
    };
    const Row rows[] = {
        {{parameter("A", 1, 1)}, {{7, 0, 1}}, "A type 1 id 7 published 00000001"},
        {{parameter("A", 1, 0)}, {{7, 0, 0}}, "A type 1 id 7 published 00000000"},
        {{parameter("A", 2, 42), parameter("B", 1, 3)}, {{7, 0, 42}, {8, 1, 3}}, "A type 1 id 7 published 0000002A"},
        {{parameter("A", 5, 1), parameter("B", 0xFFFFFFFF, 2)},
         {{7, 0, 1}, {8, 1, 2}},
         "A type 1 id 7 published 00000001"},
        {{parameter("A", 1, 1), parameter("B", 2, 2), parameter("A", 1, 3)},
         {{7, 0, 3}, {8, 1, 2}, {7, 0, 3}},
         "A type 1 id 7 published 00000003"},
        {{reserved}, {{7, 0, 4}}, "A type 1 id 7 published 00000004"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.rowOfA);
        engine.ignoreRequestsSoFar();
        EXPECT_EQ(engine.publish(row.records), 0);
        EXPECT_EQ(engine.requests(), publication(row.sent));
        EXPECT_EQ(rowOfA(), row.rowOfA);
    }
    EXPECT_EQ(engine.outputTable()[1], "B type 2 id 8 published 00000002");
}

TEST_F(Publish, WithoutConnectionOnlyStoresTheValue) {
    for (const CSClient::State state : {CSClient::STATE_DISCONNECTED, CSClient::STATE_CONNECTING,
                                        CSClient::STATE_DISCONNECTING, CSClient::STATE_RECONNECTING}) {
        engine.pretendState(state);
        EXPECT_EQ(engine.publish({parameter("A", 1, 1U + state)}), 0);
        EXPECT_EQ(rowOfA(), "A type 1 id 7 published 0000000" + std::to_string(1U + state));
    }
    EXPECT_THAT(engine.requests(), IsEmpty());
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST_F(Publish, FindsAnOutputThatThePreviousCallDidNotName) {
    engine.publish({parameter("A", 1, 1)});
    EXPECT_EQ(engine.publish({parameter("B", 2, 2)}), 0);
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 id 7 published 00000001",
                                                  "B type 2 id 8 published 00000002", "C type 1 waiting 00000000"));
}

TEST_F(Publish, OfAnUnregisteredOutputIsRefused) {
    engine.publish({parameter("A", 1, 1)});
    engine.unregisterOutputParameters({"A"});
    EXPECT_EQ(engine.publish({parameter("A", 1, 2)}), 3);
    EXPECT_EQ(streams.err(), "Unknown parameter ID: A\n");
}

struct Refusal {
    std::vector<CSClient::Parameter> records;
    std::string line;
};

const std::string kLongZeros = "A" + std::string(31, '\0');

// Records are checked in their order; the type first, then the length, then the table.
const Refusal kRefusals[] = {
    {{parameter("A", 0, 1)}, "Subscription type of parameter id string 'A' is invalid!\n"},
    {{parameter(kName32, 1, 1)}, "Length of parameter id string '" + kName32 + "' exceeds maximum 32\n"},
    {{parameter(kLongZeros, 1, 1)}, "Length of parameter id string '" + kLongZeros + "' exceeds maximum 32\n"},
    {{parameter(kName31, 1, 1)}, "Unknown parameter ID: " + kName31 + "\n"},
    {{parameter("I", 1, 1)}, "Unknown parameter ID: I\n"},  // an input
    {{parameter("a", 1, 1)}, "Unknown parameter ID: a\n"},
    {{parameter("", 1, 1)}, "Unknown parameter ID: \n"},
    {{parameter(std::string("A\0C", 3), 1, 1)}, "Unknown parameter ID: " + std::string("A\0C\n", 4)},
    {{parameter("A", 1, 1), parameter("B", 2, 2), parameter("X", 1, 3)}, "Unknown parameter ID: X\n"},
    {{parameter("A", 1, 1), parameter("B", 0, 2)}, "Subscription type of parameter id string 'B' is invalid!\n"},
    {{parameter("A", 1, 1), parameter(kName32, 1, 2)},
     "Length of parameter id string '" + kName32 + "' exceeds maximum 32\n"},
    {{parameter("A", 1, 1), parameter("X", 1, 1), parameter("B", 0, 1)}, "Unknown parameter ID: X\n"},
    {{parameter(kName32, 0, 1)}, "Subscription type of parameter id string '" + kName32 + "' is invalid!\n"},
    {{parameter("X", 0, 1)}, "Subscription type of parameter id string 'X' is invalid!\n"},
};

TEST_F(Publish, RefusesAllOrNothingWithOneLineUnlessSilent) {
    TestEngine silent(1, kSilent);
    prepare(silent);
    for (TestEngine* const each : {&engine, &silent}) {
        each->registerInputs({input("I")});
        each->publish({parameter("A", 1, 9)});
        each->ignoreRequestsSoFar();
        const std::vector<std::string> table = each->outputTable();
        for (const Refusal& refusal : kRefusals) {
            const CapturedStreams captured;
            EXPECT_EQ(each->publish(refusal.records), 3) << refusal.line;
            EXPECT_EQ(captured.err(), each == &silent ? "" : refusal.line);
            EXPECT_EQ(captured.errInsertions(), each == &silent ? 0 : 1) << refusal.line;
            EXPECT_EQ(captured.out(), "");
            EXPECT_EQ(each->outputTable(), table) << refusal.line;
        }
        EXPECT_THAT(each->requests(), IsEmpty());
    }
}

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
    EXPECT_EQ(find("C", 2, 77), "C type 2 bits 00000009 reserved 77");
    EXPECT_EQ(find("D", 1), "D type 1 bits 00000000 reserved 0") << "before its first publication";
}

TEST_F(PublishedValues, AreFoundByTheNameInTheRecord) {
    CSClient::Parameter found = parameter("A", 0, 0);
    EXPECT_TRUE(engine.findPublishedParameter(found.name, found));
    EXPECT_EQ(text(found), "A type 1 bits 3F800000 reserved 0");
    EXPECT_EQ(found.value.asFloat, 1.0F);
}

TEST_F(PublishedValues, AreListedInNameOrderByTheTypeOfTheOutput) {
    const std::string zeroByte("C\0B", 3);
    engine.registerOutputs({output(zeroByte), output("")});
    EXPECT_EQ(engine.publish({parameter(zeroByte, 1, 5), parameter("", 1, 6)}), 0);
    EXPECT_THAT(list(),
                ElementsAre(" type 1 bits 00000006 reserved 0", "A type 1 bits 3F800000 reserved 0",
                            "B type 2 bits FFFFFFFE reserved 0", "C type 1 bits 00000009 reserved 0",
                            zeroByte + " type 1 bits 00000005 reserved 0", "D type 1 bits 00000000 reserved 0"));
    EXPECT_EQ(find(zeroByte, 1), zeroByte + " type 1 bits 00000005 reserved 0");
    EXPECT_EQ(find("", 1), " type 1 bits 00000006 reserved 0");
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

TEST(ValueBits, AreSentAndFoundUnchangedUnderAnyType) {
    // Float arithmetic, or a float register of some processors, would change some of them: not-a-numbers, signalling
    // and quiet, with payloads, -0.0, denormals, infinity and the largest float.
    for (const std::uint32_t bits : {0x7F800001U, 0xFF800001U, 0x7FBFFFFFU, 0x7FC00001U, 0xFFFFFFFFU, 0x80000000U,
                                     0x00000001U, 0x807FFFFFU, 0x7F800000U, 0x7F7FFFFFU, 0x00000000U}) {
        SCOPED_TRACE(bits);
        TestEngine engine;
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
            for (const char* const name : {"F", "F", "F", "I", "I", "I"}) {
                all.push_back(parameter("", static_cast<CSClient::ParameterType>(all.size() % 3), ~bits));
                ASSERT_TRUE(engine.findPublishedParameter(name, all.back()));
            }
            for (const CSClient::Parameter& each : all) {
                EXPECT_EQ(bitsOf(each.value), bits);
            }
        }
    }
}

}  // namespace
}  // namespace com_tesk::test
