#include "host/scenario/Message.h"

#include <algorithm>
#include <array>
#include <utility>

namespace com_tesk::scenario {

namespace {

constexpr std::array<std::pair<Message, std::string_view>, 11> kNames{{
    {Message::ANY, "any"},
    {Message::ASK_VERSION, "ask-version"},
    {Message::REGISTER_INPUTS, "register-inputs"},
    {Message::REGISTER_OUTPUTS, "register-outputs"},
    {Message::PUBLISH, "publish"},
    {Message::UNREGISTER_INPUTS, "unregister-inputs"},
    {Message::UNREGISTER_OUTPUTS, "unregister-outputs"},
    {Message::VERSION, "version"},
    {Message::INPUTS_CONFIRMED, "inputs-confirmed"},
    {Message::OUTPUTS_CONFIRMED, "outputs-confirmed"},
    {Message::UPDATE, "update"},
}};

}  // namespace

std::string_view nameOf(Message message) {
    const auto* const found =
        std::find_if(kNames.begin(), kNames.end(), [message](const auto& entry) { return entry.first == message; });
    return found->second;
}

std::optional<Message> messageNamed(std::string_view name) {
    const auto* const found =
        std::find_if(kNames.begin(), kNames.end(), [name](const auto& entry) { return entry.second == name; });
    return found == kNames.end() ? std::nullopt : std::optional(found->first);
}

std::vector<std::string_view> messageNames(bool isSent) {
    std::vector<std::string_view> names;
    for (const auto& [message, name] : kNames) {
        if (message == Message::ANY || isSentByHost(message) == isSent) {
            names.push_back(name);
        }
    }
    return names;
}

}  // namespace com_tesk::scenario
