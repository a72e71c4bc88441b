// Sends requests and values.

#include "session/FrameSender.h"

#include <algorithm>

namespace com_tesk::session {

FrameSender::FrameSender(SlotOwner& ownerOfSlots, SessionProtocol& engine, SessionTransport& socket,
                         WakePipe& wakeOfSession, std::uint32_t modeOfInputs)
    : slotOwner(ownerOfSlots),
      protocol(engine),
      transport(socket),
      wake(wakeOfSession),
      subscriptionMode(modeOfInputs),
      staged(wakeOfSession) {}

void FrameSender::send() {
    const MutexLock lock(mutex);
    sendHeld();
}

void FrameSender::trySend() {
    if (!mutex.tryLock()) {
        sendLater();
        return;
    }
    const MutexLock lock(mutex, MutexLock::ADOPT);
    sendHeld();
}

void FrameSender::endSending() {
    const MutexLock lock(mutex);
    hasEnded = true;
    transport.endSending();
}

void FrameSender::sendLater() {
    wanted = true;
    wake.signal();
}

void FrameSender::sendHeld() {
    wanted = false;
    // One frame at a time: what is staged while the socket takes a frame leaves in one frame after it.
    while (isUp() && !hasEnded && transport.sendRest()) {
        if (!sendVersionRequest() && !sendOutputDeclarations() && !sendInputDeclarations() && !sendValues()) {
            break;
        }
    }
    if (transport.hasRest() && !isRestLeft.exchange(true)) {
        wake.signal();  // The session's thread waits for space.
    } else if (!transport.hasRest()) {
        isRestLeft = false;
    }
}

bool FrameSender::sendVersionRequest() {
    if (!isVersionWanted || unanswered == kMaxRequests) {
        return false;
    }
    isVersionWanted = false;
    requested[unanswered++] = Clock::now();
    protocol.requestSimulatorVersion();
    return true;
}

void FrameSender::requestVersion() {
    const MutexLock lock(mutex);
    isVersionWanted = true;
    sendHeld();
}

std::chrono::microseconds FrameSender::versionAnswered() {
    const MutexLock lock(mutex);
    if (unanswered == 0) {
        return std::chrono::microseconds(-1);
    }
    const Clock::time_point first = requested[0];
    std::copy(requested.begin() + 1, requested.end(), requested.begin());
    --unanswered;
    return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - first);
}

bool FrameSender::sendOutputDeclarations() {
    if (!outputs.hasChanged()) {
        return false;
    }
    const auto changes = outputs.changes();
    const bool isWithdrawal = !changes.withdrawn.empty();
    const std::vector<OutputSlot*>& slots = isWithdrawal ? changes.withdrawn : changes.added;
    if (!slots.empty()) {
        // Values that were set before the output was withdrawn leave first.
        if (isWithdrawal && sendValues()) {
            return true;
        }
        std::vector<OutputEntry*> entries;
        entries.reserve(slots.size());
        for (OutputSlot* const slot : slots) {
            entries.push_back(&slot->entry);
        }
        if (isWithdrawal) {
            protocol.sendOutputUnsubscriptionRequest(entries);
        } else {
            protocol.sendOutputSubscriptionRequest(entries);
        }
        for (OutputSlot* const slot : slots) {
            slot->isRegistered = !isWithdrawal;
            if (isWithdrawal) {
                slot->hasId = false;
                eraseValue(*slot);
            }
        }
    }
    outputs.removeSettled();
    return !slots.empty();
}

bool FrameSender::sendInputDeclarations() {
    if (!inputs.hasChanged()) {
        return false;
    }
    const auto changes = inputs.changes();
    const bool isWithdrawal = !changes.withdrawn.empty();
    const std::vector<InputSlot*>& slots = isWithdrawal ? changes.withdrawn : changes.added;
    if (!slots.empty()) {
        std::vector<InputEntry> definitions;
        std::vector<InputEntry*> entries;
        definitions.reserve(slots.size());
        entries.reserve(slots.size());
        for (const InputSlot* const slot : slots) {
            definitions.push_back({slot->name(), wireType(slot->type), subscriptionMode, slot->id});
            entries.push_back(&definitions.back());
        }
        if (isWithdrawal) {
            protocol.sendInputUnsubscriptionRequest(entries);
        } else {
            protocol.sendInputSubscriptionRequest(entries);
        }
        for (InputSlot* const slot : slots) {
            slot->isRegistered = !isWithdrawal;
            if (isWithdrawal) {
                slot->confirmedOn = 0;
            }
        }
    }
    inputs.removeSettled();
    return !slots.empty();
}

bool FrameSender::sendValues() {
    for (OutputSlot* slot = staged.takeAll(); slot != nullptr;) {
        OutputSlot* const next = slot->nextStaged;  // Another thread may add the slot again as soon as it is taken.
        slot->unstage();
        if (takeNext(*slot) && !slot->hasMore) {
            slot->hasMore = true;
            more.push_back(slot);
        }
        slot = next;
    }
    if (batch.empty()) {
        return false;
    }
    batchEntries.clear();
    for (OutputSlot* const slot : batch) {
        batchEntries.push_back(&slot->entry);
    }
    protocol.sendParameterPublishRequest(batchEntries, CSClientProtocol::PUBLISH_DEFAULT);
    sent += batch.size();
    for (OutputSlot* const slot : batch) {
        slot->isInBatch = false;
        ++slot->sent;
        dropUnsent(*slot);
    }
    batch.clear();
    queueMore();
    return true;
}

void FrameSender::queueMore() {
    std::size_t kept = 0;
    for (OutputSlot* const slot : more) {
        slot->hasMore = false;
        if (takeNext(*slot)) {
            slot->hasMore = true;
            more[kept++] = slot;
        }
    }
    more.resize(kept);
}

bool FrameSender::takeNext(OutputSlot& slot) {
    std::uint32_t bits = 0;
    bool hasMore = false;
    if (slot.delivery() == Delivery::NEWEST) {
        store(slot, slot.newest());
    } else if (slot.isInBatch) {
        // A frame has at most one value of an output: a host may use only the last.
        hasMore = true;
    } else if (slot.takeQueued(bits, hasMore)) {
        store(slot, bits);
    }
    return hasMore;
}

void FrameSender::store(OutputSlot& slot, std::uint32_t bits) {
    if (!slot.isDeclared && !slot.isConfirmed()) {
        return;  // It was withdrawn, and the host never gets the value.
    }
    slot.overwritten.fetch_add(slot.isUnsent ? 1 : 0, std::memory_order_relaxed);
    slot.entry.value.asInt = fromBits<std::int32_t>(bits);
    slot.entry.published = true;
    unsent += slot.isUnsent ? 0 : 1;
    slot.isUnsent = true;
    if (slot.isConfirmed()) {
        addToBatch(slot);
    }
}

void FrameSender::dropUnsent(OutputSlot& slot) {
    unsent -= slot.isUnsent ? 1 : 0;
    slot.isUnsent = false;
}

void FrameSender::eraseValue(OutputSlot& slot) {
    slot.keepEvery(false);
    dropUnsent(slot);
    slot.entry.published = false;
}

void FrameSender::addToBatch(OutputSlot& slot) {
    if (!slot.isInBatch) {
        slot.isInBatch = true;
        batch.push_back(&slot);
    }
}

bool FrameSender::isDrained(bool withUnconfirmed) {
    const MutexLock lock(mutex);
    return staged.isEmpty() && batch.empty() && more.empty() && !transport.hasRest() &&
           (unsent == 0 || !withUnconfirmed);
}

Clock::time_point FrameSender::lastProgress() {
    const MutexLock lock(mutex);
    return transport.lastProgress();
}

}  // namespace com_tesk::session
