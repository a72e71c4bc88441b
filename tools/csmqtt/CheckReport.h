#pragma once

#include <string>

#include "tools/csmqtt/Config.h"

namespace com_tesk::mqtt {

/// Returns what a bridge with this configuration does, as lines for people. The output of `--check`.
std::string checkReport(const Config& config);

}  // namespace com_tesk::mqtt
