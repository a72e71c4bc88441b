#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/FrameReader.h"
#include "host/Requests.h"
#include "tools/recording/Entry.h"

namespace com_tesk::recording {

using Content = decltype(Entry::content);

/// Reads the bytes of one connection as entries, in both directions. Keeps the names of its ids. No socket and no clock;
/// one thread at a time.
class Decoder {
  public:
    /// Reads the next bytes that a side has sent, in pieces of any size.
    /// @return an entry for each frame that they complete. After bytes that are no frame, nothing of that side is read.
    std::vector<Content> feed(Side side, const std::uint8_t* data, std::size_t size);

  private:
    using Names = std::unordered_map<std::uint32_t, std::string>;

    struct Stream {
        host::FrameReader reader;
        bool isUnreadable = false;
    };

    /// @{
    /// Each reads one request of the client.
    static Content entryFor(const host::VersionRequest& request, const host::Bytes& body);
    static Content entryFor(const host::SubscribeInputs& request, const host::Bytes& body);
    Content entryFor(const host::RegisterOutputs& request, const host::Bytes& body);
    Content entryFor(const host::UnsubscribeInputs& request, const host::Bytes& body);
    Content entryFor(const host::UnregisterOutputs& request, const host::Bytes& body);
    Content entryFor(const host::Publish& request, const host::Bytes& body);
    static Content entryFor(const host::BadRequest& request, const host::Bytes& body);
    /// @}

    Content clientMessage(const host::Bytes& body);
    Content hostMessage(const host::Bytes& body);
    Content inputsConfirmed(const host::Bytes& body);
    Content outputsConfirmed(const host::Bytes& body);
    Content update(const host::Bytes& body) const;
    static NamedValue namedValue(const std::string& name, std::uint32_t id, HostValue value);

    std::array<Stream, 2> streams;
    Names inputNames;
    std::unordered_map<std::uint32_t, Parameter> outputs;  ///< The confirmed ones.
    std::unordered_map<std::string, bool> outputTypes;     ///< True for an integer; of the last registration of a name.
};

}  // namespace com_tesk::recording
