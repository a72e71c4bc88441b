#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "engine/EngineParts.h"
#include "simulator/LastUpdate.h"
#include "simulator/RequestEncoding.h"
#include "simulator/SimulatorProtocol.h"

namespace com_tesk {

/// What a simulator protocol has beyond the engine, and the steps that its operations share.
struct SimulatorProtocol::Inside {
    Inside(Parts& engineParts, unsigned int initialSimulatorId) : parts(engineParts), simulatorId(initialSimulatorId) {}

    /// Sends a request of at most `maxSize` bytes. `encode` writes it to where it is told, and returns its end.
    /// @return as `CSClientProtocol::sendMessage`.
    template <typename Encode>
    unsigned int send(std::size_t maxSize, const Encode& encode) {
        const SpareMessage::Lease request(parts.frames.spare());
        request->resize(maxSize);
        char* const begin = request->data();
        const auto length = static_cast<std::size_t>(encode(begin) - begin);
        request->resize(length);
        wire::complete(begin, length);
        return parts.frames.sendFrame(*request);
    }

    /// As `send`, for a batch's request: without a connection it counts as sent.
    template <typename Encode>
    int sendBatch(std::size_t maxSize, const Encode& encode) {
        const unsigned int status = send(maxSize, encode);
        return status == CSClient::RESULT_NOT_CONNECTED ? CSClient::RESULT_OK : static_cast<int>(status);
    }

    /// Sends the current values of those of the named outputs that still are registered and published.
    void publishAgain(SimulatorProtocol& protocol, const std::vector<std::string>& names);

    Parts& parts;

    /// Written by the worker and by `setSimulatorId`, read by any thread.
    std::atomic<std::uint32_t> simulatorId;

    /// Worker thread.
    LastUpdate lastUpdate;
};

}  // namespace com_tesk
