// Declares and confirms parameters.

#include <string>

#include "session/FrameSender.h"

namespace com_tesk::session {

OutputSlot& FrameSender::declareOutput(std::string_view name, ValueType type, std::size_t queueSize) {
    const MutexLock lock(mutex);
    const std::size_t before = outputs.all().size();
    if (batch.capacity() <= before || more.capacity() <= before || batchEntries.capacity() <= before) {
        const std::size_t capacity = 2 * before + 16;
        batch.reserve(capacity);
        more.reserve(capacity);
        batchEntries.reserve(capacity);
    }
    const Delivery delivery = queueSize == 0 ? Delivery::NEWEST : Delivery::EVERY;
    OutputSlot& slot = outputs.declare(name, type, delivery, [&] {
        return std::make_unique<OutputSlot>(slotOwner, staged, std::string(name), type, queueSize);
    });
    count(slot);
    return slot;
}

InputSlot& FrameSender::declareInput(std::string_view name, ValueType type, std::size_t queueSize) {
    const MutexLock lock(mutex);
    const Delivery delivery = queueSize == 0 ? Delivery::NEWEST : Delivery::EVERY;
    InputSlot& slot = inputs.declare(name, type, delivery, [&] {
        return std::make_unique<InputSlot>(slotOwner, current, std::string(name), type, queueSize);
    });
    count(slot);
    return slot;
}

void FrameSender::withdraw(OutputSlot& slot) {
    const MutexLock lock(mutex);
    if (slot.isDeclared) {
        slot.isDeclared = false;
        outputs.addChanged(slot);
        if (!slot.isConfirmed()) {
            eraseValue(slot);
        }
        count(slot);
    }
}

void FrameSender::withdraw(InputSlot& slot) {
    const MutexLock lock(mutex);
    if (slot.isDeclared) {
        slot.isDeclared = false;
        inputs.addChanged(slot);
        count(slot);
    }
}

void FrameSender::count(OutputSlot& slot) {
    const bool isAwaited = slot.isDeclared && !slot.isConfirmed();
    unconfirmedOutputs += static_cast<std::size_t>(isAwaited) - static_cast<std::size_t>(slot.isAwaited);
    slot.isAwaited = isAwaited;
}

void FrameSender::count(InputSlot& slot) {
    const bool isAwaited = slot.isDeclared && !slot.isConfirmed();
    unconfirmedInputs += static_cast<std::size_t>(isAwaited) - static_cast<std::size_t>(slot.isAwaited);
    slot.isAwaited = isAwaited;
}

bool FrameSender::confirmOutput(std::string_view name, std::uint32_t id) {
    OutputSlot* const slot = outputs.find(name);
    if (slot == nullptr || !slot->isRegistered) {
        return false;
    }
    slot->entry.serverId = id;
    slot->keepEvery(true);
    if (!slot->hasId && slot->delivery() == Delivery::EVERY) {
        takeNext(*slot);  // Until here only the newest value is kept: a queued one replaces the one taken before.
    }
    slot->hasId = true;
    count(*slot);
    if (!slot->isDeclared) {
        outputs.addChanged(*slot);  // It was withdrawn before it had an id to unregister.
    } else if (slot->entry.published) {
        addToBatch(*slot);
    }
    return true;
}

void FrameSender::confirm(InputSlot& slot, std::uint32_t id) {
    slot.id = id;
    slot.confirmedOn = current.load();
    count(slot);
    if (!slot.isDeclared) {
        inputs.addChanged(slot);
    }
}

void FrameSender::begin(std::uint32_t number) {
    const MutexLock lock(mutex);
    forgetRegistrations();
    current = number;
    isVersionWanted = true;
    hasEnded = false;
    unanswered = 0;
    sendHeld();
}

void FrameSender::end() {
    const MutexLock lock(mutex);
    current = 0;
    transport.dropRest();
    isRestLeft = false;
    isVersionWanted = false;
    unanswered = 0;
    forgetRegistrations();
}

void FrameSender::registerAgain() {
    const MutexLock lock(mutex);
    forgetRegistrations();
    sendHeld();
}

void FrameSender::forgetRegistrations() {
    for (OutputSlot* const slot : batch) {
        slot->isInBatch = false;
    }
    batch.clear();
    for (OutputSlot* const slot : more) {
        slot->hasMore = false;
    }
    more.clear();
    for (const auto& slot : outputs.all()) {
        slot->entry.serverId = CSClientProtocol::kUnassignedId;
        slot->hasId = false;
        slot->isRegistered = false;
        slot->keepEvery(false);
        if (!slot->isDeclared) {
            eraseValue(*slot);
        } else if (slot->delivery() == Delivery::EVERY) {
            takeNext(*slot);  // Only the newest value is kept, as with the other outputs.
        }
        count(*slot);
        outputs.addChanged(*slot);
    }
    for (const auto& slot : inputs.all()) {
        slot->confirmedOn = 0;
        slot->isRegistered = false;
        count(*slot);
        inputs.addChanged(*slot);
    }
}

}  // namespace com_tesk::session
