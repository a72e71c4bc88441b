#pragma once

#include <memory>
#include <ostream>

#include "client/SimClient.h"
#include "comms/CSCommsInterfaceTCPBuffered.h"

namespace com_tesk::test {

/// One way of making a whole client. Each test of this room that is about streams runs with every one of them.
struct ClientKind {
    const char* name;
    std::unique_ptr<CSClient> (*make)(unsigned int simulatorId, unsigned int options);
    /// Whether nothing that the host does can hold up the end of the connection.
    bool endsAtOnce;
};

inline std::ostream& operator<<(std::ostream& stream, const ClientKind& kind) {
    return stream << kind.name;
}

inline std::unique_ptr<CSClient> makeStandardClient(unsigned int simulatorId, unsigned int options) {
    return std::make_unique<SimClient>(simulatorId, options);
}

inline std::unique_ptr<CSClient> makeBufferedClient(unsigned int simulatorId, unsigned int options) {
    auto client = std::make_unique<SimClient>(simulatorId, options);
    client->changeCommsInterface(new CSCommsInterfaceTCPBuffered);
    return client;
}

inline const ClientKind kStandardClient = {"Standard", &makeStandardClient, false};
inline const ClientKind kBufferedClient = {"Buffered", &makeBufferedClient, true};
inline const ClientKind kClientKinds[] = {kStandardClient, kBufferedClient};

}  // namespace com_tesk::test
