#pragma once

#include <yaml-cpp/yaml.h>

#include <set>
#include <string>

#include "host/scenario/Expectation.h"
#include "tools/scenario/Fields.h"

namespace com_tesk::scenario {

/// Reads an entry of `expect:`.
/// @param labels  what `after:` can name.
Expectation readExpectation(Fields& fields, const YAML::Node& node, const std::set<std::string>& labels);

}  // namespace com_tesk::scenario
