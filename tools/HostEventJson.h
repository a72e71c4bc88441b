#pragma once

#include <string>

#include "host/HostEvent.h"

namespace com_tesk::tools {

/// Returns an event of the host as an object of JSON, on one line without a line feed. It has the members `t`, `event`
/// and `client`, and those of `name`, `id`, `type`, `value` and `text` that the kind of the event has.
std::string jsonOf(const HostEvent& event);

}  // namespace com_tesk::tools
