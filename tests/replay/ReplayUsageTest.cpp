// Command lines of `csx replay`, and recordings that cannot be played.

#include "tests/replay/ReplayProcess.h"

namespace com_tesk::replay_test {
namespace {

class ReplayUsage : public Replay {
  protected:
    void expectRefused(const Arguments& arguments, const std::string& why) {
        const int code = run(Arguments{"replay", dataFile("panel.jsonl")} + arguments);
        EXPECT_GE(code, 100);
        EXPECT_TRUE(contains(err(), why)) << err();
    }
    void expectInvalid(const std::string& log, const std::string& why) {
        EXPECT_EQ(run({"replay", log, "--as", "host"}), 2) << err();
        EXPECT_TRUE(contains(err(), why)) << err();
    }
};

TEST_F(ReplayUsage, OptionsThatDoNotFitAreRefused) {
    expectRefused({}, "--as is required");
    expectRefused({"--as", "proxy"}, "proxy");
    expectRefused({"--as", "host", "--rate", "0"}, "out of range: 0");
    expectRefused({"--as", "host", "--rate", "nan"}, "out of range: nan");
    expectRefused({"--as", "host", "--rename", "A"}, "expected RECORDED=NAME, got A");
    expectRefused({"--as", "host", "--bless"}, "--bless needs --check");
    expectRefused({"--as", "host", "--check"}, "--check needs a program after --");
    expectRefused({"--as", "host", "--check", "--loop", "--", "true"}, "--check permits no --loop");
    expectRefused({"--as", "client", "--", "true"}, "PROGRAM needs --as host");
    expectRefused({"--as", "client", "--check"}, "--check needs --as host");
    expectRefused({"--as", "host", "--check", "--tolerance", "-1", "--", "true"}, "out of range: -1");
}

TEST_F(ReplayUsage, ARecordingThatCannotBePlayedEndsItWithTwo) {
    expectInvalid("/no/such.jsonl", "/no/such.jsonl");
    expectInvalid(directory.write("empty.jsonl", ""), "it is empty");
    expectInvalid(directory.write("binary.jsonl", std::string(5'000, '\xFF')), "not a recording");
    expectInvalid(directory.write("header.jsonl", kHeader), "the recording has no registration");
}

TEST_F(ReplayUsage, AStartAfterTheEndEndsItWithTwo) {
    EXPECT_EQ(run({"replay", dataFile("panel.jsonl"), "--as", "host", "--start", "10s"}), 2);
    EXPECT_TRUE(contains(err(), "the recording ends after 3.2 s")) << err();
}

TEST_F(ReplayUsage, AnAddressThatIsNotHereEndsItWithTwo) {
    EXPECT_EQ(run({"replay", dataFile("panel.jsonl"), "--as", "host", "--listen", "192.0.2.1"}), 2);
    EXPECT_TRUE(contains(err(), "cannot listen on 192.0.2.1")) << err();
}

TEST_F(ReplayUsage, AProgramThatDoesNotStartEndsItWithFour) {
    if (test::isEmulated()) {
        GTEST_SKIP() << "under the emulator a program starts before the system can say that there is none";
    }
    EXPECT_EQ(run({"replay", dataFile("panel.jsonl"), "--as", "host", "--", "/no/such/program"}), 4);
    EXPECT_TRUE(contains(err(), "cannot start /no/such/program: No such file or directory")) << err();
}

TEST_F(ReplayUsage, ASignalEndsTheWaitForAClient) {
    start({"replay", dataFile("panel.jsonl"), "--as", "host"});
    ASSERT_TRUE(process->waitForErr("listening on 127.0.0.1:"));
    process->signal(SIGTERM);
    EXPECT_EQ(process->exitCode(), -1);
}

}  // namespace
}  // namespace com_tesk::replay_test
