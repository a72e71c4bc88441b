#include "session/OutputSlot.h"

#include <utility>

namespace com_tesk::session {

ValueQueue::Push ValueQueue::push(std::uint32_t bits) {
    const MutexLock lock(mutex);
    Push result = Push::TAKEN;
    if (!isEveryKept && count != 0) {
        count = 0;
        result = Push::REPLACED;
    }
    if (count == values.size()) {
        return Push::FULL;
    }
    values[(first + count) % values.size()] = bits;
    ++count;
    return result;
}

bool ValueQueue::pop(std::uint32_t& bits, bool& hasMore) {
    const MutexLock lock(mutex);
    hasMore = count > 1;
    if (count == 0) {
        return false;
    }
    bits = values[first];
    first = (first + 1) % values.size();
    --count;
    return true;
}

std::size_t ValueQueue::keepEvery(bool isEvery) {
    const MutexLock lock(mutex);
    isEveryKept = isEvery;
    if (isEvery || count < 2) {
        return 0;
    }
    const std::size_t older = count - 1;
    first = (first + older) % values.size();
    count = 1;
    return older;
}

OutputSlot::OutputSlot(SlotOwner& slotOwner, OutputStage& outputStage, std::string outputName, ValueType outputType,
                       std::size_t queueSize)
    : owner(slotOwner),
      type(outputType),
      stage(outputStage),
      queue(queueSize == 0 ? nullptr : std::make_unique<ValueQueue>(queueSize)) {
    entry.name = std::move(outputName);
    entry.type = wireType(outputType);
}

bool OutputSlot::set(std::uint32_t bits) {
    if (!isDeclared.load(std::memory_order_relaxed)) {
        return false;
    }
    if (queue != nullptr) {
        switch (queue->push(bits)) {
            case ValueQueue::Push::FULL:
                dropped.fetch_add(1, std::memory_order_relaxed);
                return false;
            case ValueQueue::Push::REPLACED:
                overwritten.fetch_add(1, std::memory_order_relaxed);
                break;
            case ValueQueue::Push::TAKEN:
                break;
        }
    }
    staged.store(bits, std::memory_order_relaxed);
    // The exchange orders the value before the sender's exchange in `unstage`.
    if (!isStaged.exchange(true)) {
        stage.add(*this);
    } else if (queue == nullptr) {
        overwritten.fetch_add(1, std::memory_order_relaxed);
    }
    return true;
}

void OutputSlot::keepEvery(bool isEvery) {
    if (queue != nullptr) {
        dropped.fetch_add(static_cast<std::uint32_t>(queue->keepEvery(isEvery)), std::memory_order_relaxed);
    }
}

}  // namespace com_tesk::session
