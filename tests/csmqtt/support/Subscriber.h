#pragma once

#include <mosquitto.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/Guarded.h"
#include "tests/support/Waiting.h"

namespace com_tesk::mqtt_test {

/// A client of the broker that is subscribed to everything. A thread of the library serves it; it connects again by
/// itself. The constructor returns when the broker has confirmed the subscription. All waits are bounded.
class Subscriber {
  public:
    struct Received {
        std::string topic;
        std::string payload;
        bool isRetained = false;
    };

    /// @param id  its client id; empty: the broker assigns one.
    explicit Subscriber(std::uint16_t port, const std::string& filter = "#", const std::string& id = {});
    ~Subscriber();
    Subscriber(const Subscriber&) = delete;
    Subscriber& operator=(const Subscriber&) = delete;

    /// Waits until the newest payload of the topic is this one.
    bool waitFor(const std::string& topic, const std::string& payload,
                 std::chrono::milliseconds bound = test::kWaitBound) const;
    /// Waits until the topic has any payload that contains the text.
    bool waitForPart(const std::string& topic, const std::string& part) const;

    /// Waits until that many topics have a payload.
    bool waitForTopics(std::size_t count, std::chrono::milliseconds bound) const;

    /// Returns the newest payload; "(none)" before the first.
    std::string newest(const std::string& topic) const;
    /// Returns what has arrived for the topic, in order.
    std::vector<Received> all(const std::string& topic) const;
    /// Returns the newest payload of every topic.
    std::map<std::string, std::string> newest() const;

    void publish(const std::string& topic, const std::string& payload, bool isRetained = false);
    /// As publish(), and waits until the broker has confirmed everything that was published.
    void publishNow(const std::string& topic, const std::string& payload, bool isRetained = false);

  private:
    struct State {
        bool isSubscribed = false;
        int unconfirmed = 0;
        std::vector<Received> messages;
        std::map<std::string, std::string> newest;
    };
    struct Destroy {
        void operator()(mosquitto* object) const { mosquitto_destroy(object); }
    };

    const std::string subscription;
    host::Guarded<State> state;
    std::unique_ptr<mosquitto, Destroy> client;
};

}  // namespace com_tesk::mqtt_test
