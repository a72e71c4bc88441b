// What the broker sends to the link.

#include <string_view>
#include <utility>

#include "tools/csmqtt/BrokerLink.h"
#include "tools/csmqtt/Discovery.h"
#include "tools/csmqtt/RunId.h"

namespace com_tesk::mqtt {

void BrokerLink::onMessage(const ReceivedMessage& message) {
    const Config& config = environment.config;
    if (environment.commands.handle(message)) {
        return;
    }
    if (message.topic == config.stateTopic()) {
        noteState(message);
        return;
    }
    if (message.topic == config.statisticsTopic()) {
        noteStatistics(message);
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
        hasSeenOwn = true;
        return;
    }
    if (message.isRetained) {
        noteRetained(message, message.runId);
        return;
    }
    if (message.payload == "online") {
        // With MQTT 3.1.1 messages have no run id, and one `online` is this bridge's own.
        const unsigned own = environment.config.broker.protocol == ProtocolVersion::MQTT_311 ? 1 : 0;
        if (++onlineSeen > own) {
            setConflict("another bridge has published online to " + environment.config.stateTopic());
        }
    }
}

void BrokerLink::noteStatistics(const ReceivedMessage& message) {
    // With MQTT 3.1.1 the broker gives no reason when another bridge has taken the client id over. Then this is how the
    // two notice each other. Others may publish here without effect, unless they pretend to be a bridge.
    const std::string_view sender = runIdInStatistics(message.payload);
    if (sender == runId) {
        hasSeenOwn = true;
    } else if (message.isRetained) {
        noteRetained(message, sender);
    }
}

void BrokerLink::noteRetained(const ReceivedMessage& message, std::string_view otherRun) {
    // Another run has left it. Until the broker has had a message of this run, that was an earlier run. Then it can still
    // be one, when the broker was restored from a file. So only a run that has started later counts. Such a run has taken
    // this client id over, and has lost it again to this connection.
    if (hasSeenOwn && isLaterRun(otherRun, runId)) {
        setConflict("another bridge has published to " + std::string(message.topic) + " since this one has started");
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
