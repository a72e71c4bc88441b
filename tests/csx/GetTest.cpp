#include "tests/csx/CsxProcess.h"
#include "tests/support/BlackHole.h"

namespace com_tesk::csx_test {
namespace {

HostOptions withValues(const std::map<std::string, HostValue>& values) {
    HostOptions options;
    options.initialValues = values;
    return options;
}

TEST(Get, PrintsEachValueOnceInTheOrderOfTheNames) {
    LoopbackHost host(withValues({{"ALT", HostValue::real(12.5F)}, {"GEAR", HostValue::integer(-3)}}));
    const Ended get = run(host.port(), {"get", "GEAR", "ALT", "GEAR"});
    EXPECT_EQ(get.code, 0);
    EXPECT_EQ(valuesOf(get.out), "GEAR -3|ALT 12.5");
    EXPECT_EQ(get.err, "");
    EXPECT_TRUE(host.waitForClients(0, kWaitBound));
}

TEST(Get, TakesNamesFromStandardInput) {
    LoopbackHost host(withValues({{"A", HostValue::real(1)}, {"b c", HostValue::real(2)}, {"D", HostValue::real(3)}}));
    const Ended get = runWith("A\r\n\nb c\nA\nD", host.port(), {"get", "-"});
    EXPECT_EQ(get.code, 0);
    EXPECT_EQ(valuesOf(get.out), "A 1|\"b c\" 2|D 3");
    EXPECT_EQ(valuesOf(runWith("b c\n", host.port(), {"get", "D", "-", "A"}).out), "D 3|\"b c\" 2|A 1");
}

TEST(Get, TakesTenThousandNames) {
    constexpr int kCount = 10'000;
    HostOptions options;
    std::string names;
    for (int i = 0; i < kCount; ++i) {
        const std::string name = "engine/sensor/" + std::to_string(i);
        options.initialValues.emplace(name, HostValue::integer(i));
        names += name + '\n';
    }
    LoopbackHost host(options);
    const Ended get = runWith(names, host.port(), {"--timeout", "30s", "-o", "json", "get", "-"});
    EXPECT_EQ(get.code, 0) << get.err;
    const std::vector<Json> objects = objectsOf(get.out);
    ASSERT_EQ(objects.size(), static_cast<std::size_t>(kCount));
    for (int i = 0; i < kCount; ++i) {
        ASSERT_EQ(objects[static_cast<std::size_t>(i)]["name"], "engine/sensor/" + std::to_string(i));
        ASSERT_EQ(objects[static_cast<std::size_t>(i)]["value"], i);
    }
}

TEST(Get, TheHostIsThatOfTheEnvironment) {
    LoopbackHost host(withValues({{"A", HostValue::real(1)}}));
    LoopbackHost other(withValues({{"A", HostValue::real(2)}}));
    ChildProcess::Setup setup = Csx::setup();
    setup.environment.push_back("CSX_HOST=127.0.0.1:" + std::to_string(host.port()));
    Csx byVariable({"get", "A"}, setup);
    EXPECT_EQ(valuesOf(ended(byVariable).out), "A 1");
    Csx byOption(other.port(), {"get", "A"}, setup);
    EXPECT_EQ(valuesOf(ended(byOption).out), "A 2");
    Csx afterCommand({"get", "A", "--host", "127.0.0.1:" + std::to_string(other.port())}, setup);
    EXPECT_EQ(valuesOf(ended(afterCommand).out), "A 2");
}

TEST(Get, TheSimulatorIdIsThatOfTheOption) {
    ScriptedHost host;
    Csx csx(host.port(), {"--id", "7", "get", "A"});
    const auto peer = host.accept();
    ASSERT_NE(peer, nullptr);
    const std::string version = peer->receiveBody();
    EXPECT_EQ(version.substr(12 * 3, 5), "00 07") << version;
}

TEST(Get, UnconfirmedNamesEndItWithThree) {
    ScriptedHost host;
    Csx csx(host.port(), {"--timeout", kTimeOut, "get", "A", "n o", "B", "NO"});
    const auto peer = acceptAndAnswerOnly(host, 2, {"A", "B"});
    const Ended get = ended(csx);
    EXPECT_EQ(get.code, 3);
    EXPECT_EQ(valuesOf(get.out), "A 0|B 0");
    EXPECT_EQ(get.err, "csx: not confirmed within " + kTimeOutText + ": \"n o\" NO\n");
}

TEST(Get, ManyUnconfirmedNamesAreCounted) {
    ScriptedHost host;
    Arguments arguments{"--timeout", kTimeOut, "get"};
    for (int i = 0; i < 12; ++i) {
        arguments.push_back("N" + std::to_string(i));
    }
    Csx csx(host.port(), arguments);
    const auto peer = acceptAndAnswerOnly(host, 2, {});
    const Ended get = ended(csx);
    EXPECT_EQ(get.code, 3);
    EXPECT_EQ(get.out, "");
    EXPECT_EQ(get.err, "csx: not confirmed within " + kTimeOutText + ": N0 N1 N2 N3 N4 N5 N6 N7 N8 N9 and 2 more\n");
}

TEST(Get, ARefusingPortEndsItWithTwo) {
    const unsigned int port = test::refusingPort();
    const Ended get = run(port, {"get", "A"});
    EXPECT_EQ(get.code, 2);
    EXPECT_EQ(get.out, "");
    EXPECT_TRUE(contains(get.err, "csx: no host: ")) << get.err;
    EXPECT_TRUE(contains(get.err, std::to_string(port))) << get.err;
    EXPECT_EQ(linesOf(get.err).size(), 1U);
}

TEST(Get, AHostThatIsNotReachedEndsItWithTwo) {
    const test::BlackHole hole;
    const Ended get = run(hole.port(), {"--timeout", "300ms", "get", "A"});
    EXPECT_EQ(get.code, 2);
    EXPECT_TRUE(contains(get.err, "csx: no host: ")) << get.err;
}

TEST(Get, ASilentHostEndsItWithTwo) {
    ScriptedHost host;
    Csx csx(host.port(), {"--timeout", kTimeOut, "get", "A"});
    const auto peer = host.accept();
    const Ended get = ended(csx);
    EXPECT_EQ(get.code, 2);
    EXPECT_TRUE(contains(get.err, "connected, but no answer within " + kTimeOutText)) << get.err;
}

TEST(Get, AHostThatClosesAtOnceEndsItWithTwo) {
    ScriptedHost host;
    Csx csx(host.port(), {"get", "A"});
    host.accept()->close();
    const Ended get = ended(csx);
    EXPECT_EQ(get.code, 2);
    EXPECT_TRUE(contains(get.err, "csx: no host: ")) << get.err;
}

TEST(Get, AnotherProgramOnThePortEndsItWithTwo) {
    ScriptedHost host;
    Csx csx(host.port(), {"get", "A"});
    const auto peer = host.accept();
    readRequest(*peer);
    const std::string text = "HTTP/1.1 400 Bad Request\r\nConnection: close\r\n\r\n";
    peer->send(test::Bytes(text.begin(), text.end()));
    EXPECT_EQ(ended(csx).code, 2);
}

TEST(Get, ALostConnectionEndsItWithFour) {
    ScriptedHost host;
    Csx csx(host.port(), {"get", "A"});
    const auto peer = acceptAndAnswerOnly(host, 2, {});
    // The first input has no answer, so the tool waits.
    EXPECT_FALSE(csx.hasEndedWithin(kQuiet));
    peer->close();
    const Ended get = ended(csx);
    EXPECT_EQ(get.code, 4);
    EXPECT_TRUE(contains(get.err, "csx: the connection was lost: ")) << get.err;
}

TEST(Get, ASignalEndsIt) {
    for (const int number : {SIGINT, SIGTERM}) {
        ScriptedHost host;
        Csx csx(host.port(), {"--timeout", "1h", "get", "A"});
        const auto peer = acceptAndAnswerOnly(host, 2, {});
        csx.signal(number);
        ASSERT_TRUE(csx.hasExitedWithin(kWaitBound)) << "it does not wait for its time-out";
        EXPECT_NE(csx.exitCode(), 0);
    }
}

}  // namespace
}  // namespace com_tesk::csx_test
