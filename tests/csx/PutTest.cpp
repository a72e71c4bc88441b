#include "tests/csx/CsxProcess.h"

namespace com_tesk::csx_test {
namespace {

TEST(Put, PublishesValuesOfBothTypes) {
    LoopbackHost host(HostOptions{});
    const Ended put = run(host.port(), {"put", "ALT=-1.5", "GEAR=i:16777217", "NO=nan", "a=b=2"});
    EXPECT_EQ(put.code, 0) << put.err;
    EXPECT_EQ(host.value("ALT"), HostValue::real(-1.5F));
    EXPECT_EQ(host.value("GEAR"), HostValue::integer(16'777'217));
    EXPECT_EQ(host.value("a=b"), HostValue::real(2));
    ASSERT_TRUE(host.value("NO"));
    EXPECT_EQ(host.value("NO")->text(), "nan");
    EXPECT_EQ(put.out + put.err, "");
}

TEST(Put, PublishesAllValuesInOneRequest) {
    ScriptedHost host;
    Csx csx(host.port(), {"put", "A=1", "B=i:3", "C=0.1"});
    const auto peer = acceptAndAnswer(host, 2);
    const Request request = readRequest(*peer);
    EXPECT_EQ(request.code, Request::VALUES);
    ASSERT_EQ(request.records.size(), 3U);
    std::map<unsigned int, unsigned int> values;
    for (const Request::Record& record : request.records) {
        values[record.id] = record.value;
    }
    EXPECT_EQ(values, (std::map<unsigned int, unsigned int>{{1, 0x3F800000}, {2, 3}, {3, 0x3DCCCCCD}}));
    EXPECT_NE(readRequest(*peer).code, Request::VALUES);
    EXPECT_TRUE(peer->waitForEnd());
    EXPECT_EQ(csx.exitCode(), 0) << csx.errText();
}

TEST(Put, EchoWaitsUntilTheValuesComeBack) {
    ScriptedHost host;
    Csx csx(host.port(), {"put", "--echo", "30s", "A=1", "B=i:3"});
    const auto peer = acceptAndAnswer(host, 3);
    EXPECT_EQ(readRequest(*peer).code, Request::VALUES);
    EXPECT_FALSE(csx.hasEndedWithin(kQuiet));
    peer->send(test::hexFrame(test::update(1, {test::updated(101, 0, "3F 80 00 00")})));
    EXPECT_FALSE(csx.hasEndedWithin(kQuiet));
    peer->send(test::hexFrame(test::update(1, {test::updated(102, 1, "00 00 00 03")})));
    EXPECT_EQ(csx.exitCode(), 0) << csx.errText();
}

TEST(Put, EchoAcceptsTheValuesOfAHost) {
    LoopbackHost host(HostOptions{});
    const Ended put = run(host.port(), {"put", "--echo", "30s", "A=0.1", "B=i:3", "C=nan"});
    EXPECT_EQ(put.code, 0) << put.err;
    EXPECT_EQ(put.err, "");
    // A value that the host has already comes back too.
    EXPECT_EQ(run(host.port(), {"put", "--echo", "30s", "A=0.1"}).code, 0);
}

TEST(Put, AMissingEchoEndsItWithOne) {
    ScriptedHost host;
    Csx csx(host.port(), {"put", "--echo", "400ms", "A=1", "B=2"});
    const auto peer = acceptAndAnswer(host, 3);
    EXPECT_EQ(readRequest(*peer).code, Request::VALUES);
    peer->send(test::hexFrame(test::update(2, {test::updated(101, 0, "3F 80 00 00"),  //
                                               test::updated(102, 0, "3F 80 00 00")})));
    const Ended put = ended(csx);
    EXPECT_EQ(put.code, 1);
    EXPECT_EQ(put.err, "csx: B has not come back as 2 within 400 ms: it is 1\n");
}

TEST(Put, HoldStaysConnectedUntilASignal) {
    for (const int number : {SIGINT, SIGTERM}) {
        LoopbackHost host(HostOptions{});
        Csx csx(host.port(), {"put", "--hold", "A=2"});
        ASSERT_TRUE(host.waitForValue("A", HostValue::real(2), kWaitBound));
        EXPECT_FALSE(csx.hasEndedWithin(kQuiet));
        EXPECT_EQ(host.clientCount(), 1U);
        csx.expectEndAfter(number, 0);
        EXPECT_TRUE(host.waitForClients(0, kWaitBound));
        EXPECT_EQ(host.value("A"), HostValue::real(2));
        EXPECT_EQ(csx.outText() + csx.errText(), "");
    }
}

TEST(Put, HoldPublishesAgainAfterALoss) {
    auto host = std::make_unique<LoopbackHost>(HostOptions{});
    HostOptions options;
    options.port = host->port();
    Csx csx(options.port, {"put", "--hold", "A=2"});
    ASSERT_TRUE(host->waitForValue("A", HostValue::real(2), kWaitBound));
    EXPECT_FALSE(csx.hasEndedWithin(kQuiet));
    host = nullptr;
    EXPECT_TRUE(csx.waitForErr("\n"));
    host = std::make_unique<LoopbackHost>(options);
    EXPECT_TRUE(host->waitForValue("A", HostValue::real(2), kWaitBound));
    csx.expectEndAfter(SIGINT, 0);
}

TEST(Put, UnconfirmedNamesEndItWithThree) {
    ScriptedHost host;
    Csx csx(host.port(), {"--timeout", kTimeOut, "put", "A=1", "NO=2", "B=3"});
    const auto peer = acceptAndAnswerOnly(host, 2, {"A", "B"});
    const Request request = readRequest(*peer);
    EXPECT_EQ(request.code, Request::VALUES);
    EXPECT_EQ(request.records.size(), 2U);
    EXPECT_TRUE(peer->waitForEnd());
    const Ended put = ended(csx);
    EXPECT_EQ(put.code, 3);
    EXPECT_EQ(put.err, "csx: not confirmed within " + kTimeOutText + ": NO\n");
}

TEST(Put, OfAnUnconfirmedNameNoEchoIsExpected) {
    ScriptedHost host;
    Csx csx(host.port(), {"--timeout", kTimeOut, "put", "--echo", "400ms", "A=1", "NO=2"});
    const auto peer = acceptAndAnswerOnly(host, 3, {"A"});
    EXPECT_EQ(readRequest(*peer).code, Request::VALUES);
    const Ended put = ended(csx);
    EXPECT_EQ(put.code, 3);
    EXPECT_EQ(put.err, "csx: not confirmed within " + kTimeOutText +
                           ": NO\n"
                           "csx: A has not come back as 1 within 400 ms: it is 0\n");
}

TEST(Put, WithoutAHostItEndsWithTwo) {
    const Ended put = run(test::refusingPort(), {"put", "A=1"});
    EXPECT_EQ(put.code, 2);
    EXPECT_TRUE(contains(put.err, "csx: no host: ")) << put.err;
}

TEST(Put, ALossBeforeTheConfirmationEndsItWithFour) {
    ScriptedHost host;
    Csx csx(host.port(), {"put", "A=1"});
    const auto peer = acceptAndAnswerOnly(host, 2, {});
    EXPECT_FALSE(csx.hasEndedWithin(kQuiet));
    peer->close();
    const Ended put = ended(csx);
    EXPECT_EQ(put.code, 4);
    EXPECT_TRUE(contains(put.err, "csx: the connection was lost: ")) << put.err;
}

TEST(Put, ALossBeforeTheEchoEndsItWithFour) {
    ScriptedHost host;
    Csx csx(host.port(), {"put", "--echo", "30s", "A=1"});
    const auto peer = acceptAndAnswer(host, 3);
    EXPECT_EQ(readRequest(*peer).code, Request::VALUES);
    peer->close();
    EXPECT_EQ(csx.exitCode(), 4) << csx.errText();
}

}  // namespace
}  // namespace com_tesk::csx_test
