#include "tools/csmqtt/Commands.h"

#include <string_view>
#include <utility>

#include "tools/ParameterNames.h"
#include "tools/csmqtt/TopicName.h"

namespace com_tesk::mqtt {

namespace {

constexpr std::size_t kNoIndex = static_cast<std::size_t>(-1);

/// The beginning of what a peer has sent, for a log line.
std::string shown(std::string_view text) {
    constexpr std::size_t kMaxShown = 40;
    return '"' + tools::printable(text.substr(0, kMaxShown)) + (text.size() > kMaxShown ? "..." : "") + '"';
}

std::string rangeText(const FromMqtt& target) {
    std::string text = target.type == NumberType::INTEGER ? "a 32-bit integer" : "a 32-bit float";
    if (target.minimum) {
        text += " from " + numberText(*target.minimum, NumberType::FLOAT);
    }
    if (target.maximum) {
        text += " up to " + numberText(*target.maximum, NumberType::FLOAT);
    }
    return text;
}

std::string formText(const FromMqtt& target) {
    const std::string number = target.type == NumberType::INTEGER ? "an integer" : "a number";
    return target.payload == PayloadForm::JSON ? "JSON with v as " + number : number;
}

}  // namespace

Commands::Commands(const Config& bridgeConfig, service::Log& serviceLog, Setter valueSetter)
    : config(bridgeConfig), log(serviceLog), set(std::move(valueSetter)), prefix(bridgeConfig.base + "/set/") {
    for (const FromMqtt& target : config.fromMqtt) {
        indexOf.emplace(target.name, indexOf.size());
    }
    state.change([this](State& now) {
        now.commands.resize(config.fromMqtt.size());
        for (std::size_t index = 0; index < now.commands.size(); ++index) {
            now.commands[index].name = config.fromMqtt[index].name;
        }
    });
}

bool Commands::handle(const ReceivedMessage& message) {
    if (message.topic.substr(0, prefix.size()) != prefix) {
        return false;
    }
    const std::string_view level = message.topic.substr(prefix.size());
    const auto name = decodedName(level);
    const auto found = name ? indexOf.find(*name) : indexOf.end();
    if (found == indexOf.end()) {
        // One key for all names, because a peer can invent any number of them.
        ignore(&Counts::ignoredUnknown, kNoIndex, "unknown",
               "ignored a message to " + shown(message.topic) + ": no such name in from_mqtt");
        return true;
    }
    const std::size_t index = found->second;
    const FromMqtt& target = config.fromMqtt[index];
    const std::string what = "ignored a message to " + config.setTopic(target.name) + ": ";
    const std::string key = "set " + target.name;
    if (message.isRetained) {
        ignore(&Counts::ignoredRetained, index, key,
               what + "it is retained, so it would run again after each reconnection; publish it without the flag");
        return true;
    }
    const ReadNumber number = readNumber(message.payload, target);
    switch (number.verdict) {
        case Verdict::INVALID:
            ignore(&Counts::ignoredInvalid, index, key, what + shown(message.payload) + " is not " + formText(target));
            break;
        case Verdict::OUT_OF_RANGE:
            ignore(&Counts::ignoredRange, index, key, what + shown(message.payload) + " is not " + rangeText(target));
            break;
        case Verdict::ACCEPTED:
            state.change([&](State& now) {
                ++now.counts.accepted;
                ++now.commands[index].accepted;
                now.commands[index].value = number.value;
            });
            set(index, number.value);
            break;
    }
    return true;
}

void Commands::ignore(std::uint64_t Counts::*reason, std::size_t index, const std::string& key,
                      const std::string& text) {
    state.change([&](State& now) {
        ++now.counts.ignored;
        ++(now.counts.*reason);
        if (index != kNoIndex) {
            ++now.commands[index].refused;
        }
    });
    log.writeRarely(service::Level::WARNING, key, text);
}

std::vector<CommandSnapshot> Commands::snapshot() const {
    return state.read([](const State& now) { return now.commands; });
}

void Commands::addCounts(Counts& counts) const {
    const Counts own = state.read([](const State& now) { return now.counts; });
    counts.accepted += own.accepted;
    counts.ignored += own.ignored;
    counts.ignoredRetained += own.ignoredRetained;
    counts.ignoredUnknown += own.ignoredUnknown;
    counts.ignoredInvalid += own.ignoredInvalid;
    counts.ignoredRange += own.ignoredRange;
}

}  // namespace com_tesk::mqtt
