#pragma once

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <functional>
#include <system_error>
#include <utility>

namespace com_tesk::host {

/// Calls a function on the thread of an I/O context once every interval, from start() to stop(). Without a function it
/// does nothing. Operations on that thread only, or before it runs.
class Heartbeat {
  public:
    Heartbeat(asio::io_context& context, std::function<void()> calledFunction, std::chrono::milliseconds callInterval)
        : timer(context), function(std::move(calledFunction)), interval(callInterval) {}

    void start() {
        if (!function) {
            return;
        }
        timer.expires_after(interval);
        timer.async_wait([this](const std::error_code& error) {
            if (!error && !isStopped) {
                function();
                start();
            }
        });
    }

    void stop() {
        isStopped = true;  // For a call that is queued already.
        timer.cancel();
    }

  private:
    asio::steady_timer timer;
    const std::function<void()> function;
    const std::chrono::milliseconds interval;
    bool isStopped = false;
};

}  // namespace com_tesk::host
