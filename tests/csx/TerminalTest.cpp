#include "tests/csx/CsxProcess.h"

namespace com_tesk::csx_test {
namespace {

const std::string kHighlight = "\x1B[1;33m";
const std::string kPlain = "\x1B[0m";

/// Returns what `csx watch` prints for the values 0, 1, 1 and 2. The terminal ends each line with CR LF.
std::string watched(const std::vector<std::string>& variables, bool isOnTerminal, const Arguments& more = {}) {
    HostOptions options;
    options.initialValues = {{"A", HostValue::real(0)}};
    LoopbackHost host(options);
    ChildProcess::Setup setup = Csx::setup();
    setup.environment.insert(setup.environment.begin(), variables.begin(), variables.end());
    setup.isOnTerminal = isOnTerminal;
    Arguments arguments{"watch", "--time", "none", "-n", "4", "A"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    Csx csx(host.port(), arguments, setup);
    EXPECT_TRUE(csx.waitForOut("0"));
    for (const float value : {1.0F, 1.0F, 2.0F}) {
        host.setValue("A", HostValue::real(value));
    }
    EXPECT_EQ(csx.exitCode(), 0) << csx.errText();
    return csx.outText();
}

const std::string kWithoutColours = "A 0\r\nA 1\r\nA 1\r\nA 2\r\n";

TEST(Terminal, OnlyAValueThatHasChangedIsHighlighted) {
    EXPECT_EQ(watched({}, true),
              "A 0\r\nA " + kHighlight + "1" + kPlain + "\r\nA 1\r\nA " + kHighlight + "2" + kPlain + "\r\n");
}

TEST(Terminal, WithNoColorNothingIsHighlighted) {
    EXPECT_EQ(watched({"NO_COLOR=1"}, true), kWithoutColours);
}

TEST(Terminal, ADumbTerminalHasNoColours) {
    EXPECT_EQ(watched({"TERM=dumb"}, true), kWithoutColours);
}

TEST(Terminal, APipeHasNoColours) {
    EXPECT_EQ(watched({}, false), "A 0\nA 1\nA 1\nA 2\n");
}

TEST(Terminal, JsonHasNoColours) {
    EXPECT_FALSE(contains(watched({}, true, {"-o", "json"}), "\x1B"));
}

TEST(Terminal, AValueOfGetIsNotHighlighted) {
    LoopbackHost host(HostOptions{});
    ChildProcess::Setup setup = Csx::setup();
    setup.isOnTerminal = true;
    Csx csx(host.port(), {"get", "A"}, setup);
    EXPECT_EQ(csx.exitCode(), 0);
    EXPECT_TRUE(contains(csx.outText(), " A 0\r\n"));
    EXPECT_FALSE(contains(csx.outText(), "\x1B"));
}

}  // namespace
}  // namespace com_tesk::csx_test
