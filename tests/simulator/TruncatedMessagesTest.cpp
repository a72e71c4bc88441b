#include <gtest/gtest.h>

#include "tests/support/HostMessages.h"
#include "tests/simulator/ReadyEngine.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

// Reading stops at the first record that does not fit whole. Each message here holds two records, with names that fill
// their field and values without a zero byte, so that a cut record still looks like a whole one.

const std::string kFirst(32, 'f');
const std::string kSecond(32, 's');

TEST(TruncatedMessages, InputConfirmationConfirmsItsWholeRecords) {
    const std::string whole = inputConfirmation(
        2, {confirmedInput(7, 1, "11 11 11 11", kFirst), confirmedInput(8, 1, "22 22 22 22", kSecond)});
    ASSERT_EQ(124U, hex(whole).size());
    for (std::size_t length = 12; length <= 124; ++length) {
        Lines log;
        ActingCallbacks callbacks(log);
        ReadyEngine engine;
        engine.adoptInput(kFirst);
        engine.adoptInput(kSecond);
        engine.addCallbackInterface(&callbacks);
        engine.receive(firstBytes(whole, length));
        Lines expected{"inputs confirmed", "updated"};
        if (length >= 72) {
            expected[0] += ' ' + kFirst + "(type 1 mode 1)";
            expected[1] += ' ' + kFirst + "(type 2)=11 11 11 11";
        }
        if (length >= 124) {
            expected[0] += ' ' + kSecond + "(type 1 mode 1)";
            expected[1] += ' ' + kSecond + "(type 2)=22 22 22 22";
        }
        ASSERT_EQ(expected, log) << length << " bytes";
        ASSERT_EQ(length >= 124 ? 2U : length >= 72 ? 1U : 0U, engine.inputIds().size()) << length << " bytes";
    }
}

TEST(TruncatedMessages, OutputConfirmationConfirmsItsWholeRecords) {
    const std::string whole = outputConfirmation(2, {confirmedOutput(7, kFirst), confirmedOutput(8, kSecond)});
    ASSERT_EQ(116U, hex(whole).size());
    for (std::size_t length = 12; length <= 116; ++length) {
        Lines log;
        ActingCallbacks callbacks(log);
        ReadyEngine engine;
        engine.adoptOutput(kFirst);
        engine.adoptOutput(kSecond);
        engine.addCallbackInterface(&callbacks);
        engine.receive(firstBytes(whole, length));
        Lines expected{"outputs confirmed"};
        if (length >= 68) {
            expected[0] += ' ' + kFirst + "(type 1)";
        }
        if (length >= 116) {
            expected[0] += ' ' + kSecond + "(type 1)";
        }
        ASSERT_EQ(expected, log) << length << " bytes";
        ASSERT_EQ(length >= 116 ? 2U : length >= 68 ? 1U : 0U, engine.outputIds().size()) << length << " bytes";
    }
}

TEST(TruncatedMessages, OutputConfirmationReportsUnknownNamesOfWholeRecordsOnly) {
    const std::string whole = outputConfirmation(2, {confirmedOutput(7, kFirst), confirmedOutput(8, kSecond)});
    for (std::size_t length = 12; length <= 116; ++length) {
        CapturedStreams streams;
        ReadyEngine engine(5, kTalking);
        engine.receive(firstBytes(whole, length));
        std::string expected;
        if (length >= 68) {
            expected += "Parameter not found: " + kFirst + "(7)\n";
        }
        if (length >= 116) {
            expected += "Parameter not found: " + kSecond + "(8)\n";
        }
        ASSERT_EQ(expected, streams.err()) << length << " bytes";
    }
}

TEST(TruncatedMessages, UpdatePassesOnItsWholeRecords) {
    const std::string whole = update(2, {updated(7, 1, "11 11 11 11"), updated(8, 0x01010101, "22 22 22 22")});
    ASSERT_EQ(48U, hex(whole).size());
    Lines log;
    ActingCallbacks callbacks(log);
    ReadyEngine engine;
    engine.registerInput("A");
    engine.registerInput("B");
    engine.receive(
        inputConfirmation(2, {confirmedInput(7, 1, "00 00 00 00", "A"), confirmedInput(8, 1, "00 00 00 00", "B")}));
    engine.addCallbackInterface(&callbacks);
    for (std::size_t length = 12; length <= 48; ++length) {
        log.clear();
        engine.receive(firstBytes(whole, length));
        Lines expected;
        if (length >= 48) {
            expected = {"updated A(type 2)=11 11 11 11 B(type 2)=22 22 22 22"};
        } else if (length >= 36) {
            expected = {"updated A(type 2)=11 11 11 11"};
        }
        ASSERT_EQ(expected, log) << length << " bytes";
    }
}

TEST(TruncatedMessages, CountCutInTheMiddleConfirmsNothing) {
    // The byte past the end counts as 0, so the count can read as a number other than the one sent.
    Lines log;
    ActingCallbacks callbacks(log);
    ReadyEngine engine;
    engine.addCallbackInterface(&callbacks);
    engine.receive("04 02 7F FF 00 00 00 13 00 7F 01 01 00 05 00 00 FF FF FF");
    engine.receive("04 02 7F FF 00 00 00 13 00 7F 01 02 00 05 00 00 FF FF FF");
    engine.receive("04 02 7F FF 00 00 00 17 00 7F 00 03 00 05 00 00 00 00 00 00 FF FF FF");
    EXPECT_EQ((Lines{"inputs confirmed", "updated", "outputs confirmed"}), log);
}

}  // namespace
}  // namespace com_tesk::test
