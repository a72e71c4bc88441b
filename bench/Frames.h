#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "host/Bytes.h"
#include "host/Layout.h"
#include "host/Replies.h"

/// The frames of the raw loops: byte for byte those that the library and the host send.

namespace com_tesk::bench {

/// The size of a publication of one value, header included.
constexpr std::size_t kPublicationOfOne =
    host::layout::kHeaderSize + host::layout::kPublishRecordsOffset + host::layout::kValueRecordSize;

/// An update of the first `count` ids, each with the value 1.
inline host::Bytes updateFrame(unsigned int count) {
    std::vector<host::InputUpdate> values;
    for (unsigned int id = 1; id <= count; ++id) {
        values.push_back({id, HostValue::real(1.0F)});
    }
    return host::encodeUpdate(1, values);
}

/// A publication of these ids, each with the value 1. It has the same bytes as the update of these ids, because the
/// word before the count is the publish mode 0.
inline host::Bytes publicationFrame(const std::vector<std::uint32_t>& ids) {
    std::vector<host::InputUpdate> values;
    values.reserve(ids.size());
    for (const std::uint32_t id : ids) {
        values.push_back({id, HostValue::real(1.0F)});
    }
    return host::encodeUpdate(1, values);
}

inline void putWord(std::uint8_t* target, std::uint32_t word) {
    target[0] = static_cast<std::uint8_t>(word >> 24);
    target[1] = static_cast<std::uint8_t>(word >> 16 & 0xFFU);
    target[2] = static_cast<std::uint8_t>(word >> 8 & 0xFFU);
    target[3] = static_cast<std::uint8_t>(word & 0xFFU);
}

/// Returns the float whose big-endian bits start at `source`.
inline float floatAt(const std::uint8_t* source) {
    const std::uint32_t bits = host::wordFrom(source);
    float value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

}  // namespace com_tesk::bench
