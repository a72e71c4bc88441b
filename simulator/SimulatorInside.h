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

/// The data of a simulator protocol, and the steps that its operations share.
struct SimulatorProtocol::Inside {
    Inside(Parts& engineParts, unsigned int initialSimulatorId) : parts(engineParts), simulatorId(initialSimulatorId) {}

    /// Sends a request of at most `maxSize` bytes. `encode` writes it to the given position and returns its end.
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

    /// As `send`, for the request of a batch: without a connection it counts as sent.
    template <typename Encode>
    int sendBatch(std::size_t maxSize, const Encode& encode) {
        const unsigned int status = send(maxSize, encode);
        return status == CSClient::RESULT_NOT_CONNECTED ? CSClient::RESULT_OK : static_cast<int>(status);
    }

    /// Sends the current values of the named outputs that are still registered and published.
    void publishAgain(SimulatorProtocol& protocol, const std::vector<std::string>& names);

    Parts& parts;

    /// Written by the worker and by `setSimulatorId`, read by any thread.
    std::atomic<std::uint32_t> simulatorId;

    /// Worker thread.
    LastUpdate lastUpdate;
};

}  // namespace com_tesk
