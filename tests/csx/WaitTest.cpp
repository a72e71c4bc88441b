#include "tests/csx/CsxProcess.h"

namespace com_tesk::csx_test {
namespace {

HostOptions zeros() {
    HostOptions options;
    options.initialValues = {{"A", HostValue::real(0)}, {"B", HostValue::real(0)}};
    return options;
}

TEST(Wait, EndsAtOnceForAConditionThatHolds) {
    LoopbackHost host(zeros());
    host.setValue("A", HostValue::real(0.1F));
    const Ended wait = run(host.port(), {"wait", "A==0.1", "B<=0", "A~0.2\u00B10.1"});
    EXPECT_EQ(wait.code, 0) << wait.err;
    EXPECT_EQ(valuesOf(wait.out), "A 0.1|B 0");
    EXPECT_EQ(wait.err, "");
}

TEST(Wait, EndsWhenTheConditionBecomesTrue) {
    LoopbackHost host(zeros());
    Csx csx(host.port(), {"wait", "A>=100"});
    ASSERT_TRUE(host.waitForSubscribers("A", 1, kWaitBound));
    host.setValue("A", HostValue::real(99.5F));
    EXPECT_FALSE(csx.hasEndedWithin(kQuiet));
    host.setValue("A", HostValue::integer(100));
    const Ended wait = ended(csx);
    EXPECT_EQ(wait.code, 0);
    EXPECT_EQ(valuesOf(wait.out), "A 100");
}

TEST(Wait, NoticesAValueThatHoldsOnlyForAMoment) {
    LoopbackHost host(zeros());
    Csx csx(host.port(), {"wait", "A==1"});
    ASSERT_TRUE(host.waitForSubscribers("A", 1, kWaitBound));
    host.setValue("A", HostValue::real(1));
    host.setValue("A", HostValue::real(0));
    const Ended wait = ended(csx);
    EXPECT_EQ(wait.code, 0);
    EXPECT_EQ(valuesOf(wait.out), "A 1");
}

TEST(Wait, AllConditionsMustHoldAtTheSameTime) {
    LoopbackHost host(zeros());
    Csx csx(host.port(), {"wait", "A==1", "B==1"});
    ASSERT_TRUE(host.waitForSubscribers("B", 1, kWaitBound));
    host.setValue("A", HostValue::real(1));
    host.setValue("A", HostValue::real(0));
    host.setValue("B", HostValue::real(1));
    EXPECT_FALSE(csx.hasEndedWithin(kQuiet));
    host.setValue("A", HostValue::real(1));
    const Ended wait = ended(csx);
    EXPECT_EQ(wait.code, 0);
    EXPECT_EQ(valuesOf(wait.out), "A 1|B 1");
}

TEST(Wait, ValuesOfOneMessageCountTogether) {
    ScriptedHost host;
    Csx csx(host.port(), {"wait", "A==1", "B==1"});
    const auto peer = acceptAndAnswerOnly(host, 2, {"A", "B"});
    peer->send(test::hexFrame(test::update(1, {test::updated(101, 1, "00 00 00 01")})));
    const std::string exchange =
        test::update(2, {test::updated(102, 1, "00 00 00 01"), test::updated(101, 1, "00 00 00 00")});
    peer->send(test::hexFrame(exchange));
    EXPECT_FALSE(csx.hasEndedWithin(kQuiet)) << "A and B have changed at once";
    peer->send(test::hexFrame(test::update(1, {test::updated(101, 1, "00 00 00 01")})));
    const Ended wait = ended(csx);
    EXPECT_EQ(wait.code, 0);
    EXPECT_EQ(valuesOf(wait.out), "A 1|B 1");
}

TEST(Wait, AHoldThatIsBrokenBeginsAgain) {
    LoopbackHost host(zeros());
    Csx csx(host.port(), {"wait", "--within", "1h", "--hold", "700ms", "A==1"});
    ASSERT_TRUE(host.waitForSubscribers("A", 1, kWaitBound));
    host.setValue("A", HostValue::real(1));
    host.setValue("A", HostValue::real(0));
    EXPECT_FALSE(csx.hasEndedWithin(1'500ms));
    const test::Stopwatch held;
    host.setValue("A", HostValue::real(1));
    EXPECT_EQ(csx.exitCode(), 0) << "no further value is needed";
    EXPECT_GE(held.seconds(), 0.69);
    EXPECT_EQ(valuesOf(csx.outText()), "A 1");
}

TEST(Wait, AHoldThatIsTooShortEndsItWithOne) {
    LoopbackHost host(zeros());
    host.setValue("A", HostValue::real(1));
    const Ended wait = run(host.port(), {"wait", "--hold", "1h", "--within", kTimeOut, "A==1"});
    EXPECT_EQ(wait.code, 1);
    EXPECT_EQ(wait.out, "");
    EXPECT_EQ(wait.err, "csx: the conditions have not held for 3600 s\n");
}

TEST(Wait, AConditionThatIsNotReachedEndsItWithOne) {
    LoopbackHost host(zeros());
    const Ended wait = run(host.port(), {"wait", "--within", kTimeOut, "A>=1", "B==0"});
    EXPECT_EQ(wait.code, 1);
    EXPECT_EQ(wait.out, "");
    EXPECT_EQ(wait.err, "csx: not reached within " + kTimeOutText + ": A>=1, it is 0\n");
}

TEST(Wait, ValuesOfALostConnectionDoNotCount) {
    auto host = std::make_unique<LoopbackHost>(zeros());
    HostOptions options = zeros();
    options.port = host->port();
    host->setValue("A", HostValue::real(1));
    // The values arrive in this order.
    Csx csx(options.port, {"wait", "B==1", "A==1"});
    ASSERT_TRUE(host->waitForSubscribers("A", 1, kWaitBound));
    EXPECT_FALSE(csx.hasEndedWithin(kQuiet));
    host = nullptr;
    options.initialValues = {{"A", HostValue::real(0)}, {"B", HostValue::real(1)}};
    host = std::make_unique<LoopbackHost>(options);
    ASSERT_TRUE(host->waitForSubscribers("A", 1, kWaitBound));
    EXPECT_FALSE(csx.hasEndedWithin(kQuiet));
    host->setValue("A", HostValue::real(1));
    const Ended wait = ended(csx);
    EXPECT_EQ(wait.code, 0);
    EXPECT_EQ(valuesOf(wait.out), "B 1|A 1");
    EXPECT_TRUE(contains(wait.err, "csx: ")) << "the loss is reported: " << wait.err;
}

TEST(Wait, ALossBreaksAHold) {
    auto host = std::make_unique<LoopbackHost>(zeros());
    HostOptions options = zeros();
    options.port = host->port();
    Csx csx(options.port, {"wait", "--hold", "2s", "A==0"});
    ASSERT_TRUE(host->waitForSubscribers("A", 1, kWaitBound));
    EXPECT_FALSE(csx.hasEndedWithin(1s));
    host = nullptr;
    EXPECT_TRUE(csx.waitForErr("\n"));
    const test::Stopwatch held;
    host = std::make_unique<LoopbackHost>(options);
    EXPECT_EQ(csx.exitCode(), 0);
    EXPECT_GE(held.seconds(), 1.99);
}

TEST(Wait, WithoutAHostItEndsWithTwo) {
    const Ended wait = run(test::refusingPort(), {"wait", "--within", kTimeOut, "A==1"});
    EXPECT_EQ(wait.code, 2);
    const auto lines = linesOf(wait.err);
    ASSERT_EQ(lines.size(), 2U) << wait.err;
    EXPECT_EQ(lines[0].rfind("csx: no host yet: ", 0), 0U) << wait.err;
    EXPECT_EQ(lines[1].rfind("csx: no host: ", 0), 0U) << wait.err;
}

TEST(Wait, ASilentHostEndsItWithTwo) {
    ScriptedHost host;
    Csx csx(host.port(), {"--timeout", "1h", "wait", "--within", kTimeOut, "A==1"});
    const auto peer = host.accept();
    const Ended wait = ended(csx);
    EXPECT_EQ(wait.code, 2);
    EXPECT_TRUE(contains(wait.err, "connected, but no answer within " + kTimeOutText)) << wait.err;
}

TEST(Wait, AHostThatComesAfterTheTimeoutIsFound) {
    ScriptedHost place;
    place.stopListening();
    Csx csx(place.port(), {"--timeout", "100ms", "wait", "--within", "1h", "A==0"});
    ASSERT_TRUE(csx.waitForErr("csx: no host yet: "));
    EXPECT_FALSE(csx.hasEndedWithin(kQuiet));
    HostOptions options = zeros();
    options.port = static_cast<std::uint16_t>(place.port());
    LoopbackHost host(options);
    EXPECT_EQ(csx.exitCode(), 0) << csx.errText();
}

TEST(Wait, UnconfirmedNamesEndItWithThree) {
    ScriptedHost host;
    Csx csx(host.port(), {"wait", "--within", kTimeOut, "A==0", "NO==0"});
    const auto peer = acceptAndAnswerOnly(host, 2, {"A"});
    const Ended wait = ended(csx);
    EXPECT_EQ(wait.code, 3);
    EXPECT_EQ(wait.err, "csx: not confirmed within " + kTimeOutText + ": NO\n");
}

TEST(Wait, WithoutAConnectionAtTheEndItEndsWithFour) {
    auto host = std::make_unique<LoopbackHost>(zeros());
    Csx csx(host->port(), {"wait", "--within", "3s", "A==1"});
    ASSERT_TRUE(host->waitForSubscribers("A", 1, kWaitBound));
    EXPECT_FALSE(csx.hasEndedWithin(kQuiet));
    host = nullptr;
    EXPECT_EQ(csx.exitCode(), 4) << csx.errText();
}

}  // namespace
}  // namespace com_tesk::csx_test
