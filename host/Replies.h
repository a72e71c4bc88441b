#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/Bytes.h"
#include "host/Value.h"

/// The messages that the host sends. Pure functions: values in, whole frames with headers out.

namespace com_tesk::host {

struct InputConfirmation {
    std::uint32_t id;
    std::uint32_t rate;  ///< The two rate words are those of the request.
    std::uint32_t secondRate;
    HostValue value;
    std::string name;
};

struct OutputConfirmation {
    std::uint32_t id;
    std::uint32_t rate;         ///< The rate word of the request.
    std::uint32_t integerFlag;  ///< The flag word of the request.
    std::string name;
};

struct InputUpdate {
    std::uint32_t id;
    HostValue value;
};

/// The version text is cut to 128 bytes. A text of exactly 128 bytes has no zero byte after it.
Bytes encodeVersionReply(std::uint16_t simulatorId, std::string_view versionText, std::uint32_t protocolVersion);
Bytes encodeInputsReply(std::uint16_t simulatorId, const std::vector<InputConfirmation>& inputs);
Bytes encodeOutputsReply(std::uint16_t simulatorId, const std::vector<OutputConfirmation>& outputs);
Bytes encodeUpdate(std::uint16_t simulatorId, const std::vector<InputUpdate>& updates);

}  // namespace com_tesk::host
