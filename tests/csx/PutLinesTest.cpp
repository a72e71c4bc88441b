#include "tests/csx/CsxProcess.h"

namespace com_tesk::csx_test {
namespace {

/// Runs `csx put -` with a pipe as its standard input.
class PutLines : public testing::Test {
  protected:
    void start(unsigned int port, const Arguments& options = {}) {
        Arguments arguments = options;
        arguments.insert(arguments.end(), {"put", "-"});
        csx = std::make_unique<Csx>(port, arguments, Csx::setupWithInput());
    }
    Ended end() {
        csx->closeInput();
        return ended(*csx);
    }

    HostRecord record;
    std::unique_ptr<Csx> csx;
};

TEST_F(PutLines, EachArrivesBeforeTheNextIsWritten) {
    LoopbackHost host(record.options());
    start(host.port());
    csx->write("A=1\n");
    EXPECT_TRUE(host.waitForValue("A", HostValue::real(1), kWaitBound));
    csx->write("B=i:3\r\n\n");
    EXPECT_TRUE(host.waitForValue("B", HostValue::integer(3), kWaitBound));
    csx->write("A=");
    EXPECT_FALSE(csx->hasEndedWithin(kQuiet));
    EXPECT_EQ(host.value("A"), HostValue::real(1)) << "the line is not whole yet";
    csx->write("2\n");
    EXPECT_TRUE(host.waitForValue("A", HostValue::real(2), kWaitBound));
    const Ended put = end();
    EXPECT_EQ(put.code, 0);
    EXPECT_EQ(put.out + put.err, "");
}

TEST_F(PutLines, TheLastNeedsNoLineFeed) {
    LoopbackHost host(record.options());
    const Ended put = runWith("A=1\nB=2", host.port(), {"put", "-"});
    EXPECT_EQ(put.code, 0);
    EXPECT_EQ(host.value("A"), HostValue::real(1));
    EXPECT_EQ(host.value("B"), HostValue::real(2));
}

TEST_F(PutLines, OfAnEmptyInputAreNone) {
    LoopbackHost host(record.options());
    EXPECT_EQ(runWith("", host.port(), {"put", "-"}).code, 0);
}

TEST_F(PutLines, AllValuesOfANameArriveInOrder) {
    LoopbackHost host(record.options());
    std::string text;
    std::string expected;
    for (int i = 0; i < 10'000; ++i) {
        text += "BUTTON=i:" + std::to_string(i) + '\n';
        expected += (i == 0 ? "" : " ") + std::to_string(i);
    }
    const Ended put = runWith(text, host.port(), {"put", "-"});
    EXPECT_EQ(put.code, 0) << put.err;
    EXPECT_TRUE(record.waitForPublished("BUTTON", expected)) << record.published("BUTTON").size();
}

TEST_F(PutLines, ABadLineEndsItAfterThoseBefore) {
    LoopbackHost host(record.options());
    const Ended put = runWith("A=1\n\nB=2\nA=1,5\nC=3\n", host.port(), {"put", "-"});
    EXPECT_EQ(put.code, 105);
    EXPECT_EQ(put.err, "csx: line 4: neither a number nor i: and a 32-bit integer: A=1,5\n");
    EXPECT_EQ(host.value("A"), HostValue::real(1));
    EXPECT_EQ(host.value("B"), HostValue::real(2));
    EXPECT_EQ(host.value("C"), std::nullopt);
}

TEST_F(PutLines, AnotherTypeIsABadLine) {
    LoopbackHost host(record.options());
    const Ended put = runWith("A=1\nA=i:2\n", host.port(), {"put", "-"});
    EXPECT_EQ(put.code, 105);
    EXPECT_EQ(put.err, "csx: line 2: A had a value of another type before\n");
    EXPECT_EQ(host.value("A"), HostValue::real(1));
}

TEST_F(PutLines, WithoutAnAcknowledgementTheyEndItWithOne) {
    ScriptedHost host;
    start(host.port(), {"--timeout", kTimeOut});
    const auto peer = host.accept();
    ASSERT_NE(peer, nullptr);
    peer->shrinkReceiveBuffer();
    answer(*peer, readRequest(*peer));
    // The host's system takes only a part of these values.
    std::string text;
    for (int i = 0; i < 3'000; ++i) {
        text += "A=" + std::to_string(i) + '\n';
    }
    csx->write(text);
    answer(*peer, readRequest(*peer), 1);
    const Ended put = end();
    EXPECT_EQ(put.code, 1);
    EXPECT_EQ(put.err, "csx: the host has not acknowledged the values within " + kTimeOutText + '\n');
}

TEST_F(PutLines, AnUnconfirmedNameDoesNotStopTheOthers) {
    ScriptedHost host;
    start(host.port(), {"--timeout", kTimeOut});
    const auto peer = acceptAndAnswer(host, 1);
    csx->write("NO=1\n");
    EXPECT_EQ(readRequest(*peer).code, Request::OUTPUTS);
    csx->write("A=2\n");
    const Request request = readRequest(*peer);
    EXPECT_EQ(request.names(), std::vector<std::string>{"A"});
    answer(*peer, request, 7);
    const Request values = readRequest(*peer);
    EXPECT_EQ(values.code, Request::VALUES);
    EXPECT_EQ(values.records.size(), 1U);
    const Ended put = end();
    EXPECT_EQ(put.code, 3);
    EXPECT_EQ(put.err, "csx: not confirmed within " + kTimeOutText + ": NO\n");
}

TEST_F(PutLines, AnUnconfirmedNameDoesNotDelayThoseBefore) {
    ScriptedHost host;
    start(host.port(), {"--timeout", "1h"});
    const auto peer = acceptAndAnswer(host, 1);
    csx->write("A=1\n");
    answer(*peer, readRequest(*peer));
    EXPECT_EQ(readRequest(*peer).code, Request::VALUES);
    csx->write("A=2\nNO=1\n");
    const Request first = readRequest(*peer);
    const Request second = readRequest(*peer);
    EXPECT_TRUE(first.code == Request::VALUES || second.code == Request::VALUES) << first.code << ' ' << second.code;
}

TEST_F(PutLines, ALossEndsItWithFour) {
    auto host = std::make_unique<LoopbackHost>(record.options());
    start(host->port());
    csx->write("A=1\n");
    EXPECT_TRUE(host->waitForValue("A", HostValue::real(1), kWaitBound));
    host = nullptr;
    EXPECT_EQ(csx->exitCode(), 4) << "while it waits for a line: " << csx->errText();
}

TEST_F(PutLines, ASignalEndsIt) {
    LoopbackHost host(record.options());
    start(host.port());
    csx->write("A=1\n");
    EXPECT_TRUE(host.waitForValue("A", HostValue::real(1), kWaitBound));
    csx->signal(SIGINT);
    EXPECT_TRUE(csx->hasExitedWithin(kWaitBound));
}

}  // namespace
}  // namespace com_tesk::csx_test
