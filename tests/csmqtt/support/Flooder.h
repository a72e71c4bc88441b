#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "host/LoopbackHost.h"

namespace com_tesk::mqtt_test {

/// A thread that sets values as fast as the host takes them.
class Flooder {
  public:
    Flooder(LoopbackHost& floodedHost, int names)
        : host(floodedHost), thread([this, names] {
              for (int number = 1; !isDone.load(); ++number) {
                  std::vector<std::pair<std::string, HostValue>> values;
                  for (int name = 0; name < names; ++name) {
                      values.emplace_back("n" + std::to_string(name), HostValue::real(static_cast<float>(number)));
                  }
                  host.setValues(values);
                  last.store(number);
                  std::this_thread::sleep_for(std::chrono::microseconds(200));
              }
          }) {}
    ~Flooder() { stop(); }
    Flooder(const Flooder&) = delete;
    Flooder& operator=(const Flooder&) = delete;

    int stop() {
        isDone.store(true);
        if (thread.joinable()) {
            thread.join();
        }
        return last.load();
    }
    int count() const { return last.load(); }

  private:
    LoopbackHost& host;
    std::atomic<bool> isDone{false};
    std::atomic<int> last{0};
    std::thread thread;
};

/// Returns the lines of a configuration with the names of a Flooder. Every second one has QoS 1.
inline std::string namesUpTo(int count) {
    std::string lines = "to_mqtt:\n";
    for (int i = 0; i < count; ++i) {
        lines += "  - {name: n" + std::to_string(i) + ", qos: " + std::to_string(i % 2) + "}\n";
    }
    return lines;
}

}  // namespace com_tesk::mqtt_test
