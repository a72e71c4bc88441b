#pragma once

#include <cstdint>
#include <string>

#include "message/Export.h"

namespace com_tesk {

/// How far the connection of a `Session` has come. Each state includes the ones before it, so they can be compared:
/// `link >= Link::CONNECTED`.
enum class Link : std::uint8_t {
    STOPPED,     ///< Not started, or stopped.
    CONNECTING,  ///< There is no connection. The session tries to connect, again and again.
    CONNECTED,   ///< TCP has accepted. The peer may be a program that forwards, or no host at all.
    ANSWERED,    ///< The host has answered the version request: it is a host, and it is alive.
    READY,       ///< The host has confirmed everything that is declared.
};

/// Why a link has changed, or does not change.
enum class Cause : std::uint8_t {
    NONE,            ///< The link has become better.
    STOPPED_BY_US,   ///< `stop` or the destructor.
    REFUSED,         ///< No program listens at the address.
    UNREACHABLE,     ///< No route, no answer to the attempt, or another error of the network.
    NAME_NOT_FOUND,  ///< The name of the host has no IPv4 address.
    CLOSED,          ///< The peer has closed the connection.
    RESET,           ///< The peer has reset the connection.
    SILENT,          ///< The peer has stopped sending in the middle of a frame, or has stopped reading.
    NOT_A_HOST,      ///< The peer has sent bytes that are no frame.
    NO_ANSWER,       ///< The peer has not answered requests for its version.
    GONE,            ///< The peer's system no longer acknowledges anything: a cut cable, or no power.
    FAILED,          ///< This system refused something: a socket, a thread, or memory.
};

/// A change of the link, or its failure to change.
struct LinkEvent {
    Link link = Link::STOPPED;  ///< The state from now on.
    Cause cause = Cause::NONE;  ///< Why.
    int error = 0;              ///< The system's error number; 0 when there is none. For a name, that of `getaddrinfo`.
    std::string text;           ///< One line without a line feed, for people: what has happened and where.
};

/// Returns the name of the enumerator in lower case, with blanks: "not a host". Constant text.
/// @{
CSCLIENT_EXPORT const char* toString(Link link);
CSCLIENT_EXPORT const char* toString(Cause cause);
/// @}

}  // namespace com_tesk
