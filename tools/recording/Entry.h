#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "host/Value.h"

/// The entries of a recording: one line of JSON each. docs/manual/recording-format.md describes the lines.
namespace com_tesk::recording {

/// The time of an entry since the beginning of its recording. Files that were rotated count on.
using Time = std::chrono::microseconds;

/// The side that an entry comes from.
enum class Side : std::uint8_t { CLIENT, HOST };

/// A parameter in a registration or its confirmation.
struct Parameter {
    std::string name;
    bool isInteger = false;
    std::uint32_t id = 0;                  ///< 0 in requests for registration, and where the recorder does not know it.
    HostValue value = HostValue::real(0);  ///< In a confirmation of an input: the value that the host sent with it.
};

/// A value in a publication or an update.
struct NamedValue {
    std::string name;      ///< Empty when the recorder did not know the name of the id.
    std::uint32_t id = 0;  ///< Only when the name is empty.
    HostValue value = HostValue::real(0);
};

/// Which parameters a registration, a confirmation or an unregistration has.
enum class Direction : std::uint8_t {
    INPUTS,   ///< The client receives their values.
    OUTPUTS,  ///< The client publishes their values.
};

/// The first line of every file.
struct Header {
    unsigned format = 1;
    std::string recorder;  ///< The program and its version.
    std::string run;       ///< Identifies the recording: the same in each of its files.
    unsigned part = 1;     ///< The number of the file in the recording.
    std::string started;   ///< UTC, when the recording began: 2026-11-21T22:04:05.123456Z.
    std::string mode;      ///< "proxy" or "subscriber".
    std::string host;      ///< Address and port.
};

/// What is known at this time. At the head of every file, and every minute.
struct State {
    struct Connection {
        std::uint32_t number = 0;
        std::uint16_t simulatorId = 0;
        std::vector<Parameter> inputs;   ///< Confirmed ones; `value` is the last one.
        std::vector<Parameter> outputs;  ///< Confirmed ones.
    };
    std::vector<Connection> connections;  ///< Those that stand.
    std::vector<NamedValue> values;       ///< The last value of each name, in the order of names.
    std::string versionText;              ///< Of the host's last version report; empty before.
    std::uint32_t protocolVersion = 0;
};

struct Connected {
    std::string client;  ///< Address and port of the client; empty for the recorder's own connection.
};
/// The end of a connection, or an attempt that failed.
struct Lost {
    Side side = Side::HOST;  ///< The side that ended it.
    std::string why;         ///< Such as "closed" or the system's text.
};
struct VersionRequest {
    std::uint16_t simulatorId = 0;
};
struct Version {
    std::string text;
    std::uint32_t protocolVersion = 0;
    std::uint16_t simulatorId = 0;
    std::uint32_t status = 1;
};
struct Registration {
    Direction direction = Direction::INPUTS;
    std::vector<Parameter> parameters;
};
struct Confirmation {
    Direction direction = Direction::INPUTS;
    std::vector<Parameter> parameters;
};
struct Unregistration {
    Direction direction = Direction::INPUTS;
    std::vector<std::string> names;
};
/// Values that the client sends.
struct Publication {
    std::vector<NamedValue> values;
};
/// Values that the host sends.
struct Update {
    std::vector<NamedValue> values;
};
/// A frame that is none of these messages. The recorder passed it on.
struct Unreadable {
    Side side = Side::HOST;
    std::string why;
};
/// Bytes as they arrived in one piece, before the entries of the frames that they complete.
struct Raw {
    Side side = Side::HOST;
    std::string bytes;
};
/// The recorder has ended in order.
struct End {};

/// A line of a recording.
struct Entry {
    Time time{};
    std::uint32_t connection = 0;  ///< Counted from 1 in the order of connections; 0 for lines of the recording itself.
    std::variant<Header, State, Connected, Lost, VersionRequest, Version, Registration, Confirmation, Unregistration,
                 Publication, Update, Unreadable, Raw, End>
        content;
};

}  // namespace com_tesk::recording
