#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "host/Value.h"

namespace com_tesk {

/// An event of the host.
struct HostEvent {
    /// What has happened. The comments name the fields that are set, besides `time` and `client`.
    enum class Kind {
        LISTENING,             ///< text: address and port.
        STOPPED,               ///< Every client connection is closed, and the port is free again.
        ACCEPT_FAILED,         ///< The host could not accept a client; text: why. It tries again.
        CONNECTED,             ///< text: the client's address and port.
        LEFT,                  ///< The client closed its connection; text: empty, or what is unfinished.
        LOST,                  ///< The connection broke; text: why.
        DROPPED,               ///< The host closed the connection; text: why.
        VERSION_ANSWERED,      ///< text: the contents of the reply.
        SIMULATOR_ID_CHANGED,  ///< id: the simulator id in the client's requests from now on.
        INPUT_CONFIRMED,       ///< name, id, value: the current value, as in the reply.
        INPUT_UNSUBSCRIBED,    ///< name, id.
        OUTPUT_CONFIRMED,      ///< name, id, text: "integer" or "float".
        OUTPUT_UNREGISTERED,   ///< name, id.
        PUBLISHED,             ///< name, id, value.
        UPDATED,               ///< name, id, value: the host sends an update to this client.
        VALUE_SET,             ///< name, value: set with LoopbackHost::setValue().
        NAME_REFUSED,          ///< name: not one of HostOptions::knownNames. The host does not confirm it.
        UNKNOWN_ID,            ///< id, text: the kind of request. The record was ignored.
        REQUEST_IGNORED,       ///< text: why. The client is still served.
        FAULT,                 ///< text: what a scenario does now, such as "delay of outputs-confirmed".
    };

    Kind kind = Kind::LISTENING;                   ///< What has happened.
    std::chrono::system_clock::time_point time{};  ///< When.
    std::uint64_t client = 0;        ///< Clients are numbered from 1 in the order of connections; 0 is the host itself.
    std::string name;                ///< Of the input, output or value; the bytes as the client sent them.
    std::uint32_t id = 0;            ///< Of the input or output, or the simulator id.
    std::optional<HostValue> value;  ///< The value, of the kinds that have one.
    std::string text;                ///< What `Kind` says.
};

/// Returns the event as a text without its time, for example: client 2 published ALT = 12.5 (float, output id 4).
/// The text is one line without a newline. A name is put in double quotes when it is empty or contains a blank, a
/// quote, a backslash or an unprintable byte. All of these but blanks are then printed as \xNN.
std::string describe(const HostEvent& event);

/// Returns the local time, then describe(): 2026-07-01T12:00:00.250 client 2 published ...
std::string lineOf(const HostEvent& event);

}  // namespace com_tesk
