// What the broker sends to the link.

#include <charconv>
#include <utility>

#include "tools/csmqtt/BrokerLink.h"
#include "tools/csmqtt/Discovery.h"

namespace com_tesk::mqtt {

namespace {

/// Returns when the run has started; 0 without a run id.
std::int64_t startOf(const std::string& runId) {
    std::int64_t start = 0;
    std::from_chars(runId.data(), runId.data() + runId.size(), start);
    return start;
}

}  // namespace

void BrokerLink::onMessage(const ReceivedMessage& message) {
    const Config& config = environment.config;
    if (environment.commands.handle(message)) {
        return;
    }
    if (message.topic == config.stateTopic()) {
        noteState(message);
        return;
    }
    if (replies.empty()) {
        for (Message& reply : discoveryReplies(config, environment.version, std::string(message.topic),
                                               std::string(message.payload), message.isRetained)) {
            replies.push_back(std::move(reply));
        }
    }
}

void BrokerLink::noteState(const ReceivedMessage& message) {
    if (message.runId == runId) {
        return;
    }
    const std::string topic = environment.config.stateTopic();
    if (message.isRetained) {
        // Another run has left it. Before the first `online` of this run, that was an earlier run. After it, it can
        // still be one, when the broker was restored from a file. So only a run that has started later counts. Such a
        // run has taken this client id over, and has lost it again to this connection.
        if (wasAccepted && startOf(message.runId) > startOf(runId)) {
            setConflict("another bridge has published to " + topic + " since this one has started");
        }
        return;
    }
    if (message.payload == "online") {
        // With MQTT 3.1.1 messages have no run id, and one `online` is this bridge's own.
        const unsigned own = environment.config.broker.protocol == ProtocolVersion::MQTT_311 ? 1 : 0;
        if (++onlineSeen > own) {
            setConflict("another bridge has published online to " + topic);
        }
    }
}

void BrokerLink::onSubscriptionRefused(const std::string& topic, const std::string& reason) {
    environment.log.writeRarely(service::Level::WARNING, "subscription " + topic,
                                "broker " + environment.config.broker.address.text() +
                                    ": it refuses the subscription to " + topic + ": " + reason);
}

void BrokerLink::onRefused(const std::string& reason) {
    shared.change([](State& now) { ++now.counts.dropped; });
    environment.log.writeRarely(service::Level::WARNING, "refused " + reason,
                                "the broker refused a message: " + reason);
}

}  // namespace com_tesk::mqtt
