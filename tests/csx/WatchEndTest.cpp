// How `csx watch` ends.

#include "tests/csx/CsxProcess.h"

namespace com_tesk::csx_test {
namespace {

HostOptions oneValue() {
    HostOptions options;
    options.initialValues = {{"A", HostValue::real(0)}};
    return options;
}

TEST(WatchEnd, ASignalEndsItWithZero) {
    for (const int number : {SIGINT, SIGTERM}) {
        LoopbackHost host(oneValue());
        Csx csx(host.port(), {"watch", "A"});
        ASSERT_TRUE(csx.waitForOut("A 0\n"));
        csx.expectEndAfter(number, 0);
        EXPECT_EQ(csx.errText(), "");
        EXPECT_TRUE(host.waitForClients(0, kWaitBound));
    }
}

TEST(WatchEnd, ASignalWhileItConnectsEndsItWithZero) {
    ScriptedHost host;
    Csx csx(host.port(), {"watch", "A"});
    const auto peer = host.accept();
    ASSERT_NE(peer, nullptr);
    csx.expectEndAfter(SIGINT, 0);
}

TEST(WatchEnd, ASignalWithoutAConnectionEndsItWithZero) {
    auto host = std::make_unique<LoopbackHost>(oneValue());
    Csx csx(host->port(), {"watch", "A"});
    ASSERT_TRUE(csx.waitForOut("A 0\n"));
    host = nullptr;
    ASSERT_TRUE(csx.waitForErr("\n"));
    csx.expectEndAfter(SIGINT, 0);
}

TEST(WatchEnd, AClosedPipeEndsItWithZero) {
    LoopbackHost host(oneValue());
    Csx csx(host.port(), {"watch", "A"});
    ASSERT_TRUE(csx.waitForOut("A 0\n"));
    csx.closeOutput();
    EXPECT_EQ(csx.exitCode(), 0) << "without a further value";
    EXPECT_EQ(csx.errText(), "");
}

TEST(WatchEnd, APipeThatIsClosedBeforeTheFirstLineEndsItWithZero) {
    LoopbackHost host(oneValue());
    Csx csx(host.port(), {"watch", "A"});
    csx.closeOutput();
    EXPECT_EQ(csx.exitCode(), 0);
}

TEST(WatchEnd, ASignalEndsItWhileStandardOutputBlocks) {
    LoopbackHost host(oneValue());
    ChildProcess::Setup setup = Csx::setup();
    setup.outputSpace = 0;
    Csx csx(host.port(), {"watch", "A"}, setup);
    ASSERT_TRUE(host.waitForSubscribers("A", 1, kWaitBound));
    EXPECT_FALSE(csx.hasExitedWithin(kQuiet));
    csx.signal(SIGINT);
    EXPECT_TRUE(csx.hasExitedWithin(kWaitBound));
    EXPECT_EQ(csx.exitCode(), 0);
    EXPECT_EQ(csx.outText(), "");
}

TEST(WatchEnd, AfterStandardOutputHasBlockedNothingIsMissing) {
    LoopbackHost host(oneValue());
    ChildProcess::Setup setup = Csx::setup();
    setup.outputSpace = 0;
    Csx csx(host.port(), {"watch", "--time", "none", "-n", "1001", "A"}, setup);
    ASSERT_TRUE(host.waitForSubscribers("A", 1, kWaitBound));
    std::string expected = "A 0\n";
    for (int i = 1; i <= 1'000; ++i) {
        host.setValue("A", HostValue::integer(i));
        expected += "A " + std::to_string(i) + '\n';
    }
    EXPECT_FALSE(csx.hasExitedWithin(kQuiet));
    EXPECT_EQ(csx.exitCode(), 0) << csx.errText();
    EXPECT_EQ(csx.outText(), expected);
}

TEST(WatchEnd, WithoutAHostItEndsWithTwo) {
    const Ended watch = run(test::refusingPort(), {"--timeout", "500ms", "watch", "A"});
    EXPECT_EQ(watch.code, 2);
    EXPECT_EQ(watch.out, "");
    EXPECT_TRUE(contains(watch.err, "csx: no host: ")) << watch.err;
}

TEST(WatchEnd, AHostThatComesWithinTheTimeoutIsFound) {
    ScriptedHost place;
    place.stopListening();
    Csx csx(place.port(), {"--timeout", "30s", "watch", "-n", "1", "A"});
    EXPECT_FALSE(csx.hasEndedWithin(kQuiet));
    HostOptions options = oneValue();
    options.port = static_cast<std::uint16_t>(place.port());
    LoopbackHost host(options);
    EXPECT_EQ(csx.exitCode(), 0) << csx.errText();
    EXPECT_EQ(valuesOf(csx.outText()), "A 0");
}

TEST(WatchEnd, UnconfirmedNamesEndItWithThreeAndAreReportedBefore) {
    ScriptedHost host;
    Csx csx(host.port(), {"--timeout", kTimeOut, "watch", "--for", kIsSlow ? "20s" : "3s", "A", "NO"});
    const auto peer = acceptAndAnswerOnly(host, 2, {"A"});
    EXPECT_TRUE(csx.waitForErr("csx: not confirmed within " + kTimeOutText + ": NO\n"));
    peer->send(test::hexFrame(test::update(1, {test::updated(101, 1, "00 00 00 05")})));
    EXPECT_TRUE(csx.waitForOut("A 5\n"));
    EXPECT_EQ(csx.exitCode(), 3);
    EXPECT_EQ(valuesOf(csx.outText()), "A 0|A 5");
}

}  // namespace
}  // namespace com_tesk::csx_test
