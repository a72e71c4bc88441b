#include "tools/csmqtt/ValueTable.h"

namespace com_tesk::mqtt {

ValueTable::ValueTable(const std::vector<ToMqtt>& valueSettings)
    : settings(valueSettings), slots(valueSettings.size()) {
    for (const ToMqtt& setting : settings) {
        const std::chrono::duration<double> interval(setting.rate > 0 ? 1 / setting.rate : 0);
        intervals.push_back(std::chrono::duration_cast<Clock::duration>(interval));
    }
}

void ValueTable::store(std::size_t index, double value, std::uint64_t sequence, Clock::time_point receivedAt) {
    Slot& slot = slots[index];
    const std::uint64_t arrived = sequence > slot.sequence ? sequence - slot.sequence : 0;
    received += arrived;
    slot.receivedCount += arrived;
    // Of those that have arrived, this one can still be published. It replaces one that never was.
    conflated += arrived > 0 ? arrived - 1 : 0;
    conflated += arrived > 0 && slot.isUnpublished ? 1 : 0;
    slot.isUnpublished = slot.isUnpublished || arrived > 0;
    slot.content = Content::VALUE;
    slot.isCurrent = true;
    slot.value = value;
    slot.sequence = sequence;
    slot.received = receivedAt;
    makeDue(index);
}

void ValueTable::loseHost(StalePolicy policy) {
    for (std::size_t index = 0; index < slots.size(); ++index) {
        Slot& slot = slots[index];
        slot.isCurrent = false;
        if (policy == StalePolicy::CLEAR && slot.content != Content::CLEARED) {
            conflated += slot.isUnpublished ? 1 : 0;
            slot.isUnpublished = false;
            slot.content = Content::CLEARED;
            makeDueNow(index);
        }
    }
}

void ValueTable::restart() {
    for (std::size_t index = 0; index < slots.size(); ++index) {
        if (slots[index].content != Content::NOTHING) {
            makeDueNow(index);
        }
    }
}

std::optional<ValueTable::Publication> ValueTable::next(Clock::time_point now) {
    while (!waiting.empty() && waiting.begin()->first <= now) {
        const std::size_t index = waiting.begin()->second;
        waiting.erase(waiting.begin());
        slots[index].queue = Queue::READY;
        ready.push_back(index);
    }
    while (!ready.empty()) {
        const std::size_t index = ready.front();
        ready.pop_front();
        Slot& slot = slots[index];
        if (slot.content == Content::VALUE && slot.due > now) {
            slot.queue = Queue::WAITING;
            waiting.emplace(slot.due, index);
            continue;
        }
        slot.queue = Queue::NONE;
        slot.due = now + intervals[index];
        const Publication taken{
            index, slot.content == Content::CLEARED, slot.isUnpublished, slot.value, slot.sequence, slot.received};
        if (!taken.isClear) {
            ++slot.published;
            ++published;
            slot.isUnpublished = false;
        }
        return taken;
    }
    return std::nullopt;
}

void ValueTable::putBack(const Publication& publication) {
    if (!publication.isClear) {
        Slot& slot = slots[publication.index];
        --slot.published;
        --published;
        if (publication.isFirst && slot.sequence == publication.sequence) {
            slot.isUnpublished = true;
        } else if (publication.isFirst) {
            ++conflated;  // A newer value has arrived meanwhile.
        }
    }
    makeDueNow(publication.index);
}

std::optional<ValueTable::Clock::time_point> ValueTable::nextDue() const {
    return waiting.empty() ? std::nullopt : std::optional(waiting.begin()->first);
}

std::vector<ValueSnapshot> ValueTable::snapshot(Clock::time_point now) const {
    std::vector<ValueSnapshot> result(slots.size());
    for (std::size_t index = 0; index < slots.size(); ++index) {
        const Slot& slot = slots[index];
        ValueSnapshot& value = result[index];
        value.name = settings[index].name;
        value.isCurrent = slot.isCurrent;
        value.received = slot.receivedCount;
        value.published = slot.published;
        if (slot.content == Content::VALUE) {
            value.value = slot.value;
            value.age = std::chrono::duration_cast<std::chrono::milliseconds>(now - slot.received);
        }
    }
    return result;
}

void ValueTable::addCounts(Counts& counts) const {
    counts.received += received;
    counts.published += published;
    counts.conflated += conflated;
}

void ValueTable::makeDue(std::size_t index) {
    Slot& slot = slots[index];
    if (slot.queue == Queue::NONE) {
        slot.queue = Queue::READY;
        ready.push_back(index);
    }
}

void ValueTable::makeDueNow(std::size_t index) {
    Slot& slot = slots[index];
    if (slot.queue == Queue::WAITING) {
        waiting.erase({slot.due, index});
        slot.queue = Queue::NONE;
    }
    slot.due = {};
    makeDue(index);
}

}  // namespace com_tesk::mqtt
