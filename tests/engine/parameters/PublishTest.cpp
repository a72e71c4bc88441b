#include "tests/engine/parameters/ParameterTest.h"

namespace com_tesk::test {
namespace {

/// A, a float, and B, an integer, are confirmed as 7 and 8. C, a float, is unconfirmed.
class Publish : public testing::Test {
  protected:
    Publish() : Publish(0) {}
    explicit Publish(unsigned int options) : engine(1, options) {
        engine.registerOutputs({output("A", 1), output("B", 2), output("C", 1)});
        engine.receive(outputsConfirmed({{7, "A"}, {8, "B"}}));
        engine.pretendState(CSClient::STATE_READY);
    }

    std::string rowOfA() const { return engine.outputTable()[0]; }

    CapturedStreams streams;
    TestEngine engine;
};

TEST_F(Publish, OfNothingDoesNothing) {
    EXPECT_EQ(engine.publishParameters(nullptr, 0, static_cast<CSClientProtocol::PublishMode>(5)), 0);
    EXPECT_THAT(engine.requests(), IsEmpty());
}

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

TEST_F(Publish, SendsAnOutputOfAnotherTypeAsItsIdAlone) {
    engine.registerOutputs({output("D", 5)});
    EXPECT_EQ(engine.publish({parameter("D", 1, 9), parameter("A", 1, 1)}), 0);
    EXPECT_EQ(engine.requests().back(),
              requestOf("04 02 7F FF 00 00 00 28 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 00 02"
                        "00 0F FF FF"
                        "00 00 00 07 00 00 00 00 00 00 00 01")[0]);
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

TEST_F(Publish, IsRepeatedWhenTheHostConfirmsTheOutput) {
    engine.pretendState(CSClient::STATE_RECONNECTING);
    engine.publish({parameter("C", 1, 0x40000000)});
    engine.pretendState(CSClient::STATE_READY);
    engine.receive(outputsConfirmed({{17, "A"}, {19, "C"}}));
    EXPECT_EQ(engine.requests(), publication({{19, 0, 0x40000000}}));
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

TEST_F(Publish, RefusesAllOrNothingWithOneLine) {
    engine.registerInputs({input("I")});
    engine.publish({parameter("A", 1, 9)});
    engine.ignoreRequestsSoFar();
    const std::vector<std::string> table = engine.outputTable();
    for (const Refusal& refusal : kRefusals) {
        const CapturedStreams captured;
        EXPECT_EQ(engine.publish(refusal.records), 3) << refusal.line;
        EXPECT_EQ(captured.err(), refusal.line);
        EXPECT_EQ(captured.errInsertions(), 1) << refusal.line;
        EXPECT_EQ(captured.out(), "");
        EXPECT_EQ(engine.outputTable(), table) << refusal.line;
    }
    EXPECT_THAT(engine.requests(), IsEmpty());
}

class SilentPublish : public Publish {
  protected:
    SilentPublish() : Publish(kSilent) {}
};

TEST_F(SilentPublish, RefusesWithoutALine) {
    const std::vector<std::string> table = engine.outputTable();
    for (const Refusal& refusal : kRefusals) {
        EXPECT_EQ(engine.publish(refusal.records), 3) << refusal.line;
    }
    EXPECT_EQ(streams.out() + streams.err(), "");
    EXPECT_EQ(engine.outputTable(), table);
}

}  // namespace
}  // namespace com_tesk::test
