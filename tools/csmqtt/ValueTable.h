#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "tools/csmqtt/Config.h"
#include "tools/csmqtt/Snapshot.h"

namespace com_tesk::mqtt {

/// The newest value of each name of `to_mqtt`, and what the broker still has to get. It is the only store of values, so
/// its memory is constant: a slot a name.
///
/// A slot is *due* when its value has not been handed to the broker's connection. An update of a slot that is due
/// replaces the value, and the replaced one is counted as conflated. Slots are taken in the order in which they became
/// due. A slot with a rate limit waits until its interval has passed, and its newest value always follows then.
///
/// No threads and no clock: the caller has a lock and passes the time.
class ValueTable {
  public:
    using Clock = std::chrono::steady_clock;

    /// What to publish for a slot.
    struct Publication {
        std::size_t index = 0;
        bool isClear = false;  ///< Remove the retained value: an empty payload.
        bool isFirst = false;  ///< This value was never published before.
        double value = 0;
        std::uint64_t sequence = 0;
        Clock::time_point received;
    };

    /// @param valueSettings  outlives this object.
    explicit ValueTable(const std::vector<ToMqtt>& valueSettings);

    /// @name The host's side
    /// @{
    /// Stores a value.
    /// @param sequence  counts the values of this name, also those that the caller has not seen. Ascending.
    void store(std::size_t index, double value, std::uint64_t sequence, Clock::time_point received);
    /// The host is gone. With CLEAR every slot is to be cleared at the broker, also one that never had a value: it may
    /// be retained from an earlier run.
    void loseHost(StalePolicy policy);
    /// @}

    /// @name The broker's side
    /// @{
    /// The broker has accepted a new connection: everything is due again, without regard to rates.
    void restart();
    /// Returns the next slot that is due and takes it; nothing when there is none at this time.
    std::optional<Publication> next(Clock::time_point now);
    /// The publication was not handed over: its slot is due again.
    void putBack(const Publication& publication);
    /// Returns when a slot that waits for its interval becomes due; nothing when none waits.
    std::optional<Clock::time_point> nextDue() const;
    /// True when a slot is due now.
    bool hasDue() const { return !ready.empty(); }
    /// @}

    /// Returns the state of every slot.
    std::vector<ValueSnapshot> snapshot(Clock::time_point now) const;
    /// Adds the sums of all slots: received, published, conflated.
    void addCounts(Counts& counts) const;

  private:
    /// What the broker should hold.
    enum class Content : std::uint8_t { NOTHING, VALUE, CLEARED };
    enum class Queue : std::uint8_t { NONE, READY, WAITING };

    struct Slot {
        Content content = Content::NOTHING;
        Queue queue = Queue::NONE;
        bool isCurrent = false;
        bool isUnpublished = false;  // The value was never handed over.
        double value = 0;
        std::uint64_t sequence = 0;
        Clock::time_point received;
        Clock::time_point due;  // Not before this, after a publication.
        std::uint64_t receivedCount = 0;
        std::uint64_t published = 0;
    };

    void makeDue(std::size_t index);
    void makeDueNow(std::size_t index);

    const std::vector<ToMqtt>& settings;
    std::vector<Clock::duration> intervals;
    std::vector<Slot> slots;
    std::deque<std::size_t> ready;                                // Each slot at most once.
    std::set<std::pair<Clock::time_point, std::size_t>> waiting;  // Each slot at most once.
    std::uint64_t received = 0;
    std::uint64_t published = 0;
    std::uint64_t conflated = 0;
};

}  // namespace com_tesk::mqtt
