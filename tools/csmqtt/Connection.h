#pragma once

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "tools/csmqtt/AddressFamily.h"
#include "tools/csmqtt/Config.h"
#include "tools/csmqtt/ReceivedMessage.h"

namespace com_tesk::mqtt {

/// Why a connection has ended, or could not be made.
struct ConnectionEnd {
    enum class Kind : std::uint8_t {
        NOT_TRIED,   ///< There was no attempt: a file, a setting, or the name has no address.
        FAILED,      ///< There was no connection: the network, TLS, or no answer.
        REFUSED,     ///< The broker has refused it: a wrong password, for example.
        LOST,        ///< The broker had accepted it.
        TAKEN_OVER,  ///< Another client with the same client id has connected. Known with MQTT 5 only.
    };
    Kind kind = Kind::FAILED;
    std::string text;  ///< The reason, for people.
};

/// One connection to the broker: a new client of the library each, so that nothing of an earlier connection is queued,
/// sent again or counted. Sessions are clean. All operations are for one thread, and none blocks but `open`, which
/// looks up the broker's name. The owner is called within `open`, `process` and `publish`.
class Connection {
  public:
    /// Receives what happens. It must not call the connection meanwhile.
    class Owner {
      public:
        Owner() = default;
        Owner(const Owner&) = delete;
        Owner& operator=(const Owner&) = delete;
        virtual ~Owner() = default;
        virtual void onMessage(const ReceivedMessage& message) = 0;
        /// The broker has confirmed a message with QoS 1 but refuses it: `reason` says why.
        virtual void onRefused(const std::string& reason) = 0;
        /// The broker or the library refuses a subscription, so that its messages do not arrive.
        virtual void onSubscriptionRefused(const std::string& topic, const std::string& reason) = 0;
    };

    /// @param settings, owner  outlive this object.
    /// @param lastWill         published by the broker when the connection is lost.
    /// @param ownRunId         user property of the last will and of messages that are published with it.
    /// @throw std::runtime_error  the library refuses a setting, such as a certificate; the text says why.
    Connection(const BrokerSettings& brokerSettings, const Message& lastWill, std::string ownRunId, Owner& eventOwner);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() = default;

    /// Begins to connect. Blocks while the name is looked up.
    /// @param password  read from the password file by the caller; empty without one.
    /// @param family    The first address of this family is tried. Without one the attempt fails.
    std::optional<ConnectionEnd> open(const std::string& password, AddressFamily family);

    /// The socket to poll: readable when `wantsRead`, and writable when `wantsWrite`. -1 without one.
    int descriptor() const { return mosquitto_socket(client.get()); }
    /// False while a broker sends messages with QoS 1 and does not read their confirmations, which would otherwise be
    /// queued without limit. When it does not read for longer than the keep-alive, the connection ends.
    bool wantsRead() const { return confirmations < kMaxConfirmations; }
    bool wantsWrite() const { return mosquitto_want_write(client.get()); }

    /// Reads, writes, and does what time demands. Call it after each poll, and at least once a second.
    /// @param events  of `poll` for the socket; 0 when the time has run out.
    std::optional<ConnectionEnd> process(short events);

    bool isAccepted() const { return hasAccepted; }

    /// Hands a message to the library, and counts it as in flight until it is sent (QoS 0) or confirmed (QoS 1).
    /// @return an empty text, or why the library has refused it. It is then neither sent nor counted.
    std::string publish(const Message& message, bool hasRunId = false);

    /// Subscribes with QoS 1. When that is refused, now or by the broker later, the owner is notified.
    /// @param keepsRetain  With MQTT 5, messages keep the retain flag with which they were published. Otherwise only
    ///                     those have it that the broker has retained from before.
    void subscribe(const std::string& topic, bool keepsRetain);

    /// Ends the connection in order: the broker does not publish the last will.
    void disconnect();

    /// Messages that were handed over and are not yet sent, or not yet confirmed.
    unsigned inFlight() const { return sending; }

  private:
    static constexpr unsigned kMaxConfirmations = 1'000;

    struct Destroy {
        void operator()(mosquitto* object) const { mosquitto_destroy(object); }
    };

    void setTls();
    void limitUnsentBytes() const;
    void setCallbacks();
    void accepted(int reason);
    void ended(int reason);
    void confirmed(int reason);
    void subscribed(int id, int reason);
    void received(const mosquitto_message& message, const mosquitto_property* properties);
    /// True when the socket is not connected. The system reports a refusal once, and with TLS and a broker of this
    /// machine the library takes that report for itself.
    bool wasRefused();
    /// Reads packets until the socket is empty, but not without end.
    int readPackets();
    ConnectionEnd endOf(int result) const;
    bool isVersion5() const { return settings.protocol == ProtocolVersion::MQTT_5; }

    const BrokerSettings& settings;
    const std::string runId;
    Owner& owner;
    bool hasAccepted = false;
    unsigned sending = 0;
    unsigned confirmations = 0;  // At most as many of the broker's messages have a confirmation that is not sent yet.
    int refusal = 0;             // The reason of the broker's answer; 0 when it has accepted.
    int endReason = 0;           // The reason of the broker's DISCONNECT; 0 without one.
    int socketError = 0;         // The error number of a failed attempt.
    std::string libraryError;    // The last error line of the library.
    std::map<int, std::string> subscriptions;  // Topics by the ids of messages that the broker has not answered.
    std::unique_ptr<mosquitto, Destroy> client;
};

}  // namespace com_tesk::mqtt
