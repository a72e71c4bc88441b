#include <gtest/gtest.h>

#include "tests/support/HostMessages.h"
#include "tests/simulator/ReadyEngine.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

/// The response that announces the id that the engine has.
std::string sameId(const std::string& text, unsigned int protocolVersion = 9, unsigned int status = 1) {
    return versionResponse(0x00050000, text, protocolVersion, status);
}

TEST(VersionResponse, DefaultsStandBeforeIt) {
    const ReadyEngine engine;
    EXPECT_EQ("UNKNOWN", engine.getServerVersion());
    EXPECT_EQ(0U, engine.getProtocolVersion());
}

TEST(VersionResponse, StoresTextAndProtocolVersion) {
    ReadyEngine engine;
    engine.receive(sameId("HOST 1.2.3", 0x01020304));
    EXPECT_EQ("HOST 1.2.3", engine.getServerVersion());
    EXPECT_EQ(0x01020304U, engine.getProtocolVersion());
}

TEST(VersionResponse, StoresTheLargestProtocolVersion) {
    ReadyEngine engine;
    engine.receive(sameId("HOST", 0xFFFFFFFF));
    EXPECT_EQ(0xFFFFFFFFU, engine.getProtocolVersion());
}

TEST(VersionResponse, PrintsThreeLinesOnStandardOutput) {
    CapturedStreams streams;
    ReadyEngine engine(5, kTalking);
    engine.receive(sameId("HOST 1.2.3", 4294967295U));
    EXPECT_EQ(
        "Found server version: HOST 1.2.3\n"
        "Found simulator id: 5\n"
        "Found protocol version: 4294967295\n",
        streams.out());
    EXPECT_EQ("", streams.err());
    EXPECT_EQ(3, streams.outInsertions());
}

TEST(VersionResponse, SilentPrintsNothingForTheSameId) {
    CapturedStreams streams;
    ReadyEngine engine(5, kSilent);
    engine.receive(sameId("HOST 1.2.3"));
    EXPECT_EQ("", streams.out() + streams.err());
    EXPECT_EQ("HOST 1.2.3", engine.getServerVersion());
}

TEST(VersionResponse, SameIdRegistersNothingAgain) {
    CapturedStreams streams;
    ReadyEngine engine(5, kTalking);
    engine.registerInput("A");
    engine.registerOutput("P");
    engine.forgetRequests();
    engine.receive(sameId("HOST"));
    EXPECT_EQ(Lines{}, engine.requests());
    EXPECT_EQ(std::string::npos, streams.out().find("Simulator ID is now"));
}

TEST(VersionResponse, AnswersNothingAndCallsNoInterface) {
    CapturedStreams streams;
    Lines log;
    ActingCallbacks callbacks(log);
    ReadyEngine engine;
    engine.addCallbackInterface(&callbacks);
    engine.receive(versionResponse(0x00060000, "HOST"));
    EXPECT_EQ(Lines{}, engine.requests());
    EXPECT_EQ(Lines{}, log);
}

TEST(VersionResponse, EveryStatusButOneIsIgnoredWhole) {
    for (const unsigned int status : {0U, 2U, 0x100U, 0x101U, 0x01000000U, 0x80000001U, 0xFFFFFFFFU}) {
        CapturedStreams streams;
        ReadyEngine engine(5, kTalking);
        engine.registerInput("A");
        engine.forgetRequests();
        engine.receive(versionResponse(0x00060000, "HOST", 9, status));
        EXPECT_EQ("UNKNOWN", engine.getServerVersion()) << status;
        EXPECT_EQ(0U, engine.getProtocolVersion());
        EXPECT_EQ(5U, engine.getSimulatorId());
        EXPECT_EQ(Lines{}, engine.requests());
        EXPECT_EQ("", streams.out() + streams.err());
    }
}

TEST(VersionResponse, RefusalKeepsWhatAnEarlierResponseHasStored) {
    ReadyEngine engine;
    engine.receive(sameId("HOST", 9));
    engine.receive(versionResponse(0x00060000, "OTHER", 10, 2));
    EXPECT_EQ("HOST", engine.getServerVersion());
    EXPECT_EQ(9U, engine.getProtocolVersion());
    EXPECT_EQ(5U, engine.getSimulatorId());
}

TEST(VersionResponse, LaterResponseReplacesTheEarlierOne) {
    ReadyEngine engine;
    engine.receive(sameId("A LONG VERSION TEXT OF THE HOST, LONGER THAN ANY BUFFER INSIDE A STRING", 9));
    engine.receive(sameId("B", 10));
    EXPECT_EQ("B", engine.getServerVersion());
    EXPECT_EQ(10U, engine.getProtocolVersion());
    engine.receive(sameId("", 0));
    EXPECT_EQ("", engine.getServerVersion());
    EXPECT_EQ(0U, engine.getProtocolVersion());
}

TEST(VersionResponse, EveryBodyShorterThanOneHundredAndFiftyTwoBytesIsIgnored) {
    // With ones behind the version text, so that only the length can make the status differ from 1.
    const std::string whole = sameId("HOST", 0x01010101);
    CapturedStreams streams;
    ReadyEngine engine(6, kTalking);
    for (std::size_t length = 0; length < 152; ++length) {
        engine.receive(firstBytes(whole, length));
        ASSERT_EQ("UNKNOWN", engine.getServerVersion()) << length << " bytes";
        ASSERT_EQ(0U, engine.getProtocolVersion()) << length << " bytes";
        ASSERT_EQ(6U, engine.getSimulatorId()) << length << " bytes";
    }
    EXPECT_EQ("", streams.out() + streams.err());
}

TEST(VersionResponse, StatusCutByOneByteIsNotOne) {
    // The byte past the end counts as 0: 00 00 00 and 00 00 01 are both something other than 1.
    ReadyEngine engine;
    engine.receive(firstBytes(sameId("HOST", 9, 0x00000100), 151));
    engine.receive(firstBytes(sameId("HOST", 9, 0x00000001), 151));
    engine.receive(firstBytes(sameId("HOST", 9, 0x00000101), 151));
    EXPECT_EQ("UNKNOWN", engine.getServerVersion());
}

TEST(VersionResponse, OneHundredAndFiftyTwoBytesAreEnough) {
    ReadyEngine engine;
    engine.receive(firstBytes(sameId("HOST"), 152));
    EXPECT_EQ("HOST", engine.getServerVersion());
}

TEST(VersionResponse, BytesBehindTheStatusAreIgnored) {
    for (const char* const rest : {" FF", " 00 00 00 00", " 01 02 03 04 05 06 07 08"}) {
        ReadyEngine engine;
        engine.receive(sameId("HOST") + rest);
        EXPECT_EQ("HOST", engine.getServerVersion());
        EXPECT_EQ(9U, engine.getProtocolVersion());
    }
}

TEST(VersionResponse, EmptyTextReplacesTheDefault) {
    CapturedStreams streams;
    ReadyEngine engine(5, kTalking);
    engine.receive(sameId("", 1));
    EXPECT_EQ("", engine.getServerVersion());
    EXPECT_EQ("Found server version: \nFound simulator id: 5\nFound protocol version: 1\n", streams.out());
}

TEST(VersionResponse, TextOfOneHundredAndTwentySevenCharactersIsWhole) {
    ReadyEngine engine;
    engine.receive(sameId(std::string(127, 'v'), 0x76767676));
    EXPECT_EQ(std::string(127, 'v'), engine.getServerVersion());
}

TEST(VersionResponse, TextWithoutAZeroIsTheWholeFieldAndNoMore) {
    ReadyEngine engine;
    engine.receive(sameId(std::string(128, 'v'), 0x76767676));
    EXPECT_EQ(std::string(128, 'v'), engine.getServerVersion());
    EXPECT_EQ(0x76767676U, engine.getProtocolVersion());
}

TEST(VersionResponse, TextEndsAtItsFirstZero) {
    ReadyEngine engine;
    engine.receive(sameId(std::string("HOST\0 AND MORE", 14)));
    EXPECT_EQ("HOST", engine.getServerVersion());
}

TEST(VersionResponse, TextBytesAreKeptAsTheyAre) {
    ReadyEngine engine;
    engine.receive(sameId("\xFFr\xC3\xA4\n%s"));
    EXPECT_EQ("\xFFr\xC3\xA4\n%s", engine.getServerVersion());
}

TEST(VersionResponse, LowerHalfOfTheSimulatorWordIsIgnored) {
    CapturedStreams streams;
    ReadyEngine engine(5, kTalking);
    engine.receive(versionResponse(0x0005FFFF, "HOST", 1));
    EXPECT_EQ(5U, engine.getSimulatorId());
    EXPECT_EQ("Found server version: HOST\nFound simulator id: 5\nFound protocol version: 1\n", streams.out());
}

TEST(VersionResponse, IsAcceptedWithoutAConnection) {
    TestEngine engine(5, kSilent);
    engine.receive(sameId("HOST"));
    EXPECT_EQ("HOST", engine.getServerVersion());
}

}  // namespace
}  // namespace com_tesk::test
