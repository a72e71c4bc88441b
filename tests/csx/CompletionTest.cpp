#include "tests/csx/CsxProcess.h"

namespace com_tesk::csx_test {
namespace {

std::string outputOf(const Arguments& arguments) {
    Csx csx(arguments);
    EXPECT_EQ(csx.exitCode(), 0) << csx.errText();
    return csx.outText();
}

/// Returns the long options that a help text lists, without their hyphens.
std::set<std::string> optionsOf(const std::string& help) {
    static const std::regex option(R"((?:^|[\n ,])--([a-z][a-z-]*))");
    std::set<std::string> options;
    for (std::sregex_iterator found(help.begin(), help.end(), option); found != std::sregex_iterator(); ++found) {
        options.insert((*found)[1]);
    }
    return options;
}

/// Returns the commands that a help text lists: the first words after "Subcommands:".
std::vector<std::string> commandsOf(const std::string& help) {
    std::vector<std::string> commands;
    std::istringstream lines(help.substr(std::min(help.find("Subcommands:\n"), help.size())));
    std::string line;
    std::getline(lines, line);
    while (std::getline(lines, line) && line.rfind("  ", 0) == 0) {
        std::string word;
        std::istringstream(line) >> word;
        commands.push_back(word);
    }
    return commands;
}

TEST(Completion, OfEachShellHasAllCommandsAndOptions) {
    const std::string help = outputOf({"--help"});
    const std::vector<std::string> commands = commandsOf(help);
    EXPECT_EQ(commands.size(), 12U) << help;
    std::set<std::string> options = optionsOf(help);
    EXPECT_GE(options.size(), 5U) << help;
    for (const std::string& command : commands) {
        options.merge(optionsOf(outputOf({command, "--help"})));
    }
    EXPECT_TRUE(options.count("max-rate") == 1 && options.count("publish") == 1) << "the help of commands is read";
    for (const std::string shell : {"bash", "zsh", "fish"}) {
        const std::string script = outputOf({"completion", shell});
        for (const std::string& option : options) {
            // Fish writes: -l option.
            const std::regex word((shell == "fish" ? "-l " : "--") + option + "(?![a-z-])");
            EXPECT_TRUE(std::regex_search(script, word)) << shell << ": " << option;
        }
        for (const std::string& command : commands) {
            EXPECT_TRUE(std::regex_search(script, std::regex("\\b" + command + "\\b"))) << shell << ": " << command;
        }
    }
}

TEST(Completion, NeedsNoHost) {
    EXPECT_NE(outputOf({"-H", "no-such-host.invalid", "completion", "bash"}), "");
}

}  // namespace
}  // namespace com_tesk::csx_test
