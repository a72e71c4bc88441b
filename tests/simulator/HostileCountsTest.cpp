#include <gtest/gtest.h>

#include "tests/support/HostMessages.h"
#include "tests/simulator/ReadyEngine.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

// Counts that are larger than what the body holds: one more, those whose product with the record's length wraps
// around 32 bits, and the largest.
const std::vector<unsigned int> kTooMany = {3,          0x7FFFFFFF, 0x80000000, 0x80000001, 0x04EC4EC5,
                                            0x05555556, 0x15555556, 0x40000001, 0xFFFFFFFE, 0xFFFFFFFF};

class HostileCounts : public ::testing::Test {
  protected:
    HostileCounts() { engine.addCallbackInterface(&callbacks); }

    CapturedStreams streams;
    Lines log;
    ActingCallbacks callbacks{log};
    ReadyEngine engine{5, kTalking};
};

TEST_F(HostileCounts, InputConfirmationStopsAtTheEndOfItsBody) {
    engine.registerInput("A");
    engine.registerInput("B");
    for (const unsigned int count : kTooMany) {
        log.clear();
        engine.receive(inputConfirmation(
            count, {confirmedInput(7, 1, "00 00 00 01", "A"), confirmedInput(8, 1, "00 00 00 02", "B")}));
        EXPECT_EQ((Lines{"inputs confirmed A(type 1 mode 1) B(type 1 mode 1)",
                         "updated A(type 2)=00 00 00 01 B(type 2)=00 00 00 02"}),
                  log)
            << count;
    }
    EXPECT_EQ(2U, engine.getNumberOfInputParameters(true));
}

TEST_F(HostileCounts, OutputConfirmationStopsAtTheEndOfItsBody) {
    engine.registerOutput("P");
    for (const unsigned int count : kTooMany) {
        log.clear();
        engine.receive(outputConfirmation(count, {confirmedOutput(7, "P"), confirmedOutput(8, "P")}));
        EXPECT_EQ(Lines{"outputs confirmed P(type 1) P(type 1)"}, log) << count;
    }
    EXPECT_EQ("", streams.err());
}

TEST_F(HostileCounts, UpdateStopsAtTheEndOfItsBody) {
    engine.registerInput("A");
    engine.receive(inputConfirmation(1, {confirmedInput(7, 1, "00 00 00 00", "A")}));
    for (const unsigned int count : kTooMany) {
        log.clear();
        engine.receive(update(count, {updated(7, 1, "00 00 00 01"), updated(7, 1, "00 00 00 02")}));
        EXPECT_EQ(Lines{"updated A(type 2)=00 00 00 01 A(type 2)=00 00 00 02"}, log) << count;
    }
}

TEST_F(HostileCounts, BodyWithoutAnyRecordConfirmsNothing) {
    // An input and an output of the empty name would be found by a reader of zeros past the end.
    engine.registerInput("");
    engine.registerOutput("");
    for (const unsigned int count : {1U, 2U, 0xFFFFFFFFU}) {
        log.clear();
        const std::string inputs = inputConfirmation(count, {});
        const std::string outputs = outputConfirmation(count, {});
        ASSERT_EQ(20U, hex(inputs).size());
        engine.receive(inputs);
        engine.receive(outputs);
        EXPECT_EQ((Lines{"inputs confirmed", "updated", "outputs confirmed"}), log) << count;
    }
    EXPECT_FALSE(engine.hasInputParameter("", true));
    EXPECT_FALSE(engine.hasOutputParameter("", true));
    EXPECT_EQ("", streams.err());
}

TEST_F(HostileCounts, UpdateWithoutAnyRecordCallsNobody) {
    for (const unsigned int count : {1U, 2U, 0xFFFFFFFFU}) {
        const std::string body = update(count, {});
        ASSERT_EQ(24U, hex(body).size());
        engine.receive(body);
    }
    EXPECT_EQ(Lines{}, log);
}

TEST_F(HostileCounts, BodyShorterThanItsCountHoldsNothing) {
    for (std::size_t length = 12; length < 24; ++length) {
        log.clear();
        engine.receive(firstBytes(inputConfirmation(0xFFFFFFFF, {}) + " FF FF FF FF", length));
        engine.receive(firstBytes(outputConfirmation(0xFFFFFFFF, {}) + " FF FF FF FF", length));
        engine.receive(firstBytes(update(0xFFFFFFFF, {}), length));
        EXPECT_EQ((Lines{"inputs confirmed", "updated", "outputs confirmed"}), log) << length << " bytes";
    }
    EXPECT_EQ("", streams.err());
}

TEST_F(HostileCounts, ManyRecordsAreAllRead) {
    engine.registerInput("A");
    engine.receive(inputConfirmation(1, {confirmedInput(7, 1, "00 00 00 00", "A")}));
    log.clear();
    engine.receive(update(5000, std::vector<std::string>(5000, updated(7, 1, "00 00 00 01"))));
    std::string expected = "updated";
    for (int i = 0; i < 5000; ++i) {
        expected += " A(type 2)=00 00 00 01";
    }
    EXPECT_EQ(Lines{expected}, log);
}

}  // namespace
}  // namespace com_tesk::test
