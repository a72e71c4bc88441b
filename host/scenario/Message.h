#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace com_tesk::scenario {

/// The messages of the protocol, and `ANY` of them.
enum class Message : std::uint8_t {
    ANY,
    ASK_VERSION,         ///< From the client, as all down to `UNREGISTER_OUTPUTS`.
    REGISTER_INPUTS,     ///< A subscription.
    REGISTER_OUTPUTS,    ///< The client will publish these names.
    PUBLISH,             ///< Values of outputs.
    UNREGISTER_INPUTS,   ///< The end of a subscription.
    UNREGISTER_OUTPUTS,  ///< The client will not publish these names any more.
    VERSION,             ///< From the host, as all below: the answer to ASK_VERSION.
    INPUTS_CONFIRMED,    ///< The answer to REGISTER_INPUTS, with the values.
    OUTPUTS_CONFIRMED,   ///< The answer to REGISTER_OUTPUTS.
    UPDATE,              ///< Values of inputs.
};

/// Returns the name in scenario files, such as "outputs-confirmed".
std::string_view nameOf(Message message);

/// Returns the message of that name; nothing when there is none.
std::optional<Message> messageNamed(std::string_view name);

/// Returns the names of all messages that a host sends, or that it receives.
std::vector<std::string_view> messageNames(bool isSent);

/// True for the messages of a host.
constexpr bool isSentByHost(Message message) {
    return message >= Message::VERSION;
}

}  // namespace com_tesk::scenario
