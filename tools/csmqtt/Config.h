#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace com_tesk::mqtt {

/// The type with which a value is registered at the host.
enum class NumberType : std::uint8_t { FLOAT, INTEGER };

/// How a value is written in the payload of a message.
enum class PayloadForm : std::uint8_t {
    TEXT,  ///< `12.5`
    JSON,  ///< `{"v":12.5,"t":"2026-11-22T17:02:02.571265Z","n":17}`
};

/// The treatment of the retained values at the broker while the host is down.
enum class StalePolicy : std::uint8_t {
    KEEP,   ///< They stay. `$host` tells subscribers that they are old.
    CLEAR,  ///< They are removed by an empty retained payload, and published again when the host is back.
};

enum class ProtocolVersion : std::uint8_t { MQTT_311, MQTT_5 };

/// Which discovery topics are published.
enum class Discovery : std::uint8_t { NONE, HOME_ASSISTANT };

/// How home automation shows a value that it can set.
enum class Control : std::uint8_t {
    NUMBER,  ///< A number that the user enters.
    SWITCH,  ///< On is 1, off is 0.
};

/// A name or a numeric address, and a TCP port.
struct Address {
    std::string host;
    std::uint16_t port = 0;

    /// Returns `host:port`, with brackets around an IPv6 address.
    std::string text() const;
};

/// Reads `HOST` or `HOST:PORT`; an IPv6 address with a port has brackets.
/// @return nothing when the text is neither. A port of 0 is permitted here.
std::optional<Address> addressOf(std::string_view text, std::uint16_t defaultPort);

/// Files for TLS, all in PEM.
struct TlsSettings {
    std::string caFile;           ///< The certificates that may sign the broker's. Empty: those of the system.
    std::string certificateFile;  ///< The certificate of this client; empty without one.
    std::string keyFile;          ///< Its key; empty without a certificate.
};

/// How to reach the broker.
struct BrokerSettings {
    Address address;                 ///< The port is 1883, or 8883 with TLS, unless the file says otherwise.
    std::optional<TlsSettings> tls;  ///< Nothing: the connection is not encrypted.
    ProtocolVersion protocol = ProtocolVersion::MQTT_5;
    std::string user;          ///< Empty: no user and no password are sent.
    std::string passwordFile;  ///< Its first line is the password. Empty: no password is sent.
    std::string clientId;      ///< Never empty. Bridges with the same base have the same id by default.
    /// The broker and this client notice within 1.5 times this that the other is gone. 5 s or more.
    std::chrono::seconds keepAlive{15};
};

/// A value of the host that is published as `BASE/v/NAME`.
struct ToMqtt {
    std::string name;  ///< As the host knows it: 1 to 31 bytes, any but zero.
    NumberType type = NumberType::FLOAT;
    double rate = 0;  ///< Messages a second at most; 0: no limit.
    int qos = 0;      ///< 0 or 1.
    PayloadForm payload = PayloadForm::TEXT;
    std::string unit;  ///< Unit for home automation, such as `m/s`; empty without one.
};

/// A value of the host that is set by messages to `BASE/set/NAME`.
struct FromMqtt {
    std::string name;  ///< As in ToMqtt.
    NumberType type = NumberType::FLOAT;
    PayloadForm payload = PayloadForm::TEXT;
    std::optional<double> minimum;  ///< Smaller numbers are refused.
    std::optional<double> maximum;  ///< Greater numbers are refused.
    Control control = Control::NUMBER;
    std::string unit;  ///< As in ToMqtt.
};

/// A configuration that has been read and checked. Constant while the bridge runs.
struct Config {
    Address host;
    unsigned simulatorId = 1;
    /// The host is asked at this interval whether it still answers; 0 is off.
    std::chrono::milliseconds heartbeat{2'000};
    BrokerSettings broker;
    std::string base;  ///< Valid UTF-8, no wildcard, no slash at either end: `hall/3`.
    StalePolicy stale = StalePolicy::KEEP;
    std::chrono::milliseconds statisticsInterval{10'000};  ///< Between messages to `BASE/$stats`.
    Discovery discovery = Discovery::NONE;
    std::string discoveryPrefix = "homeassistant";  ///< As `base`.
    std::vector<ToMqtt> toMqtt;                     ///< No name occurs twice, here and in `fromMqtt` together.
    std::vector<FromMqtt> fromMqtt;

    /// Topics, with names percent-encoded.
    /// @{
    std::string stateTopic() const { return base + "/$state"; }
    std::string hostTopic() const { return base + "/$host"; }
    std::string statisticsTopic() const { return base + "/$stats"; }
    std::string valueTopic(const std::string& name) const;
    std::string setTopic(const std::string& name) const;
    /// @}
};

/// A message to be published.
struct Message {
    std::string topic;
    std::string payload;
    int qos = 0;
    bool isRetained = true;
};

}  // namespace com_tesk::mqtt
