#include <gtest/gtest.h>

#include "tests/simulator/ReadyEngine.h"

namespace com_tesk::test {
namespace {

constexpr std::size_t kFieldText = 32 * 3 - 1;

/// The name field at the end of a subscription of one input.
std::string inputNameField(const std::string& name) {
    ReadyEngine engine(5);
    CSClientProtocol::InputParameterEntry entry{name, CSClient::TYPE_INT, 1, 7};
    EXPECT_EQ(0, engine.sendInputSubscriptionRequest({&entry}));
    const Lines requests = engine.requests();
    EXPECT_EQ(1U, requests.size());
    EXPECT_EQ(64U * 3 - 1, requests.at(0).size());
    return requests.at(0).substr(requests.at(0).size() - kFieldText);
}

/// The name field at the end of a registration of one output.
std::string outputNameField(const std::string& name) {
    ReadyEngine engine(5);
    CSClientProtocol::OutputParameterEntry entry{name, CSClient::TYPE_INT, 7, false, {0.0F}};
    EXPECT_EQ(0, engine.sendOutputSubscriptionRequest({&entry}));
    const Lines requests = engine.requests();
    EXPECT_EQ(1U, requests.size());
    EXPECT_EQ(60U * 3 - 1, requests.at(0).size());
    return requests.at(0).substr(requests.at(0).size() - kFieldText);
}

void expectField(const std::string& fieldHex, const std::string& name) {
    EXPECT_EQ(fieldHex, inputNameField(name));
    EXPECT_EQ(fieldHex, outputNameField(name));
}

TEST(RequestNames, EmptyNameIsThirtyTwoZeroBytes) {
    expectField("00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00", "");
}

TEST(RequestNames, OneCharacterIsFollowedByZeroBytes) {
    expectField("41 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00", "A");
}

TEST(RequestNames, ThirtyOneCharactersKeepOneZeroByte) {
    expectField("61 62 63 64 65 66 67 68 69 6A 6B 6C 6D 6E 6F 70 71 72 73 74 75 76 77 78 79 7A 30 31 32 33 34 00",
                "abcdefghijklmnopqrstuvwxyz01234");
}

TEST(RequestNames, ThirtyTwoCharactersFillTheField) {
    expectField("61 62 63 64 65 66 67 68 69 6A 6B 6C 6D 6E 6F 70 71 72 73 74 75 76 77 78 79 7A 30 31 32 33 34 35",
                "abcdefghijklmnopqrstuvwxyz012345");
}

TEST(RequestNames, FortyCharactersAreCutToThirtyTwo) {
    expectField("61 62 63 64 65 66 67 68 69 6A 6B 6C 6D 6E 6F 70 71 72 73 74 75 76 77 78 79 7A 30 31 32 33 34 35",
                "abcdefghijklmnopqrstuvwxyz0123456789ABCD");
}

TEST(RequestNames, NameEndsAtAnEmbeddedZero) {
    expectField("41 42 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
                std::string("AB\0CD", 5));
}

TEST(RequestNames, LeadingZeroGivesAnEmptyField) {
    expectField("00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
                std::string("\0CD", 3));
}

TEST(RequestNames, LongNameEndsAtAnEmbeddedZero) {
    expectField("41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 00",
                std::string(31, 'A') + std::string("\0ZZZZZZZZ", 9));
}

TEST(RequestNames, BytesAboveSevenBitsAreSentAsTheyAre) {
    expectField("C3 A4 FF 80 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
                "\xC3\xA4\xFF\x80");
}

TEST(RequestNames, LongNameDoesNotDisturbTheRecordBehindIt) {
    ReadyEngine engine(5);
    CSClientProtocol::OutputParameterEntry longName{std::string(40, 'L'), CSClient::TYPE_FLOAT, 7, false, {0.0F}};
    CSClientProtocol::OutputParameterEntry next{"N", CSClient::TYPE_INT, 8, false, {0.0F}};
    EXPECT_EQ(0, engine.sendOutputSubscriptionRequest({&longName, &next}));
    EXPECT_EQ(Lines{"04 02 7F FF 00 00 00 64 00 7F 00 02 00 05 00 00 00 00 00 02 00 00 04 B0 00 00 00 00 "
                    "4C 4C 4C 4C 4C 4C 4C 4C 4C 4C 4C 4C 4C 4C 4C 4C 4C 4C 4C 4C 4C 4C 4C 4C 4C 4C 4C 4C 4C 4C 4C 4C "
                    "00 00 04 B0 00 00 00 01 "
                    "4E 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"},
              engine.requests());
}

}  // namespace
}  // namespace com_tesk::test
