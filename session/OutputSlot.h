#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "engine/CSClientProtocol.h"
#include "session/Mutex.h"
#include "session/OutputStage.h"
#include "session/SlotOwner.h"
#include "session/ValueConversion.h"

namespace com_tesk::session {

/// The values of an output with `Delivery::EVERY` that have not left.
class ValueQueue {
  public:
    explicit ValueQueue(std::size_t size) : values(size) {}

    enum class Push { TAKEN, REPLACED, FULL };

    /// Any thread.
    /// @return `REPLACED` when only the newest value is kept and there was one, `FULL` when the value was not taken.
    Push push(std::uint32_t bits) CSCLIENT_EXCLUDES(mutex);

    /// Removes the oldest value.
    /// @param[out] hasMore  true when values stay.
    /// @return false when the queue is empty; then `bits` is unchanged.
    bool pop(std::uint32_t& bits, bool& hasMore) CSCLIENT_EXCLUDES(mutex);

    /// Keeps every value from now on (true), or only the newest (false).
    /// @return the number of values that were dropped.
    std::size_t keepEvery(bool isEvery) CSCLIENT_EXCLUDES(mutex);

  private:
    Mutex mutex;
    std::vector<std::uint32_t> values CSCLIENT_GUARDED_BY(mutex);
    std::size_t first CSCLIENT_GUARDED_BY(mutex) = 0;
    std::size_t count CSCLIENT_GUARDED_BY(mutex) = 0;
    bool isEveryKept CSCLIENT_GUARDED_BY(mutex) = false;
};

/// One output of a session.
class OutputSlot {
  public:
    /// @param slotOwner  outlives this object, as does the stage.
    /// @param queueSize  0 for `Delivery::NEWEST`.
    OutputSlot(SlotOwner& slotOwner, OutputStage& outputStage, std::string outputName, ValueType outputType,
               std::size_t queueSize);
    OutputSlot(const OutputSlot&) = delete;
    OutputSlot& operator=(const OutputSlot&) = delete;
    ~OutputSlot() = default;

    /// Stages a value. See `Output::set`.
    bool set(std::uint32_t bits);

    const std::string& name() const { return entry.name; }
    Delivery delivery() const { return queue ? Delivery::EVERY : Delivery::NEWEST; }

    /// True when the host has confirmed the output on the current connection.
    bool isConfirmed() const { return hasId; }

    SlotOwner& owner;
    const ValueType type;

    // Any thread.

    std::atomic<bool> isDeclared{true};
    std::atomic<bool> hasId{false};  ///< Of the current connection.
    /// Values that were replaced before they left, or not taken.
    std::atomic<std::uint32_t> overwritten{0};
    std::atomic<std::uint32_t> dropped{0};

    /// The next output in the list of the stage. Only the thread that adds this one, then the sender.
    OutputSlot* nextStaged = nullptr;

    /// Returns the value that was last set, as far as a thread that sets none can tell.
    std::uint32_t lastSet() const { return staged.load(std::memory_order_relaxed); }

    /// @name For the sender
    /// @{

    /// Lets the output be staged again, once it has been taken from the stage and before its value is taken.
    void unstage() { isStaged.exchange(false); }
    /// Returns the newest value, with `Delivery::NEWEST`.
    std::uint32_t newest() const { return staged.load(std::memory_order_relaxed); }
    /// Takes the oldest value of the queue, with `Delivery::EVERY`. As `ValueQueue::pop`.
    bool takeQueued(std::uint32_t& bits, bool& isMoreQueued) { return queue->pop(bits, isMoreQueued); }
    /// Puts every value into the queue from now on, or keeps only the newest. Does nothing with `Delivery::NEWEST`.
    void keepEvery(bool isEvery);
    /// @}

    // Guarded by the lock of `Outputs`.

    /// The registration: the id of the current connection, and the value that was last taken from the stage.
    CSClientProtocol::OutputParameterEntry entry;
    /// True while it counts as declared and not confirmed.
    bool isAwaited = false;
    /// True when a registration has been sent on the current connection.
    bool isRegistered = false;
    /// True when the value has not left on any connection.
    bool isUnsent = false;
    /// True while the output is in the list of the next frame.
    bool isInBatch = false;
    /// True while the output is in the list of those with more queued values.
    bool hasMore = false;
    /// True while the output is in the list of changed declarations.
    bool isChanged = false;
    std::uint64_t sent = 0;

  private:
    OutputStage& stage;
    /// Null with `Delivery::NEWEST`.
    const std::unique_ptr<ValueQueue> queue;
    std::atomic<std::uint32_t> staged{0};
    std::atomic<bool> isStaged{false};
};

}  // namespace com_tesk::session
