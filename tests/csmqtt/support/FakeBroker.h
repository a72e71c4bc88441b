#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <thread>

namespace com_tesk::mqtt_test {

/// A broker that does what a test says: it accepts one connection, and answers each packet with bytes of the test. It
/// listens on 127.0.0.1. A packet must be shorter than 16 KiB.
class FakeBroker {
  public:
    /// Returns the bytes to send, which may be none. Called on the broker's thread.
    using Answer = std::function<std::string(const std::string& packet)>;

    explicit FakeBroker(Answer packetAnswer);
    ~FakeBroker();
    FakeBroker(const FakeBroker&) = delete;
    FakeBroker& operator=(const FakeBroker&) = delete;

    std::string address() const { return "127.0.0.1:" + std::to_string(port); }

  private:
    void run() const;

    const Answer answer;
    int listener = -1;
    std::uint16_t port = 0;
    std::thread thread;
};

/// Answers of a broker with MQTT 5 that accepts a connection and messages with QoS 1. It answers subscriptions with this
/// reason.
std::string answerTo(const std::string& packet, unsigned char subscriptionReason);

}  // namespace com_tesk::mqtt_test
