#include "tools/csmqtt/RunId.h"

#include <gtest/gtest.h>

namespace com_tesk::mqtt {

TEST(RunId, IsLaterWhenTheStartIsLater) {
    EXPECT_TRUE(isLaterRun("1795453322571-1", "1795453322570-9"));
    EXPECT_FALSE(isLaterRun("1795453322570-9", "1795453322571-1"));
    EXPECT_FALSE(isLaterRun("1795453322570-9", "1795453322570-1"));
}

TEST(RunId, OfAnotherFormIsNeverLater) {
    const std::string own = newRunId();
    for (const std::string_view text :
         {"", "-", "-1", "x", "1", "99999999999999999999999-1", "\xFF", " 9795453322571"}) {
        EXPECT_FALSE(isLaterRun(text, own)) << text;
    }
}

TEST(RunId, OfTwoRunsDiffers) {
    EXPECT_NE(newRunId(), newRunId());
}

TEST(RunId, IsFoundInStatistics) {
    EXPECT_EQ(runIdInStatistics(R"({"run":"12-3","uptime_s":1})"), "12-3");
    EXPECT_EQ(runIdInStatistics(R"({"run":""})"), "");
}

TEST(RunId, IsEmptyWithoutOneInStatistics) {
    for (const std::string_view payload : {"", "{}", R"({"run":1})", R"({"run":")", R"({"run":"12)", "\xFF"}) {
        EXPECT_EQ(runIdInStatistics(payload), "") << payload;
    }
}

}  // namespace com_tesk::mqtt
