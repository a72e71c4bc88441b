#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/Bytes.h"
#include "host/Value.h"

/// What the host sends. Pure: values in, whole frames out, header included.

namespace com_tesk::host {

struct InputConfirmation {
    std::uint32_t id;
    std::uint32_t rate;  ///< the request's two rate words, as they came
    std::uint32_t secondRate;
    HostValue value;
    std::string name;
};

struct OutputConfirmation {
    std::uint32_t id;
    std::uint32_t rate;         ///< the request's rate word, as it came
    std::uint32_t integerFlag;  ///< the request's flag word, as it came
    std::string name;
};

struct InputUpdate {
    std::uint32_t id;
    HostValue value;
};

/// The version text is cut to 128 bytes; one of exactly 128 has no zero byte behind it.
Bytes encodeVersionReply(std::uint16_t simulatorId, std::string_view versionText, std::uint32_t protocolVersion);
Bytes encodeInputsReply(std::uint16_t simulatorId, const std::vector<InputConfirmation>& inputs);
Bytes encodeOutputsReply(std::uint16_t simulatorId, const std::vector<OutputConfirmation>& outputs);
Bytes encodeUpdate(std::uint16_t simulatorId, const std::vector<InputUpdate>& updates);

}  // namespace com_tesk::host
