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

/// The data that the host's own thread shares with its users.
struct HostState {
    std::map<std::string, HostValue> values;                    ///< Only names that have been set.
    std::map<std::string, std::set<ClientNumber>> subscribers;  ///< No empty sets.
    std::size_t clients = 0;                                    ///< Connected now.
};

using SharedState = Guarded<HostState>;

}  // namespace com_tesk::host
