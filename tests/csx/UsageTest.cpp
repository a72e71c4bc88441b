// Command lines that are invalid, and help.

#include "client/CSClient.h"
#include "tests/csx/CsxProcess.h"

namespace com_tesk::csx_test {
namespace {

/// Expects a usage error: an exit code from 100 to 127, a reason, no data, and no connection.
void expectUsageError(const Arguments& arguments, const std::vector<std::string>& variables = {}) {
    ScriptedHost host;
    ChildProcess::Setup setup = Csx::setupWithInput();
    setup.environment.insert(setup.environment.begin(), variables.begin(), variables.end());
    setup.environment.push_back("CSX_HOST=127.0.0.1:" + std::to_string(host.port()));
    Csx csx(arguments, setup);
    csx.closeInput();
    const Ended usage = ended(csx);
    std::string all;
    for (const std::string& argument : arguments) {
        all += " [" + argument + ']';
    }
    EXPECT_TRUE(usage.code >= 100 && usage.code <= 127) << usage.code << all;
    EXPECT_EQ(usage.out, "") << all;
    EXPECT_EQ(usage.err.rfind("csx: ", 0), 0U) << usage.err << all;
    EXPECT_TRUE(contains(usage.err, "\nRun csx --help for more information.\n")) << usage.err << all;
    EXPECT_EQ(host.accept(0ms), nullptr) << all;
}

TEST(Usage, CommandsAndOptionsMustBeKnown) {
    expectUsageError({});
    expectUsageError({"peek", "A"});
    expectUsageError({"get", "A", "--no-such-option"});
    expectUsageError({"get"});
    expectUsageError({"put"});
    expectUsageError({"watch"});
    expectUsageError({"wait"});
    expectUsageError({"info", "A"});
    expectUsageError({"completion"});
    expectUsageError({"completion", "tcsh"});
    expectUsageError({"-o", "xml", "get", "A"});
    expectUsageError({"watch", "--time", "utc", "A"});
}

TEST(Usage, DurationsAreStrict) {
    for (const std::string text : {"5", "", "5x", "-1s", " 5s", "1,5s", "nans", "1001h"}) {
        expectUsageError({"--timeout", text, "get", "A"});
    }
    expectUsageError({"put", "--echo", "1", "A=1"});
    expectUsageError({"watch", "--for", "abc", "A"});
    expectUsageError({"wait", "--within", "1", "A==1"});
    expectUsageError({"wait", "--hold", "1", "A==1"});
}

TEST(Usage, NumbersAreStrict) {
    for (const std::string text : {"abc", "1,5", "", " 1", "1 ", "0x1", "1e40", "i:2147483648", "i:1.5", "nan(1)"}) {
        expectUsageError({"put", "A=" + text});
    }
    for (const std::string text : {"0", "-1", "x", "1.5", ""}) {
        expectUsageError({"watch", "-n", text, "A"});
    }
    for (const std::string text : {"0", "-1", "x", "nan", "inf", "1e7"}) {
        expectUsageError({"watch", "--max-rate", text, "A"});
    }
    for (const std::string text : {"-1", "32768", "x", "1.5"}) {
        expectUsageError({"--id", text, "get", "A"});
    }
}

TEST(Usage, HostsHaveAValidPort) {
    for (const std::string text :
         {"host:0", "host:65536", "host:", "host:x", "host:-1", "host: 1", "host:000001", ":55580", ""}) {
        expectUsageError({"-H", text, "get", "A"});
    }
    expectUsageError({"get", "A"}, {"CSX_HOST=host:0"});
}

TEST(Usage, NamesAreValid) {
    const std::string tooLong(32, 'n');
    expectUsageError({"get", ""});
    expectUsageError({"get", tooLong});
    expectUsageError({"get", "-"});
    expectUsageError({"watch", tooLong});
    expectUsageError({"doctor", tooLong});
    expectUsageError({"doctor", "--publish", ""});
    expectUsageError({"put", "=1"});
    expectUsageError({"put", tooLong + "=1"});
    expectUsageError({"wait", tooLong + "==1"});
    EXPECT_GE(runWith("A\n" + tooLong + "\n", 1, {"get", "-"}).code, 100);
}

TEST(Usage, AssignmentsAndConditionsAreValid) {
    expectUsageError({"put", "A"});
    expectUsageError({"put", "A=1", "A=2"});
    expectUsageError({"put", "A=1", "-"});
    expectUsageError({"put", "-", "-"});
    expectUsageError({"put", "--echo", "1s", "-"});
    expectUsageError({"put", "--hold", "-"});
    expectUsageError({"wait", "A"});
    expectUsageError({"wait", "A=1"});
    expectUsageError({"wait", "A==1", "B~1"});
}

TEST(Usage, AnInvalidValueEndsItWith105AndItsReason) {
    const Ended put = run(1, {"put", "A=1,5"});
    EXPECT_EQ(put.code, 105);
    EXPECT_TRUE(contains(put.err, "neither a number nor i: and a 32-bit integer: A=1,5")) << put.err;
}

TEST(Usage, NegativeValuesAreNoOptions) {
    LoopbackHost host(HostOptions{});
    EXPECT_EQ(run(host.port(), {"put", "A=-1"}).code, 0);
    EXPECT_EQ(host.value("A"), HostValue::real(-1));
    EXPECT_EQ(run(host.port(), {"get", "--", "-A"}).code, 0);
}

TEST(Usage, HelpIsDataAndEndsWithZero) {
    for (const Arguments& arguments : {Arguments{"--help"}, Arguments{"-h"}, Arguments{"watch", "--help"}}) {
        Csx csx(arguments);
        const Ended help = ended(csx);
        EXPECT_EQ(help.code, 0);
        EXPECT_TRUE(contains(help.out, "Usage: ")) << help.out;
        EXPECT_EQ(help.err, "");
    }
}

TEST(Usage, HelpOfACommandNamesTheCommonOptions) {
    for (const char* const command : {"get", "put", "watch", "wait", "info", "doctor"}) {
        Csx csx({command, "--help"});
        EXPECT_TRUE(contains(ended(csx).out, "--host, --id, --timeout, --output")) << command;
    }
}

TEST(Usage, TheVersionIsThatOfTheLibrary) {
    Csx csx(Arguments{"--version"});
    const Ended version = ended(csx);
    EXPECT_EQ(version.code, 0);
    EXPECT_EQ(version.out, std::string("csx ") + CSClient::getClientVersion() + '\n');
    EXPECT_EQ(version.err, "");
}

TEST(Usage, HelpHasTheExitCodes) {
    Csx csx({"--help"});
    const Ended help = ended(csx);
    for (const char* const text : {"  0  ", "  1  ", "  2  ", "  3  ", "  4  ", "100 to 127"}) {
        EXPECT_TRUE(contains(help.out, text)) << text;
    }
}

}  // namespace
}  // namespace com_tesk::csx_test
