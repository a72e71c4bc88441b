#include "tools/csx/ReplayCommand.h"

#include <poll.h>
#include <sys/prctl.h>

#include <CLI/CLI.hpp>
#include <cmath>

#include "tools/csx/DataOutput.h"
#include "tools/csx/OptionTypes.h"
#include "tools/csx/Texts.h"
#include "tools/replay/Replay.h"

namespace com_tesk::csx {

namespace {

constexpr char kFooter[] =
    "After --, a program and its arguments: csx replay LOG --as host -- PROGRAM ARGS. It is started with the host in\n"
    "CSX_HOST, and ended after the replay. Without it, the host serves every client.\n"
    "Exit codes:\n"
    "  0          played to the end; with --check, the program published what was recorded\n"
    "  1          --check has found a difference\n"
    "  2          the recording or the rules are invalid, the port is in use, or there is no host\n"
    "  3          the client has not registered, or the host not confirmed, what was recorded\n"
    "  4          PROGRAM could not be started, or has ended before the replay\n"
    "  100 to 127 the command line is invalid\n";

bool sleepUntil(Clock::time_point time, Signals& signals) {
    for (;;) {
        if (signals.taken() != 0) {
            return false;
        }
        const Clock::time_point now = Clock::now();
        if (now >= time) {
            return true;
        }
        constexpr long kPerSecond = 1'000'000'000;
        const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(time - now).count();
        const timespec timeout{static_cast<std::time_t>(left / kPerSecond), static_cast<long>(left % kPerSecond)};
        pollfd waiting{signals.descriptor(), POLLIN, 0};
        ppoll(&waiting, 1, &timeout, nullptr);
    }
}

ExitCode run(const replay::Options& options, Signals& signals) {
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);  // The system may not delay the entries to save wake-ups.
    const replay::Result result = replay::replay(
        options, [&signals](Clock::time_point time) { return sleepUntil(time, signals); }, say);
    if (const int signal = signals.taken(); signal != 0) {
        throw Interrupted{signal};
    }
    return static_cast<ExitCode>(result);
}

double positiveOf(const std::string& option, const std::string& text, double least, double largest) {
    const auto number = numberOf(text);
    const double value = number && !number->isInteger ? valueOf(*number) : std::nan("");
    if (!(value >= least && value <= largest)) {
        throw CLI::ValidationError(option, "out of range: " + text);
    }
    return value;
}

void takeRename(const std::string& text, replay::Options& options) {
    const std::size_t equals = text.find('=');
    const std::string recorded = text.substr(0, equals);
    const std::string name = equals == std::string::npos ? "" : text.substr(equals + 1);
    for (const std::string& each : {recorded, name}) {
        if (const std::string flaw = nameError(each); !flaw.empty()) {
            std::string why = "expected RECORDED=NAME, got ";
            why.append(text).append(": ").append(flaw);
            throw CLI::ValidationError("--rename", why);
        }
    }
    options.renamed.insert_or_assign(recorded, name);
}

void requireSense(const CLI::App& sub, const replay::Options& options) {
    const auto require = [](bool holds, const std::string& flaw) {
        if (!holds) {
            throw CLI::ValidationError("replay", flaw);
        }
    };
    const auto isGiven = [&sub](const std::string& option) { return sub.get_option(option)->count() > 0; };
    if (options.role == replay::Role::CLIENT) {
        for (const char* const option : {"--check", "--listen", "--port", "PROGRAM"}) {
            require(!isGiven(option), std::string(option) + " needs --as host");
        }
    }
    for (const char* const option : {"--bless", "--rules", "--tolerance", "--window"}) {
        require(options.isChecked || !isGiven(option), std::string(option) + " needs --check");
    }
    require(!options.isChecked || !options.program.empty(), "--check needs a program after --");
    require(!options.isChecked || !options.isLooped, "--check permits no --loop");
}

void addSelection(CLI::App& sub, replay::Options& options) {
    addDuration(sub, "--start", "begin at this time of the recording; by default when its client has registered",
                [&options](std::chrono::microseconds time) { options.start = time; });
    addDuration(sub, "--for", "end after this time of the recording",
                [&options](std::chrono::microseconds time) { options.duration = time; });
    addDuration(sub, "--skip-gaps", "shorten longer times without messages to this time",
                [&options](std::chrono::microseconds time) { options.maxGap = time; });
    sub.add_option("--only", options.only, "use these names and leave out all others")->type_name("NAME...");
    sub.add_option_function<std::vector<std::string>>(
           "--rename",
           [&options](const std::vector<std::string>& words) {
               for (const std::string& word : words) {
                   takeRename(word, options);
               }
           },
           "use another name instead of a recorded one")
        ->type_name("RECORDED=NAME...");
}

void addCheck(CLI::App& sub, replay::Options& options) {
    sub.add_flag("--check", options.isChecked, "compare what PROGRAM publishes with what was recorded");
    sub.add_option_function<std::string>(
           "--tolerance",
           [&options](const std::string& text) { options.tolerance = positiveOf("--tolerance", text, 0, 3e38); },
           "largest permitted difference of two values; by default 0")
        ->type_name("X");
    addDuration(sub, "--window", "largest permitted difference of two times; by default 200ms",
                [&options](std::chrono::microseconds time) { options.window = time; });
    sub.add_option("--rules", options.rulesFile, "file with rules for single outputs")->type_name("FILE");
    sub.add_flag("--bless", options.isBlessed,
                 "write what PROGRAM publishes into the recording, as the new expectation");
}

}  // namespace

void addReplay(CLI::App& app, const CommonOptions& common, replay::Options& options,
               std::function<ExitCode(Signals&)>& command) {
    CLI::App* const sub = app.add_subcommand("replay", "plays a recording to a program or to a host");
    sub->add_option("LOG", options.file, "the recording")->type_name("")->required();
    sub->add_option("PROGRAM", options.program, "after --: the program, and its arguments")->type_name("");
    addChoice<replay::Role>(*sub, "--as", options.role,
                            {{"host", replay::Role::HOST}, {"client", replay::Role::CLIENT}},
                            "the side of the recording to play");
    sub->get_option("--as")->required();
    sub->add_option("--listen", options.listenAddress, "as host: IPv4 address to listen on")
        ->type_name("ADDRESS")
        ->capture_default_str();
    sub->add_option("--port", options.port, "as host: TCP port; with 0 the system picks one")
        ->type_name("N")
        ->capture_default_str();
    sub->add_option_function<std::string>(
           "--rate", [&options](const std::string& text) { options.rate = positiveOf("--rate", text, 0.001, 1'000); },
           "so many times as fast as recorded")
        ->type_name("X");
    sub->add_flag("--loop", options.isLooped, "begin again at the end, until SIGINT or SIGTERM");
    addDuration(*sub, "--patience", "longest wait for the other side at the beginning; by default 30s",
                [&options](std::chrono::microseconds time) { options.patience = time; });
    addSelection(*sub, options);
    addCheck(*sub, options);
    sub->footer(kFooter);
    sub->callback([sub, &common, &options, &command] {
        requireSense(*sub, options);
        command = [&common, &options](Signals& signals) {
            options.host = common.host;
            options.hostPort = common.port;
            options.simulatorId = common.simulatorId;
            return run(options, signals);
        };
    });
}

}  // namespace com_tesk::csx
