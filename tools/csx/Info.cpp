// csx info: prints what is known about the host and the connection.

#include <algorithm>
#include <cstdio>

#include "tools/csx/Commands.h"
#include "tools/csx/Texts.h"

namespace com_tesk::csx {

namespace {

std::string millisecondsText(Clock::duration time) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%.3f", std::chrono::duration<double, std::milli>(time).count());
    return text.data();
}

}  // namespace

ExitCode info(const CommonOptions& common, Signals& signals) {
    Client client(common, Patience::FIRST_FAILURE, signals);
    const Clock::time_point began = Clock::now();
    Clock::time_point connected = began;
    client.onEvent = [&](const LinkEvent& event) {
        if (event.link == Link::CONNECTED && event.cause == Cause::NONE) {
            connected = Clock::now();
        }
    };
    if (const ExitCode code = client.connect(); code != DONE) {
        return code;
    }
    const Clock::time_point answered = Clock::now();
    const Health health = client.session().health();
    const std::vector<Field> fields{
        {"host", common.host},
        {"port", std::to_string(common.port), true},
        {"version", health.hostVersion},
        {"protocol", std::to_string(health.protocolVersion), true},
        {"simulator_id", std::to_string(health.simulatorId), true},
        {"transport", "TCP, buffered"},
        {"connect_ms", millisecondsText(connected - began), true},
        {"answer_ms", millisecondsText(answered - began), true},
        {"round_trip_ms", millisecondsText(health.roundTrip), true},
    };
    DataOutput output(signals);
    if (common.format == Format::TEXT) {
        for (const Field& field : fields) {
            output.line(field.name + ": " + (field.isLiteral ? field.text : printable(field.text)));
        }
    } else {
        Printer(common.format, TimeStyle::NONE, output).record(fields);
    }
    return DONE;
}

}  // namespace com_tesk::csx
