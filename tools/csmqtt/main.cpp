// csmqtt: a bridge between a simulation host and an MQTT broker.

#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "tools/csmqtt/Bridge.h"
#include "tools/csmqtt/CheckReport.h"
#include "tools/csmqtt/ConfigReader.h"
#include "tools/csx/Signals.h"
#include "tools/service/Log.h"
#include "tools/service/StandardStreams.h"

namespace {

using namespace com_tesk;

constexpr int kUsage = 1;
constexpr int kInvalidConfig = 2;

constexpr const char* kDescription = "Passes values between a simulation host and an MQTT broker, in both directions.";
constexpr const char* kFooter =
    "It runs until SIGTERM or SIGINT. Either side may be absent: it tries again.\n"
    "Exit codes: 0 ended by a signal, or the check found nothing; 1 the command line; 2 the configuration, or the\n"
    "address for metrics; 3 another bridge has this base.";

int serve(const mqtt::Config& config, const std::string& metrics) {
    csx::Signals signals;  // Before there are other threads.
    service::Log log;
    std::optional<mqtt::Address> address;
    if (!metrics.empty()) {
        address = mqtt::addressOf(metrics, 0);
    }
    try {
        mqtt::Bridge bridge(config, log, address, CSCLIENT_VERSION_TEXT);
        const auto result = bridge.run(signals.descriptor());
        signals.taken();  // A signal that is still pending would end the process when it is no longer blocked.
        return static_cast<int>(result);
    } catch (const std::exception& error) {
        log.error(error.what());
    }
    return kInvalidConfig;
}

}  // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): CLI11 throws for contradictory definitions, not for invalid arguments.
int main(int argc, char** argv) {
    service::openClosedStreams();
    std::string path;
    std::string metrics;
    bool isCheck = false;
    CLI::App app(kDescription, "csmqtt");
    app.footer(kFooter);
    app.set_version_flag("--version", CSCLIENT_VERSION_TEXT);
    app.add_option("--config", path, "the configuration file")->type_name("FILE")->required();
    app.add_flag("--check", isCheck, "read the configuration, print what would be done, and end");
    app.add_option("--metrics", metrics, "serve metrics over HTTP at this address")
        ->type_name("ADDRESS:PORT")
        ->check(
            [](const std::string& text) { return mqtt::addressOf(text, 0) ? std::string() : "expected ADDRESS:PORT"; });
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kUsage;
    }

    std::vector<scenario::Flaw> flaws;
    const mqtt::Config config = mqtt::readConfigFile(path, flaws);
    for (const scenario::Flaw& flaw : flaws) {
        std::cerr << "csmqtt: " << mqtt::flawText(path, flaw) << std::endl;
    }
    if (!flaws.empty()) {
        return kInvalidConfig;
    }
    if (isCheck) {
        std::cout << mqtt::checkReport(config);
        return 0;
    }
    return serve(config, metrics);
}
