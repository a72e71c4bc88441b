#pragma once

#include <memory>
#include <ostream>

#include "client/SimClient.h"

namespace com_tesk::test {

/// One way of making a whole client. Each test of this room that is about streams runs with every one of them.
struct ClientKind {
    const char* name;
    std::unique_ptr<CSClient> (*make)(unsigned int simulatorId, unsigned int options);
};

inline std::ostream& operator<<(std::ostream& stream, const ClientKind& kind) {
    return stream << kind.name;
}

template <typename Client>
std::unique_ptr<CSClient> makeClient(unsigned int simulatorId, unsigned int options) {
    return std::make_unique<Client>(simulatorId, options);
}

/// A client over another transport is one more line here.
inline const ClientKind kClientKinds[] = {
    {"Standard", &makeClient<SimClient>},
};

}  // namespace com_tesk::test
