#pragma once

#include <array>
#include <optional>
#include <string>

#include "host/Guarded.h"
#include "tools/csmqtt/ValueTable.h"

namespace com_tesk::mqtt {

/// Everything that the broker should hold: the newest values, and the newest state of the host and statistics. The
/// host's side fills it, the broker's side empties it. Constant memory, no threads, no clock.
class Outbox {
  public:
    /// Messages that are no values, each with a payload that replaces the earlier one.
    enum class Notice : std::uint8_t { HOST, STATISTICS };

    /// A message, and how to put it back.
    struct Item {
        Message message;
        std::optional<ValueTable::Publication> value;  ///< Nothing for a notice.
        Notice notice = Notice::HOST;
    };

    /// @param bridgeConfig  outlives this object.
    explicit Outbox(const Config& bridgeConfig) : values(bridgeConfig.toMqtt), config(bridgeConfig) {}

    void setNotice(Notice which, std::string payload);

    /// The broker has accepted a new connection: everything is due again.
    void restart();

    /// Takes the next message: notices first. Nothing when none is due now.
    std::optional<Item> next(ValueTable::Clock::time_point now);

    /// The message was not handed over.
    void putBack(const Item& item);

    ValueTable values;

  private:
    struct Slot {
        std::optional<std::string> payload;
        bool isDue = false;
    };

    Message messageOf(const ValueTable::Publication& publication, ValueTable::Clock::time_point now) const;

    const Config& config;
    std::array<Slot, 2> notices;
};

/// The outbox is filled and emptied by different threads.
using SharedOutbox = host::Guarded<Outbox>;

}  // namespace com_tesk::mqtt
