#include "tools/csx/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>

#include "client/CSClient.h"
#include "tools/csx/AnalysisCommands.h"
#include "tools/csx/Completion.h"
#include "tools/csx/OptionTypes.h"
#include "tools/csx/ReplayCommand.h"
#include "tools/csx/Texts.h"

namespace com_tesk::csx {

namespace {

constexpr char kDescription[] = "Reads, writes and watches the values of a simulation host.";

constexpr char kCommandFooter[] =
    "Before or after the command: --host, --id, --timeout, --output. 'csx --help' describes them and the exit codes.";

constexpr char kFooter[] =
    "Durations: 250ms, 5s, 2m, 1h. CSX_HOST in the environment is the default of --host.\n"
    "Data goes to standard output, everything else to standard error.\n"
    "Exit codes:\n"
    "  0          done, or a condition held; watch was ended by a signal or a closed pipe\n"
    "  1          a condition was not reached, or a check failed\n"
    "  2          no host: not reached, not a host, or closed at once; or the recording cannot be read\n"
    "  3          some names were not confirmed in time; the others were printed\n"
    "  4          the connection was lost meanwhile\n"
    "  100 to 127 the command line is invalid\n";

void takeAssignments(const std::vector<std::string>& words, PutOptions& options) {
    for (const std::string& word : words) {
        if (word == "-") {
            options.isFromInput = true;
            continue;
        }
        std::string flaw;
        const auto assignment = assignmentOf(word, flaw);
        if (!assignment) {
            throw CLI::ValidationError("NAME=VALUE", flaw);
        }
        const auto isSameName = [&](const Assignment& other) { return other.name == assignment->name; };
        if (std::any_of(options.assignments.begin(), options.assignments.end(), isSameName)) {
            throw CLI::ValidationError("NAME=VALUE", "the name has two values: " + shownName(assignment->name));
        }
        options.assignments.push_back(*assignment);
    }
    if (options.isFromInput && words.size() > 1) {
        throw CLI::ValidationError("NAME=VALUE", "- permits no other values");
    }
}

}  // namespace

CommandLine::CommandLine(CLI::App& app) {
    app.name("csx");
    app.description(kDescription);
    app.footer(kFooter);
    app.set_version_flag("--version", std::string("csx ") + CSClient::getClientVersion());
    app.failure_message([](const CLI::App* /*app*/, const CLI::Error& error) {
        return std::string("csx: ") + error.what() + "\nRun csx --help for more information.\n";
    });
    app.require_subcommand(1);
    app.fallthrough();  // The common options may also follow the command.
    addCommonOptions(app);
    addGet(app);
    addPut(app);
    addWatch(app);
    addWait(app);
    addInfo(app);
    addDoctor(app);
    recordingCommands = std::make_unique<RecordingCommands>(app, common, command);
    addReplay(app, common, replayOptions, command);
    addCompletion(app);
    for (CLI::App* const sub : app.get_subcommands(nullptr)) {
        sub->footer(sub->get_footer() + kCommandFooter);
    }
    addAnalysis(app, common, analysisOptions, command);  // They connect to no host, so they have footers of their own.
}

void CommandLine::addCommonOptions(CLI::App& app) {
    app.add_option_function<std::string>(
           "-H,--host", [this](const std::string& text) { takeHost("--host", text, common.host, common.port); },
           "address or name of the host, and its port; by default 127.0.0.1:55580")
        ->type_name("HOST[:PORT]")
        ->envname("CSX_HOST");
    app.add_option("--id", common.simulatorId, "simulator id of this client")
        ->type_name("N")
        ->capture_default_str()
        ->check(CLI::Range(0, 32'767));
    addDuration(app, "--timeout", "time for connecting, and for the host's answers; by default 5s",
                [this](std::chrono::microseconds time) { common.timeout = time; });
    addChoice<Format>(app, "-o,--output", common.format,
                      {{"text", Format::TEXT}, {"json", Format::JSON}, {"csv", Format::CSV}}, "format of the output");
}

void CommandLine::addGet(CLI::App& app) {
    CLI::App* const sub = app.add_subcommand("get", "prints the value of each name once");
    addNames(*sub, names, "names, or - for names from standard input, one a line")->required();
    sub->callback([this] { command = [this](Signals& signals) { return get(common, names, signals); }; });
}

void CommandLine::addPut(CLI::App& app) {
    CLI::App* const sub = app.add_subcommand("put", "publishes values");
    sub->add_option_function<std::vector<std::string>>(
           "NAME=VALUE", [this](const std::vector<std::string>& words) { takeAssignments(words, putOptions); },
           "A=1.5 is a float, A=i:3 an integer; or - for lines of standard input")
        ->type_name("")
        ->required();
    CLI::Option* const echo = addDuration(*sub, "--echo", "wait at most this long until the values come back",
                                          [this](std::chrono::microseconds time) { putOptions.echo = time; });
    CLI::Option* const hold = sub->add_flag("--hold", putOptions.isHeld, "stay connected until SIGINT or SIGTERM");
    sub->callback([this, echo, hold] {
        if (putOptions.isFromInput && (echo->count() > 0 || hold->count() > 0)) {
            throw CLI::ValidationError("put", "- permits neither --echo nor --hold");
        }
        command = [this](Signals& signals) { return put(common, putOptions, signals); };
    });
}

void CommandLine::addWatch(CLI::App& app) {
    CLI::App* const sub = app.add_subcommand("watch", "prints values as they arrive");
    addNames(*sub, watchOptions.names, "names, or - for names from standard input, one a line")->required();
    sub->add_option("-n,--count", watchOptions.count, "end after this many lines")
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    addDuration(*sub, "--for", "end after this time",
                [this](std::chrono::microseconds time) { watchOptions.duration = time; });
    sub->add_flag("--changes", watchOptions.isChangesOnly, "leave out a value that equals the one before");
    sub->add_option("--max-rate", watchOptions.maxRate,
                    "lines a second for each name at most; the newest value is printed")
        ->type_name("HZ")
        ->check([](const std::string& text) {
            const auto rate = numberOf(text);
            const bool isInRange = rate && !rate->isInteger && rate->real >= 0.001F && rate->real <= 1e6F;
            return isInRange ? std::string() : "no rate from 0.001 to 1e6: " + text;
        });
    addChoice<TimeStyle>(*sub, "--time", watchOptions.timeStyle,
                         {{"abs", TimeStyle::ABSOLUTE},
                          {"rel", TimeStyle::RELATIVE},
                          {"delta", TimeStyle::DELTA},
                          {"none", TimeStyle::NONE}},
                         "time of receipt, seconds since the first line or since the line before");
    sub->callback([this] { command = [this](Signals& signals) { return watch(common, watchOptions, signals); }; });
}

void CommandLine::addWait(CLI::App& app) {
    CLI::App* const sub = app.add_subcommand("wait", "ends when all conditions hold, and prints the values");
    sub->add_option_function<std::vector<std::string>>(
           "CONDITION",
           [this](const std::vector<std::string>& words) {
               for (const std::string& word : words) {
                   std::string flaw;
                   const auto condition = conditionOf(word, flaw);
                   if (!condition) {
                       throw CLI::ValidationError("CONDITION", flaw);
                   }
                   waitOptions.conditions.push_back(*condition);
               }
           },
           "such as 'altitude>=100', with == != < <= > >=, or 'level~1.5+-0.1'")
        ->type_name("")
        ->required();
    addDuration(*sub, "--within", "give up after this time; by default 30s",
                [this](std::chrono::microseconds time) { waitOptions.within = time; });
    addDuration(*sub, "--hold", "the time for which the conditions must hold",
                [this](std::chrono::microseconds time) { waitOptions.hold = time; });
    sub->callback([this] { command = [this](Signals& signals) { return wait(common, waitOptions, signals); }; });
}

void CommandLine::addInfo(CLI::App& app) {
    CLI::App* const sub = app.add_subcommand("info", "prints what is known about the host and the connection");
    sub->callback([this] { command = [this](Signals& signals) { return info(common, signals); }; });
}

void CommandLine::addDoctor(CLI::App& app) {
    CLI::App* const sub = app.add_subcommand("doctor", "checks step by step what can be wrong");
    addNames(*sub, doctorOptions.names, "names to check too");
    sub->add_option_function<std::string>(
           "--publish",
           [this](const std::string& name) {
               if (const std::string flaw = nameError(name); !flaw.empty()) {
                   throw CLI::ValidationError("--publish", flaw);
               }
               doctorOptions.publishedName = name;
           },
           "publish the value of this name again, and wait for it to come back")
        ->type_name("NAME");
    sub->callback([this] { command = [this](Signals& signals) { return doctor(common, doctorOptions, signals); }; });
}

void CommandLine::addCompletion(CLI::App& app) {
    CLI::App* const sub = app.add_subcommand("completion", "prints the completion script of a shell");
    sub->add_option("SHELL", shell, "bash, zsh or fish")
        ->type_name("")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh", "fish"}));
    sub->callback([this] { command = [this](Signals& signals) { return completion(shell, signals); }; });
}

}  // namespace com_tesk::csx
