#include "session/OutputStage.h"

#include "session/OutputSlot.h"

namespace com_tesk::session {

void OutputStage::add(OutputSlot& slot) {
    slot.nextStaged = newest.load(std::memory_order_relaxed);
    while (!newest.compare_exchange_weak(slot.nextStaged, &slot)) {
    }
    // Sequentially consistent, as in `beginIdle`: either this thread sees an idle sender, or the sender sees the slot.
    if (isSenderIdle.load() && isSenderIdle.exchange(false)) {
        wake.signal();
    }
}

OutputSlot* OutputStage::takeAll() {
    // The list begins with the newest. Turn it round.
    OutputSlot* taken = newest.exchange(nullptr);
    OutputSlot* first = nullptr;
    while (taken != nullptr) {
        OutputSlot* const next = taken->nextStaged;
        taken->nextStaged = first;
        first = taken;
        taken = next;
    }
    return first;
}

bool OutputStage::beginIdle() {
    isSenderIdle = true;
    if (newest.load() == nullptr) {
        return true;
    }
    isSenderIdle = false;
    return false;
}

}  // namespace com_tesk::session
