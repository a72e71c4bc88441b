#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "host/Guarded.h"
#include "host/Value.h"

namespace com_tesk::host {

/// Clients are numbered 1, 2, 3 in the order of their connections; a number is never used twice.
using ClientNumber = std::uint64_t;

/// What the host's own thread and its users both look at.
struct HostState {
    std::map<std::string, HostValue> values;                    ///< only names that were ever set
    std::map<std::string, std::set<ClientNumber>> subscribers;  ///< no empty sets
    std::size_t clients = 0;                                    ///< connected now
};

using SharedState = Guarded<HostState>;

}  // namespace com_tesk::host
