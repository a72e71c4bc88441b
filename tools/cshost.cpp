#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "host/HostEvent.h"
#include "host/HostOptions.h"
#include "host/LoopbackHost.h"
#include "host/StopSignals.h"
#include "host/Value.h"
#include "tools/HostEventJson.h"
#include "tools/scenario/RunCommand.h"
#include "tools/service/Notifier.h"
#include "tools/service/Watchdog.h"

// cshost: the loopback host as a program. Event lines on standard output, all other output on standard error.

namespace {

constexpr std::uint16_t kDefaultPort = 55580;
constexpr std::size_t kMaxNameSize = 31;
constexpr std::size_t kMaxVersionTextSize = 128;
constexpr int kCannotListen = 1;

constexpr const char* kDescription =
    "A simulation host for tests: serves clients, stores the values that they publish under "
    "their names and\n"
    "sends them to every client that has subscribed to the name. Prints one line per event.";

constexpr const char* kFooter =
    "Exit codes:\n"
    "  0          stopped by SIGINT or SIGTERM, every client closed; also after --help\n"
    "  1          the address or the port cannot be used\n"
    "  100 to 127 the command line is invalid\n"
    "\n"
    "'cshost run --help' describes how to play scenarios.\n";

constexpr const char* kRunDescription = "plays scenarios: fails as a file says, and checks what the client does";

constexpr const char* kRunFooter =
    "After --, a program and its arguments: cshost run FILE -- PROGRAM ARGS. It is started with the host in CSX_HOST,\n"
    "and ended after the scenario. Without it, the host serves every client.\n"
    "Exit codes:\n"
    "  0          every expectation was met\n"
    "  1          an expectation was not met\n"
    "  2          a file is invalid; nothing was played\n"
    "  3          the address or the port cannot be used, or the report cannot be written\n"
    "  4          PROGRAM could not be started, or has ended before the scenario\n"
    "  100 to 127 the command line is invalid\n";

/// Adds one `NAME=VALUE` to the initial values. @return the reason when it is invalid, otherwise an empty text.
std::string addValue(const std::string& text, com_tesk::HostOptions& options) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos) {
        return "expected NAME=VALUE, got " + text;
    }
    const std::string name = text.substr(0, equals);
    if (name.empty() || name.size() > kMaxNameSize) {
        return "a name has 1 to 31 characters: " + text;
    }
    const auto value = com_tesk::HostValue::fromText(text.substr(equals + 1));
    if (!value) {
        return "neither a number nor i: and a 32-bit integer: " + text;
    }
    options.initialValues.insert_or_assign(name, *value);
    return {};
}

void printLine(const com_tesk::HostEvent& event) {
    std::cout << com_tesk::lineOf(event) << std::endl;  // Flushed, so that the reader of a pipe gets it immediately.
}

void printJsonLine(const com_tesk::HostEvent& event) {
    std::cout << com_tesk::tools::jsonOf(event) << std::endl;
}

void serveUntilSignalled(com_tesk::HostOptions options) {
    const com_tesk::service::Notifier notifier;
    if (!notifier.flaw().empty()) {
        std::cerr << "cshost: " << notifier.flaw() << std::endl;
    }
    com_tesk::service::Watchdog watchdog(notifier, 1);
    if (const auto interval = watchdog.reportInterval()) {
        options.heartbeat = [&watchdog] { watchdog.report(0); };
        options.heartbeatInterval = *interval;
    }
    // The signals are caught from before the host starts until it has stopped.
    com_tesk::StopSignals signals;
    const std::string address = options.listenAddress;
    com_tesk::LoopbackHost host(std::move(options));
    notifier.ready("listening on " + address + ":" + std::to_string(host.port()));
    signals.wait();
    notifier.stopping();
    host.stop();
}

/// Adds `run FILE...`.
void addRun(CLI::App& app, com_tesk::scenario::RunOptions& run) {
    CLI::App* const sub = app.add_subcommand("run", kRunDescription);
    sub->footer(kRunFooter);
    sub->add_option("FILE", run.files, "scenarios")->type_name("")->required();
    sub->add_option("--listen", run.listenAddress, "IPv4 address to listen on")
        ->type_name("ADDRESS")
        ->capture_default_str();
    sub->add_option("--port", run.port, "TCP port; with 0 the system picks one")->type_name("N")->capture_default_str();
    sub->add_option("--junit", run.junitFile, "write a report in the form of JUnit")->type_name("FILE");
    sub->add_option("--repeat", run.repetitions, "play each scenario so many times, each with its own random faults")
        ->type_name("N")
        ->check(CLI::Range(1U, 1'000'000U))
        ->capture_default_str();
    sub->add_flag("--show-events", run.areEventsShown, "print the events of the host, too");
}

/// Takes what follows `--` off the command line.
std::vector<std::string> takeProgram(int& argc, char** argv) {
    char** const end = argv + argc;
    char** const separator = std::find_if(argv, end, [](const char* word) { return std::string_view(word) == "--"; });
    if (separator == end) {
        return {};
    }
    std::vector<std::string> program(std::next(separator), end);
    argc = static_cast<int>(separator - argv);
    return program;
}

}  // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): CLI11 throws for contradictory definitions, not for invalid arguments.
int main(int argc, char** argv) {
    com_tesk::HostOptions options;
    options.port = kDefaultPort;
    std::uint16_t assignId = 0;
    std::string eventFormat = "text";
    bool quiet = false;

    CLI::App app(kDescription, "cshost");
    app.footer(kFooter);
    app.add_option("--listen", options.listenAddress, "IPv4 address to listen on; 0.0.0.0 for every interface")
        ->type_name("ADDRESS")
        ->capture_default_str();
    app.add_option("--port", options.port, "TCP port; with 0 the system picks one, and the first line names it")
        ->type_name("N")
        ->capture_default_str();
    app.add_option("--version-text", options.versionText, "version text for clients, at most 128 characters")
        ->type_name("T")
        ->capture_default_str()
        ->check([](const std::string& text) {
            return text.size() > kMaxVersionTextSize ? "longer than 128 characters" : std::string();
        });
    app.add_option("--protocol-version", options.protocolVersion, "protocol version for clients")
        ->type_name("N")
        ->capture_default_str();
    CLI::Option* const assign =
        app.add_option("--assign-id", assignId,
                       "simulator id, 0 to 65535, in every version reply; by default the client's own")
            ->type_name("N");
    app.add_option_function<std::vector<std::string>>(
           "--set",
           [&options](const std::vector<std::string>& texts) {
               for (const std::string& text : texts) {
                   if (const std::string flaw = addValue(text, options); !flaw.empty()) {
                       throw CLI::ValidationError("--set", flaw);
                   }
               }
           },
           "an initial value: NAME=1.5 is a float, NAME=i:3 an integer; may be repeated")
        ->type_name("NAME=VALUE")
        ->expected(1)
        ->take_all();
    app.add_option("--events", eventFormat, "format of the event lines; json is an object a line")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"text", "json"}))
        ->capture_default_str();
    app.add_flag("--quiet", quiet, "print no event lines");
    com_tesk::scenario::RunOptions run;
    addRun(app, run);
    run.program = takeProgram(argc, argv);
    CLI11_PARSE(app, argc, argv);

    if (app.got_subcommand("run")) {
        return static_cast<int>(com_tesk::scenario::run(run));
    }
    if (!run.program.empty()) {
        return app.exit(CLI::ExtrasError("a program after -- needs the command run", CLI::ExitCodes::ExtrasError));
    }

    if (assign->count() > 0) {
        options.assignId = assignId;
    }
    if (!quiet) {
        options.eventSink = eventFormat == "json" ? printJsonLine : printLine;
    }
    try {
        serveUntilSignalled(std::move(options));
    } catch (const std::system_error& error) {
        std::cerr << "cshost: " << error.what() << std::endl;
        return kCannotListen;
    }
    return EXIT_SUCCESS;
}
