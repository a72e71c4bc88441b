#include "tools/replay/Plan.h"

#include <gtest/gtest.h>

#include "tests/recording/TemporaryDirectory.h"
#include "tests/replay/LogLines.h"
#include "tests/replay/Times.h"

namespace com_tesk::replay {
namespace {

using recording::Direction;
using replay_test::entry;
using replay_test::kHeader;
using replay_test::kRegistered;
using replay_test::publication;
using replay_test::update;
using test::ms;
using test::seconds;

class PlanOf : public ::testing::Test {
  protected:
    Plan plan(const std::string& lines) {
        recording::Recording recording(directory.write("log.jsonl", kHeader + lines));
        return planOf(recording, options, Selection(options));
    }

    Options options;
    recording_test::TemporaryDirectory directory;
};

TEST_F(PlanOf, BeginsWithTheLastRegistrationOfTheFirstSecond) {
    const Plan result = plan(kRegistered + update("0.5", R"(["A",2.0])") +
                             entry("0.9", R"("register-outputs","parameters":[{"name":"C","type":"integer"}])") +
                             update("1.5", R"(["A",3.0])") +
                             entry("1.6", R"("register-outputs","parameters":[{"name":"D","type":"integer"}])") +
                             entry("2", R"("end")"));
    EXPECT_EQ(result.begin, ms(900));
    EXPECT_EQ(result.end, seconds(2));
    EXPECT_EQ(result.registered.size(), 3U);
    EXPECT_EQ(result.values.at("A"), HostValue::real(2)) << "the value at the beginning";
    EXPECT_TRUE(result.registered.at({Direction::OUTPUTS, "C"}));
}

TEST_F(PlanOf, ALogWithoutItsFirstFileBeginsWithItsState) {
    const Plan result = plan(
        R"({"t":60,"type":"state","connections":[{"connection":4,"simulator-id":1,"inputs":[{"name":"A","type":"float","id":1,"value":2.5}],)"
        R"("outputs":[{"name":"B","type":"float","id":2}]}],"values":[["A",2.5],["B",7.0]],"version":"sim","protocol":2})"
        "\n" +
        entry("70", R"("end")"));
    EXPECT_EQ(result.begin, seconds(60));
    EXPECT_EQ(result.registered.size(), 2U);
    EXPECT_EQ(result.values.at("A"), HostValue::real(2.5));
    EXPECT_EQ(result.published.at("B"), HostValue::real(7));
    EXPECT_EQ(result.versionText, "sim");
}

TEST_F(PlanOf, TheHostIsBackBetweenTheLastFailureAndTheConnection) {
    const auto attempt = [](const std::string& seconds) {
        return entry(seconds, R"("connected","client":"")") +
               entry(seconds, R"("lost","side":"host","why":"Connection refused")");
    };
    const Plan result =
        plan(kRegistered + entry("10", R"("lost","side":"host","why":"closed")") + attempt("11") + attempt("12") +
             entry("14", R"("connected","client":"")") + update("14.5", R"(["A",1.0])"));
    ASSERT_EQ(result.losses.size(), 1U);
    EXPECT_EQ(result.losses[0].at, seconds(10));
    EXPECT_EQ(result.losses[0].back, seconds(13));
    EXPECT_FALSE(result.losses[0].isReset);
}

TEST_F(PlanOf, ALossWithoutFailedAttemptsDoesNotCloseThePort) {
    const Plan result = plan(kRegistered + entry("10", R"("lost","side":"host","why":"Connection reset by peer")") +
                             entry("14", R"("connected","client":"")") + update("14.5", R"(["A",1.0])"));
    ASSERT_EQ(result.losses.size(), 1U);
    EXPECT_EQ(result.losses[0].back, seconds(10));
    EXPECT_TRUE(result.losses[0].isReset);
}

TEST_F(PlanOf, ALossByTheClientIsNoneOfTheHost) {
    EXPECT_TRUE(plan(kRegistered + entry("10", R"("lost","side":"client","why":"closed")")).losses.empty());
}

TEST_F(PlanOf, NothingAfterThePartIsPlayed) {
    options.start = seconds(5);
    options.duration = seconds(2);
    const Plan result = plan(kRegistered + publication("4", R"(["B",4.0])") + publication("6", R"(["B",6.0])") +
                             publication("8", R"(["B",8.0])"));
    EXPECT_EQ(result.begin, seconds(5));
    EXPECT_EQ(result.end, seconds(7));
    EXPECT_EQ(result.lastMessage, seconds(6));
    EXPECT_EQ(result.published.at("B"), HostValue::real(4));
}

TEST_F(PlanOf, NamesThatAreLeftOutAreNotAwaited) {
    options.only = {"B"};
    EXPECT_EQ(plan(kRegistered).registered.size(), 1U);
    options.only = {"nothing"};
    EXPECT_THROW(plan(kRegistered), std::runtime_error);
}

}  // namespace
}  // namespace com_tesk::replay
