#pragma once

#include <string>
#include <vector>

#include "tools/csmqtt/Config.h"

/// Discovery topics for home automation: sensors, numbers and switches that appear without being configured there.
///
/// The bridge is one device. Its topic is `PREFIX/device/ID/config` with a retained payload that describes all values:
/// a sensor for each of `to_mqtt`, a number or a switch for each of `from_mqtt`. They are available while `$state` is
/// `online` and `$host` is `up`. Pure functions.
namespace com_tesk::mqtt {

/// Returns the text as an id of letters, digits, `-` and `_`. Each other byte, and `_` itself, becomes `_` and two
/// upper-case hexadecimal digits, so that different texts have different ids.
std::string discoveryId(const std::string& text);

/// Returns `PREFIX/device/ID/config`.
std::string discoveryTopic(const Config& config);

/// Returns `PREFIX/status`, where home automation publishes `online` when it has started.
std::string discoveryStatusTopic(const Config& config);

/// Returns the topics to subscribe to: discoveryTopic(), and with discovery also discoveryStatusTopic(). The first is
/// also needed without discovery, because an earlier run may have described values there.
std::vector<std::string> discoverySubscriptions(const Config& config);

/// Returns the messages that describe the values: to be published after each connection to the broker. Without
/// discovery there are none.
/// @param version  that of the program.
std::vector<Message> discoveryMessages(const Config& config, const std::string& version);

/// Returns the messages to publish after one of discoverySubscriptions() has been received.
/// - `online` on discoveryStatusTopic(): the description again.
/// - A retained description of an earlier run on discoveryTopic(), with values that are no longer configured: first a
///   message that removes them, then the description. Without discovery: a message that removes the whole device.
/// Anything else, such as a description that another program has published, has no effect.
/// @param isRetained  the flag of the received message: true when it was there before the subscription.
std::vector<Message> discoveryReplies(const Config& config, const std::string& version, const std::string& topic,
                                      const std::string& payload, bool isRetained);

}  // namespace com_tesk::mqtt
