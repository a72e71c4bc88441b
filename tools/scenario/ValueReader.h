#pragma once

#include <yaml-cpp/yaml.h>

#include <string>

#include "host/scenario/ValueSource.h"
#include "tools/scenario/Fields.h"

namespace com_tesk::scenario {

/// Reads an entry of `values:`.
/// @param directory  where files that it names are looked for.
ValueSource readValueSource(Fields& fields, const YAML::Node& name, const YAML::Node& node,
                            const std::string& directory);

}  // namespace com_tesk::scenario
