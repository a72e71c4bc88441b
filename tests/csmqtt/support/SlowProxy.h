#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>

namespace com_tesk::mqtt_test {

/// A slow line to a broker: a proxy that passes what its clients send at a limited rate, and the answers at once. It
/// listens on an address of the test, and serves one client at a time.
class SlowProxy {
  public:
    SlowProxy(std::uint16_t brokerPort, std::size_t bytesPerSecond);
    ~SlowProxy();
    SlowProxy(const SlowProxy&) = delete;
    SlowProxy& operator=(const SlowProxy&) = delete;

    std::string address() const;

  private:
    void run();
    void serve(int client, int broker);

    const std::uint16_t target;
    const std::size_t rate;
    int listener = -1;
    std::uint16_t port = 0;
    std::atomic<bool> isStopping{false};
    std::thread thread;
};

}  // namespace com_tesk::mqtt_test
