#pragma once

#include <httplib.h>

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace com_tesk::mqtt {

/// The threads that serve the clients of an HTTP server. Their number and that of the waiting clients is bounded: the
/// thread that accepts waits when there are too many. The server of the library would queue them without limit.
class HttpWorkers final : public httplib::TaskQueue {
  public:
    HttpWorkers(std::size_t threadCount, std::size_t waitingClients) : maxWaiting(waitingClients) {
        for (std::size_t i = 0; i < threadCount; ++i) {
            threads.emplace_back([this] { run(); });
        }
    }

    /// Blocks until there is space.
    void enqueue(std::function<void()> task) override {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [this] { return tasks.size() < maxWaiting; });
        tasks.push_back(std::move(task));
        changed.notify_all();
    }

    /// Waits until every client has been served: a client may not simply be left out, because its task closes it.
    void shutdown() override {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            isShutDown = true;
            changed.notify_all();
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

  private:
    void run() {
        std::unique_lock<std::mutex> lock(mutex);
        for (;;) {
            changed.wait(lock, [this] { return !tasks.empty() || isShutDown; });
            if (tasks.empty()) {
                return;
            }
            const std::function<void()> task = std::move(tasks.front());
            tasks.pop_front();
            changed.notify_all();
            lock.unlock();
            task();
            lock.lock();
        }
    }

    const std::size_t maxWaiting;
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::function<void()>> tasks;  // guarded by mutex
    bool isShutDown = false;                  // guarded by mutex
    std::vector<std::thread> threads;
};

}  // namespace com_tesk::mqtt
