#include "session/Dispatcher.h"

#include <algorithm>
#include <utility>

namespace com_tesk::session {

namespace {

template <typename Callback>
std::shared_ptr<const Callback> shared(Callback&& callback) {
    return callback ? std::make_shared<const Callback>(std::forward<Callback>(callback)) : nullptr;
}

}  // namespace

/// Marks the calling thread as the one that runs callbacks, for a scope.
class Dispatcher::Run {
  public:
    explicit Run(Dispatcher& ofDispatcher)
        : dispatcher(ofDispatcher), isAlone(!ofDispatcher.running.exchange(true)), outer(innermost) {
        if (isAlone) {
            innermost = this;
        }
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;
    ~Run() {
        if (isAlone) {
            innermost = outer;
            dispatcher.running = false;
        }
    }

    explicit operator bool() const { return isAlone; }

    /// True when the calling thread runs callbacks of this dispatcher. A callback of one session may dispatch another.
    static bool isHere(const Dispatcher& wanted) {
        const Run* run = innermost;
        while (run != nullptr && &run->dispatcher != &wanted) {
            run = run->outer;
        }
        return run != nullptr;
    }

  private:
    static thread_local const Run* innermost;

    Dispatcher& dispatcher;
    const bool isAlone;
    const Run* const outer;
};

thread_local const Dispatcher::Run* Dispatcher::Run::innermost = nullptr;

bool Dispatcher::isRunningOnThisThread() const {
    return Run::isHere(*this);
}

void Dispatcher::setLinkCallback(LinkCallback callback) {
    auto function = shared(std::move(callback));
    const MutexLock lock(mutex);
    linkCallback.swap(function);  // The earlier function is destroyed after the lock.
}

void Dispatcher::setUpdateCallback(UpdateCallback callback) {
    auto function = shared(std::move(callback));
    const MutexLock lock(mutex);
    isUpdateWanted = function != nullptr;
    updatedValues = 0;
    updateCallback.swap(function);
}

void Dispatcher::setInputCallback(InputSlot& slot, InputSlot::Callback callback) {
    auto function = shared(std::move(callback));
    const MutexLock lock(mutex);
    slot.isWatched = function != nullptr;
    slot.isCallbackNew = true;
    slot.callback.swap(function);
    if (slot.isWatched && slot.newest.read().number != 0) {
        queue(slot);
    }
}

void Dispatcher::addEvent(LinkEvent event) {
    const MutexLock lock(mutex);
    if (linkCallback == nullptr) {
        return;
    }
    events.push_back(std::move(event));
    if (events.size() > kMaxEvents) {
        events.pop_front();
        ++dropped;
    }
    pipe.signal();
}

void Dispatcher::addUpdate(const std::vector<Changed>& changed, std::size_t values) {
    const MutexLock lock(mutex);
    if (updateCallback != nullptr) {
        updatedValues += values;
    }
    for (const Changed& one : changed) {
        if (one.slot->delivery() == Delivery::EVERY) {
            if (one.slot->queue.size() == one.slot->maxQueued()) {
                one.slot->dropped.fetch_add(1, std::memory_order_relaxed);
                continue;
            }
            one.slot->queue.push_back(one.reading);
        }
        queue(*one.slot);
    }
    if (updatedValues != 0 || !inputs.empty()) {
        pipe.signal();
    }
}

void Dispatcher::addQualityChange(InputSlot& slot) {
    const MutexLock lock(mutex);
    if (slot.callback != nullptr && slot.delivery() == Delivery::NEWEST && slot.newest.read().number != 0) {
        queue(slot);
    }
}

void Dispatcher::queue(InputSlot& slot) {
    if (slot.callback == nullptr) {
        return;
    }
    const std::size_t wanted = slot.delivery() == Delivery::EVERY ? slot.queue.size() : 1;
    for (; slot.timesQueued < wanted; ++slot.timesQueued) {
        inputs.push_back(&slot);
        pipe.signal();
    }
}

std::size_t Dispatcher::run() {
    const Run alone(*this);
    if (!alone) {
        return 0;
    }
    pipe.clear();
    std::size_t count = 0;
    try {
        count += runEvents();
        count += runInputs();
        count += runUpdate();
    } catch (...) {
        pipe.signal();  // The callbacks after the one that has thrown still wait.
        throw;
    }
    const MutexLock lock(mutex);
    if (events.empty() && inputs.empty() && updatedValues == 0) {
        pipe.clear();  // Callbacks added meanwhile have run, too.
    }
    return count;
}

std::size_t Dispatcher::runEvents() {
    std::size_t count = 0;
    // No more than there may be at once, so that a callback that causes events does not keep this going.
    for (; count < kMaxEvents && !hasEnded; ++count) {
        LinkEvent event;
        std::shared_ptr<const LinkCallback> callback;
        {
            const MutexLock lock(mutex);
            if (events.empty()) {
                return count;
            }
            event = std::move(events.front());
            events.pop_front();
            callback = linkCallback;
        }
        if (callback != nullptr) {
            (*callback)(event);
        }
    }
    return count;
}

std::size_t Dispatcher::runInputs() {
    std::size_t left = 0;
    {
        const MutexLock lock(mutex);
        left = inputs.size();
    }
    std::size_t count = 0;
    for (; left > 0 && !hasEnded; --left) {
        InputSlot* slot = nullptr;
        {
            const MutexLock lock(mutex);
            if (inputs.empty()) {
                break;
            }
            slot = inputs.front();
            inputs.pop_front();
            --slot->timesQueued;
        }
        count += runInput(*slot);
    }
    return count;
}

std::size_t Dispatcher::runInput(InputSlot& slot) {
    std::shared_ptr<const InputSlot::Callback> callback;
    SampleReading reading;
    if (slot.delivery() == Delivery::EVERY) {
        if (!takeReading(slot, callback, reading)) {
            return 0;
        }
        (*callback)(reading);
        return 1;
    }
    bool isCallbackNew = false;
    {
        const MutexLock lock(mutex);
        callback = slot.callback;
        std::swap(isCallbackNew, slot.isCallbackNew);
    }
    reading = slot.read();
    const bool isChanged = isNews(slot, reading);
    if (callback == nullptr || (!isChanged && !isCallbackNew)) {
        return 0;
    }
    (*callback)(reading);
    return 1;
}

bool Dispatcher::takeReading(InputSlot& slot, std::shared_ptr<const InputSlot::Callback>& callback,
                             SampleReading& reading) {
    const MutexLock lock(mutex);
    if (slot.callback == nullptr || slot.queue.empty()) {
        return false;
    }
    callback = slot.callback;
    reading = slot.queue.front();
    slot.queue.erase(slot.queue.begin());
    return true;
}

bool Dispatcher::isNews(InputSlot& slot, const SampleReading& reading) {
    const bool isSame = slot.isDelivered && slot.lastDelivered.sample.bits == reading.sample.bits &&
                        slot.lastDelivered.sample.isInteger == reading.sample.isInteger &&
                        slot.lastDelivered.quality == reading.quality;
    slot.isDelivered = true;
    slot.lastDelivered = reading;
    return !isSame;
}

std::size_t Dispatcher::runUpdate() {
    std::shared_ptr<const UpdateCallback> callback;
    std::size_t values = 0;
    {
        const MutexLock lock(mutex);
        callback = updateCallback;
        std::swap(values, updatedValues);
    }
    if (callback == nullptr || values == 0 || hasEnded) {
        return 0;
    }
    (*callback)(values);
    return 1;
}

}  // namespace com_tesk::session
