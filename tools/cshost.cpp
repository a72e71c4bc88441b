#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <system_error>
#include <vector>

#include "host/HostEvent.h"
#include "host/HostOptions.h"
#include "host/LoopbackHost.h"
#include "host/StopSignals.h"
#include "host/Value.h"

// cshost: the loopback host as a program. Event lines on standard output, everything else on standard error.

namespace {

constexpr std::uint16_t kDefaultPort = 55580;
constexpr std::size_t kMaxNameSize = 31;
constexpr std::size_t kMaxVersionTextSize = 128;
constexpr int kCannotListen = 1;

constexpr const char* kDescription =
    "A simulation host for the desk: serves clients, stores the values that they publish under "
    "their names and\n"
    "sends them on to every client that subscribed to the name. Prints one line per event.";

constexpr const char* kFooter =
    "Exit codes:\n"
    "  0          stopped by SIGINT or SIGTERM, every client closed; also after --help\n"
    "  1          the address or the port cannot be used\n"
    "  100 to 127 the command line was not understood\n";

/// Adds one `NAME=VALUE` to the initial values. @return what is wrong with it, or empty.
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
    std::cout << com_tesk::lineOf(event) << std::endl;  // flushed, so that a pipe shows it at once
}

void serveUntilSignalled(const com_tesk::HostOptions& options) {
    // Before the host starts, so that no signal comes too early; and until it has stopped.
    com_tesk::StopSignals signals;
    com_tesk::LoopbackHost host(options);
    signals.wait();
    host.stop();
}

}  // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): CLI11 throws when the options contradict one another, not what was typed.
int main(int argc, char** argv) {
    com_tesk::HostOptions options;
    options.port = kDefaultPort;
    std::uint16_t assignId = 0;
    bool quiet = false;

    CLI::App app(kDescription, "cshost");
    app.footer(kFooter);
    app.add_option("--listen", options.listenAddress, "IPv4 address to listen on; 0.0.0.0 for every interface")
        ->type_name("ADDRESS")
        ->capture_default_str();
    app.add_option("--port", options.port, "TCP port; 0 lets the system pick one, the first line tells which")
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
                       "simulator id, 0 to 65535, in every version reply, instead of the client's own")
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
           "a value to begin with: NAME=1.5 a float, NAME=i:3 an integer; may be repeated")
        ->type_name("NAME=VALUE")
        ->expected(1)
        ->take_all();
    app.add_flag("--quiet", quiet, "print no event lines");
    CLI11_PARSE(app, argc, argv);

    if (assign->count() > 0) {
        options.assignId = assignId;
    }
    if (!quiet) {
        options.eventSink = printLine;
    }
    try {
        serveUntilSignalled(options);
    } catch (const std::system_error& error) {
        std::cerr << "cshost: " << error.what() << std::endl;
        return kCannotListen;
    }
    return EXIT_SUCCESS;
}
