#include "tools/csmqtt/Connection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <utility>

#include "tools/ParameterNames.h"

namespace com_tesk::mqtt {

namespace {

constexpr const char* kRunIdProperty = "run-id";

/// Properties of a message, freed at the end of the scope.
class Properties {
  public:
    Properties() = default;
    Properties(const Properties&) = delete;
    Properties& operator=(const Properties&) = delete;
    ~Properties() { mosquitto_property_free_all(&list); }

    void addRunId(const std::string& runId) {
        mosquitto_property_add_string_pair(&list, MQTT_PROP_USER_PROPERTY, kRunIdProperty, runId.c_str());
    }
    const mosquitto_property* get() const { return list; }
    mosquitto_property* release() { return std::exchange(list, nullptr); }

  private:
    mosquitto_property* list = nullptr;
};

void expectSuccess(int result, const std::string& what) {
    if (result != MOSQ_ERR_SUCCESS) {
        throw std::runtime_error(what + ": " + mosquitto_strerror(result));
    }
}

const char* orNull(const std::string& text) {
    return text.empty() ? nullptr : text.c_str();
}

/// The library skips addresses of a name that a socket with this own address cannot reach.
const char* ownAddress(AddressFamily family) {
    switch (family) {
        case AddressFamily::ANY:
            break;
        case AddressFamily::IPV4:
            return "0.0.0.0";
        case AddressFamily::IPV6:
            return "::";
    }
    return nullptr;
}

std::string runIdOf(const mosquitto_property* properties) {
    char* name = nullptr;
    char* value = nullptr;
    std::string found;
    const mosquitto_property* at =
        mosquitto_property_read_string_pair(properties, MQTT_PROP_USER_PROPERTY, &name, &value, false);
    while (at != nullptr) {
        if (name != nullptr && value != nullptr && std::string_view(name) == kRunIdProperty) {
            found = value;
        }
        std::free(name);
        std::free(value);
        name = value = nullptr;
        at = mosquitto_property_read_string_pair(at, MQTT_PROP_USER_PROPERTY, &name, &value, true);
    }
    return found;
}

}  // namespace

Connection::Connection(const BrokerSettings& brokerSettings, const Message& lastWill, std::string ownRunId,
                       Owner& eventOwner)
    : settings(brokerSettings),
      runId(std::move(ownRunId)),
      owner(eventOwner),
      client(mosquitto_new(brokerSettings.clientId.c_str(), true, this)) {
    if (client == nullptr) {
        throw std::runtime_error("a client of the broker: " + std::generic_category().message(errno));
    }
    setCallbacks();
    mosquitto_int_option(client.get(), MOSQ_OPT_PROTOCOL_VERSION, isVersion5() ? MQTT_PROTOCOL_V5 : MQTT_PROTOCOL_V311);
    // Messages are small and must not wait for confirmations of earlier ones.
    mosquitto_int_option(client.get(), MOSQ_OPT_TCP_NODELAY, 1);
    if (settings.tls) {
        setTls();
    }
    Properties properties;
    if (isVersion5()) {
        properties.addRunId(runId);
    }
    const int result =
        mosquitto_will_set_v5(client.get(), lastWill.topic.c_str(), static_cast<int>(lastWill.payload.size()),
                              lastWill.payload.data(), lastWill.qos, lastWill.isRetained, properties.release());
    expectSuccess(result, "the last will");
}

void Connection::setTls() {
    const TlsSettings& tls = *settings.tls;
    constexpr const char* kSystemDirectory = "/etc/ssl/certs";
    // The library would ask a terminal for the password of a key. An empty one makes it refuse the key instead.
    const auto noPassword = [](char*, int, int, void*) noexcept { return 0; };
    const int result =
        mosquitto_tls_set(client.get(), orNull(tls.caFile), tls.caFile.empty() ? kSystemDirectory : nullptr,
                          orNull(tls.certificateFile), orNull(tls.keyFile), noPassword);
    expectSuccess(result, "the files for TLS");
    constexpr int kVerifyPeer = 1;
    expectSuccess(mosquitto_tls_opts_set(client.get(), kVerifyPeer, nullptr, nullptr), "the options of TLS");
}

void Connection::setCallbacks() {
    // C calls these, so no exception may leave them: when memory runs out, the program ends.
    mosquitto_connect_v5_callback_set(client.get(),
                                      [](mosquitto*, void* self, int reason, int, const mosquitto_property*) noexcept {
                                          static_cast<Connection*>(self)->accepted(reason);
                                      });
    mosquitto_disconnect_v5_callback_set(client.get(),
                                         [](mosquitto*, void* self, int reason, const mosquitto_property*) noexcept {
                                             static_cast<Connection*>(self)->ended(reason);
                                         });
    mosquitto_publish_v5_callback_set(client.get(),
                                      [](mosquitto*, void* self, int, int reason, const mosquitto_property*) noexcept {
                                          static_cast<Connection*>(self)->confirmed(reason);
                                      });
    mosquitto_subscribe_v5_callback_set(client.get(), [](mosquitto*, void* self, int id, int count, const int* reasons,
                                                         const mosquitto_property*) noexcept {
        static_cast<Connection*>(self)->subscribed(id, count > 0 ? reasons[0] : 0);
    });
    mosquitto_message_v5_callback_set(client.get(), [](mosquitto*, void* self, const mosquitto_message* message,
                                                       const mosquitto_property* properties) noexcept {
        static_cast<Connection*>(self)->received(*message, properties);
    });
    mosquitto_log_callback_set(client.get(), [](mosquitto*, void* self, int level, const char* text) noexcept {
        if (level == MOSQ_LOG_ERR) {
            // Some of the library's lines end with a line feed.
            static_cast<Connection*>(self)->libraryError = std::string_view(text).substr(0, std::strcspn(text, "\n"));
        }
    });
}

std::optional<ConnectionEnd> Connection::open(const std::string& password, AddressFamily family) {
    if (!settings.user.empty()) {
        mosquitto_username_pw_set(client.get(), settings.user.c_str(), orNull(password));
    }
    errno = 0;
    const int result = mosquitto_connect_bind_async(client.get(), settings.address.host.c_str(), settings.address.port,
                                                    static_cast<int>(settings.keepAlive.count()), ownAddress(family));
    if (result == MOSQ_ERR_SUCCESS || result == MOSQ_ERR_CONN_PENDING) {
        limitUnsentBytes();
        return std::nullopt;
    }
    socketError = result == MOSQ_ERR_ERRNO ? errno : 0;
    return endOf(result);
}

void Connection::limitUnsentBytes() const {
    // Messages with QoS 0 leave the window when the system takes them, and it would take megabytes. Over a slow line the
    // newest value would then wait for minutes. Without this option, which every Linux has, it only arrives later.
    constexpr int kMaxUnsent = 16 * 1'024;
    setsockopt(descriptor(), IPPROTO_TCP, TCP_NOTSENT_LOWAT, &kMaxUnsent, sizeof kMaxUnsent);
}

std::optional<ConnectionEnd> Connection::process(short events) {
    const bool isBroken = (static_cast<unsigned>(events) & static_cast<unsigned>(POLLERR | POLLHUP)) != 0;
    if (!hasAccepted && isBroken) {
        socklen_t size = sizeof socketError;
        getsockopt(descriptor(), SOL_SOCKET, SO_ERROR, &socketError, &size);
        if (socketError != 0) {
            return endOf(MOSQ_ERR_ERRNO);
        }
    }
    int result = MOSQ_ERR_SUCCESS;
    if (static_cast<unsigned>(events) != 0 && wantsRead()) {
        result = readPackets();
    }
    const bool hasEnded = endReason != 0 || refusal != 0;
    if (result == MOSQ_ERR_SUCCESS && !hasEnded && wantsWrite()) {
        result = mosquitto_loop_write(client.get(), 1);
    }
    confirmations = wantsWrite() ? confirmations : 0;
    if (result == MOSQ_ERR_SUCCESS && !hasEnded) {
        result = mosquitto_loop_misc(client.get());
    }
    if (result == MOSQ_ERR_SUCCESS && (descriptor() < 0 || (isBroken && !hasAccepted && wasRefused()))) {
        result = MOSQ_ERR_CONN_LOST;
    }
    if (result == MOSQ_ERR_SUCCESS && endReason == 0 && refusal == 0) {
        return std::nullopt;
    }
    return endOf(result);
}

bool Connection::wasRefused() {
    sockaddr_storage peer{};
    socklen_t size = sizeof peer;
    if (getpeername(descriptor(), reinterpret_cast<sockaddr*>(&peer), &size) == 0 || errno != ENOTCONN) {
        return false;
    }
    socketError = ECONNREFUSED;
    return true;
}

int Connection::readPackets() {
    constexpr int kMaxPackets = 200;  // Then others get their turn.
    int result = MOSQ_ERR_SUCCESS;
    // TLS can hold packets that `poll` does not report, so it reads until the library finds none.
    for (int i = 0; i < kMaxPackets && wantsRead() && result == MOSQ_ERR_SUCCESS; ++i) {
        errno = 0;
        result = mosquitto_loop_read(client.get(), 1);
        if (errno == EAGAIN || descriptor() < 0 || refusal != 0 || endReason != 0) {
            break;
        }
    }
    return result;
}

ConnectionEnd Connection::endOf(int result) const {
    using Kind = ConnectionEnd::Kind;
    if (refusal != 0) {
        return {Kind::REFUSED, isVersion5() ? mosquitto_reason_string(refusal) : mosquitto_connack_string(refusal)};
    }
    if (endReason == MQTT_RC_SESSION_TAKEN_OVER) {
        return {Kind::TAKEN_OVER, "another client has connected with the client id " + settings.clientId};
    }
    const Kind kind = hasAccepted ? Kind::LOST : Kind::FAILED;
    if (endReason >= MQTT_RC_UNSPECIFIED) {
        return {kind, mosquitto_reason_string(endReason)};
    }
    if (socketError != 0) {
        return {kind, std::generic_category().message(socketError)};
    }
    if (result == MOSQ_ERR_EAI) {
        return {Kind::NOT_TRIED, "the name is not found"};
    }
    if (result == MOSQ_ERR_KEEPALIVE) {
        return {kind, "the broker no longer answers"};
    }
    if (!hasAccepted && !libraryError.empty()) {
        return {kind, tools::printable(libraryError)};
    }
    if (result == MOSQ_ERR_CONN_LOST || result == MOSQ_ERR_NO_CONN || result == MOSQ_ERR_SUCCESS) {
        return {kind, "the broker has closed the connection"};
    }
    return {kind, mosquitto_strerror(result)};
}

std::string Connection::publish(const Message& message, bool hasRunId) {
    Properties properties;
    if (hasRunId && isVersion5()) {
        properties.addRunId(runId);
    }
    ++sending;  // First, because the library may confirm it within the call.
    const int result =
        mosquitto_publish_v5(client.get(), nullptr, message.topic.c_str(), static_cast<int>(message.payload.size()),
                             message.payload.data(), message.qos, message.isRetained, properties.get());
    if (result == MOSQ_ERR_SUCCESS) {
        return {};
    }
    --sending;
    return mosquitto_strerror(result);
}

void Connection::subscribe(const std::string& topic, bool keepsRetain) {
    const int options = keepsRetain && isVersion5() ? MQTT_SUB_OPT_RETAIN_AS_PUBLISHED : 0;
    int id = 0;
    const int result = mosquitto_subscribe_v5(client.get(), &id, topic.c_str(), 1, options, nullptr);
    if (result == MOSQ_ERR_SUCCESS) {
        subscriptions[id] = topic;
    } else if (descriptor() >= 0) {
        owner.onSubscriptionRefused(topic, mosquitto_strerror(result));
    }
}

void Connection::disconnect() {
    mosquitto_disconnect_v5(client.get(), MQTT_RC_NORMAL_DISCONNECTION, nullptr);
}

void Connection::accepted(int reason) {
    refusal = reason;
    hasAccepted = reason == 0;
}

void Connection::ended(int reason) {
    // The first reason is the broker's. Later ones say that there is no connection.
    endReason = endReason == 0 ? reason : endReason;
}

void Connection::confirmed(int reason) {
    --sending;
    if (reason >= MQTT_RC_UNSPECIFIED) {
        owner.onRefused(mosquitto_reason_string(reason));
    }
}

void Connection::subscribed(int id, int reason) {
    const auto found = subscriptions.find(id);
    if (found == subscriptions.end()) {
        return;
    }
    if (reason >= MQTT_RC_UNSPECIFIED) {
        owner.onSubscriptionRefused(found->second, mosquitto_reason_string(reason));
    }
    subscriptions.erase(found);
}

void Connection::received(const mosquitto_message& message, const mosquitto_property* properties) {
    confirmations += message.qos > 0 ? 1 : 0;
    ReceivedMessage event;
    event.topic = message.topic;
    event.payload = {static_cast<const char*>(message.payload), static_cast<std::size_t>(message.payloadlen)};
    event.isRetained = message.retain;
    event.runId = runIdOf(properties);
    owner.onMessage(event);
}

}  // namespace com_tesk::mqtt
