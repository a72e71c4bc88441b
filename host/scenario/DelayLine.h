#pragma once

#include <algorithm>
#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <deque>
#include <functional>
#include <memory>
#include <system_error>
#include <utility>

namespace com_tesk::scenario {

/// Items that leave in the order in which they were added, each not before its time. I/O thread only.
template <typename Item>
class DelayLine {
  public:
    using Clock = asio::steady_timer::clock_type;
    using TimePoint = Clock::time_point;

    /// @param leave  gets each item. It may add items, and it may not destroy the line.
    DelayLine(asio::io_context& context, std::function<void(Item)> leave)
        : timer(context), leaveNow(std::move(leave)) {}
    DelayLine(const DelayLine&) = delete;
    DelayLine& operator=(const DelayLine&) = delete;
    ~DelayLine() { *isAlive = false; }

    /// Returns when the last item leaves; a time in the past when the line is empty.
    TimePoint lastTime() const { return last; }

    /// Adds an item. The first item leaves inside this call when its time has come.
    void add(Item item, TimePoint notBefore) {
        last = std::max(last, notBefore);
        items.push_back({std::move(item), last});
        leaveDue();
    }

    /// Lets nothing leave until then.
    void holdUntil(TimePoint time) {
        last = std::max(last, time);
        held = std::max(held, time);
        for (Entry& entry : items) {
            entry.time = std::max(entry.time, time);
        }
        leaveDue();
    }

    /// Drops what has not left.
    void clear() {
        items.clear();
        *isAlive = false;
        isAlive = std::make_shared<bool>(true);
        timer.cancel();
    }

    std::size_t size() const { return items.size(); }

  private:
    struct Entry {
        Item item;
        TimePoint time;
    };

    void leaveDue() {
        if (isLeaving) {
            return;  // The loop below goes on with it.
        }
        isLeaving = true;
        while (!items.empty() && std::max(items.front().time, held) <= Clock::now()) {
            Item item = std::move(items.front().item);
            items.pop_front();
            leaveNow(std::move(item));
        }
        isLeaving = false;
        if (!items.empty()) {
            timer.expires_at(std::max(items.front().time, held));
            timer.async_wait([this, alive = isAlive](const std::error_code& error) {
                if (!error && *alive) {
                    leaveDue();
                }
            });
        }
    }

    asio::steady_timer timer;
    const std::function<void(Item)> leaveNow;
    std::deque<Entry> items;
    TimePoint last{};
    TimePoint held{};
    bool isLeaving = false;
    /// False for waits that began before the line was cleared or destroyed.
    std::shared_ptr<bool> isAlive = std::make_shared<bool>(true);
};

}  // namespace com_tesk::scenario
