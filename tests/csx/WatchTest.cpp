#include "tests/csx/CsxProcess.h"

namespace com_tesk::csx_test {
namespace {

/// Runs `csx watch` with a host that has the values A=0 and B=0.
class Watch : public testing::Test {
  protected:
    Watch() {
        options.initialValues = {{"A", HostValue::real(0)}, {"B", HostValue::real(0)}};
        host = std::make_unique<LoopbackHost>(options);
        options.port = host->port();
    }

    void start(const Arguments& arguments) {
        Arguments all{"watch"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        csx = std::make_unique<Csx>(options.port, all);
    }
    /// Starts with one name, and waits for its first value.
    void startA(const Arguments& arguments) {
        start(arguments);
        ASSERT_TRUE(csx->waitForOut("A 0\n"));
    }
    void set(const std::string& name, std::initializer_list<float> values) {
        for (const float value : values) {
            host->setValue(name, HostValue::real(value));
        }
    }

    HostOptions options;
    std::unique_ptr<LoopbackHost> host;
    std::unique_ptr<Csx> csx;
};

TEST_F(Watch, PrintsEachValueWhenItArrives) {
    start({"A", "B"});
    ASSERT_TRUE(csx->waitForOut("B 0\n"));
    set("A", {1});
    EXPECT_TRUE(csx->waitForOut("A 1\n"));
    set("B", {2});
    EXPECT_TRUE(csx->waitForOut("B 2\n"));
    set("A", {1});
    csx->waitForOut("B 2\n");
    EXPECT_FALSE(csx->hasEndedWithin(kQuiet));
    csx->expectEndAfter(SIGINT, 0);
    EXPECT_EQ(valuesOf(csx->outText()), "A 0|B 0|A 1|B 2|A 1");
    EXPECT_EQ(csx->errText(), "");
}

TEST_F(Watch, EndsAfterACountOfLines) {
    startA({"-n", "3", "A"});
    set("A", {1, 2, 3, 4});
    EXPECT_EQ(csx->exitCode(), 0);
    EXPECT_EQ(valuesOf(csx->outText()), "A 0|A 1|A 2");
}

TEST_F(Watch, PrintsEveryValueOfABurst) {
    startA({"--count", "2001", "--time", "none", "A"});
    std::string expected = "A 0\n";
    for (int i = 1; i <= 2'000; ++i) {
        host->setValue("A", HostValue::integer(i));
        expected += "A " + std::to_string(i) + '\n';
    }
    EXPECT_EQ(csx->exitCode(), 0);
    EXPECT_EQ(csx->outText(), expected);
}

TEST_F(Watch, EndsAfterATime) {
    start({"--for", kTimeOut, "A"});
    EXPECT_EQ(csx->exitCode(), 0);
    EXPECT_GE(csx->seconds(), kIsSlow ? 5.99 : 0.99);
    EXPECT_EQ(valuesOf(csx->outText()), "A 0");
    EXPECT_EQ(csx->errText(), "");
}

TEST_F(Watch, LeavesOutValuesThatHaveNotChanged) {
    startA({"--changes", "-n", "5", "A"});
    set("A", {0, 1, 1, 0, 0});
    host->setValue("A", HostValue::integer(0));
    set("A", {9});
    EXPECT_EQ(csx->exitCode(), 0);
    // A value of another type is a change.
    EXPECT_EQ(valuesOf(csx->outText()), "A 0|A 1|A 0|A 0|A 9");
}

TEST_F(Watch, AtAMaximumRateTheNewestValueIsPrinted) {
    startA({"--max-rate", "0.5", "-n", "2", "A"});
    for (int i = 1; i <= 50; ++i) {
        host->setValue("A", HostValue::integer(i));
    }
    EXPECT_EQ(csx->exitCode(), 0);
    EXPECT_EQ(valuesOf(csx->outText()), "A 0|A 50");
    EXPECT_GE(csx->seconds(), 1.9);
}

TEST_F(Watch, AMaximumRateIsThatOfEachName) {
    start({"--max-rate", "0.001", "-n", "2", "A", "B"});
    EXPECT_EQ(csx->exitCode(), 0);
    EXPECT_EQ(valuesOf(csx->outText()), "A 0|B 0");
}

TEST_F(Watch, AtAMaximumRateTheNewestValueIsPrintedAtTheEnd) {
    startA({"--max-rate", "0.001", "--for", "3s", "A"});
    set("A", {1, 2, 3});
    EXPECT_EQ(csx->exitCode(), 0);
    EXPECT_EQ(valuesOf(csx->outText()), "A 0|A 3");
}

TEST_F(Watch, AtAMaximumRateAValueThatCameBackIsNoChange) {
    startA({"--max-rate", "0.5", "--changes", "--for", "4s", "A"});
    set("A", {1, 0});
    EXPECT_EQ(csx->exitCode(), 0);
    EXPECT_EQ(valuesOf(csx->outText()), "A 0");
}

TEST_F(Watch, PrintsTheTimeSinceTheFirstLine) {
    startA({"--time", "rel", "-n", "3", "A"});
    EXPECT_FALSE(csx->hasEndedWithin(kQuiet));
    set("A", {1});
    ASSERT_TRUE(csx->waitForOut("A 1\n"));
    EXPECT_FALSE(csx->hasEndedWithin(kQuiet));
    set("A", {2});
    EXPECT_EQ(csx->exitCode(), 0);
    const auto lines = linesOf(csx->outText());
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0], "0.000000 A 0");
    EXPECT_GE(std::stod(lines[1]), 0.25);
    EXPECT_GE(std::stod(lines[2]), std::stod(lines[1]) + 0.25);
}

TEST_F(Watch, PrintsTheTimeSinceTheLineBefore) {
    startA({"--time", "delta", "-n", "3", "A"});
    EXPECT_FALSE(csx->hasEndedWithin(1s));
    set("A", {1, 2});
    EXPECT_EQ(csx->exitCode(), 0);
    const auto lines = linesOf(csx->outText());
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0], "0.000000 A 0");
    EXPECT_GE(std::stod(lines[1]), 0.9);
    EXPECT_LT(std::stod(lines[2]), std::stod(lines[1]));
}

TEST_F(Watch, PrintsNoTimeOnRequest) {
    startA({"--time", "none", "-n", "2", "A"});
    set("A", {1});
    EXPECT_EQ(csx->exitCode(), 0);
    EXPECT_EQ(csx->outText(), "A 0\nA 1\n");
}

TEST_F(Watch, TheTimeIsThatOfReceipt) {
    const auto before = std::chrono::system_clock::now() - 1s;
    startA({"--time", "abs", "-n", "1", "A"});
    EXPECT_EQ(csx->exitCode(), 0);
    std::tm parts{};
    ASSERT_NE(strptime(csx->outText().c_str(), "%Y-%m-%dT%H:%M:%S", &parts), nullptr);
    const auto printed = std::chrono::system_clock::from_time_t(timegm(&parts));
    EXPECT_GE(printed, before - 1s);
    EXPECT_LE(printed, std::chrono::system_clock::now() + 1s);
}

TEST_F(Watch, ContinuesWhenTheHostComesBack) {
    startA({"A"});
    host = nullptr;
    ASSERT_TRUE(csx->waitForErr("\n"));
    EXPECT_FALSE(csx->hasEndedWithin(kQuiet));
    options.initialValues.insert_or_assign("A", HostValue::real(7));
    host = std::make_unique<LoopbackHost>(options);
    ASSERT_TRUE(csx->waitForOut("A 7\n"));
    ASSERT_TRUE(csx->waitForErr("csx: connected again\n"));
    set("A", {8});
    ASSERT_TRUE(csx->waitForOut("A 8\n"));
    csx->expectEndAfter(SIGINT, 0);
    EXPECT_EQ(valuesOf(csx->outText()), "A 0|A 7|A 8");
}

TEST_F(Watch, WithoutAConnectionAtTheEndItEndsWithFour) {
    startA({"--for", "3s", "A"});
    host = nullptr;
    EXPECT_EQ(csx->exitCode(), 4);
    EXPECT_TRUE(contains(csx->errText(), "\ncsx: there was no connection when the time had passed\n"))
        << csx->errText();
    EXPECT_EQ(linesOf(csx->errText()).empty(), false);
}

}  // namespace
}  // namespace com_tesk::csx_test
