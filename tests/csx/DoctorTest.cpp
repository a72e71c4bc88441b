// The verdicts of `csx doctor` about the host.

#include "tests/csx/CsxProcess.h"
#include "tests/csx/Doctor.h"
#include "tests/support/BlackHole.h"

namespace com_tesk::csx_test {
namespace {

TEST(Doctor, EverythingWorks) {
    LoopbackHost host(HostOptions{});
    const Ended doctor = run(host.port(), {"doctor"});
    EXPECT_EQ(doctor.code, 0);
    const auto lines = linesOf(doctor.out);
    ASSERT_EQ(lines.size(), 5U) << doctor.out;
    static const std::regex step(R"(ok    (\w+): .* \(\d+\.\d{3} ms\))");
    std::string steps;
    for (std::size_t i = 0; i < 4; ++i) {
        std::smatch match;
        ASSERT_TRUE(std::regex_match(lines[i], match, step)) << lines[i];
        steps += match[1].str() + ' ';
    }
    EXPECT_EQ(steps, "address connect open answer ");
    EXPECT_EQ(lines[4], "verdict: everything works");
}

TEST(Doctor, TheStepsAreObjectsOfJson) {
    LoopbackHost host(HostOptions{});
    const auto objects = objectsOf(run(host.port(), {"-o", "json", "doctor"}).out);
    ASSERT_EQ(objects.size(), 5U);
    for (const Json& object : objects) {
        EXPECT_EQ(object["ok"], true);
        EXPECT_GE(object["ms"].get<double>(), 0.0);
        EXPECT_EQ(object["hint"], "");
    }
    EXPECT_EQ(objects[4]["step"], "verdict");
    const auto failed = objectsOf(run(test::refusingPort(), {"-o", "json", "doctor"}).out);
    ASSERT_EQ(failed.size(), 3U);
    EXPECT_EQ(failed[1]["ok"], false);
    EXPECT_EQ(failed[2]["detail"], "no program listens on this port");
    EXPECT_TRUE(contains(failed[2]["hint"], "Manual: shell.md"));
}

TEST(Doctor, NameWithoutAddress) {
    Csx csx({"-H", "no-such-host.invalid", "doctor"});
    expectVerdict(csx, 2, "address", "the name of the host has no address", "The name has no address");
}

TEST(Doctor, RefusingPort) {
    Csx csx(test::refusingPort(), {"doctor"});
    expectVerdict(csx, 2, "connect", "no program listens on this port", "No program listens");
}

TEST(Doctor, UnreachableAddress) {
    const test::BlackHole hole;
    Csx csx(hole.port(), {"--timeout", "500ms", "doctor"});
    expectVerdict(csx, 2, "connect", "the address is not reachable", "Not reachable");
}

TEST(Doctor, HostThatClosesAtOnce) {
    ScriptedHost host;
    Csx csx(host.port(), {"doctor"});
    const auto peer = host.accept();
    readRequest(*peer);
    peer->close();
    expectVerdict(csx, 2, "open", "the host accepts and closes the connection at once", "Closed at once");
}

TEST(Doctor, HostThatResetsAtOnce) {
    ScriptedHost host;
    Csx csx(host.port(), {"doctor"});
    host.accept()->reset();
    expectVerdict(csx, 2, "open", "the host accepts and closes the connection at once", "Closed at once");
}

TEST(Doctor, HostThatClosesLaterHasNotAnsweredEither) {
    ScriptedHost host;
    Csx csx(host.port(), {"doctor"});
    const auto peer = host.accept();
    EXPECT_TRUE(csx.waitForOut("ok    open: "));
    peer->close();
    const Ended doctor = ended(csx);
    EXPECT_EQ(doctor.code, 2);
    EXPECT_TRUE(contains(doctor.out, "FAIL  answer: ")) << doctor.out;
}

TEST(Doctor, OtherProgramOnThePort) {
    ScriptedHost host;
    Csx csx(host.port(), {"doctor"});
    const auto peer = host.accept();
    readRequest(*peer);
    const std::string text = "HTTP/1.1 400 Bad Request\r\nConnection: close\r\n\r\n";
    peer->send(test::Bytes(text.begin(), text.end()));
    expectVerdict(csx, 2, "answer", "what answers there is no simulation host", "Not a host");
}

TEST(Doctor, HostThatStallsInAFrame) {
    ScriptedHost host;
    Csx csx(host.port(), {"doctor"});
    const auto peer = host.accept();
    readRequest(*peer);
    const test::Bytes frame = test::hex(test::hexFrame(test::versionResponse(0x00010000, "scripted")));
    peer->send(test::Bytes(frame.begin(), frame.begin() + 60));
    expectVerdict(csx, 2, "answer", "the host stops in the middle of a message", "It stalls");
}

TEST(Doctor, HostThatStallsOnceIsReportedByADoctorThatIsLate) {
    // The output takes one line, so the doctor waits after the connect, while its session connects again.
    ScriptedHost host;
    ChildProcess::Setup setup = Csx::setup();
    setup.outputSpace = 4'096;
    Csx csx(host.port(), {"--timeout", kTimeOut, "doctor"}, setup);
    const auto first = host.accept();
    readRequest(*first);
    const test::Bytes frame = test::hex(test::hexFrame(test::versionResponse(0x00010000, "scripted")));
    first->send(test::Bytes(frame.begin(), frame.begin() + 60));
    const auto second = acceptAndAnswer(host, 1);
    ASSERT_NE(second, nullptr);
    EXPECT_TRUE(second->isQuietFor(kQuiet));
    csx.unclog();
    expectVerdict(csx, 2, "open", "the host stops in the middle of a message", "It stalls");
}

TEST(Doctor, SilentHost) {
    ScriptedHost host;
    Csx csx(host.port(), {"--timeout", kTimeOut, "doctor"});
    const auto peer = host.accept();
    expectVerdict(csx, 2, "answer", "the connection is established, and the host does not answer", "No answer");
}

TEST(Doctor, HostThatIsLostAfterItsAnswer) {
    ScriptedHost host;
    Csx csx(host.port(), {"doctor", "A"});
    const auto peer = acceptAndAnswer(host, 1);
    EXPECT_EQ(readRequest(*peer).code, Request::INPUTS);
    peer->close();
    expectVerdict(csx, 4, "name A", "the connection was lost after the host had answered", "The connection was lost");
}

TEST(Doctor, SystemThatRefusesASocket) {
    if (test::isEmulated() || (test::kUnderSanitizer && !test::kUnderThreadSanitizer)) {
        GTEST_SKIP() << "the emulator, or the checks of the sanitizer, need descriptors themselves";
    }
    LoopbackHost host(HostOptions{});
    const std::string place = "127.0.0.1:" + std::to_string(host.port());
    ChildProcess::Setup shell = Csx::setup();
    shell.path = "/bin/sh";
    shell.ownName = "sh";
    // With very few descriptors the program does not start. With some more, only the socket is missing.
    bool wasSocketMissing = false;
    for (int limit = 3; limit < 30; ++limit) {
        ChildProcess csx(shell,
                         {"-c", "ulimit -n $0; exec \"$@\"", std::to_string(limit), CSX_PATH, "-H", place, "doctor"});
        const int code = csx.exitCode();
        EXPECT_GE(code, 0) << "a signal ended it, limit " << limit;
        EXPECT_EQ(code == 0, contains(csx.outText(), "verdict: everything works\n")) << limit;
        EXPECT_TRUE(code == 0 || !(csx.outText() + csx.errText()).empty()) << limit;
        if (contains(csx.outText(), "verdict: this system refused a socket, a thread or memory\n")) {
            EXPECT_EQ(code, 2);
            wasSocketMissing = true;
        }
        if (code == 0) {
            break;
        }
    }
    EXPECT_TRUE(wasSocketMissing);
}

TEST(Doctor, ASignalEndsIt) {
    ScriptedHost host;
    Csx csx(host.port(), {"--timeout", "1h", "doctor"});
    const auto peer = host.accept();
    ASSERT_TRUE(csx.waitForOut("ok    open: "));
    csx.signal(SIGINT);
    EXPECT_TRUE(csx.hasExitedWithin(kWaitBound));
}

}  // namespace
}  // namespace com_tesk::csx_test
