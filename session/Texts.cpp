// The names of states.

#include "session/Input.h"
#include "session/Link.h"

namespace com_tesk {

const char* toString(Link link) {
    switch (link) {
        case Link::STOPPED:
            return "stopped";
        case Link::CONNECTING:
            return "connecting";
        case Link::CONNECTED:
            return "connected";
        case Link::ANSWERED:
            return "answered";
        case Link::READY:
            return "ready";
    }
    return "";
}

const char* toString(Cause cause) {
    switch (cause) {
        case Cause::NONE:
            return "none";
        case Cause::STOPPED_BY_US:
            return "stopped by us";
        case Cause::REFUSED:
            return "refused";
        case Cause::UNREACHABLE:
            return "unreachable";
        case Cause::NAME_NOT_FOUND:
            return "name not found";
        case Cause::CLOSED:
            return "closed";
        case Cause::RESET:
            return "reset";
        case Cause::SILENT:
            return "silent";
        case Cause::NOT_A_HOST:
            return "not a host";
        case Cause::NO_ANSWER:
            return "no answer";
        case Cause::GONE:
            return "gone";
        case Cause::FAILED:
            return "failed";
    }
    return "";
}

const char* toString(Quality quality) {
    switch (quality) {
        case Quality::NEVER:
            return "never";
        case Quality::LOST:
            return "lost";
        case Quality::UNCONFIRMED:
            return "unconfirmed";
        case Quality::STALE:
            return "stale";
        case Quality::GOOD:
            return "good";
    }
    return "";
}

}  // namespace com_tesk
