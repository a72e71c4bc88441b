#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "host/Value.h"

namespace com_tesk {

/// One thing that happened at the host.
struct HostEvent {
    enum class Kind {
        Listening,           ///< text: address and port
        Stopped,             ///< every client is closed, the port is free again
        AcceptFailed,        ///< a client could not be let in; text: why. The host tries again
        Connected,           ///< text: the client's address and port
        Left,                ///< the client closed its connection; text: empty, or what it left unfinished
        Lost,                ///< the connection broke; text: why
        Dropped,             ///< the host closed the connection; text: why
        VersionAnswered,     ///< text: what was answered
        SimulatorIdChanged,  ///< id: what the client's requests carry from now on
        InputConfirmed,      ///< name, id, value: the current one, as it was answered
        InputUnsubscribed,   ///< name, id
        OutputConfirmed,     ///< name, id, text: "integer" or "float"
        OutputUnregistered,  ///< name, id
        Published,           ///< name, id, value
        Updated,             ///< name, id, value: an update on its way to this client
        ValueSet,            ///< name, value: set by the host's own user
        UnknownId,           ///< id, text: what it was for. The record was ignored
        RequestIgnored,      ///< text: why. The client is still served
    };

    Kind kind = Kind::Listening;
    std::chrono::system_clock::time_point time{};
    std::uint64_t client = 0;  ///< numbered from 1 in the order of connections; 0 for the host itself
    std::string name;          ///< of the input, output or value; bytes as the client sent them
    std::uint32_t id = 0;
    std::optional<HostValue> value;
    std::string text;
};

/// The event in words, without its time, for example: client 2 published ALT = 12.5 (float, output id 4).
/// One line without a newline, whatever the peer sent: a name that is empty, or has anything but printable characters
/// without blanks and quotes, stands in double quotes with its odd bytes as \xNN.
std::string describe(const HostEvent& event);

/// describe() behind the local time: 2026-07-01T12:00:00.250 client 2 published ...
std::string lineOf(const HostEvent& event);

}  // namespace com_tesk
