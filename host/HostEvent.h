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
        LISTENING,             ///< text: address and port
        STOPPED,               ///< every client is closed, the port is free again
        ACCEPT_FAILED,         ///< a client could not be let in; text: why. The host tries again
        CONNECTED,             ///< text: the client's address and port
        LEFT,                  ///< the client closed its connection; text: empty, or what it left unfinished
        LOST,                  ///< the connection broke; text: why
        DROPPED,               ///< the host closed the connection; text: why
        VERSION_ANSWERED,      ///< text: what was answered
        SIMULATOR_ID_CHANGED,  ///< id: what the client's requests carry from now on
        INPUT_CONFIRMED,       ///< name, id, value: the current one, as it was answered
        INPUT_UNSUBSCRIBED,    ///< name, id
        OUTPUT_CONFIRMED,      ///< name, id, text: "integer" or "float"
        OUTPUT_UNREGISTERED,   ///< name, id
        PUBLISHED,             ///< name, id, value
        UPDATED,               ///< name, id, value: an update on its way to this client
        VALUE_SET,             ///< name, value: set by the host's own user
        UNKNOWN_ID,            ///< id, text: what it was for. The record was ignored
        REQUEST_IGNORED,       ///< text: why. The client is still served
    };

    Kind kind = Kind::LISTENING;
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
