#include "tools/csmqtt/MetricsText.h"

#include <array>
#include <charconv>
#include <cmath>
#include <string_view>

#include "tools/csmqtt/TopicName.h"

namespace com_tesk::mqtt {

namespace {

template <class Number>
std::string shortest(Number number) {
    std::array<char, 64> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), number).ptr;
    return {text.data(), end};
}

/// Writes the families of metrics one after another.
class Families {
  public:
    /// Begins a family. Its samples follow.
    Families& begin(std::string_view familyName, std::string_view type, std::string_view help) {
        family = familyName;
        ((text += "# HELP ") += family) += ' ';
        (text += help) += '\n';
        ((text += "# TYPE ") += family) += ' ';
        (text += type) += '\n';
        return *this;
    }

    Families& sample(double number) {
        ((text += family) += ' ') += metricsNumber(number);
        text += '\n';
        return *this;
    }

    Families& sample(std::uint64_t number) {
        ((text += family) += ' ') += shortest(number);
        text += '\n';
        return *this;
    }

    template <class Number>
    Families& sample(std::string_view label, const std::string& value, Number number) {
        std::string name(family);
        ((name += '{') += label) += "=\"";
        (name += escapedLabel(value)) += "\"}";
        const std::string_view plain = family;
        family = name;
        sample(number);
        family = plain;
        return *this;
    }

    std::string take() { return std::move(text); }

  private:
    std::string_view family;
    std::string text;
};

void addCounts(Families& families, const Counts& counts) {
    families.begin("csmqtt_received_total", "counter", "Values received from the host.").sample(counts.received);
    families.begin("csmqtt_published_total", "counter", "Values handed to the connection of the broker.")
        .sample(counts.published);
    families
        .begin("csmqtt_conflated_total", "counter",
               "Values not published, because a newer or equal one took their place.")
        .sample(counts.conflated);
    families.begin("csmqtt_dropped_total", "counter", "Messages that the broker or its library refused.")
        .sample(counts.dropped);
    families.begin("csmqtt_commands_accepted_total", "counter", "Commands passed on to the host.")
        .sample(counts.accepted);
    families.begin("csmqtt_commands_ignored_total", "counter", "Commands not passed on to the host.")
        .sample("reason", "retained", counts.ignoredRetained)
        .sample("reason", "unknown", counts.ignoredUnknown)
        .sample("reason", "invalid", counts.ignoredInvalid)
        .sample("reason", "range", counts.ignoredRange);
    families.begin("csmqtt_broker_connects_total", "counter", "Connections that the broker has accepted.")
        .sample(counts.brokerConnects);
    families.begin("csmqtt_broker_failures_total", "counter", "Connections to the broker that were lost or failed.")
        .sample(counts.brokerFailures);
    families.begin("csmqtt_host_connects_total", "counter", "Times that the host has answered after it had not.")
        .sample(counts.hostConnects);
    families.begin("csmqtt_in_flight", "gauge", "Messages that the connection of the broker holds.")
        .sample(std::uint64_t{counts.inFlight});
    families.begin("csmqtt_in_flight_max", "gauge", "The largest number of such messages so far.")
        .sample(std::uint64_t{counts.maxInFlight});
}

void addValues(Families& families, const Snapshot& snapshot) {
    constexpr double kMillisecondsPerSecond = 1000;
    const auto isShown = [&](const ValueSnapshot& value) {
        return snapshot.host == HostState::UP && value.isCurrent && value.value;
    };
    families.begin("csmqtt_value", "gauge", "The newest value of the host.");
    for (const ValueSnapshot& value : snapshot.values) {
        if (isShown(value)) {
            families.sample("name", encodedName(value.name), *value.value);
        }
    }
    families.begin("csmqtt_value_age_seconds", "gauge", "The time since the value was received.");
    for (const ValueSnapshot& value : snapshot.values) {
        if (isShown(value)) {
            families.sample("name", encodedName(value.name),
                            static_cast<double>(value.age.count()) / kMillisecondsPerSecond);
        }
    }
    families.begin("csmqtt_command", "gauge", "The last value that was passed on to the host.");
    for (const CommandSnapshot& command : snapshot.commands) {
        if (command.value) {
            families.sample("name", encodedName(command.name), *command.value);
        }
    }
}

}  // namespace

std::string metricsNumber(double number) {
    if (std::isnan(number)) {
        return "NaN";
    }
    if (std::isinf(number)) {
        return number > 0 ? "+Inf" : "-Inf";
    }
    const auto single = static_cast<float>(number);
    return static_cast<double>(single) == number ? shortest(single) : shortest(number);
}

std::string escapedLabel(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        if (c == '\n') {
            escaped += R"(\n)";
        } else {
            if (c == '\\' || c == '"') {
                escaped += '\\';
            }
            escaped += c;
        }
    }
    return escaped;
}

std::string metricsText(const Snapshot& snapshot) {
    Families families;
    families.begin("csmqtt_host_up", "gauge", "1 when the host has answered.")
        .sample(std::uint64_t{snapshot.host == HostState::UP ? 1U : 0U});
    families.begin("csmqtt_broker_up", "gauge", "1 when the broker has accepted the connection.")
        .sample(std::uint64_t{snapshot.isBrokerUp ? 1U : 0U});
    addCounts(families, snapshot.counts);
    addValues(families, snapshot);
    return families.take();
}

}  // namespace com_tesk::mqtt
