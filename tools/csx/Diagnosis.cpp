#include "tools/csx/Diagnosis.h"

#include <cerrno>

namespace com_tesk::csx {

const Diagnosis& diagnosisOf(Failure failure) {
    static constexpr Diagnosis kNameNotFound{
        NO_HOST, "the name of the host has no address",
        "Check the spelling, or use the address. Manual: shell.md, \"The name has no address\"."};
    static constexpr Diagnosis kRefused{NO_HOST, "no program listens on this port",
                                        "Start the host, or check the port. Manual: shell.md, \"No program listens\"."};
    static constexpr Diagnosis kUnreachable{NO_HOST, "the address is not reachable",
                                            "Check cable, address and firewall. Manual: shell.md, \"Not reachable\"."};
    static constexpr Diagnosis kClosedAtOnce{
        NO_HOST, "the host accepts and closes the connection at once",
        "The host may be full, or refuse this machine. Manual: shell.md, \"Closed at once\"."};
    static constexpr Diagnosis kNotAHost{NO_HOST, "what answers there is no simulation host",
                                         "Another program uses the port. Manual: shell.md, \"Not a host\"."};
    static constexpr Diagnosis kStalled{
        NO_HOST, "the host stops in the middle of a message",
        "The host hangs, or the path drops large packets. Manual: shell.md, \"It stalls\"."};
    static constexpr Diagnosis kNoAnswer{
        NO_HOST, "the connection is established, and the host does not answer",
        "The host hangs, or a program between forwards to nowhere. Manual: shell.md, \"No answer\"."};
    static constexpr Diagnosis kLost{
        LOST, "the connection was lost after the host had answered",
        "The host has ended, or rejects this request. Manual: shell.md, \"The connection was lost\"."};
    static constexpr Diagnosis kLocal{NO_HOST, "this system refused a socket, a thread or memory",
                                      "Check the limits of this process. Manual: shell.md, \"This system refused\"."};
    static constexpr Diagnosis kNameNotConfirmed{
        UNCONFIRMED, "the host does not confirm the name",
        "Check the spelling; names are case-sensitive. Manual: not-arriving.md, section 5."};
    static constexpr Diagnosis kNoValue{UNCONFIRMED, "the name has no value",
                                        "No program has published it. Manual: not-arriving.md, section 6."};
    static constexpr Diagnosis kOutputNotConfirmed{
        UNCONFIRMED, "the host does not confirm the output",
        "The host may not let clients publish this name. Manual: not-arriving.md, section 5."};
    static constexpr Diagnosis kNoEcho{
        NOT_REACHED, "a published value does not come back",
        "The host may not pass values on to their publisher. Manual: not-arriving.md, section 7."};
    switch (failure) {
        case Failure::NAME_NOT_FOUND:
            return kNameNotFound;
        case Failure::REFUSED:
            return kRefused;
        case Failure::UNREACHABLE:
            return kUnreachable;
        case Failure::CLOSED_AT_ONCE:
            return kClosedAtOnce;
        case Failure::NOT_A_HOST:
            return kNotAHost;
        case Failure::STALLED:
            return kStalled;
        case Failure::NO_ANSWER:
            return kNoAnswer;
        case Failure::LOST:
            return kLost;
        case Failure::LOCAL:
            return kLocal;
        case Failure::NAME_NOT_CONFIRMED:
            return kNameNotConfirmed;
        case Failure::NO_VALUE:
            return kNoValue;
        case Failure::OUTPUT_NOT_CONFIRMED:
            return kOutputNotConfirmed;
        case Failure::NO_ECHO:
            return kNoEcho;
    }
    return kLocal;
}

bool hasAccepted(const LinkEvent& event) {
    // A host that resets the connection at once has accepted it, although the attempt to connect fails.
    return (event.cause == Cause::NONE && event.link >= Link::CONNECTED) || event.error == ECONNRESET;
}

Failure failureOf(const LinkEvent& event, bool wasConnected, bool hasAnswered) {
    switch (event.cause) {
        case Cause::NAME_NOT_FOUND:
            return Failure::NAME_NOT_FOUND;
        case Cause::REFUSED:
            return Failure::REFUSED;
        case Cause::FAILED:
            return Failure::LOCAL;
        case Cause::NOT_A_HOST:
            return hasAnswered ? Failure::LOST : Failure::NOT_A_HOST;
        default:
            break;
    }
    if (hasAnswered) {
        return Failure::LOST;
    }
    if (!wasConnected) {
        return Failure::UNREACHABLE;
    }
    return event.cause == Cause::SILENT ? Failure::STALLED : Failure::CLOSED_AT_ONCE;
}

}  // namespace com_tesk::csx
