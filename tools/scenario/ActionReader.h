#pragma once

#include <yaml-cpp/yaml.h>

#include <vector>

#include "host/scenario/Actions.h"
#include "tools/scenario/Fields.h"

namespace com_tesk::scenario {

/// Where an action stands in a scenario.
enum class Place { SENT, RECEIVED, ACCEPTED, TIMELINE };

/// Reads the value of `do:`: an action, or a list of them. Reports those that are not permitted at this place.
std::vector<Action> readActions(Fields& fields, const YAML::Node& node, Place place);

}  // namespace com_tesk::scenario
