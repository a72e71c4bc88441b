// csx stats as a process.

#include "tests/recording_tools/Tools.h"

namespace com_tesk::recording_test {
namespace {

using Stats = ToolTest;

TEST_F(Stats, FiguresOfNamesAndConnectionsAreJson) {
    const auto objects = objectsOf(csx({"-o", "json", "stats", log(threeLosses())}).out);
    ASSERT_EQ(objects.size(), 4U);
    EXPECT_EQ(objects[0],
              Json::parse(R"({"duration":8.5,"connections":4,"lost_by_host":3,"lost_by_client":1,"unanswered":2,)"
                          R"("away":3.500006,"ended":true})"));
    const Json& altitude = objects[1];
    EXPECT_EQ(altitude["name"], "altitude");
    EXPECT_EQ(altitude["direction"], "update");
    EXPECT_EQ(altitude["count"], 6);
    EXPECT_EQ(altitude["min"], 0);
    EXPECT_FLOAT_EQ(altitude["max"].get<float>(), 13.1F);
    EXPECT_FLOAT_EQ(altitude["mean"].get<float>(), 25.6F / 6);
    EXPECT_EQ(altitude["first"], 1.000004);
    EXPECT_EQ(altitude["last"], 7.000004);
    EXPECT_EQ(altitude["longest_gap"], 2.0);
    EXPECT_EQ(altitude["longest_gap_at"], 5.000004);
    EXPECT_NEAR(altitude["rate"].get<double>(), 5 / 6.0, 1e-6);
    EXPECT_EQ(objects[2]["name"], "button");
    EXPECT_EQ(objects[2]["direction"], "publish");
    EXPECT_EQ(objects[3]["name"], "gear");
}

TEST_F(Stats, NamesWithoutFiniteValuesHaveNoExtremes) {
    const std::string good = log(headerLine() + updateLine("1.000000", R"(["a","nan"],["b",1.0],["b","inf"])"));
    const auto objects = objectsOf(csx({"stats", good, "-o", "json"}).out);
    ASSERT_EQ(objects.size(), 3U);
    EXPECT_TRUE(objects[1]["min"].is_null());
    EXPECT_EQ(objects[1]["not_finite"], 1);
    EXPECT_EQ(objects[2]["max"], 1);
    EXPECT_EQ(objects[2]["count"], 2);
    EXPECT_EQ(objects[2]["rate"], 0);
    EXPECT_EQ(csx({"stats", good, "-o", "csv"}).out,
              "name,direction,count,rate,min,max,mean,first,last,longest_gap,longest_gap_at,not_finite\r\n"
              "a,update,1,0,,,,1.000000,1.000000,0.000000,0.000000,1\r\n"
              "b,update,2,0,1,1,1,1.000000,1.000000,0.000000,0.000000,1\r\n");
}

TEST_F(Stats, TextIsATable) {
    const Ended result = csx(
        {"stats", log(headerLine() + updateLine("1.000000", R"(["a b",1.5])") + entryLine("2.000000", R"("end")"))});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(
        result.out,
        "duration 2.000000\nconnections 1\nlost_by_host 0\nlost_by_client 0\nunanswered 0\naway 0.000000\nended "
        "true\n\n"
        "name   direction  count  rate  min  max  mean     first      last  longest_gap  longest_gap_at  not_finite\n"
        "\"a b\"  update         1     0  1.5  1.5   1.5  1.000000  1.000000     0.000000        0.000000           "
        "0\n");
}

TEST_F(Stats, DamagedLinesAreLeftOutAndReported) {
    const std::string text =
        headerLine() + "[[[\n" + updateLine("1.000000", R"(["a",1.0])") + R"({"t":2.0,"type":"upd)";
    const Ended result = csx({"stats", log(text)});
    EXPECT_EQ(result.code, 0);
    EXPECT_TRUE(contains(result.err, "left out: " + path("log.jsonl") + ":2: ")) << result.err;
    EXPECT_TRUE(contains(result.err, ":4: the line is torn\n")) << result.err;
    EXPECT_TRUE(contains(result.out, "ended false\n")) << result.out;
}

TEST_F(Stats, WhatIsNoRecordingIsRefused) {
    const auto refused = [](const std::string& file, const std::string& why) {
        for (const char* const command : {"stats", "convert", "plot"}) {
            Arguments all{command, file};
            if (all[0] == "convert") {
                all.insert(all.end(), {"--to", "csv"});
            } else if (all[0] == "plot") {
                all.insert(all.end(), {"a", "-o", "never.svg"});
            }
            const Ended result = csx(all);
            EXPECT_EQ(result.code, 2) << command << ' ' << why;
            EXPECT_TRUE(contains(result.err, why)) << result.err;
            EXPECT_EQ(result.out, "");
        }
    };
    refused(log(""), "not a recording: it is empty");
    refused(path("none.jsonl"), "No such file or directory");
    refused(path(""), "Is a directory");
    refused(directory.write("text.jsonl", "hello\n"), "not a recording");
}

}  // namespace
}  // namespace com_tesk::recording_test
