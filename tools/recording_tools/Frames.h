#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>

#include "host/Bytes.h"
#include "tools/recording/Entry.h"

namespace com_tesk::recording {

/// Bytes that one side has sent.
struct Sent {
    Side side = Side::HOST;
    host::Bytes bytes;
};

/// Makes the frames of one connection from its entries. A recording has no rates, so those of registrations are 0 for
/// inputs and 1200 for outputs. A confirmed name without a recorded id gets one.
class Frames {
  public:
    /// Returns the frame of an entry; nothing when the entry is no message.
    std::optional<Sent> of(const Entry& entry);

    /// The simulator id of the messages that follow, when the connection was there before the recording.
    void setSimulatorId(std::uint16_t id) { simulatorId = id; }

  private:
    using Ids = std::unordered_map<std::string, std::uint32_t>;

    host::Bytes versionRequest() const;
    host::Bytes registration(const Registration& registration) const;
    host::Bytes confirmation(const Confirmation& confirmation);
    host::Bytes unregistration(const Unregistration& unregistration);
    host::Bytes publication(const Publication& publication) const;
    host::Bytes update(const Update& update) const;

    Ids& idsOf(Direction direction) { return direction == Direction::INPUTS ? inputs : outputs; }
    std::uint32_t confirmedId(const Parameter& parameter, Ids& ids);
    static std::uint32_t idOf(const NamedValue& value, const Ids& ids);

    std::uint16_t simulatorId = 0;
    Ids inputs;
    Ids outputs;
    std::uint32_t lastId = 0;
};

}  // namespace com_tesk::recording
