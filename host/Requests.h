#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "host/Bytes.h"

/// What clients ask for, read from a frame's body. Pure: bytes in, values out.

namespace com_tesk::host {

struct VersionRequest {
    std::uint16_t simulatorId;
};

struct SubscribeInputs {
    struct Record {
        std::uint32_t rate;
        std::uint32_t secondRate;
        bool isInteger;
        std::string name;
    };
    std::uint16_t simulatorId;
    std::vector<Record> inputs;
};

struct RegisterOutputs {
    struct Record {
        std::uint32_t rate;
        std::uint32_t integerFlag;  ///< nonzero: an integer; kept as it came, for the reply echoes it
        std::string name;
    };
    std::uint16_t simulatorId;
    std::vector<Record> outputs;
};

struct UnsubscribeInputs {
    std::uint16_t simulatorId;
    std::vector<std::uint32_t> ids;
};

struct UnregisterOutputs {
    std::uint16_t simulatorId;
    std::vector<std::uint32_t> ids;
};

struct Publish {
    struct Record {
        std::uint32_t id;
        std::uint32_t bits;  ///< integer or float as the output was registered; the record's own
                             ///< flag is not read
    };
    std::uint16_t simulatorId;
    std::uint32_t mode;
    std::vector<Record> values;
};

/// A body that is no request. The stream is intact: the next frame may well be one.
struct BadRequest {
    std::string why;  ///< for a person, for example "unknown message code 0x0009"
};

using Request = std::variant<VersionRequest, SubscribeInputs, RegisterOutputs, UnsubscribeInputs, UnregisterOutputs,
                             Publish, BadRequest>;

/// Reads one body of any size and content. A body must be exactly as long as its kind and its count make it, and
/// state that length in its sub-header: anything else is a BadRequest as a whole, and no record of it is read.
Request parseRequest(const Bytes& body);

}  // namespace com_tesk::host
