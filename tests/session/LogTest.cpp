// What a session prints by itself: warnings on standard error, and nothing on standard output.

#include <sstream>
#include <string>

#include "tests/session/SessionFixtures.h"

namespace com_tesk::session_test {
namespace {

class Logging : public SessionTest {
  protected:
    /// Runs an action. Returns what the program has printed, at the descriptors 1 and 2.
    template <typename Action>
    std::pair<std::string, std::string> printed(const Action& action) {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        action();
        std::string out = testing::internal::GetCapturedStdout();
        return {out, testing::internal::GetCapturedStderr()};
    }
};

TEST_F(Logging, WarningsGoToStandardErrorWithAPrefix) {
    options.log = nullptr;
    const auto [out, err] = printed([&] {
        Session session(optionsFor(test::refusingPort()));
        session.start();
        waitUntil([&] { return session.health().failedAttempts >= 3; });
    });
    EXPECT_EQ(out, "");
    EXPECT_EQ(err.rfind("csclient: 127.0.0.1:", 0), 0U) << err;
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    EXPECT_EQ(err.back(), '\n');
}

TEST_F(Logging, NothingIsPrintedWhenAllIsWell) {
    options.log = nullptr;
    LoopbackHost host(record.options());
    host.setValue("LAMP", HostValue::integer(3));
    const auto [out, err] = printed([&] {
        Session session(optionsFor(host.port()));
        session.output<float>("ALT").set(1);
        session.input<std::int32_t>("LAMP");
        session.start();
        session.waitUntil(Link::READY, kWaitBound);
        host.waitForValue("ALT", HostValue::real(1), kWaitBound);
        session.stop(kWaitBound);
    });
    EXPECT_EQ(out, "");
    EXPECT_EQ(err, "");
}

TEST_F(Logging, MisbehavingHostsCauseLinesWithThePrefixOnly) {
    options.log = nullptr;
    options.retry = 1ms;
    ScriptedHost host;
    const auto [out, err] = printed([&] {
        Session session(optionsFor(host.port()));
        session.input<float>("LAMP");
        session.start();
        host.accept()->reset();
        host.accept()->send("41 42 43 44 45 46 47 48 " + test::hexField("not a host"));
        const auto peer = acceptAndAnswer(host, 1);
        readRequest(*peer);
        peer->send(test::hexFrame("04 02 A1 A2 A3 A4 A5 A6 A7 A8 01 77"));
        peer->send(test::hexFrame(test::inputConfirmation(9, {test::confirmedInput(1, 1, "00 00 00 01", "LAMP")})));
        peer->send(test::hexFrame(test::update(3, {test::updated(1, 1, "00 00 00 01")})));
        peer->send(test::hexFrame(test::versionResponse(0x00010000, "", 1, 0)));
        waitUntil([&] { return session.health().framesIn >= 5; });
    });
    EXPECT_EQ(out, "");
    std::istringstream printedLines(err);
    int count = 0;
    for (std::string line; std::getline(printedLines, line); ++count) {
        EXPECT_EQ(line.rfind("csclient: ", 0), 0U) << line;
    }
    EXPECT_GE(count, 3);
}

TEST_F(Logging, FunctionGetsEveryLevelAndNothingIsPrinted) {
    const auto [out, err] = printed([&] {
        Session session(optionsFor(test::refusingPort()));
        session.start();
        waitUntil([&] { return session.health().failedAttempts >= 1; });
        session.stop();
    });
    EXPECT_EQ(out + err, "");
    EXPECT_EQ(logged(Session::Level::INFO, "connecting to 127.0.0.1:"), 1U);
    EXPECT_EQ(logged(Session::Level::WARNING, "no connection"), 1U);
    EXPECT_EQ(logged(Session::Level::DETAIL, "\n"), 0U);
    EXPECT_EQ(logged(Session::Level::DETAIL, "csclient: "), 0U) << "the prefix is for standard error";
}

}  // namespace
}  // namespace com_tesk::session_test
