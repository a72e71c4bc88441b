#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "host/Bytes.h"

/// The requests of clients, read from the body of a frame. Pure functions: bytes in, values out.

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
        std::uint32_t integerFlag;  ///< Nonzero for an integer. Kept as received, because the reply repeats it.
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
        std::uint32_t bits;  ///< In the type of the output's registration. The record's own flag is not read.
    };
    std::uint16_t simulatorId;
    std::uint32_t mode;
    std::vector<Record> values;
};

/// A body that is not a request. The stream is intact, so the next frame may be a request.
struct BadRequest {
    std::string why;  ///< A text for the log, for example "unknown message code 0x0009".
};

using Request = std::variant<VersionRequest, SubscribeInputs, RegisterOutputs, UnsubscribeInputs, UnregisterOutputs,
                             Publish, BadRequest>;

/// Reads one body of any size and content. The length of a body must be the length that follows from its code and its
/// count, and its sub-header must state that length. Any other body is a BadRequest as a whole: none of its records is
/// read.
Request parseRequest(const Bytes& body);

}  // namespace com_tesk::host
