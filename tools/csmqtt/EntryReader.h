#pragma once

#include <vector>

#include "tools/csmqtt/Config.h"
#include "tools/scenario/Fields.h"

/// The parts of a configuration file that `readConfig` reads.
namespace com_tesk::mqtt {

/// Reads `to_mqtt` and `from_mqtt`. Each entry is a name, or a map with `name`, or with `hex` and the bytes of a name
/// that is no text.
/// @{
std::vector<ToMqtt> readToMqtt(scenario::Fields& fields, const YAML::Node& list);
std::vector<FromMqtt> readFromMqtt(scenario::Fields& fields, const YAML::Node& list);
/// @}

/// Reports every name that occurs twice, in either list or in both.
void checkNames(scenario::Fields& fields, const YAML::Node& root, const Config& config);

/// Reads `broker`. The client id stays empty when the file has none.
BrokerSettings readBroker(scenario::Fields& fields, const YAML::Node& node, const std::string& directory);

/// Reads `HOST` or `HOST:PORT`; an IPv6 address with a port has brackets.
Address readAddress(scenario::Fields& fields, const YAML::Node& node, std::uint16_t defaultPort);

}  // namespace com_tesk::mqtt
