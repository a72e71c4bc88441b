#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "session/Input.h"
#include "session/SeqLock.h"
#include "session/SlotOwner.h"
#include "session/Times.h"
#include "session/ValueConversion.h"

namespace com_tesk::session {

/// A received value.
struct Sample {
    std::uint32_t bits = 0;
    bool isInteger = false;     ///< The type of the bits, of an input that keeps the host's type.
    std::int64_t received = 0;  ///< The clock's ticks.
    std::uint64_t number = 0;   ///< 0: no value has arrived.
};

/// A sample and its quality: a `Reading` without the type.
struct SampleReading {
    Sample sample;
    Quality quality = Quality::NEVER;
};

/// One input of a session.
class InputSlot {
  public:
    using Callback = std::function<void(const SampleReading&)>;

    /// @param slotOwner          outlives this object.
    /// @param currentConnection  outlives this object: the number of the connection, 0 without one.
    InputSlot(SlotOwner& slotOwner, const std::atomic<std::uint32_t>& currentConnection, std::string inputName,
              ValueType inputType, std::size_t samples)
        : owner(slotOwner),
          type(inputType),
          inputNamed(std::move(inputName)),
          connection(currentConnection),
          queueSize(samples) {}
    InputSlot(const InputSlot&) = delete;
    InputSlot& operator=(const InputSlot&) = delete;
    ~InputSlot() = default;

    const std::string& name() const { return inputNamed; }
    Delivery delivery() const { return queueSize == 0 ? Delivery::NEWEST : Delivery::EVERY; }

    /// Returns the newest value and its quality. Any thread; takes no lock.
    SampleReading read() const {
        // The link comes first: a value that is read after its confirmation was seen is not one from before it.
        const Quality link = linkQuality();
        const Sample sample = newest.read();
        if (sample.number == 0) {
            return {sample, Quality::NEVER};
        }
        const std::chrono::milliseconds limit = maxAge();
        const bool isOld = limit.count() != 0 && Clock::now() - timeOf(sample) >= limit;
        return {sample, link == Quality::GOOD && isOld ? Quality::STALE : link};
    }

    /// Returns the quality of a value that has just been received: `LOST`, `UNCONFIRMED` or `GOOD`.
    Quality linkQuality() const {
        const std::uint32_t current = connection.load(std::memory_order_acquire);
        if (current == 0) {
            return Quality::LOST;
        }
        return confirmedOn.load(std::memory_order_acquire) == current ? Quality::GOOD : Quality::UNCONFIRMED;
    }

    /// Returns the type of a value's bits.
    ValueType typeOf(const Sample& sample) const {
        if (type != ValueType::NUMBER) {
            return type;
        }
        return sample.isInteger ? ValueType::INT : ValueType::FLOAT;
    }

    static Clock::time_point timeOf(const Sample& sample) {
        return Clock::time_point(Clock::duration(sample.received));
    }

    bool isConfirmed() const { return linkQuality() == Quality::GOOD; }

    std::chrono::milliseconds maxAge() const {
        return std::chrono::milliseconds(maxAgeMilliseconds.load(std::memory_order_relaxed));
    }

    SlotOwner& owner;
    const ValueType type;

    // Any thread.

    std::atomic<bool> isDeclared{true};
    /// The number of the connection on which the host has last confirmed the input; 0 for none. Set after `newest`.
    std::atomic<std::uint32_t> confirmedOn{0};
    /// 0 is off.
    std::atomic<std::uint32_t> maxAgeMilliseconds{0};
    /// True when there is a callback.
    std::atomic<bool> isWatched{false};
    std::atomic<std::uint32_t> dropped{0};
    /// Written by the receiving thread.
    SeqLock<Sample> newest;

    // Receiving thread.

    std::uint64_t received = 0;
    bool isMismatchReported = false;

    // Guarded by the lock of `Inputs`.

    /// True while it counts as declared and not confirmed.
    bool isAwaited = false;
    /// True when a registration has been sent on the current connection.
    bool isRegistered = false;
    /// The id of the current connection, once confirmed.
    std::uint32_t id = 0;
    bool isChanged = false;
    /// The number of the value that was found too old.
    std::uint64_t staleNumber = 0;

    // Guarded by the lock of `Dispatcher`.

    std::shared_ptr<const Callback> callback;
    bool isCallbackNew = false;  ///< It has not been called.
    /// How often the input waits for the dispatcher.
    std::size_t timesQueued = 0;
    std::vector<SampleReading> queue;  ///< With `Delivery::EVERY`: at most `queueSize`.

    // The dispatching thread.

    bool isDelivered = false;
    SampleReading lastDelivered;

    std::size_t maxQueued() const { return queueSize; }

  private:
    const std::string inputNamed;
    const std::atomic<std::uint32_t>& connection;
    const std::size_t queueSize;
};

}  // namespace com_tesk::session
