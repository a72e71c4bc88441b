#include "tools/recording_tools/ScenarioExport.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <stdexcept>

#include "tools/Json.h"
#include "tools/Utc.h"
#include "tools/recording_tools/OutputFile.h"
#include "tools/recording_tools/ScenarioFacts.h"
#include "tools/recording_tools/ScenarioValues.h"
#include "tools/recording_tools/Texts.h"

namespace com_tesk::recording {

namespace {

constexpr Time kPatience = std::chrono::seconds(10);  // for a program on a busy machine

std::string listOf(const std::set<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += text.empty() ? "[" : ", ";
        text += yamlText(name);
    }
    return text.empty() ? "[]" : text + ']';
}

std::string hostText(const ScenarioFacts& facts) {
    std::string text;
    const auto add = [&text](const std::string& member) { text += (text.empty() ? "host: {" : ", ") + member; };
    if (facts.version()) {
        // A version text has at most 128 bytes, which the wire permits too.
        add("version: " + yamlText(tools::isUtf8(facts.version()->text) ? facts.version()->text : "recorded"));
        add("protocol: " + std::to_string(facts.version()->protocolVersion));
    }
    if (facts.assignedId()) {
        add("assign-id: " + std::to_string(*facts.assignedId()));
    }
    if (!facts.refused().empty()) {
        add("known-names: " + listOf(facts.confirmed()));
    }
    return text.empty() ? text : text + "}\n";
}

/// What `registers` demands: names that the client has registered. Empty without any.
std::string registersText(const ScenarioFacts& facts, Time within) {
    const auto& inputs = facts.registered(Direction::INPUTS);
    const auto& outputs = facts.registered(Direction::OUTPUTS);
    std::string text = "client: registers";
    text += inputs.empty() ? "" : ", inputs: " + listOf(inputs);
    text += outputs.empty() ? "" : ", outputs: " + listOf(outputs);
    return text + ", within: " + durationText(within) + '}';
}

/// A float is compared with the decimal number, which can differ from it in the last digits.
std::string publishedText(const std::string& name, const HostValue& value) {
    constexpr double kLastDigits = 1e-6;
    std::string text = "published: {name: " + yamlText(name);
    const double number = numberOf(value);
    if (std::isfinite(number)) {
        text += ", value: " + textOf(value);
        if (number != std::nearbyint(number)) {
            text += ", tolerance: " + textOf(HostValue::real(static_cast<float>(std::abs(number) * kLastDigits)));
        }
    }
    return text + '}';
}

class ScenarioExport {
  public:
    explicit ScenarioExport(const ScenarioFacts& scenarioFacts)
        : facts(scenarioFacts), origin(facts.origin().value_or(Time(0))) {}

    std::string timeline() const {
        std::string text;
        unsigned number = 0;
        for (const Connections::Outage& loss : facts.losses()) {
            const std::string at = durationText(loss.begin - origin);
            if (loss.side == Side::CLIENT) {
                text += "  # The client ended its connection at " + at + ".\n";
                continue;
            }
            text += "  - {at: " + at + ", do: " + actionOf(loss) + ", label: loss-" + std::to_string(++number) + "}\n";
        }
        return number == 0 ? "" : "timeline:\n" + text;
    }

    std::string expectations() const {
        std::string text = "expect:\n  - {" + registersText(facts, kPatience) + '\n';
        for (const auto& [name, output] : facts.outputs()) {
            text += "  - {" + publishedText(name, output.first) +
                    ", within: " + durationText(output.firstAt - origin + kPatience);
            if (output.first != output.last) {
                text += ",\n     then: [{" + publishedText(name, output.last) +
                        ", within: " + durationText(output.lastAt - output.firstAt + kPatience) + "}]";
            }
            text += "}\n";
        }
        unsigned number = 0;
        for (const Connections::Outage& loss : facts.losses()) {
            if (loss.side == Side::HOST) {
                text += "  - {after: loss-" + std::to_string(++number) + ", " +
                        registersText(facts, loss.end - loss.begin + kPatience) + '\n';
            }
        }
        return text;
    }

    /// Without outputs, all expectations may be met before the values have been played.
    std::string end() const {
        return facts.outputs().empty() ? "end: " + durationText(facts.end() - origin + kPatience) + '\n' : "";
    }

  private:
    static std::string actionOf(const Connections::Outage& loss) {
        if (loss.attempts > 0) {
            return "{restart: {down: " + durationText(std::max(loss.lastAttempt - loss.begin, Time(1000))) + "}}";
        }
        return loss.isReset ? "{drop: reset}" : "{drop: close}";
    }

    const ScenarioFacts& facts;
    const Time origin;
};

}  // namespace

void writeScenario(Reading& reading, const std::string& path) {
    if (isPipeOrDevice(path)) {
        throw std::runtime_error(path + " is no regular file, and a scenario has files next to it");
    }
    ScenarioFacts facts;
    while (const auto entry = reading.next()) {
        facts.note(*entry);
    }
    if (facts.confirmed().empty()) {
        throw std::runtime_error("no client has registered anything, so a scenario has nothing to begin with");
    }
    constexpr Time kMaxDuration = std::chrono::hours(999);
    if (facts.end() - *facts.origin() > kMaxDuration) {
        throw std::runtime_error("the recording is longer than a scenario can be: 999 hours");
    }
    reading.rewind();
    ScenarioValues values(facts, path);
    values.read(reading);
    const ScenarioExport lines(facts);
    OutputFile file(path);
    file.write("# Made from a recording that began at " + tools::utcOf(beginOf(reading.header())) +
               ". Times count from its first connection.\n");
    file.write("name: " + yamlText("recorded at " + tools::utcOf(beginOf(reading.header()))) + '\n');
    file.write(hostText(facts) + values.text() + lines.timeline() + lines.expectations() + lines.end());
    file.complete();
}

}  // namespace com_tesk::recording
