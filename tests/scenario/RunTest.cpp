// `cshost run` as a process, with and without a program.

#include <csignal>
#include <fstream>
#include <regex>

#include "tests/host/HostTest.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Emulator.h"

namespace com_tesk::scenario_test {
namespace {

using namespace std::chrono_literals;
using test::ChildProcess;

class Run : public testing::Test {
  protected:
    /// Writes a scenario, and returns its path.
    std::string file(const std::string& text) {
        std::string path =
            testing::TempDir() + "run-" + std::to_string(getpid()) + '-' + std::to_string(++files) + ".yaml";
        std::ofstream(path) << text;
        return path;
    }

    int run(const std::vector<std::string>& arguments) {
        ChildProcess::Setup setup;
        setup.path = CSHOST_PATH;
        setup.ownName = "cshost";
        std::vector<std::string> all{"run"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        process = std::make_unique<ChildProcess>(setup, all);
        return process->exitCode();
    }
    /// The same with csx as the program.
    int runCsx(std::vector<std::string> arguments, const std::vector<std::string>& csxArguments) {
        const std::vector<std::string> csx = test::commandOf(CSX_PATH);
        arguments.emplace_back("--");
        arguments.insert(arguments.end(), csx.begin(), csx.end());
        arguments.insert(arguments.end(), csxArguments.begin(), csxArguments.end());
        return run(arguments);
    }
    std::string out() const { return process->outText(); }
    std::string err() const { return process->errText(); }

    std::unique_ptr<ChildProcess> process;
    int files = 0;
};

const std::string kPublishes = "name: publishes\nexpect: [{published: {name: A, value: 1}}]\n";

TEST_F(Run, AProgramThatMeetsEverythingPasses) {
    EXPECT_EQ(runCsx({file(kPublishes)}, {"put", "--hold", "A=1"}), 0) << out() << err();
    EXPECT_TRUE(std::regex_match(out(), std::regex("pass  publishes \\(\\d+\\.\\d s\\)\n"))) << out();
}

TEST_F(Run, AnExpectationThatIsNotMetEndsItWithOne) {
    const std::string path = file(kPublishes + "end: 500ms\n");
    EXPECT_EQ(runCsx({path}, {"put", "--hold", "A=2"}), 1) << out() << err();
    EXPECT_EQ(out().rfind("FAIL  publishes (0.5 s)\n  in " + path + "\nline 2: not met: client publishes A = 1; ", 0),
              0U)
        << out();
}

TEST_F(Run, EveryFlawOfEveryFileEndsItWithTwo) {
    const std::string one = file("name: one\nend: 1\n");
    const std::string good = file(kPublishes);
    const std::string other = file("nme: other\n");
    EXPECT_EQ(run({one, good, other, "/no/such.yaml"}), 2);
    EXPECT_EQ(out(), "") << "nothing is played";
    EXPECT_NE(err().find(one + ":2:6: end is a duration"), std::string::npos) << err();
    EXPECT_NE(err().find(other + ":1:1: unknown key \"nme\"; did you mean \"name\"?"), std::string::npos) << err();
    EXPECT_NE(err().find("/no/such.yaml: cannot read the file"), std::string::npos) << err();
}

TEST_F(Run, AnAddressThatIsNotHereEndsItWithThree) {
    EXPECT_EQ(run({"--listen", "192.0.2.1", file(kPublishes)}), 3);
    EXPECT_NE(out().find("cannot listen on 192.0.2.1"), std::string::npos) << out();
}

TEST_F(Run, AProgramThatDoesNotStartEndsItWithFour) {
    if (test::isEmulated()) {
        GTEST_SKIP() << "under the emulator a program starts before the system can say that there is none";
    }
    EXPECT_EQ(run({file(kPublishes), "--", "/no/such/program"}), 4);
    EXPECT_NE(out().find("cannot start /no/such/program: No such file or directory"), std::string::npos) << out();
}

TEST_F(Run, AProgramThatEndsEarlyEndsItWithFour) {
    EXPECT_EQ(run({file("name: x\nend: 1h\n"), "--", "/bin/sh", "-c", "exit 3"}), 4);
    EXPECT_NE(out().find("the program has ended before the scenario, exit code 3"), std::string::npos) << out();
}

TEST_F(Run, TheProgramIsEndedAfterTheScenario) {
    const std::string marker = testing::TempDir() + "ended-" + std::to_string(getpid());
    EXPECT_EQ(run({file("name: x\nend: 300ms\n"), "--", "/bin/sh", "-c",
                   "trap 'echo > " + marker + "; exit' TERM; while :; do sleep 0.05; done"}),
              0);
    EXPECT_TRUE(std::ifstream(marker)) << "with SIGTERM";
    std::remove(marker.c_str());
}

TEST_F(Run, AProgramThatIgnoresTheSignalIsKilled) {
    // The scenario ends when csx has connected, so the shell ignores the signal by then.
    std::string csx;
    for (const std::string& word : test::commandOf(CSX_PATH)) {
        csx += word + ' ';
    }
    EXPECT_EQ(run({file("name: x\nexpect: [{client: connects, within: 60s}]\n"), "--", "/bin/sh", "-c",
                   "trap '' TERM; " + csx + "info; while :; do sleep 0.05; done"}),
              0);
    EXPECT_GE(process->seconds(), 3.0);
}

TEST_F(Run, WithoutAProgramItServesWhoeverConnects) {
    ChildProcess::Setup setup;
    setup.path = CSHOST_PATH;
    ChildProcess host(setup, {"run", file(kPublishes)});
    const std::string line = host.lineWith("listening on 127.0.0.1:");
    ASSERT_NE(line, "");
    host_test::Client client(static_cast<std::uint16_t>(std::stoul(line.substr(line.rfind(':') + 1))));
    client.ask(host_test::registerOutput("A"));
    client.send(host_test::publish("00000001 00000000 3F800000"));
    EXPECT_EQ(host.exitCode(), 0) << host.outText();
}

TEST_F(Run, ASignalEndsIt) {
    ChildProcess::Setup setup;
    setup.path = CSHOST_PATH;
    ChildProcess host(setup, {"run", file("name: x\nend: 1h\n")});
    ASSERT_NE(host.lineWith("listening on"), "");
    host.signal(SIGTERM);
    EXPECT_EQ(host.exitCode(), 1);
    EXPECT_NE(host.outText().find("ended by a signal"), std::string::npos) << host.outText();
}

TEST_F(Run, RepetitionsAreReportedOneByOne) {
    EXPECT_EQ(run({file("name: x\nend: 50ms\n"), "--repeat", "3"}), 0);
    for (const char* const text : {"pass  x, 1 of 3 ", "pass  x, 2 of 3 ", "pass  x, 3 of 3 "}) {
        EXPECT_NE(out().find(text), std::string::npos) << out();
    }
}

TEST_F(Run, TheReportHasASuiteForEachScenario) {
    const std::string report = testing::TempDir() + "report-" + std::to_string(getpid()) + ".xml";
    const std::string met = file("name: a < b & \"c\"\nend: 50ms\nexpect: [{never: unknown-id}]\n");
    const std::string failed = file("name: fails\nend: 50ms\nexpect: [{client: connects}]\n");
    EXPECT_EQ(run({met, failed, "--junit", report}), 1);
    std::ifstream stream(report);
    const std::string xml{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    EXPECT_NE(xml.find("<testsuite name=\"a &lt; b &amp; &quot;c&quot;\" tests=\"1\" failures=\"0\" errors=\"0\""),
              std::string::npos)
        << xml;
    EXPECT_NE(xml.find("<testsuite name=\"fails\" tests=\"1\" failures=\"1\" errors=\"0\""), std::string::npos) << xml;
    EXPECT_NE(xml.find("<failure message=\"nothing of the kind\">"), std::string::npos) << xml;
    std::remove(report.c_str());
    EXPECT_EQ(run({met, "--junit", "/no/such/directory/report.xml"}), 3);
}

TEST_F(Run, EventsAreShownOnRequest) {
    EXPECT_EQ(runCsx({file(kPublishes), "--show-events"}, {"put", "--hold", "A=1"}), 0);
    EXPECT_NE(out().find("client 1 published A = 1 (float, output id 1)\n"), std::string::npos) << out();
}

}  // namespace
}  // namespace com_tesk::scenario_test
