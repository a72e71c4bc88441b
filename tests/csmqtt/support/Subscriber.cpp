#include "tests/csmqtt/support/Subscriber.h"

#include <gtest/gtest.h>

#include "tests/support/OwnAddress.h"

namespace com_tesk::mqtt_test {

namespace {

std::string newestOf(const std::map<std::string, std::string>& newest, const std::string& topic) {
    const auto found = newest.find(topic);
    return found == newest.end() ? "(none)" : found->second;
}

}  // namespace

Subscriber::Subscriber(std::uint16_t port, const std::string& filter, const std::string& id) : subscription(filter) {
    mosquitto_lib_init();
    client.reset(mosquitto_new(id.empty() ? nullptr : id.c_str(), true, this));
    mosquitto_connect_callback_set(client.get(), [](mosquitto* object, void* self, int) {
        mosquitto_subscribe(object, nullptr, static_cast<Subscriber*>(self)->subscription.c_str(), 1);
    });
    mosquitto_subscribe_callback_set(client.get(), [](mosquitto*, void* self, int, int, const int*) {
        static_cast<Subscriber*>(self)->state.change([](State& now) { now.isSubscribed = true; });
    });
    mosquitto_message_callback_set(client.get(), [](mosquitto*, void* self, const mosquitto_message* message) {
        const Received received{
            message->topic,
            {static_cast<const char*>(message->payload), static_cast<std::size_t>(message->payloadlen)},
            message->retain};
        static_cast<Subscriber*>(self)->state.change([&](State& now) {
            now.messages.push_back(received);
            now.newest[received.topic] = received.payload;
        });
    });
    mosquitto_publish_callback_set(client.get(), [](mosquitto*, void* self, int) {
        static_cast<Subscriber*>(self)->state.change([](State& now) { --now.unconfirmed; });
    });
    mosquitto_int_option(client.get(), MOSQ_OPT_TCP_NODELAY, 1);
    // A second port of a broker may be there a little later than the first.
    EXPECT_TRUE(test::waitUntil(
        [&] { return mosquitto_connect(client.get(), test::ownAddress().c_str(), port, 60) == MOSQ_ERR_SUCCESS; }));
    mosquitto_loop_start(client.get());
    EXPECT_TRUE(state.waitUntil([](const State& now) { return now.isSubscribed; }, test::kWaitBound));
}

Subscriber::~Subscriber() {
    mosquitto_disconnect(client.get());
    // Without force, which would cancel the thread, also while it has a lock of the client.
    EXPECT_EQ(mosquitto_loop_stop(client.get(), false), MOSQ_ERR_SUCCESS);
    client.reset();
    mosquitto_lib_cleanup();
}

bool Subscriber::waitFor(const std::string& topic, const std::string& payload, std::chrono::milliseconds bound) const {
    return state.waitUntil([&](const State& now) { return newestOf(now.newest, topic) == payload; }, bound);
}

bool Subscriber::waitForTopics(std::size_t count, std::chrono::milliseconds bound) const {
    return state.waitUntil([&](const State& now) { return now.newest.size() >= count; }, bound);
}

bool Subscriber::waitForPart(const std::string& topic, const std::string& part) const {
    return state.waitUntil(
        [&](const State& now) { return newestOf(now.newest, topic).find(part) != std::string::npos; },
        test::kWaitBound);
}

std::string Subscriber::newest(const std::string& topic) const {
    return state.read([&](const State& now) { return newestOf(now.newest, topic); });
}

std::vector<Subscriber::Received> Subscriber::all(const std::string& topic) const {
    return state.read([&](const State& now) {
        std::vector<Received> result;
        for (const Received& message : now.messages) {
            if (message.topic == topic) {
                result.push_back(message);
            }
        }
        return result;
    });
}

std::map<std::string, std::string> Subscriber::newest() const {
    return state.read([](const State& now) { return now.newest; });
}

void Subscriber::publish(const std::string& topic, const std::string& payload, bool isRetained) {
    state.change([](State& now) { ++now.unconfirmed; });
    EXPECT_EQ(mosquitto_publish(client.get(), nullptr, topic.c_str(), static_cast<int>(payload.size()), payload.data(),
                                1, isRetained),
              MOSQ_ERR_SUCCESS);
}

void Subscriber::publishNow(const std::string& topic, const std::string& payload, bool isRetained) {
    publish(topic, payload, isRetained);
    EXPECT_TRUE(state.waitUntil([](const State& now) { return now.unconfirmed == 0; }, test::kWaitBound));
}

}  // namespace com_tesk::mqtt_test
