#pragma once

#include "session/Link.h"
#include "tools/csx/ExitCode.h"

namespace com_tesk::csx {

/// What the doctor can find.
enum class Failure {
    NAME_NOT_FOUND,
    REFUSED,
    UNREACHABLE,
    CLOSED_AT_ONCE,
    NOT_A_HOST,
    STALLED,
    NO_ANSWER,
    LOST,
    LOCAL,
    NAME_NOT_CONFIRMED,
    NO_VALUE,
    OUTPUT_NOT_CONFIRMED,
    NO_ECHO,
};

/// All of them.
constexpr Failure kFailures[] = {
    Failure::NAME_NOT_FOUND, Failure::REFUSED,
    Failure::UNREACHABLE,    Failure::CLOSED_AT_ONCE,
    Failure::NOT_A_HOST,     Failure::STALLED,
    Failure::NO_ANSWER,      Failure::LOST,
    Failure::LOCAL,          Failure::NAME_NOT_CONFIRMED,
    Failure::NO_VALUE,       Failure::OUTPUT_NOT_CONFIRMED,
    Failure::NO_ECHO,
};

/// A failure for people.
struct Diagnosis {
    ExitCode code;
    const char* verdict;
    const char* hint;  ///< What to do, and the page of the manual.
};

/// Returns the texts and the exit code of a failure.
const Diagnosis& diagnosisOf(Failure failure);

/// True when the event shows that TCP has accepted the connection.
bool hasAccepted(const LinkEvent& event);

/// Returns what a failed connection means.
/// @param wasConnected  TCP had accepted.
/// @param hasAnswered   the host had answered the version request.
Failure failureOf(const LinkEvent& event, bool wasConnected, bool hasAnswered);

}  // namespace com_tesk::csx
